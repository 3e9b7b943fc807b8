# What the toolchain-ARCH.cmake one folder up have in common. They set CMAKE_SYSTEM_PROCESSOR, `triple`, Debian's name
# for the target (its libc is in /usr/TRIPLE), and `emulator`, the command that runs a target's program here.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${triple}-gcc)
set(CMAKE_CXX_COMPILER ${triple}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR ${emulator} CACHE STRING "runs a target's program on this machine")
add_compile_options($<$<COMPILE_LANGUAGE:CXX>:-Wno-psabi>)  # no objects of GCC 6 are linked

set(CMAKE_FIND_ROOT_PATH /usr/${triple})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
list(PREPEND CMAKE_MODULE_PATH ${CMAKE_CURRENT_LIST_DIR})  # FindGTest
