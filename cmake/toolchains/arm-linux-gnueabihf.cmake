# Cross build for 32-bit ARM with hardware floating point (armhf) with
# Debian's g++-arm-linux-gnueabihf (README, "Building for an appliance"):
#   cmake -S . -B build-armhf -G Ninja \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/arm-linux-gnueabihf.cmake \
#     -DFIPSVAL_TARGET_SYSROOT=/path/to/sysroot
set(CMAKE_SYSTEM_PROCESSOR arm)
set(FIPSVAL_TARGET_TRIPLE arm-linux-gnueabihf)
set(FIPSVAL_QEMU_ARCH arm)
set(FIPSVAL_DEBIAN_ARCH armhf)
# Quiet GCC's notes on an ABI change of GCC 7.1: everything here is built
# with one compiler.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
include(${CMAKE_CURRENT_LIST_DIR}/linux-gnu-cross.cmake)
