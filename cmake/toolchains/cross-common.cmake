# Shared part of the Debian cross toolchain files. The including file sets
# CALMODULE_TARGET_TRIPLET, CALMODULE_TARGET_PROCESSOR and CALMODULE_TARGET_QEMU.
#
# Debian's cross compilers bring their own C library under /usr/<triplet>; the
# target's other libraries (the Android log library among them) come from multiarch
# packages under /usr/lib/<triplet>. CMAKE_LIBRARY_ARCHITECTURE makes find_library
# look in the multiarch folders of the target, never in the host's.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ${CALMODULE_TARGET_PROCESSOR})
set(CMAKE_LIBRARY_ARCHITECTURE ${CALMODULE_TARGET_TRIPLET})

set(CMAKE_C_COMPILER ${CALMODULE_TARGET_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${CALMODULE_TARGET_TRIPLET}-g++)
# GCC notes that std::vector's iterators are passed differently than before GCC 7.1
# on ARM; everything here is built by one compiler, so the note is noise.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")

# Search the cross C library first, then the multiarch tree; programs from the host.
set(CMAKE_FIND_ROOT_PATH /usr/${CALMODULE_TARGET_TRIPLET} /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Tests (and anything else CMake runs for the target) go through user-mode qemu. The
# loader and the C library come from the cross tree; the multiarch folders (liblog,
# reached through RUNPATH) are outside that prefix, and qemu falls back to the host
# file system for them.
find_program(CALMODULE_QEMU ${CALMODULE_TARGET_QEMU})
if(CALMODULE_QEMU)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${CALMODULE_QEMU} -L /usr/${CALMODULE_TARGET_TRIPLET})
else()
  message(WARNING "${CALMODULE_TARGET_QEMU} not found: the ${CALMODULE_TARGET_TRIPLET} tests cannot run (bash scripts/setup.sh installs it)")
endif()
