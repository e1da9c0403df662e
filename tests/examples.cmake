# The demo host's data side: readers on the sample scans, the generated room, the visibility query, PNG output.
if(ORVEL_BUILD_EXAMPLES AND EXISTS ${PROJECT_SOURCE_DIR}/examples/CMakeLists.txt)
    orvel_add_test(examples_tests SOURCES
        DemoViewTest.cpp
        PointCloudReaderTest.cpp
        PngWriterTest.cpp
        VisibilityQueryTest.cpp
        LIBS orvel_demo_lib)
    # The sample scans live beside the checkout; tests skip when the folder is absent.
    target_compile_definitions(examples_tests PRIVATE
        ORVEL_SAMPLE_DATA_DIR="${CMAKE_SOURCE_DIR}/../shared/data")
endif()
