# The common part of the toolchain-ARCH.cmake files one folder up. They set CMAKE_SYSTEM_PROCESSOR; `triple`, Debian's
# name for the target, whose libc is in /usr/TRIPLE; and `emulator`, the command that runs the target's programs here.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triple}-gcc)
set(CMAKE_CXX_COMPILER ${triple}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator} CACHE STRING "Command that runs a target's program on this machine")
# No notes about the ABI change in GCC 7: nothing here was compiled by an older GCC.
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-psabi>)

set(CMAKE_FIND_ROOT_PATH /usr/${triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
list(PREPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR})  # FindGTest
