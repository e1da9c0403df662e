orvel_add_test(engine_gl_tests GL SOURCES
    BufferGLTest.cpp
    ShaderGLTest.cpp
    TextureGLTest.cpp
    RendererGLTest.cpp)
