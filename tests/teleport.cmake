# Teleporting: the camera glide, driven by a hand-set clock, and the line and pad, checked by pixels.
orvel_add_test(camera_animation_tests SOURCES CameraAnimationTest.cpp)
orvel_add_test(teleport_renderer_gl_tests GL SOURCES TeleportRendererGLTest.cpp)
