// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "load/statrecord.h"

#include <QString>
#include <QStringList>

/** The kernel's table of processes, read afresh at every call; nothing is kept and nothing printed.
 */
class ProcessTable
{
public:
    /** @param root where the process file system lies; an absolute path */
    explicit ProcessTable(QString root);

    /**
     * Stores in @p total the time of all processors together since the machine's start, idle time
     * included, in clock ticks. Returns 0, or -1 when it cannot be read; @p total is then left as
     * it is.
     */
    int readCpuTotal(quint64 &total) const;

    /**
     * Reads the stat file at @p path, of a process or a thread, into @p record. Returns 0, or -1
     * with a reset @p record when the file is not there or its process ends at that moment. A line
     * that is not a stat line's length ends the program with a failed assertion.
     */
    int readStatFile(const QString &path, StatRecord &record) const;

    /**
     * Reads the machine-wide counter, the process @p pid and, with @p readThreads, its threads into
     * @p sample, which is to be fresh. Returns 0, or a negative value when any of them cannot be
     * read; @p sample then keeps what was read before.
     */
    int readProcessSample(int pid, bool readThreads, ProcessSample &sample) const;

    /**
     * The process id in the stat file at @p path when the command name in it, trimmed, is @p name;
     * 0 when it is another, -1 when the file cannot be opened.
     */
    int pidIfNameMatches(const QString &path, const QString &name) const;

    /**
     * Whether the command line in the file at @p path holds each of @p args as one of its elements,
     * the program included, in any order. One that cannot be opened matches.
     */
    bool argsMatch(const QString &path, const QStringList &args) const;

    /** The first process listed that has this name and these arguments, or 0. */
    int findPidByNameAndArgs(const QString &name, const QStringList &args) const;

private:
    QString m_root;
};
