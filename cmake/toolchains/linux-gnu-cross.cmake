# The common part of the cross toolchain files beside it, which set
# FIPSVAL_TARGET_TRIPLE (the compiler's prefix), FIPSVAL_QEMU_ARCH and
# FIPSVAL_DEBIAN_ARCH before including it.
#
# The compiler is Debian's cross compiler (g++-TRIPLE), with its own C
# library. Everything else of the target comes from a sysroot given as
# -DFIPSVAL_TARGET_SYSROOT=DIR (or in the environment variable of that
# name): the target's packages unpacked as they install (dpkg-deb -x), at
# least libssl-dev and libssl3, and nlohmann-json3-dev for fipsval. Tests
# find GoogleTest there as well, built for the target.
#
# Where qemu-user is installed, CMake runs target programs through
# `qemu-ARCH -L SYSROOT` (CMAKE_CROSSCOMPILING_EMULATOR); the sysroot then
# also needs the target's libc6, libstdc++6 and libgcc-s1.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${FIPSVAL_TARGET_TRIPLE}-gcc)
set(CMAKE_CXX_COMPILER ${FIPSVAL_TARGET_TRIPLE}-g++)

if(NOT FIPSVAL_TARGET_SYSROOT AND DEFINED ENV{FIPSVAL_TARGET_SYSROOT})
  set(FIPSVAL_TARGET_SYSROOT "$ENV{FIPSVAL_TARGET_SYSROOT}")
endif()
if(NOT IS_DIRECTORY "${FIPSVAL_TARGET_SYSROOT}/usr/include/openssl")
  message(FATAL_ERROR "FIPSVAL_TARGET_SYSROOT (\"${FIPSVAL_TARGET_SYSROOT}\") "
    "must be a directory with the target's libssl-dev unpacked in it")
endif()
# CMake's compiler checks read this file again, in projects of their own.
set(ENV{FIPSVAL_TARGET_SYSROOT} "${FIPSVAL_TARGET_SYSROOT}")

set(CMAKE_FIND_ROOT_PATH "${FIPSVAL_TARGET_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_LIBRARY_ARCHITECTURE ${FIPSVAL_TARGET_TRIPLE})
# pkg-config, which FindOpenSSL asks first, reads the target's files only.
set(ENV{PKG_CONFIG_LIBDIR} "${FIPSVAL_TARGET_SYSROOT}/usr/lib/${FIPSVAL_TARGET_TRIPLE}/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${FIPSVAL_TARGET_SYSROOT}")
# OpenSSL's configuration headers are in the multiarch include directory.
set(CMAKE_C_STANDARD_INCLUDE_DIRECTORIES
    "${FIPSVAL_TARGET_SYSROOT}/usr/include/${FIPSVAL_TARGET_TRIPLE}")
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES
    "${FIPSVAL_TARGET_SYSROOT}/usr/include/${FIPSVAL_TARGET_TRIPLE}")
# The linker follows libcrypto's own dependencies into the sysroot.
set(CMAKE_EXE_LINKER_FLAGS_INIT
    "-Wl,-rpath-link,${FIPSVAL_TARGET_SYSROOT}/usr/lib/${FIPSVAL_TARGET_TRIPLE}")
# cpack -G DEB makes packages of the target's architecture.
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${FIPSVAL_DEBIAN_ARCH})

find_program(FIPSVAL_TARGET_EMULATOR qemu-${FIPSVAL_QEMU_ARCH})
if(FIPSVAL_TARGET_EMULATOR)
  set(CMAKE_CROSSCOMPILING_EMULATOR
      ${FIPSVAL_TARGET_EMULATOR} -L ${FIPSVAL_TARGET_SYSROOT})
endif()
