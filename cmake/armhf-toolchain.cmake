# SPDX-License-Identifier: Apache-2.0
# Cross-build for 32-bit little-endian ARM (armhf) with Debian's cross toolchain and multiarch
# libraries; test programs run under qemu user emulation.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)
# The cross toolchain's C library (under /usr/arm-linux-gnueabihf) and Debian's armhf multiarch one
# are different builds; the loader and libc must come from the same one, so the emulated program
# searches the toolchain's directory first. The :armhf -dev libraries come from multiarch.
set(CMAKE_CROSSCOMPILING_EMULATOR
    qemu-arm-static -E LD_LIBRARY_PATH=/usr/arm-linux-gnueabihf/lib -L /usr/arm-linux-gnueabihf)
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/arm-linux-gnueabihf/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")
