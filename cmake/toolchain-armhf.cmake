# Cross build for 32-bit ARM RSUs (Debian armhf, ARMv7 hard-float):
# scripts/cross.sh armhf.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(V2X_CROSS_TRIPLE arm-linux-gnueabihf)
set(V2X_QEMU qemu-arm-static)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-common.cmake)
