# 32-bit x86: the pointers and records of the board at the speed of the machine, which runs it without an emulator.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(ZELAF_TARGET i386)
set(ZELAF_TARGET_TRIPLET i686-linux-gnu)
set(ZELAF_TARGET_MULTIARCH i386-linux-gnu)

# An x86-64 machine has neither the loader nor the libraries, and an emulator's -L is not there to find them. Programs
# that are to run here name the root's own; not a runpath, which would not hold for the libraries' libraries.
option(ZELAF_RUN_FROM_ROOT "programs take loader and libraries from the system root" ON)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZELAF_RUN_FROM_ROOT)
include("${CMAKE_CURRENT_LIST_DIR}/DebianRoot.cmake")
if(ZELAF_RUN_FROM_ROOT)
  set(run_from_root "-Wl,--disable-new-dtags,-rpath,${ZELAF_ROOT}/usr/lib/${ZELAF_TARGET_MULTIARCH}")
  string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " ${run_from_root} -Wl,--dynamic-linker,${ZELAF_ROOT}/lib/ld-linux.so.2")
  string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT " ${run_from_root}")
endif()
