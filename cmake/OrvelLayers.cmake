# The library is built in layers, one object library per source folder, linked one way:
# platform <- common <- engine, text <- vr. A layer may include only its own headers and those of the
# layers below it; orvel_add_layer checks that at configure time, so a wrong include fails the build
# instead of waiting for review.
set(ORVEL_LAYER_FOLDERS platform common engine text vr)

function(orvel_add_layer name folder)
    cmake_parse_arguments(ARG "" "" "SOURCES;HEADERS;ALLOWED;LINKS" ${ARGN})
    add_library(${name} OBJECT ${ARG_SOURCES} ${ARG_HEADERS})
    set_target_properties(${name} PROPERTIES
        POSITION_INDEPENDENT_CODE ON
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)
    target_compile_definitions(${name} PRIVATE ORVEL_VR_BUILDING PUBLIC GLFW_INCLUDE_NONE)
    target_include_directories(${name} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/orvel>)
    target_link_libraries(${name} PUBLIC ${ARG_LINKS})
    orvel_set_warnings(${name})

    set(allowed ${folder} ${ARG_ALLOWED})
    foreach(file IN LISTS ARG_SOURCES ARG_HEADERS)
        file(STRINGS ${CMAKE_CURRENT_SOURCE_DIR}/${file} includes REGEX "^[ \t]*#[ \t]*include[ \t]*\"")
        foreach(line IN LISTS includes)
            if(line MATCHES "\"([a-z]+)/")
                set(layer ${CMAKE_MATCH_1})
                if(layer IN_LIST ORVEL_LAYER_FOLDERS AND NOT layer IN_LIST allowed)
                    message(FATAL_ERROR "${folder}/${file} includes a header of ${layer}/, which is not "
                        "below ${folder}/ (allowed: ${allowed})")
                endif()
            endif()
        endforeach()
    endforeach()
endfunction()
