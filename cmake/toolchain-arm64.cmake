# Cross build for 64-bit ARM RSUs (Debian arm64): scripts/cross.sh arm64.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(V2X_CROSS_TRIPLE aarch64-linux-gnu)
set(V2X_QEMU qemu-aarch64-static)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-common.cmake)
