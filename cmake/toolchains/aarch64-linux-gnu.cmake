# Cross build for 64-bit ARM (arm64) with Debian's g++-aarch64-linux-gnu
# (README, "Building for an appliance"):
#   cmake -S . -B build-arm64 -G Ninja \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/aarch64-linux-gnu.cmake \
#     -DFIPSVAL_TARGET_SYSROOT=/path/to/sysroot
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(FIPSVAL_TARGET_TRIPLE aarch64-linux-gnu)
set(FIPSVAL_QEMU_ARCH aarch64)
set(FIPSVAL_DEBIAN_ARCH arm64)
include(${CMAKE_CURRENT_LIST_DIR}/linux-gnu-cross.cmake)
