// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

class QString;

/**
 * Writes @p line, as UTF-8 and followed by a line end, to standard error and flushes it.
 *
 * Use it for messages about set-up and diagnostics. A failed write is ignored, because there is no
 * better place to report it. Any thread: a line goes out whole.
 */
void writeErrorLine(const QString &line);
