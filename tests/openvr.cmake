orvel_add_test(vr_model_renderer_gl_tests GL SOURCES VrModelRendererGLTest.cpp)

# No path leads from this executable to the simulated runtime: its own output folder, no rpath to it, and
# that folder as its working directory (Windows looks for a DLL in the working directory too).
orvel_add_test(openvr_absent_tests SOURCES OpenVRAbsentTest.cpp
    WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/openvr-absent)
set_target_properties(openvr_absent_tests PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/openvr-absent)

# Against the simulated runtime. Linking its control API puts the runtime's folder on the executable's
# search path, which is where the OpenVR layer's own loading finds the same library again.
orvel_add_test(minimal_openvr_tests SOURCES MinimalOpenVRTest.cpp LIBS orvel_simvr)
orvel_add_test(minimal_openvr_gl_tests GL SOURCES MinimalOpenVRModelsGLTest.cpp LIBS orvel_simvr)
# Start-up retries: about ten seconds per test.
orvel_add_test(minimal_openvr_slow_tests SOURCES MinimalOpenVRSlowTest.cpp LIBS orvel_simvr LABELS slow)
