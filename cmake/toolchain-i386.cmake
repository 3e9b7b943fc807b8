# 32-bit x86. An x86-64 processor runs its programs without an emulator; they only need the target's dynamic loader.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(triple i686-linux-gnu)
set(emulator /usr/${triple}/lib/ld-linux.so.2 --library-path /usr/${triple}/lib)
include(${CMAKE_CURRENT_LIST_DIR}/cross/toolchain.cmake)
