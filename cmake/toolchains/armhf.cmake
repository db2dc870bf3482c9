# 32-bit ARM (armeabi-v7a class devices, hard-float ABI) with Debian's cross compiler.
set(CALMODULE_TARGET_TRIPLET arm-linux-gnueabihf)
set(CALMODULE_TARGET_PROCESSOR arm)
set(CALMODULE_TARGET_QEMU qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/cross-common.cmake)
