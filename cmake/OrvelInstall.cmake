include(CMakePackageConfigHelpers)

install(TARGETS orvel_vr EXPORT OrvelVRTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orvel)
# Only the public headers: the exported classes and what their headers need. The GL loader, the platform
# calls and the OpenVR declarations stay private to the library.
set(ORVEL_PUBLIC_HEADERS
    platform/Export.h platform/Log.h
    common/AnnotationData.h common/IVRView.h common/Mat4d.h common/MeasurementData.h common/MeshData.h
    common/Point3dRGB.h common/Point3dRGBA.h common/SVec2d.h common/StringVal.h common/Vec3d.h
    engine/Renderer.h
    text/Bitmap.h text/TextRenderer.h
    vr/RunStatistics.h vr/VRGlobals.h vr/VRManager.h vr/VRRenderer.h vr/VrModelRenderer.h
    vr/points/PointGrabber.h vr/points/PointRenderer.h
    vr/objects/AnnotationController.h vr/objects/HTMLView.h vr/objects/LabelRenderer.h
    vr/objects/MeasurementController.h vr/objects/MeshRenderer.h vr/objects/Object3dGrabber.h)
foreach(header IN LISTS ORVEL_PUBLIC_HEADERS)
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${header} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/orvel/${folder})
endforeach()
install(DIRECTORY ${ORVEL_RESOURCE_DIR} DESTINATION ${CMAKE_INSTALL_DATADIR}/orvel)
install(FILES ${ORVEL_FONT_SOURCE} DESTINATION ${CMAKE_INSTALL_DATADIR}/orvel/VR/Fonts
    RENAME NotoSansCJKsc-Regular.otf)

install(EXPORT OrvelVRTargets NAMESPACE Orvel:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OrvelVR)
configure_package_config_file(cmake/OrvelVRConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/OrvelVRConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OrvelVR)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/OrvelVRConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/OrvelVRConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/OrvelVRConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/OrvelVR)
