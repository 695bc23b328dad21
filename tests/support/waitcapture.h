// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QVector>

/**
 * The time limits in milliseconds, -1 for none, of the waits that this process has asked of the
 * kernel since the last call, in order. A time limit of QProcess comes down to one, so that a test
 * sees the limit without sitting it out. Main thread only.
 */
QVector<int> takeWaits();
