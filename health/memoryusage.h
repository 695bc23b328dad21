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
     * A file that cannot be opened gives a message on standard error and zeros, an unknown unit a
     * message for its line and the number as it stands. A line with nothing after its colon ends
     * the program with a failed assertion: the kernel writes none, so it would not be its file.
     * Main thread only.
     */
    static MemoryUsage read(const QString &path = QStringLiteral("/proc/meminfo"));

    /**
     * The line for the application's log, with its line end; @p time heads it. Figures are whole
     * kibibytes, their remainder dropped.
     */
    QString reportLine(const QString &time) const;
};
