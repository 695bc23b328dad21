// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

/** What a datagram of the notification protocol (sd_notify(3)) says; a plain value. */
struct Notification
{
    bool beat = false;     ///< WATCHDOG=1
    bool trigger = false;  ///< WATCHDOG=trigger: the application says itself that it hangs
    bool ready = false;    ///< READY=1
    bool stopping = false; ///< STOPPING=1
    std::optional<std::chrono::microseconds> timeout; ///< WATCHDOG_USEC=
    std::optional<std::chrono::microseconds> extend;  ///< EXTEND_TIMEOUT_USEC=
    std::optional<std::string> status;                ///< STATUS=, fit for one line
};

/** Reads a datagram. What is unknown or malformed in it is passed over. */
Notification parseNotification(std::string_view datagram);
