# SPDX-License-Identifier: MIT
#
# Debian's cross compiler for ZAV_ARCH, with the root that packaging/cross-root unpacks. What was
# built runs in an emulator of one program, which looks for libraries in that root as well.
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZAV_ARCH)
set(CMAKE_SYSTEM_NAME Linux)
if(ZAV_ARCH STREQUAL armhf)
    set(CMAKE_SYSTEM_PROCESSOR arm)
    set(machine arm-linux-gnueabihf)
    set(CMAKE_CXX_FLAGS_INIT -Wno-psabi) # no notes on code of before GCC 7.1: there is none
elseif(ZAV_ARCH STREQUAL arm64)
    set(CMAKE_SYSTEM_PROCESSOR aarch64)
    set(machine aarch64-linux-gnu)
else()
    message(FATAL_ERROR "ZAV_ARCH is neither armhf nor arm64")
endif()
set(CMAKE_C_COMPILER ${machine}-gcc)
set(CMAKE_CXX_COMPILER ${machine}-g++)

cmake_path(GET CMAKE_CURRENT_LIST_DIR PARENT_PATH source)
set(CMAKE_SYSROOT ${source}/build/${ZAV_ARCH}-root)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${CMAKE_SYSTEM_PROCESSOR};-L;${CMAKE_SYSROOT})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})
set(ENV{PKG_CONFIG_LIBDIR}
    ${CMAKE_SYSROOT}/usr/lib/${machine}/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
