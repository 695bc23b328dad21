// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

class QString;

/**
 * Writes @p line, as UTF-8 and followed by a line end, to standard error and flushes it.
 *
 * The way for messages about set-up and diagnostics; whether the write succeeds is not checked,
 * since there would be no better place to say so. Any thread: a line goes out whole.
 */
void writeErrorLine(const QString &line);
