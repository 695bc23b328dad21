// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <cstdio>
#include <vector>

#include <sys/types.h>

/**
 * Writes the stacks of these threads of @p process to @p file, function by function. The threads
 * have to be stopped by this process as their tracer.
 *
 * What takes too long or becomes too much is left out, and that is said in the file.
 */
void writeStacks(std::FILE *file, pid_t process, const std::vector<pid_t> &threads);
