orvel_add_test(vr_model_renderer_gl_tests GL SOURCES VrModelRendererGLTest.cpp)

# No path leads from this executable to the simulated runtime: its own output folder, no rpath to it.
orvel_add_test(openvr_absent_tests SOURCES OpenVRAbsentTest.cpp)
set_target_properties(openvr_absent_tests PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/openvr-absent)
