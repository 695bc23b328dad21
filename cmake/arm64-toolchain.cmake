# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
#
# Builds for a 64-bit Arm board with Debian's cross compiler, against the sysroot that
# scripts/prepare-arm64-sysroot makes. $PYNX_ARM64_SYSROOT names a sysroot in another place. The
# programs that are built also run on this machine, in qemu's user mode.

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)

if(NOT ARM64_SYSROOT)
    if(NOT "$ENV{PYNX_ARM64_SYSROOT}" STREQUAL "")
        set(sysroot "$ENV{PYNX_ARM64_SYSROOT}")
    elseif(NOT "$ENV{XDG_CACHE_HOME}" STREQUAL "")
        set(sysroot "$ENV{XDG_CACHE_HOME}/pynx-watchdog/arm64-sysroot")
    else()
        set(sysroot "$ENV{HOME}/.cache/pynx-watchdog/arm64-sysroot")
    endif()
    set(ARM64_SYSROOT "${sysroot}" CACHE PATH "What scripts/prepare-arm64-sysroot has made")
endif()
# CMake checks the compiler in builds of their own, which read this file again.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ARM64_SYSROOT)
if(NOT EXISTS "${ARM64_SYSROOT}/DEBIAN/packages")
    message(FATAL_ERROR "There is no sysroot at ${ARM64_SYSROOT}: run scripts/prepare-arm64-sysroot first.")
endif()

set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)

# Libraries come only from the sysroot, and programs only from this machine. CMAKE_SYSROOT is not
# set, because the compiler keeps its own C library. The C library in the sysroot is for running
# programs.
set(CMAKE_FIND_ROOT_PATH "${ARM64_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
# The directory of the libraries that Qt's libraries need.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-rpath-link,${ARM64_SYSROOT}/usr/lib/aarch64-linux-gnu")

set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64-static -L "${ARM64_SYSROOT}")
