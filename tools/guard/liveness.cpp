// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/guard/liveness.h"

#include <algorithm>

namespace {

// As long as systemd waits by default for a service that stops.
constexpr std::chrono::seconds stopTime{90};

} // namespace

Liveness::Liveness(Clock::duration startup, Clock::duration timeout, Clock::time_point now)
    : m_startup(startup), m_timeout(timeout), m_lastBeat(now)
{ }

void Liveness::take(const Notification &said, Clock::time_point now)
{
    if (said.timeout)
        m_timeout = *said.timeout;
    if (said.beat || said.timeout || !m_heard)
        m_lastBeat = now;
    m_heard = true;
    if (said.ready)
        m_extendedUntil = {}; // it was for the start
    if (said.stopping)
        stop(now);
    if (said.extend)
        m_extendedUntil = now + *said.extend;
}

void Liveness::stop(Clock::time_point now)
{
    m_stopUntil = now + stopTime;
}

void Liveness::resume(Clock::time_point now)
{
    m_lastBeat = now;
}

std::optional<Clock::time_point> Liveness::deadline() const
{
    const Clock::duration time = m_heard ? m_timeout : m_startup;
    if (m_timeout == Clock::duration::zero() || time == Clock::duration::zero())
        return std::nullopt;
    return std::max({m_lastBeat + time, m_extendedUntil, m_stopUntil});
}
