# Installs the built library into a scratch prefix and builds a small outside host against it with
# find_package(OrvelVR), the way an application would consume the library.
#
# Included from tests/CMakeLists.txt it registers the test; run with -P it performs the steps.
if(NOT CMAKE_SCRIPT_MODE_FILE)
    add_test(NAME package.FindPackage
        COMMAND ${CMAKE_COMMAND}
            -DBUILD_DIR=${PROJECT_BINARY_DIR}
            -DCONFIG=$<CONFIG>
            -DGENERATOR=${CMAKE_GENERATOR}
            -DCXX_COMPILER=${CMAKE_CXX_COMPILER}
            -DSOURCE_DIR=${CMAKE_CURRENT_SOURCE_DIR}/package
            -DWORK_DIR=${CMAKE_CURRENT_BINARY_DIR}/package-test
            -P ${CMAKE_CURRENT_LIST_FILE})
    set_tests_properties(package.FindPackage PROPERTIES LABELS package TIMEOUT 600)
    return()
endif()

function(run_step what)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "${what} failed (${result}):\n${output}")
    endif()
    message(STATUS "${what}: ok")
endfunction()

set(config_args)
if(CONFIG)
    set(config_args --config ${CONFIG})
endif()
set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})

# Installing only reads the build tree, which the test command has built before any test runs; everything
# the test makes stays under WORK_DIR, so it runs beside the other tests.
run_step("installing" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix} ${config_args})
# Private headers stay out of the package.
foreach(private engine/GL.h engine/Buffer.h platform/Platform.h platform/Utf.h vr/IOpenVR.h vr/MinimalOpenVR.h
        vr/openvr/OpenVRTypes.h glad/gl.h)
    if(EXISTS ${prefix}/include/orvel/${private})
        message(FATAL_ERROR "the private header ${private} was installed")
    endif()
endforeach()
run_step("configuring the host" ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/host -G ${GENERATOR}
    -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_PREFIX_PATH=${prefix} -DCMAKE_BUILD_TYPE=${CONFIG}
    -DORVEL_INSTALLED_FONT=${prefix}/share/orvel/VR/Fonts/NotoSansCJKsc-Regular.otf)
run_step("building the host" ${CMAKE_COMMAND} --build ${WORK_DIR}/host ${config_args})

find_program(host orvel_package_host PATHS ${WORK_DIR}/host ${WORK_DIR}/host/${CONFIG} NO_DEFAULT_PATH
    NO_CACHE)
if(NOT host)
    message(FATAL_ERROR "the host executable was not built")
endif()
run_step("running the host" ${host})
