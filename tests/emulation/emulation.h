// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

/**
 * Whether this process runs under the emulation of another processor. The emulation lacks some
 * calls of the kernel and makes up some files of the process in /proc. Tests that need those are
 * skipped.
 */
inline bool runsUnderEmulation()
{
    return qEnvironmentVariableIsSet("WATCHDOG_EMULATED");
}
