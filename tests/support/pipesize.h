// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

/**
 * The number of bytes that the pipe which the process @p pid has as its descriptor @p descriptor
 * holds unread; -1 when there is no such pipe.
 */
int pipeSize(qint64 pid, int descriptor);
