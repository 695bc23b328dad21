// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/**
 * The head of a log line: the local date and time, and a blank. An alarm builds up to eight lines
 * within microseconds, so the text is built anew only once the clock has gone on by a millisecond.
 */
class TimePrefix
{
public:
    /** The text for a line that is built now. */
    QString now();

private:
    qint64 m_builtMs = -1; // since the epoch
    QString m_text;
};
