# Controller input: its rules as tables, and picking, locomotion and teleporting in whole runs.
orvel_add_test(controller_input_tests SOURCES ControllerInputTest.cpp)
orvel_add_test(interaction_run_tests GL SOURCES InteractionRunGLTest.cpp LIBS orvel_simvr orvel_simcyb)
set_target_properties(interaction_run_tests PROPERTIES BUILD_RPATH "$<TARGET_FILE_DIR:orvel_simvr>")
