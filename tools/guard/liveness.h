// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/guard/notification.h"

#include <chrono>
#include <optional>

using Clock = std::chrono::steady_clock; // stands still while the board is suspended

/** Knows until when the application has to give the next sign of life. */
class Liveness
{
public:
    /** A run begins @p now. Its first message has to come within @p startup, each later beat within
     *  @p timeout. A time of 0 is none. */
    Liveness(Clock::duration startup, Clock::duration timeout, Clock::time_point now);

    /** Takes in what the application has said. */
    void take(const Notification &said, Clock::time_point now);

    /** The application was told to end, has said that it does, or crashes. It gets time for that.
     */
    void stop(Clock::time_point now);

    /** The guard itself was stopped and knows nothing of this time. What runs begins anew. */
    void resume(Clock::time_point now);

    /** When a hang is to be told; unset: at no time. */
    std::optional<Clock::time_point> deadline() const;

    /** The last beat; before the first one, the first message; before that, the start. */
    Clock::time_point lastBeat() const { return m_lastBeat; }

private:
    Clock::duration m_startup;
    Clock::duration m_timeout;
    Clock::time_point m_lastBeat;
    Clock::time_point m_extendedUntil; // the clock's zero: not extended
    Clock::time_point m_stopUntil;     // the clock's zero: it does not stop
    bool m_heard = false;
};
