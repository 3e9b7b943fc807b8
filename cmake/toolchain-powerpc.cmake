# 32-bit PowerPC, big-endian.
set(CMAKE_SYSTEM_PROCESSOR ppc)
set(triple powerpc-linux-gnu)
set(emulator qemu-ppc -L /usr/${triple})
include(${CMAKE_CURRENT_LIST_DIR}/cross/toolchain.cmake)
