// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

/** Reads one input. Each fuzz target defines this function. A finding ends the program. */
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

/**
 * Checks that @p code ends the program with a failed assertion. The replay of a corpus runs it in a
 * child. The fuzzer does not run it.
 */
void mustAbort(const std::function<void()> &code);
