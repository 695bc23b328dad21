# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
#
# The settings of all targets: language, warnings, assertions, hardening, sanitizers, output places.

set(CMAKE_CXX_STANDARD 17)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_AUTOMOC ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
if(NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()

option(WATCHDOG_WERROR "Treat compiler warnings as errors" OFF)
set(WATCHDOG_SANITIZE "" CACHE STRING "Sanitizers to build with, for instance address,undefined")
option(WATCHDOG_COVERAGE "Build for a coverage report" OFF)
option(WATCHDOG_HARDENING "Make mistakes in the program harder to exploit" ON)

add_compile_options(-Wall -Wextra)
# A load is compared with its threshold in plain doubles. On arm64 the compiler would fuse a product
# and a sum, and a load that equals its threshold would come out one digit below it.
add_compile_options(-ffp-contract=off)
if(WATCHDOG_WERROR)
    add_compile_options(-Werror)
endif()
if(WATCHDOG_SANITIZE)
    add_compile_options(-fsanitize=${WATCHDOG_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=${WATCHDOG_SANITIZE})
endif()
if(WATCHDOG_COVERAGE)
    add_compile_options(--coverage -O0)
    add_link_options(--coverage)
endif()

# What a board gets is hardened. A distribution may give the same options itself; that does no harm.
# Sanitizers look for the mistakes instead, and fortified functions would hide some from them.
if(WATCHDOG_HARDENING AND NOT WATCHDOG_SANITIZE AND NOT WATCHDOG_COVERAGE)
    include(CheckCXXCompilerFlag)
    include(CheckCXXSourceCompiles)
    include(CheckPIESupported)
    # Each processor has only one of the last two.
    foreach(flag -fstack-protector-strong -fstack-clash-protection
                 -fcf-protection -mbranch-protection=standard)
        string(MAKE_C_IDENTIFIER "WATCHDOG_HAS${flag}" has)
        check_cxx_compiler_flag(${flag} ${has})
        if(${has})
            add_compile_options(${flag})
        endif()
    endforeach()
    set(CMAKE_POSITION_INDEPENDENT_CODE ON)
    check_pie_supported()
    add_link_options(LINKER:-z,relro LINKER:-z,now)

    # Fortified functions need optimisation. A level that was chosen from outside stays.
    string(TOUPPER "${CMAKE_BUILD_TYPE}" type)
    set(CMAKE_REQUIRED_FLAGS "${CMAKE_CXX_FLAGS_${type}}")
    check_cxx_source_compiles("
        #if !defined __OPTIMIZE__ || defined _FORTIFY_SOURCE
        #error
        #endif
        int main() { return 0; }" WATCHDOG_FORTIFY_${type})
    unset(CMAKE_REQUIRED_FLAGS)
    if(WATCHDOG_FORTIFY_${type})
        add_compile_definitions(_FORTIFY_SOURCE=2)
    endif()

    # The program names no directory of the machine that built it. A debugger needs the directories
    # where the program is developed, and a distribution may have put others in their place. The
    # option that is named last is tried first.
    check_cxx_compiler_flag(-ffile-prefix-map=from=to WATCHDOG_HAS_PREFIX_MAP)
    if(WATCHDOG_HAS_PREFIX_MAP AND NOT type STREQUAL "DEBUG"
       AND NOT CMAKE_CXX_FLAGS MATCHES "prefix-map")
        add_compile_options("-ffile-prefix-map=${PROJECT_SOURCE_DIR}=."
                            "-ffile-prefix-map=${PROJECT_BINARY_DIR}=./build")
    endif()
endif()

# Assertions are on in every build type, also where QT_NO_DEBUG is set. A supervisor that goes on
# after misuse, in a wrong state, is worse than a reset of the board.
add_compile_definitions(
    QT_FORCE_ASSERTS
    QT_NO_CAST_FROM_ASCII
    QT_NO_CAST_TO_ASCII
    QT_NO_URL_CAST_FROM_STRING
    # Devices may have Qt 5.6, which lacks the replacements of what later versions deprecate.
    QT_NO_DEPRECATED_WARNINGS
    QT_DISABLE_DEPRECATED_BEFORE=0x050600)
