# 32-bit ARM with hardware floating point, as in the device.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(triple arm-linux-gnueabihf)
set(emulator qemu-arm -L /usr/${triple})
include(${CMAKE_CURRENT_LIST_DIR}/cross/toolchain.cmake)
