# Kel schemas: each one declares value types once; kelgen (the package Kel/codegen/kelgen, Python 3
# with its standard library only) turns it at build time into a header of classes with
# inline accessors and the bindings that are compiled into the owning library, in three
# sources that build side by side: <Name>Kel.cpp (members, text form, attribute log,
# descriptors), <Name>KelIf.cpp (generic interface) and <Name>KelSa.cpp (stream adapters).
# They land in ${LLDP_GENERATED_DIR} beside the schema's path and are regenerated whenever
# the schema, a schema it imports or the generator changes.
find_package(Python3 3.8 REQUIRED COMPONENTS Interpreter)
set(KELGEN "${PROJECT_SOURCE_DIR}/Kel/codegen/kelgen")
file(GLOB KELGEN_SOURCES CONFIGURE_DEPENDS "${KELGEN}/*.py")

# kel_schema(TARGET SCHEMA...): SCHEMA paths are relative to the repository root.
function(kel_schema target)
  set(fast "")
  set(small "")
  foreach(schema ${ARGN})
    string(REGEX REPLACE "\\.schema$" "" stem "${schema}")
    set(header "${LLDP_GENERATED_DIR}/${stem}.h")
    set(source "${LLDP_GENERATED_DIR}/${stem}Kel.cpp")
    set(sources "${source}" "${LLDP_GENERATED_DIR}/${stem}KelIf.cpp" "${LLDP_GENERATED_DIR}/${stem}KelSa.cpp")
    set(depfile "${LLDP_GENERATED_DIR}/${stem}.d")
    add_custom_command(
      OUTPUT "${header}" ${sources}
      COMMAND Python3::Interpreter "${KELGEN}" --root "${PROJECT_SOURCE_DIR}"
              --out "${LLDP_GENERATED_DIR}" --depfile "${depfile}" "${schema}"
      DEPENDS "${PROJECT_SOURCE_DIR}/${schema}" ${KELGEN_SOURCES}
      DEPFILE "${depfile}"
      COMMENT "kelgen ${schema}"
      VERBATIM)
    list(APPEND fast "${source}" "${LLDP_GENERATED_DIR}/${stem}KelSa.cpp" "${header}")
    list(APPEND small "${LLDP_GENERATED_DIR}/${stem}KelIf.cpp")
    # Generated bindings are many small functions: g++'s tracking of where each optimised
    # local lives costs a quarter of their compile time with debug information on. Types,
    # lines and backtraces stay; a local may show as optimised out.
    set_property(SOURCE ${sources} APPEND PROPERTY
      COMPILE_OPTIONS "$<$<CXX_COMPILER_ID:GNU>:-fno-var-tracking-assignments>")
    # In an optimised build with debug information, their locals and parameters are mostly
    # optimised out anyway: line tables only (functions, lines, inlined frames, so
    # backtraces and stepping stay) halve their objects and save a tenth of their compile
    # time. The types are still described by every other source that includes the header.
    set_property(SOURCE ${sources} APPEND PROPERTY
      COMPILE_OPTIONS "$<$<CONFIG:RelWithDebInfo>:-g1>")
  endforeach()
  # The generic interface serves tools, once per command, never a frame or a stream: built
  # with the light optimisation of -Og, which takes half the compile time of -O2 (and a
  # third less than -Os). (The stream adapters are not: built for size they stream
  # measurably slower.) Its objects are linked last, so that where it and a fast binding
  # both emit an inline function, the linker keeps the fast one.
  set_property(SOURCE ${small} APPEND PROPERTY
    COMPILE_OPTIONS "$<$<CONFIG:Release,RelWithDebInfo>:-Og>")
  target_sources(${target} PRIVATE ${fast} ${small})
endfunction()
