# SPDX-License-Identifier: Apache-2.0
# Builds for 32-bit ARM with Debian's cross compiler and the sysroot of cmake/get-arm-sysroot.sh; programs that the build
# or ctest starts run in qemu's user mode.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
# Standard C++ types are passed as every compiler since GCC 7.1 passes them; no need to be told at each call.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)

set(_lib arm-linux-gnueabihf)
cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH _root)
set(CMAKE_SYSROOT ${_root}/.deps/arm-sysroot)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR} ${CMAKE_SYSROOT}/usr/lib/${_lib}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)

# The loader gives a folder up when it is not there for stat, and qemu answers stat without looking into the sysroot: so
# its folders are named as they stand on this machine.
set(_library_path ${CMAKE_SYSROOT}/lib/${_lib}:${CMAKE_SYSROOT}/usr/lib/${_lib}:${CMAKE_SYSROOT}/usr/lib/${_lib}/android)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm -L ${CMAKE_SYSROOT} -E LD_LIBRARY_PATH=${_library_path})
