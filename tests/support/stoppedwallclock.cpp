// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "stoppedwallclock.h"

#include <atomic>
#include <ctime>

#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

// Any thread may ask for the time.
std::atomic<bool> stopped(false);
std::atomic<qint64> shownMs(0);
std::atomic<qint64> stepMs(0);

timespec shownTime()
{
    const qint64 ms = shownMs.fetch_add(stepMs);
    return {static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000 * 1000000)};
}

} // namespace

StoppedWallClock::StoppedWallClock(qint64 msSinceEpoch)
{
    shownMs = msSinceEpoch;
    stepMs = 0;
    stopped = true;
}

StoppedWallClock::~StoppedWallClock()
{
    stopped = false;
}

void StoppedWallClock::advance(qint64 ms)
{
    shownMs += ms;
}

void StoppedWallClock::advanceAfterReading(qint64 ms)
{
    stepMs = ms;
}

// These replace functions of the C library in the test's process. Which of them Qt calls depends on
// its version.
extern "C" {

int clock_gettime(clockid_t id, timespec *tp) noexcept
{
    if (!stopped || id != CLOCK_REALTIME)
        return static_cast<int>(::syscall(SYS_clock_gettime, id, tp));
    *tp = shownTime();
    return 0;
}

int gettimeofday(timeval *tv, void * /*tz*/) noexcept
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    *tv = {now.tv_sec, now.tv_nsec / 1000};
    return 0;
}
}
