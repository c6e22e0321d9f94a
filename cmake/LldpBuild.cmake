# Shared build settings: warnings are errors, optional sanitizers.
add_library(lldp_build_flags INTERFACE)
target_compile_options(lldp_build_flags INTERFACE -Wall -Wextra -Wpedantic -Werror)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # The named assertions pass an empty __VA_ARGS__ on purpose.
  target_compile_options(lldp_build_flags INTERFACE -Wno-gnu-zero-variadic-macro-arguments)
endif()

if(LLDP_BUILD_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "LLDP_BUILD_FUZZ needs clang++ (libFuzzer)")
  endif()
  if(NOT LLDP_SANITIZE)
    set(LLDP_SANITIZE "address,undefined")
  endif()
  # Coverage instrumentation for the libraries; the fuzz executables add the driver.
  target_compile_options(lldp_build_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
if(LLDP_SANITIZE)
  target_compile_options(lldp_build_flags INTERFACE
    -fsanitize=${LLDP_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(lldp_build_flags INTERFACE -fsanitize=${LLDP_SANITIZE})
endif()

# Installed libraries find each other next to themselves.
set(CMAKE_INSTALL_RPATH "$ORIGIN")

# Headers a generator writes at build time go under ${LLDP_GENERATED_DIR}/<Lib>/,
# are included as "<Lib>/Name.h" like the hand-written ones, and are installed with them.
set(LLDP_GENERATED_DIR "${PROJECT_BINARY_DIR}/generated")
# Installed headers live in a folder of the package's own, so that folders as generic as
# Platform/ or Tracing/ cannot clash with another package's; consumers still include
# "<Lib>/Name.h".
set(LLDP_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/lldp")

# lldp_add_library(NAME DIR [DEPS ...]): a shared library from every .cpp under DIR
# (relative to the repository root), with the repository root as its public include root.
# Before 1.0 a minor version may change the layout of public types, so it is part of the
# ABI's name: a program built against 0.2 does not load 0.3.
if(PROJECT_VERSION_MAJOR EQUAL 0)
  set(LLDP_SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
else()
  set(LLDP_SOVERSION ${PROJECT_VERSION_MAJOR})
endif()

function(lldp_add_library name dir)
  cmake_parse_arguments(ARG "" "" "DEPS" ${ARGN})
  file(GLOB_RECURSE srcs CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${dir}/*.cpp")
  if(NOT srcs)
    # A library whose first source is not written yet still links and installs.
    set(placeholder "${PROJECT_BINARY_DIR}/placeholder/${name}Placeholder.cpp")
    file(WRITE "${placeholder}" "// ${name} has no sources yet.\n")
    set(srcs "${placeholder}")
  endif()
  add_library(${name} SHARED ${srcs})
  add_library(Lldp::${name} ALIAS ${name})
  file(MAKE_DIRECTORY "${LLDP_GENERATED_DIR}/${dir}")
  target_include_directories(${name} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
    $<BUILD_INTERFACE:${LLDP_GENERATED_DIR}>
    $<INSTALL_INTERFACE:${LLDP_INSTALL_INCLUDEDIR}>)
  # The headers need C++20: a usage requirement, exported to consumers.
  target_compile_features(${name} PUBLIC cxx_std_20)
  target_link_libraries(${name} PUBLIC ${ARG_DEPS} PRIVATE $<BUILD_INTERFACE:lldp_build_flags>)
  set_target_properties(${name} PROPERTIES VERSION ${PROJECT_VERSION} SOVERSION ${LLDP_SOVERSION})
  # A library's hand-written sources are small files that parse the same headers: built as
  # one unit they parse them once, which takes a sixth off a clean build. The generated
  # bindings carry options of their own, so they stay apart and build in parallel.
  if(LLDP_UNITY_BUILD)
    set_target_properties(${name} PROPERTIES UNITY_BUILD ON UNITY_BUILD_BATCH_SIZE 0)
  endif()
  install(TARGETS ${name} EXPORT LldpTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  # The hand-written headers one by one (a folder of sources only would be installed
  # empty); the generated ones as a folder, since they exist only once built.
  file(GLOB_RECURSE headers RELATIVE "${PROJECT_SOURCE_DIR}/${dir}" CONFIGURE_DEPENDS
    "${PROJECT_SOURCE_DIR}/${dir}/*.h" "${PROJECT_SOURCE_DIR}/${dir}/*.hpp" "${PROJECT_SOURCE_DIR}/${dir}/*.inc")
  foreach(h IN LISTS headers)
    get_filename_component(sub "${h}" DIRECTORY)
    install(FILES "${PROJECT_SOURCE_DIR}/${dir}/${h}" DESTINATION "${LLDP_INSTALL_INCLUDEDIR}/${dir}/${sub}")
  endforeach()
  install(DIRECTORY "${LLDP_GENERATED_DIR}/${dir}/" DESTINATION ${LLDP_INSTALL_INCLUDEDIR}/${dir}
    FILES_MATCHING PATTERN "*.h" PATTERN "*.hpp" PATTERN "*.inc")
endfunction()
