# Whole VR runs need the simulated runtime: the test links its control API from the same library file the
# viewer loads by name, so one copy of the runtime serves both.
if(TARGET orvel_simvr)
    orvel_add_test(vr_run_tests GL SOURCES VRRunGLTest.cpp LIBS orvel_simvr)
    set_target_properties(vr_run_tests PROPERTIES BUILD_RPATH "$<TARGET_FILE_DIR:orvel_simvr>")
endif()
