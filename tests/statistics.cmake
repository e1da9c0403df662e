# The run's figures: the recorder alone, whole runs on the simulated runtime, and the demo's statistics file.
orvel_add_test(run_recorder_tests SOURCES RunRecorderTest.cpp)
orvel_add_test(run_statistics_tests GL SOURCES RunStatisticsGLTest.cpp LIBS orvel_simvr)
set_target_properties(run_statistics_tests PROPERTIES BUILD_RPATH "$<TARGET_FILE_DIR:orvel_simvr>")

if(ORVEL_BUILD_EXAMPLES)
    find_package(nlohmann_json REQUIRED)
    set(stats_output ${CMAKE_CURRENT_BINARY_DIR}/demo_statistics)
    file(MAKE_DIRECTORY ${stats_output})
    orvel_add_test(demo_statistics_tests GL SOURCES DemoStatisticsTest.cpp LIBS nlohmann_json::nlohmann_json)
    target_compile_definitions(demo_statistics_tests PRIVATE ORVEL_DEMO_PROGRAM="$<TARGET_FILE:orvel_demo>"
        ORVEL_DEMO_OUTPUT_DIR="${stats_output}")
    add_dependencies(demo_statistics_tests orvel_demo)
endif()
