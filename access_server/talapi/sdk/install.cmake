# SPDX-License-Identifier: Apache-2.0
# The host SDK as a firmware build stages it: the host libraries (versioned, with their links),
# every public header under include/talapi, a pkg-config file and a CMake package that give a
# business module the host libraries and the business header with their json-c and safeclib
# requirements.
include(CMakePackageConfigHelpers)

install(TARGETS talapi_headers talapicommon talapilog EXPORT talapiTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT sdk NAMELINK_COMPONENT sdk
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/talapi)
install(DIRECTORY ${CMAKE_CURRENT_SOURCE_DIR}/inc/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/talapi
  COMPONENT sdk FILES_MATCHING PATTERN "*.h")

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/talapi)
install(EXPORT talapiTargets NAMESPACE talapi:: DESTINATION ${package_dir} COMPONENT sdk)
configure_package_config_file(${CMAKE_CURRENT_SOURCE_DIR}/sdk/talapiConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/talapiConfig.cmake INSTALL_DESTINATION ${package_dir}
  PATH_VARS TALAPI_MODULE_DIR)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/talapiConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/talapiConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/talapiConfigVersion.cmake DESTINATION ${package_dir} COMPONENT sdk)

configure_file(${CMAKE_CURRENT_SOURCE_DIR}/sdk/talapi.pc.in ${CMAKE_CURRENT_BINARY_DIR}/talapi.pc
  @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/talapi.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT sdk)
