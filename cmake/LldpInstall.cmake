include(CMakePackageConfigHelpers)
install(EXPORT LldpTargets NAMESPACE Lldp:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Lldp)
# Components: find_package(Lldp COMPONENTS LldpRx) loads <Component>Targets.cmake.
install(EXPORT LldpRxTargets NAMESPACE Lldp:: DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Lldp COMPONENT LldpRx)
configure_package_config_file(cmake/LldpConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/LldpConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Lldp)
# Before 1.0 a minor version is a new ABI (see the libraries' SOVERSION).
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(compatibility SameMinorVersion)
else()
  set(compatibility SameMajorVersion)
endif()
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/LldpConfigVersion.cmake
  COMPATIBILITY ${compatibility})
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/LldpConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/LldpConfigVersion.cmake
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/Lldp)
