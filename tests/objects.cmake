# The host objects: the object grabber's cycle, and the objects drawn from host data, checked by pixels.
orvel_add_test(object_grabber_tests SOURCES Object3dGrabberTest.cpp)
orvel_add_test(mesh_renderer_gl_tests GL SOURCES MeshRendererGLTest.cpp)
orvel_add_test(measurement_gl_tests GL SOURCES MeasurementControllerGLTest.cpp)
orvel_add_test(annotation_gl_tests GL SOURCES AnnotationGLTest.cpp)
orvel_add_test(tablet_gl_tests GL SOURCES HTMLViewGLTest.cpp)
