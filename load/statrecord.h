// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QHash>
#include <QString>

/**
 * The values of one process or one thread in the kernel's stat line; a plain value. Times are in
 * clock ticks (see sysconf(_SC_CLK_TCK)) since the process or thread began.
 */
struct StatRecord
{
    QString name; ///< the command name, which the kernel cuts at 15 bytes
    int pid = 0;  ///< the thread id, for a thread
    qint64 utime = 0;
    qint64 cutime = 0; ///< of the children that ended and were waited for
    qint64 stime = 0;
    qint64 cstime = 0; ///< of the children that ended and were waited for
};

/** The times of a process and, if they were read, of its threads at one moment; a plain value. */
struct ProcessSample : StatRecord
{
    QHash<int, StatRecord> threads; ///< by thread id, the main thread included
    quint64 cpuTotal = 0; ///< the machine-wide counter, taken just before the process's own times
};
