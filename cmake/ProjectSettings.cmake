# SPDX-FileCopyrightText: 2026 The watchdog developers
# SPDX-License-Identifier: MIT
#
# The settings of all targets: language, warnings, assertions, sanitizers, output places.

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
