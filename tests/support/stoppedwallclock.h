// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

/**
 * As long as it lives, this process's wall clock shows what the test says; monotonic clocks, and
 * with them all timers, go on. One at a time.
 */
class StoppedWallClock
{
public:
    /** Stops the clock at @p msSinceEpoch. */
    explicit StoppedWallClock(qint64 msSinceEpoch);
    ~StoppedWallClock();
    StoppedWallClock(const StoppedWallClock &) = delete;
    StoppedWallClock &operator=(const StoppedWallClock &) = delete;

    /** Puts the clock on by @p ms, or back when that is negative. */
    void advance(qint64 ms);

    /** From here on, puts the clock on by @p ms after each reading. */
    void advanceAfterReading(qint64 ms);
};
