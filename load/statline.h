// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "load/statrecord.h"

/**
 * A stat line of the process table. It is parsed in place: each thread has one line in every
 * second, and to split each line into its fifty fields would cost more than everything else.
 *
 * The line is UTF-8, whatever the locale. The command name reaches from the first "(" to the last
 * ")", because it may contain anything, also blanks, parentheses and line ends. The object does not
 * copy the bytes, which must outlive it.
 */
class StatLine
{
public:
    StatLine(const char *text, int size);

    /** The number in front of " (": the process id or thread id; 0 when it is not a number. */
    int pid() const;

    /** The command name, untrimmed. */
    QString name() const;

    /**
     * The whole record. A time that is not a number reads as 0. A line too short for the four times
     * ends the program with a failed assertion.
     */
    StatRecord record() const;

private:
    const char *m_text;
    int m_size;
    int m_open;  // index of the first "("; -1: none
    int m_close; // index of the last ")"; -1: none
};
