# IBM Z (s390x): 64-bit, big-endian.
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(triple s390x-linux-gnu)
set(emulator qemu-s390x -L /usr/${triple})
include(${CMAKE_CURRENT_LIST_DIR}/cross/toolchain.cmake)
