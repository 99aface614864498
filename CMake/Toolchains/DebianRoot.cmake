# Debian's cross compiler against a system root of Debian's own packages (make-root).
#
#   ZELAF_TARGET             Debian's name of the architecture
#   ZELAF_TARGET_TRIPLET     GNU's, in the compiler's name
#   ZELAF_TARGET_MULTIARCH   the folder of its libraries
#   ZELAF_TARGET_EMULATOR    what runs its programs, unless this machine does
#   ZELAF_ROOT               the system root
set(CMAKE_SYSTEM_NAME Linux)
set(ZELAF_ROOT "${CMAKE_CURRENT_LIST_DIR}/../../build/roots/${ZELAF_TARGET}" CACHE PATH "system root of the target")
cmake_path(ABSOLUTE_PATH ZELAF_ROOT NORMALIZE)
if(NOT EXISTS "${ZELAF_ROOT}/.finished")
  message(FATAL_ERROR "There is no system root in ${ZELAF_ROOT}. Make it, in the project's folder: "
    "CMake/Toolchains/make-root ${ZELAF_TARGET} build/roots/${ZELAF_TARGET}")
endif()
# CMake's trial builds read this file again.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZELAF_ROOT)

set(CMAKE_C_COMPILER "${ZELAF_TARGET_TRIPLET}-gcc-12")
set(CMAKE_CXX_COMPILER "${ZELAF_TARGET_TRIPLET}-g++-12")
set(CMAKE_LIBRARY_ARCHITECTURE "${ZELAF_TARGET_MULTIARCH}")

# A system root moves /usr/include and /usr/lib, but Debian's cross compilers look into /usr/<triplet> before: a C and
# a C++ library of their own, at a version of their own, for machines without a root. Against those nothing is built
# here, so that what is tested is what the board runs. Headers: none but the root's and the compiler's, in the order
# that a native compiler has. Start files and libraries: the root's folders come first.
set(CMAKE_SYSROOT "${ZELAF_ROOT}")
set(zelaf_c_headers
  "-isystem /usr/lib/gcc-cross/${ZELAF_TARGET_TRIPLET}/12/include"
  "-isystem ${ZELAF_ROOT}/usr/include/${ZELAF_TARGET_MULTIARCH}"
  "-isystem ${ZELAF_ROOT}/usr/include")
set(zelaf_cxx_headers
  "-isystem ${ZELAF_ROOT}/usr/include/c++/12"
  "-isystem ${ZELAF_ROOT}/usr/include/${ZELAF_TARGET_MULTIARCH}/c++/12"
  "-isystem ${ZELAF_ROOT}/usr/include/c++/12/backward")
list(JOIN zelaf_c_headers " " zelaf_c_headers)
list(JOIN zelaf_cxx_headers " " zelaf_cxx_headers)
set(CMAKE_C_FLAGS_INIT "-nostdinc ${zelaf_c_headers}")
set(CMAKE_CXX_FLAGS_INIT "-nostdinc -nostdinc++ ${zelaf_cxx_headers} ${zelaf_c_headers}")
set(zelaf_link "-B${ZELAF_ROOT}/usr/lib/gcc/${ZELAF_TARGET_TRIPLET}/12/ -B${ZELAF_ROOT}/usr/lib/${ZELAF_TARGET_MULTIARCH}/")
foreach(kind EXE SHARED MODULE)
  set(CMAKE_${kind}_LINKER_FLAGS_INIT "${zelaf_link}")
endforeach()

# Programs are this machine's, everything else is the root's.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# The emulator looks the program's loader and libraries up below the root. What the program starts, it may start
# through the kernel (run, enable_emulator), whose emulator reads the root from the environment.
if(ZELAF_TARGET_EMULATOR)
  set(CMAKE_CROSSCOMPILING_EMULATOR
    "${ZELAF_TARGET_EMULATOR};-L;${ZELAF_ROOT};-E;QEMU_LD_PREFIX=${ZELAF_ROOT}")
endif()
