// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QProcess>

/**
 * A process for one of the board's tools. All of the program's tools are run by this class.
 *
 * That it is a class of its own makes Qt start it by fork(). For a plain QProcess Qt 5.15 uses
 * clone() and does not see when that fails, as it does without memory: it takes -1 for the number
 * of the process, waits for an end that never comes, and then kills "process" -1, which means
 * every process of the board.
 */
class ToolProcess : public QProcess
{
public:
    /** Before the start: what the tool prints is dropped, not kept in memory until its end. */
    void discardOutput();

    /**
     * Runs @p program and waits for its end without a time limit; what it prints goes where the
     * supervisor's own output goes. Nothing is said where it cannot be started, or fails.
     */
    static void run(const QString &program, const QStringList &arguments);
};
