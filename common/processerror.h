// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QProcess>

/**
 * Tells the system log, at LOG_ERR, that a process failed with @p error. The text is the same for
 * one that could not start and one that ran and failed; the code tells them apart. Any thread.
 */
void logProcessError(QProcess::ProcessError error);
