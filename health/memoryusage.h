// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>

/**
 * The machine's memory as the kernel reports it, in bytes; a plain value. What the kernel does not
 * report is 0.
 */
struct MemoryUsage
{
    quint64 memTotal = 0;
    quint64 memFree = 0;
    quint64 memAvailable = 0;
    quint64 buffers = 0;
    quint64 cached = 0;
    quint64 slab = 0;

    /**
     * Reads the file at @p path, which has the form of /proc/meminfo.
     *
     * A file that cannot be opened gives zeros and a message on standard error. An unknown unit
     * gives a message for its line, and the number is taken without the unit. A line with nothing
     * after its colon ends the program with a failed assertion, because the kernel writes no such
     * line. Main thread only.
     */
    static MemoryUsage read(const QString &path = QStringLiteral("/proc/meminfo"));

    /**
     * Returns the line for the application's log, with its line end and with @p time at its
     * beginning. The figures are whole kibibytes, rounded down.
     */
    QString reportLine(const QString &time) const;
};
