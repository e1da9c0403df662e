orvel_add_test(simvr_tests SOURCES SimVRTest.cpp LIBS orvel_simvr_test_support)
orvel_add_test(simvr_gl_tests GL SOURCES SimVRGLTest.cpp LIBS orvel_simvr_test_support)
