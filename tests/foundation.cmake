orvel_add_test(foundation_tests SOURCES
    MathTest.cpp
    LogTest.cpp
    StringValTest.cpp)
