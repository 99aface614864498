# 64-bit ARM.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(ZELAF_TARGET arm64)
set(ZELAF_TARGET_TRIPLET aarch64-linux-gnu)
set(ZELAF_TARGET_MULTIARCH aarch64-linux-gnu)
set(ZELAF_TARGET_EMULATOR qemu-aarch64-static)
include("${CMAKE_CURRENT_LIST_DIR}/DebianRoot.cmake")
