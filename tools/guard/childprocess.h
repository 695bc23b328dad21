// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <csignal>
#include <string>

/** What the application inherits as the guard itself got it. */
struct InheritedSignals
{
    sigset_t mask;                ///< the signals that are blocked
    struct sigaction childAction; ///< what is done at the end of a child
};

/**
 * Runs the application in the child of a fork, and never returns. It waits until a byte comes from
 * @p go, so that the guard can first become its tracer. It dies with @p guard. @p address, for
 * NOTIFY_SOCKET, and @p timeoutUsec, for WATCHDOG_USEC, may be empty.
 */
[[noreturn]] void runApplication(char *const *command, const InheritedSignals &inherited,
                                 const std::string &address, const std::string &timeoutUsec, int go,
                                 pid_t guard);
