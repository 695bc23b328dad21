// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QProcess>

/**
 * Writes to the system log, at LOG_ERR, that a process failed with @p error. The text is the same
 * for a process that could not start and one that ran and failed; only the code differs. Any
 * thread.
 */
void logProcessError(QProcess::ProcessError error);
