orvel_add_test(text_tests SOURCES
    BitmapTest.cpp
    TextRendererTest.cpp)
