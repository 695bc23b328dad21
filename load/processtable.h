// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "load/statrecord.h"

#include <QString>
#include <QStringList>

/** Reads the kernel's table of processes. Every call reads it anew; nothing is kept or printed. */
class ProcessTable
{
public:
    /** @param root where the process file system is mounted; an absolute path */
    explicit ProcessTable(QString root);

    /**
     * Stores in @p total the time of all processors together since the machine's start, in clock
     * ticks and with the idle time. Returns 0, or -1 when the time cannot be read; @p total is then
     * unchanged.
     */
    int readCpuTotal(quint64 &total) const;

    /**
     * Reads the stat file at @p path, of a process or a thread, into @p record. Returns 0. Returns
     * -1 and resets @p record when the file does not exist or its process ends at that moment. A
     * line that is too short for a stat line ends the program with a failed assertion.
     */
    int readStatFile(const QString &path, StatRecord &record) const;

    /**
     * Reads the machine-wide counter, the process @p pid and, with @p readThreads, its threads into
     * @p sample, which must be new. Returns 0, or a negative value when any of them cannot be read.
     * What was read before stays in @p sample then.
     */
    int readProcessSample(int pid, bool readThreads, ProcessSample &sample) const;

    /**
     * Returns the process id from the stat file at @p path if the command name in it, trimmed, is
     * @p name. Returns 0 for another name, and -1 when the file cannot be opened.
     */
    int pidIfNameMatches(const QString &path, const QString &name) const;

    /**
     * Whether each of @p args is an element of the command line in the file at @p path, in any
     * order. The program is an element too. A file that cannot be opened matches.
     */
    bool argsMatch(const QString &path, const QStringList &args) const;

    /** Returns the first process in the list with this name and these arguments, or 0. */
    int findPidByNameAndArgs(const QString &name, const QStringList &args) const;

private:
    QString m_root;
};
