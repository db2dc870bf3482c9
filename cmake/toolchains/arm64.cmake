# 64-bit ARM (arm64-v8a devices) with Debian's cross compiler.
set(CALMODULE_TARGET_TRIPLET aarch64-linux-gnu)
set(CALMODULE_TARGET_PROCESSOR aarch64)
set(CALMODULE_TARGET_QEMU qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/cross-common.cmake)
