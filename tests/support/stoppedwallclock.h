// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

/**
 * As long as the object lives, the test sets this process's wall clock. Monotonic clocks go on, and
 * so do all timers. There may be one such object at a time.
 */
class StoppedWallClock
{
public:
    /** Stops the clock at @p msSinceEpoch. */
    explicit StoppedWallClock(qint64 msSinceEpoch);
    ~StoppedWallClock();
    StoppedWallClock(const StoppedWallClock &) = delete;
    StoppedWallClock &operator=(const StoppedWallClock &) = delete;

    /** Puts the clock forward by @p ms, or back if that is negative. */
    void advance(qint64 ms);

    /** From now on, puts the clock forward by @p ms after each reading. */
    void advanceAfterReading(qint64 ms);
};
