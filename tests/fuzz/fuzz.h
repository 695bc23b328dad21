// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

/** Reads one input; each fuzz target defines its own. A finding ends the program. */
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

/**
 * States that @p code ends the program with a failed assertion, as it is required to. The replay
 * of a corpus runs it in a child and makes sure of that; the fuzzer leaves it out.
 */
void mustAbort(const std::function<void()> &code);
