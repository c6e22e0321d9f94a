include(CMakePackageConfigHelpers)
install(EXPORT LldpTargets NAMESPACE Lldp:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Lldp)
# Components: find_package(Lldp COMPONENTS LldpRx) loads <Component>Targets.cmake.
install(EXPORT LldpRxTargets NAMESPACE Lldp:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Lldp COMPONENT LldpRx)
configure_package_config_file(cmake/LldpConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/LldpConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Lldp)
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/LldpConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/LldpConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/LldpConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Lldp)
