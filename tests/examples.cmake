# The demo host: its data side (readers on the sample scans, the generated room, the visibility query, PNG
# output) and the program itself, run as a user runs it.
if(ORVEL_BUILD_EXAMPLES)
    set(ORVEL_SAMPLE_DATA_DIR "${PROJECT_SOURCE_DIR}/../shared/data" CACHE PATH
        "Folder holding the sample scans autzen_trim.las and pump-scan.ply; the reader tests skip without them")
    orvel_add_test(examples_tests SOURCES
        DemoViewTest.cpp
        MeasurementStoreTest.cpp
        PointCloudReaderTest.cpp
        PngWriterTest.cpp
        SessionScriptTest.cpp
        TabletPageTest.cpp
        VisibilityQueryTest.cpp
        LIBS orvel_demo_lib orvel_vr_static)
    target_compile_definitions(examples_tests PRIVATE ORVEL_SAMPLE_DATA_DIR="${ORVEL_SAMPLE_DATA_DIR}")

    # The demo host's answers drawn by the viewer on the simulated runtime.
    orvel_add_test(solid_surfaces_tests GL SOURCES SolidSurfacesRunGLTest.cpp LIBS orvel_demo_lib orvel_vr_static
        orvel_simvr)
    set_target_properties(solid_surfaces_tests PROPERTIES BUILD_RPATH "$<TARGET_FILE_DIR:orvel_simvr>")

    # Where the demo puts the user at the start, seen from there on the simulated runtime.
    orvel_add_test(start_view_tests GL SOURCES StartViewGLTest.cpp LIBS orvel_demo_lib orvel_vr_static
        orvel_simvr)
    set_target_properties(start_view_tests PROPERTIES BUILD_RPATH "$<TARGET_FILE_DIR:orvel_simvr>")

    # The program with the simulated runtime, as the main job runs it.
    set(demo_output ${CMAKE_CURRENT_BINARY_DIR}/demo_program)
    file(MAKE_DIRECTORY ${demo_output})
    orvel_add_test(demo_program_tests GL SOURCES DemoProgramTest.cpp LIBS orvel_demo_lib orvel_vr_static)
    target_compile_definitions(demo_program_tests PRIVATE ORVEL_DEMO_PROGRAM="$<TARGET_FILE:orvel_demo>"
        ORVEL_DEMO_OUTPUT_DIR="${demo_output}" ORVEL_DEMO_SCRIPTS_DIR="${PROJECT_SOURCE_DIR}/examples/scripts")
    add_dependencies(demo_program_tests orvel_demo)

    # The shell checks run on the build machine; a program built for another system runs through the
    # emulator that runs its tests (Wine for the Windows build), and "$@" in each check stands for both.
    if(CMAKE_HOST_UNIX)
        set(demo ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:orvel_demo>)
        # Told to use an installed runtime where none can be found (the simulated one is not beside the
        # program and the loader's search path is emptied), the program ends at once with exit code 1.
        add_test(NAME DemoProgram.EndsWithoutInstalledRuntime
            COMMAND sh -c "\"$@\" --runtime openvr; test $? -eq 1" sh ${demo})
        set_tests_properties(DemoProgram.EndsWithoutInstalledRuntime PROPERTIES
            ENVIRONMENT "LD_LIBRARY_PATH=" TIMEOUT 20)
        # A script that cannot be read ends the program at once with exit code 2.
        add_test(NAME DemoProgram.RefusesUnreadableScript
            COMMAND sh -c "\"$@\" --runtime simulated --script no-such-script.txt; test $? -eq 2" sh ${demo})
        set_tests_properties(DemoProgram.RefusesUnreadableScript PROPERTIES TIMEOUT 20)
        # An option whose value was left out ends the program at once with exit code 2, whatever follows it:
        # the next option is not taken for its value (nor that option's value for the scan).
        add_test(NAME DemoProgram.RefusesOptionWithoutValue
            COMMAND sh -c "for args in '--stats --runtime simulated --frames 1' '--screenshot --frames 1' '--frames 1 --up'; do \"$@\" $args; test $? -eq 2 || exit 1; done"
                sh ${demo})
        set_tests_properties(DemoProgram.RefusesOptionWithoutValue PROPERTIES TIMEOUT 20)
        # The program links no stand-in: nothing of the simulated runtime's or walking platform's control
        # API is left for the loader to resolve. A Windows program names the DLLs and functions it imports
        # in its import table.
        if(WIN32 AND CMAKE_OBJDUMP)
            add_test(NAME DemoProgram.LinksNoRuntime
                COMMAND sh -c "out=$(\"$1\" -p \"$0\") && printf '%s' \"$out\" | grep -q 'DLL Name' && ! printf '%s' \"$out\" | grep -i -e simvr_ -e simcyb_ -e 'DLL Name: openvr_api' -e 'DLL Name: CybSDK'"
                    $<TARGET_FILE:orvel_demo> ${CMAKE_OBJDUMP})
        elseif(NOT WIN32 AND CMAKE_NM)
            add_test(NAME DemoProgram.LinksNoRuntime
                COMMAND sh -c "out=$(\"$1\" -D --undefined-only \"$0\") && ! printf '%s' \"$out\" | grep -e simvr_ -e simcyb_"
                    $<TARGET_FILE:orvel_demo> ${CMAKE_NM})
        endif()
    endif()
endif()
