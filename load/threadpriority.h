// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

/**
 * Schedules the calling thread, and no other, in real time: round robin at the highest priority, so
 * that it can still tell who burns the processors when somebody does.
 *
 * Where that is not allowed, a line on standard error says so and the thread goes on as it was.
 */
void raiseThreadPriority();
