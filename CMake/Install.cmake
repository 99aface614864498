# What an installed library consists of, said once for all of them.
#
# Components: <library> is what programs need to run, <library>-dev what they are built with; Tools and Example are the
# programs. Debian's packages are cut the same way.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(ZELAF_HEADERS "${CMAKE_INSTALL_INCLUDEDIR}/ZelApplicationFramework")
set(ZELAF_CMAKE_FOLDER "${CMAKE_INSTALL_LIBDIR}/cmake/ZelApplicationFramework")

# zelaf_install_library(<target> NAMESPACE <name> DESCRIPTION <text> HEADER_FOLDER <folder> HEADERS <files>...
#                       [REQUIRES <pkg-config modules>...] [REQUIRES_HEADERS_OF <pkg-config modules>...])
# The library with its names, its headers, its part of the CMake package and its pkg-config file. Who links the library
# links those that it REQUIRES too; of REQUIRES_HEADERS_OF he gets the include path alone.
function(zelaf_install_library target)
  cmake_parse_arguments(ARG "" "NAMESPACE;DESCRIPTION;HEADER_FOLDER" "HEADERS;REQUIRES;REQUIRES_HEADERS_OF" ${ARGN})
  install(TARGETS ${target} EXPORT ${target}
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT ${target} NAMELINK_COMPONENT ${target}-dev
    INCLUDES DESTINATION "${ARG_HEADER_FOLDER}")
  install(FILES ${ARG_HEADERS} DESTINATION "${ARG_HEADER_FOLDER}" COMPONENT ${target}-dev)
  install(EXPORT ${target} NAMESPACE ${ARG_NAMESPACE}:: FILE ${target}Targets.cmake
    DESTINATION "${ZELAF_CMAKE_FOLDER}" COMPONENT ${target}-dev)

  # Relative to the file itself: the folder that all was installed into may be moved.
  set(folder "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig")
  set(library_folder ..)
  cmake_path(ABSOLUTE_PATH ARG_HEADER_FOLDER BASE_DIRECTORY "${CMAKE_INSTALL_PREFIX}" OUTPUT_VARIABLE header_folder)
  file(RELATIVE_PATH header_folder "${folder}" "${header_folder}")
  set(name ${target})
  set(description "${ARG_DESCRIPTION}")
  set(requires "")
  if(ARG_REQUIRES)
    list(JOIN ARG_REQUIRES ", " modules)
    string(APPEND requires "Requires: ${modules}\n")
  endif()
  if(ARG_REQUIRES_HEADERS_OF)
    list(JOIN ARG_REQUIRES_HEADERS_OF ", " modules)
    string(APPEND requires "Requires.private: ${modules}\n")
  endif()
  configure_file("${PROJECT_SOURCE_DIR}/CMake/Library.pc.in" "${CMAKE_CURRENT_BINARY_DIR}/${target}.pc" @ONLY)
  install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${target}.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
    COMPONENT ${target}-dev)
endfunction()

# zelaf_install_program(<target> COMPONENT <name>): the program and its manual page, which lies beside its CMakeLists.txt.
function(zelaf_install_program target)
  cmake_parse_arguments(ARG "" "COMPONENT" "" ${ARGN})
  install(TARGETS ${target} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT ${ARG_COMPONENT})
  install(FILES ${target}.1 DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT ${ARG_COMPONENT})
endfunction()

# The entry point of the CMake package, which loads the libraries' parts.
if(ZELAF_BOARD_PLATFORM)
  set(ZELAF_PLATFORM board)
else()
  set(ZELAF_PLATFORM stand-ins)
endif()
configure_package_config_file(CMake/ZelApplicationFrameworkConfig.cmake.in
  "${CMAKE_CURRENT_BINARY_DIR}/ZelApplicationFrameworkConfig.cmake" INSTALL_DESTINATION "${ZELAF_CMAKE_FOLDER}")
# The interface holds within the soname's number.
write_basic_package_version_file("${CMAKE_CURRENT_BINARY_DIR}/ZelApplicationFrameworkConfigVersion.cmake"
  COMPATIBILITY SameMajorVersion)
install(FILES
    "${CMAKE_CURRENT_BINARY_DIR}/ZelApplicationFrameworkConfig.cmake"
    "${CMAKE_CURRENT_BINARY_DIR}/ZelApplicationFrameworkConfigVersion.cmake"
  DESTINATION "${ZELAF_CMAKE_FOLDER}" COMPONENT ZelApplicationFramework-dev)
