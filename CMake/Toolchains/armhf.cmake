# The board: ARMv7, hard float, Thumb, as Debian's armhf is.
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(ZELAF_TARGET armhf)
set(ZELAF_TARGET_TRIPLET arm-linux-gnueabihf)
set(ZELAF_TARGET_MULTIARCH arm-linux-gnueabihf)
set(ZELAF_TARGET_EMULATOR qemu-arm-static)
include("${CMAKE_CURRENT_LIST_DIR}/DebianRoot.cmake")
