# Install rules: libraries, public and platform headers, a CMake package (find_package(pxImage)) and a
# pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS pxImage pxEnv pxMath img_4_px EXPORT pxImageTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
file(GLOB PXIMAGE_PUBLIC_HEADERS ${PROJECT_SOURCE_DIR}/include/*.h)
install(FILES ${PXIMAGE_PUBLIC_HEADERS}
  ${PROJECT_SOURCE_DIR}/platform/pxEnv.h
  ${PROJECT_SOURCE_DIR}/platform/pxMath.h
  ${PROJECT_SOURCE_DIR}/platform/img_4_px.h
  ${PROJECT_SOURCE_DIR}/platform/pxEnvPath.h
  ${PROJECT_SOURCE_DIR}/platform/CMarkupSTL.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/pxImage)

set(PXIMAGE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/pxImage)
install(EXPORT pxImageTargets NAMESPACE pxImage:: DESTINATION ${PXIMAGE_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/pxImageConfig.cmake.in
  ${PROJECT_BINARY_DIR}/pxImageConfig.cmake INSTALL_DESTINATION ${PXIMAGE_CMAKE_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/pxImageConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/pxImageConfig.cmake ${PROJECT_BINARY_DIR}/pxImageConfigVersion.cmake
  DESTINATION ${PXIMAGE_CMAKE_DIR})

# The pkg-config file finds its prefix relative to its own folder, so the installed tree can be moved.
file(RELATIVE_PATH PXIMAGE_PC_TO_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
configure_file(${PROJECT_SOURCE_DIR}/cmake/pxImage.pc.in ${PROJECT_BINARY_DIR}/pxImage.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/pxImage.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
