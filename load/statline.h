// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "load/statrecord.h"

/**
 * A stat line of the process table, taken apart where it lies: at one line for every thread a
 * second, cutting it into fifty texts would cost more than everything else.
 *
 * The line is UTF-8, whatever the locale. The command name may hold anything, also blanks,
 * parentheses and line ends, so it reaches from the first "(" to the last ")". The bytes are
 * borrowed and must outlive the object.
 */
class StatLine
{
public:
    StatLine(const char *text, int size);

    /** The number in front of " (": the process id or thread id; 0 when it is not a number. */
    int pid() const;

    /** The command name, as it is. */
    QString name() const;

    /**
     * All that a record keeps. A time that is not a number reads as 0; a line too short to hold the
     * four times ends the program with a failed assertion.
     */
    StatRecord record() const;

private:
    const char *m_text;
    int m_size;
    int m_open;  // index of the first "("; -1: none
    int m_close; // index of the last ")"; -1: none
};
