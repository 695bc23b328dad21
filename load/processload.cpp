// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "load/processload.h"

namespace {

// Differences may wrap, which is defined for unsigned numbers only.
quint64 difference(qint64 current, qint64 previous)
{
    return static_cast<quint64>(current) - static_cast<quint64>(previous);
}

} // namespace

double processLoad(const StatRecord &current, const StatRecord &previous, quint64 cpuTotal)
{
    const quint64 user =
        difference(current.utime, previous.utime) + difference(current.cutime, previous.cutime);
    const quint64 system =
        difference(current.stime, previous.stime) + difference(current.cstime, previous.cstime);
    const auto total = static_cast<double>(cpuTotal);
    return static_cast<double>(user) / total * 100.0 + static_cast<double>(system) / total * 100.0;
}
