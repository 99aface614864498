# zelaf_shared_library(<target> EXPORTS <version script> SOURCES <files>...)
# A shared library with soname and version that exports exactly what its version script lists.
function(zelaf_shared_library target)
  cmake_parse_arguments(ARG "" "EXPORTS" "SOURCES" ${ARGN})
  add_library(${target} SHARED ${ARG_SOURCES})
  set_target_properties(${target} PROPERTIES
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    C_VISIBILITY_PRESET hidden
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    LINK_DEPENDS "${ARG_EXPORTS}"
    # The same bytes whatever folder the build ran in.
    BUILD_RPATH_USE_ORIGIN ON)
  zelaf_describe_types(${target})
  target_link_options(${target} PRIVATE "LINKER:--version-script=${ARG_EXPORTS}" "LINKER:--no-undefined-version"
    "LINKER:--gc-sections")
  if(NOT ZELAF_SANITIZE)
    target_link_options(${target} PRIVATE "LINKER:-z,defs")
  endif()
endfunction()

# zelaf_describe_types(<target>)
# What abidw reads an exported interface from (Tests/Interface). The code stays as it is; whoever installs strips it.
function(zelaf_describe_types target)
  target_compile_options(${target} PRIVATE $<$<CONFIG:Release>:-g>)
endfunction()
