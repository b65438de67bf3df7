# Cross build for IBM Z (s390x), big-endian, with Debian's
# g++-s390x-linux-gnu (README, "Building for an appliance"):
#   cmake -S . -B build-s390x -G Ninja \
#     -DCMAKE_TOOLCHAIN_FILE=cmake/toolchains/s390x-linux-gnu.cmake \
#     -DFIPSVAL_TARGET_SYSROOT=/path/to/sysroot
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(FIPSVAL_TARGET_TRIPLE s390x-linux-gnu)
set(FIPSVAL_QEMU_ARCH s390x)
set(FIPSVAL_DEBIAN_ARCH s390x)
include(${CMAKE_CURRENT_LIST_DIR}/linux-gnu-cross.cmake)
