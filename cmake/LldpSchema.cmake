# Kel schemas: each one declares value types once; kelgen (the package Kel/codegen/kelgen, Python 3
# with its standard library only) turns it at build time into a header of classes with
# inline accessors and a .cpp of bindings that is compiled into the owning library. Both
# land in ${LLDP_GENERATED_DIR} beside the schema's path and are regenerated whenever the
# schema, a schema it imports or the generator changes.
find_package(Python3 3.8 REQUIRED COMPONENTS Interpreter)
set(KELGEN "${PROJECT_SOURCE_DIR}/Kel/codegen/kelgen")
file(GLOB KELGEN_SOURCES CONFIGURE_DEPENDS "${KELGEN}/*.py")

# kel_schema(TARGET SCHEMA...): SCHEMA paths are relative to the repository root.
function(kel_schema target)
  foreach(schema ${ARGN})
    string(REGEX REPLACE "\\.schema$" "" stem "${schema}")
    set(header "${LLDP_GENERATED_DIR}/${stem}.h")
    set(source "${LLDP_GENERATED_DIR}/${stem}Kel.cpp")
    set(depfile "${LLDP_GENERATED_DIR}/${stem}.d")
    add_custom_command(
      OUTPUT "${header}" "${source}"
      COMMAND Python3::Interpreter "${KELGEN}" --root "${PROJECT_SOURCE_DIR}"
              --out "${LLDP_GENERATED_DIR}" --depfile "${depfile}" "${schema}"
      DEPENDS "${PROJECT_SOURCE_DIR}/${schema}" ${KELGEN_SOURCES}
      DEPFILE "${depfile}"
      COMMENT "kelgen ${schema}"
      VERBATIM)
    target_sources(${target} PRIVATE "${source}" "${header}")
  endforeach()
endfunction()
