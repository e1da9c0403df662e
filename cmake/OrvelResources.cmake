# Every executable the build makes gets a VR/ folder beside it, so the library's resource settings
# (executable folder + "VR/...") resolve the same way as in an installed host.
set(ORVEL_RESOURCE_DIR ${CMAKE_CURRENT_SOURCE_DIR}/resources/VR)
# The staged copies are refreshed when an executable is linked; listing the files as link dependencies
# relinks (and so restages) after a shader or model changed.
set(ORVEL_RESOURCE_FILES)
foreach(name AnnotationArrow.geo Beam.frg Beam.vrt Bigpoints.frg Bigpoints.vrt Blur.frg Controller.frg Controller.vrt Identity.vrt
        Line.geo Lines.frg Lines.vrt MeasureText.geo Mesh.frg Mesh.vrt Points.frg Points.vrt Tablet.frg
        TeleportLine.frg TeleportLine.vrt TeleportPad.frg TeleportPad.vrt TextLabel.frg Texture.vrt
        TexturedMesh.frg TexturedMesh.vrt UniformColor.frg)
    list(APPEND ORVEL_RESOURCE_FILES ${ORVEL_RESOURCE_DIR}/Shader/${name})
endforeach()
list(APPEND ORVEL_RESOURCE_FILES ${ORVEL_RESOURCE_DIR}/Models/Cylinder.ply)
set(ORVEL_FONT_SOURCE "" CACHE FILEPATH "Noto Sans CJK font staged as VR/Fonts/NotoSansCJKsc-Regular.otf")
if(NOT ORVEL_FONT_SOURCE)
    foreach(candidate
            /usr/share/fonts/opentype/noto/NotoSansCJK-Regular.ttc
            /usr/share/fonts/opentype/noto/NotoSansCJKsc-Regular.otf)
        if(EXISTS ${candidate})
            set(ORVEL_FONT_SOURCE ${candidate})
            break()
        endif()
    endforeach()
endif()
if(NOT ORVEL_FONT_SOURCE)
    message(FATAL_ERROR "Noto Sans CJK not found: install the Debian package fonts-noto-cjk")
endif()

function(orvel_stage_resources target)
    set_property(TARGET ${target} APPEND PROPERTY LINK_DEPENDS ${ORVEL_RESOURCE_FILES})
    add_custom_command(TARGET ${target} POST_BUILD
        COMMAND ${CMAKE_COMMAND} -E copy_directory ${ORVEL_RESOURCE_DIR} $<TARGET_FILE_DIR:${target}>/VR
        COMMAND ${CMAKE_COMMAND} -E make_directory $<TARGET_FILE_DIR:${target}>/VR/Fonts
        COMMAND ${CMAKE_COMMAND} -E copy_if_different ${ORVEL_FONT_SOURCE}
                $<TARGET_FILE_DIR:${target}>/VR/Fonts/NotoSansCJKsc-Regular.otf
        VERBATIM)
endfunction()
