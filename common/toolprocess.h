// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QProcess>

/**
 * A process for one of the board's tools. All of the program's tools are run by this class.
 *
 * It is a class of its own because Qt starts a class derived from QProcess by fork(). For a plain
 * QProcess, Qt 5.15 uses clone() and does not notice when that fails, for instance without memory.
 * It then takes -1 for the process id, waits for an end that never comes, and kills "process" -1.
 * To the kernel, -1 means every process of the board.
 */
class ToolProcess : public QProcess
{
public:
    /**
     * Drops the tool's output, which is otherwise kept in memory until its end. Call it before the
     * start.
     */
    void discardOutput();

    /**
     * Runs @p program and waits for its end without a time limit. Its output goes where the
     * supervisor's own output goes. A program that fails or cannot be started is not reported.
     */
    static void run(const QString &program, const QStringList &arguments);
};
