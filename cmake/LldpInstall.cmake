include(CMakePackageConfigHelpers)
install(EXPORT LldpTargets NAMESPACE Lldp:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Lldp)
configure_package_config_file(cmake/LldpConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/LldpConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Lldp)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/LldpConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/LldpConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/LldpConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Lldp)
