# Whole VR runs need the simulated runtime: the test links its control API from the same library file the
# viewer loads by name, so one copy of the runtime serves both.
orvel_add_test(vr_run_tests GL SOURCES VRRunGLTest.cpp LIBS orvel_simvr)
set_target_properties(vr_run_tests PROPERTIES BUILD_RPATH "$<TARGET_FILE_DIR:orvel_simvr>")

# A broken installation: its own folder, its own resource copy with two shaders removed.
orvel_add_test(vr_broken_resources_tests GL SOURCES VRRunBrokenResourcesTest.cpp LIBS orvel_simvr)
set_target_properties(vr_broken_resources_tests PROPERTIES
    BUILD_RPATH "$<TARGET_FILE_DIR:orvel_simvr>"
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/broken-resources)
add_custom_command(TARGET vr_broken_resources_tests POST_BUILD
    COMMAND ${CMAKE_COMMAND} -E rm -f $<TARGET_FILE_DIR:vr_broken_resources_tests>/VR/Shader/Blur.frg
            $<TARGET_FILE_DIR:vr_broken_resources_tests>/VR/Shader/Controller.frg
    VERBATIM)

# Hosts that throw, answer nonsense or break the rules of their records, in whole runs.
orvel_add_test(hostile_host_tests GL SOURCES HostileHostTest.cpp LIBS orvel_simvr)
set_target_properties(hostile_host_tests PROPERTIES BUILD_RPATH "$<TARGET_FILE_DIR:orvel_simvr>")
