# Shared build settings: warnings are errors, optional sanitizers.
add_library(lldp_build_flags INTERFACE)
target_compile_options(lldp_build_flags INTERFACE
  -Wall -Wextra -Wpedantic -Werror -Wno-gnu-zero-variadic-macro-arguments)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # Unknown -Wno-* options are only reported by gcc when another warning fires.
  target_compile_options(lldp_build_flags INTERFACE -Wno-unknown-warning-option)
endif()
if(LLDP_SANITIZE)
  target_compile_options(lldp_build_flags INTERFACE
    -fsanitize=${LLDP_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(lldp_build_flags INTERFACE -fsanitize=${LLDP_SANITIZE})
endif()

# lldp_add_library(NAME DIR [DEPS ...]): a shared library from every .cpp in DIR,
# with the repository root as its public include root.
function(lldp_add_library name dir)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB_RECURSE srcs CONFIGURE_DEPENDS "${dir}/*.cpp")
  add_library(${name} SHARED ${srcs})
  add_library(Lldp::${name} ALIAS ${name})
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
  target_link_libraries(${name} PUBLIC ${ARG_DEPS} PRIVATE $<BUILD_INTERFACE:lldp_build_flags>)
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
  install(TARGETS ${name} EXPORT LldpTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(DIRECTORY ${dir}/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/${dir}
    FILES_MATCHING PATTERN "*.h")
endfunction()
