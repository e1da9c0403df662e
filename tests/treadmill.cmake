# The viewer opens the simulated vendor library by name through the rpath; the test links the same file for
# its control API.
orvel_add_test(treadmill_tests SOURCES TreadmillTest.cpp LIBS orvel_simcyb)
set_target_properties(treadmill_tests PROPERTIES BUILD_RPATH "$<TARGET_FILE_DIR:orvel_simcyb>")

# No path leads from this executable to the simulated vendor library: its own output folder, no rpath to it,
# and that folder as its working directory (Windows looks for a DLL in the working directory too).
orvel_add_test(treadmill_absent_tests SOURCES TreadmillAbsentTest.cpp
    WORKING_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/treadmill-absent)
set_target_properties(treadmill_absent_tests PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/treadmill-absent)
