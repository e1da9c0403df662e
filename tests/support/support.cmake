target_sources(orvel_test_support PRIVATE support/GLContext.cpp support/RecordingHost.cpp)

# The simulated runtime reached only by loading it by file name, as a client loads an OpenVR runtime.
add_library(orvel_simvr_test_support STATIC support/SimVRLibrary.cpp)
target_link_libraries(orvel_simvr_test_support PUBLIC orvel_vr_static)
target_compile_definitions(orvel_simvr_test_support PRIVATE SIMVR_LIBRARY_PATH="$<TARGET_FILE:orvel_simvr>")
add_dependencies(orvel_simvr_test_support orvel_simvr)
orvel_set_warnings(orvel_simvr_test_support)
