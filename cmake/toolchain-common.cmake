# Shared part of the ARM toolchain files (toolchain-arm64.cmake,
# toolchain-armhf.cmake): Debian's cross compilers for V2X_CROSS_TRIPLE, the
# target's libraries from a sysroot unpacked from Debian's packages for the
# target (scripts/cross.sh makes it), and qemu-user to run what was built.
#
#   -DV2X_SYSROOT=DIR   the sysroot (default: the environment's V2X_SYSROOT)
#
# Host programs (asn1c, Cyclone's idlc) are found on the host.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${V2X_CROSS_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${V2X_CROSS_TRIPLE}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${V2X_CROSS_TRIPLE})

# ARM has fused multiply-add and GCC would contract a*b+c into it: computed
# positions and distances would round differently from the x86-64 build's.
# Keep every operation rounded on its own, as there.
set(CMAKE_C_FLAGS_INIT "-ffp-contract=off")
set(CMAKE_CXX_FLAGS_INIT "-ffp-contract=off")

if(NOT V2X_SYSROOT)
  set(V2X_SYSROOT "$ENV{V2X_SYSROOT}")
endif()
if(NOT IS_DIRECTORY "${V2X_SYSROOT}/usr/lib/${V2X_CROSS_TRIPLE}")
  message(FATAL_ERROR "no sysroot for ${V2X_CROSS_TRIPLE} at '${V2X_SYSROOT}': run scripts/cross.sh")
endif()
# try_compile projects read this file again and need the same sysroot.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES V2X_SYSROOT V2X_CROSS_TRIPLE V2X_QEMU)
set(CMAKE_SYSROOT "${V2X_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH "${V2X_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# pkg-config answers for the target's .pc files, with the sysroot in front.
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${V2X_SYSROOT}")
set(ENV{PKG_CONFIG_LIBDIR}
    "${V2X_SYSROOT}/usr/lib/${V2X_CROSS_TRIPLE}/pkgconfig:${V2X_SYSROOT}/usr/lib/pkgconfig:${V2X_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_PATH} "")
# The host's pkg-config with the settings above (a package build names a
# <triple>-pkg-config that Debian does not install by default).
find_program(V2X_PKG_CONFIG pkg-config REQUIRED)
set(PKG_CONFIG_EXECUTABLE "${V2X_PKG_CONFIG}" CACHE FILEPATH "pkg-config for the sysroot" FORCE)

# Programs built here run through the emulator, with the target's loader and
# libraries from the sysroot: CTest, gtest_discover_tests and the test
# programs that start other programs of the build all use this.
find_program(V2X_QEMU_EXECUTABLE ${V2X_QEMU} REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR "${V2X_QEMU_EXECUTABLE};-L;${V2X_SYSROOT}")
