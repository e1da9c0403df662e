# Generates the OpenGL loader with Debian's glad 2: the core profile up to 4.6 and exactly the two
# extensions the engine looks for. The debug variant is generated so tests can observe call sequences;
# the engine switches its hooks off unless a test asks for them.
find_program(ORVEL_GLAD_EXECUTABLE glad PATHS /usr/bin NO_DEFAULT_PATH)
if(NOT ORVEL_GLAD_EXECUTABLE)
    find_program(ORVEL_GLAD_EXECUTABLE glad REQUIRED)
endif()

set(ORVEL_GLAD_DIR ${CMAKE_CURRENT_BINARY_DIR}/glad)
set(ORVEL_GLAD_INCLUDE_DIR ${ORVEL_GLAD_DIR}/include)
set(ORVEL_GLAD_OUTPUTS
    ${ORVEL_GLAD_DIR}/src/gl.c
    ${ORVEL_GLAD_DIR}/include/glad/gl.h
    ${ORVEL_GLAD_DIR}/include/KHR/khrplatform.h)
add_custom_command(
    OUTPUT ${ORVEL_GLAD_OUTPUTS}
    COMMAND ${ORVEL_GLAD_EXECUTABLE} --api gl:core=4.6
            --extensions GL_ARB_bindless_texture,GL_KHR_debug
            --out-path ${ORVEL_GLAD_DIR} --quiet --reproducible c --debug
    COMMENT "Generating the OpenGL 4.6 core loader"
    VERBATIM)

# engine/GLLoader.c compiles the generated loader together with the counting initialisation, so the
# generated source itself is not a separate translation unit.
add_library(orvel_glad STATIC ${CMAKE_CURRENT_SOURCE_DIR}/engine/GLLoader.c ${ORVEL_GLAD_OUTPUTS})
set_source_files_properties(${ORVEL_GLAD_DIR}/src/gl.c PROPERTIES HEADER_FILE_ONLY ON)
set_target_properties(orvel_glad PROPERTIES POSITION_INDEPENDENT_CODE ON C_VISIBILITY_PRESET hidden)
target_include_directories(orvel_glad PUBLIC
    $<BUILD_INTERFACE:${ORVEL_GLAD_INCLUDE_DIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/orvel>)
target_include_directories(orvel_glad PRIVATE ${ORVEL_GLAD_DIR}/src ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(orvel_glad PUBLIC ${CMAKE_DL_LIBS})
