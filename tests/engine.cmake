orvel_add_test(engine_gl_tests GL SOURCES RendererGLTest.cpp)
