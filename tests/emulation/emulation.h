// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

/**
 * Whether this process runs under the emulation of another processor, which lacks calls of the
 * kernel and makes up what it shows of the process in /proc. What leans on those is to be skipped.
 */
inline bool runsUnderEmulation()
{
    return qEnvironmentVariableIsSet("WATCHDOG_EMULATED");
}
