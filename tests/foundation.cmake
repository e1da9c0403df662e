orvel_add_test(foundation_tests SOURCES
    MathTest.cpp
    LogTest.cpp
    StringValTest.cpp)
orvel_add_test(glcontext_tests GL SOURCES GLFunctionsGLTest.cpp)
