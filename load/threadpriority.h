// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

/**
 * Schedules the calling thread, and no other, in real time: round robin at the highest priority. It
 * can then measure the load also when other processes use all processors.
 *
 * Where that is not allowed, a line on standard error says so and the thread keeps its scheduling.
 */
void raiseThreadPriority();
