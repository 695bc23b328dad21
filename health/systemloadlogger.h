// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

class QTimer;

/**
 * Keeps the last three snapshots of the whole system, which are the outputs of `top` and `free`, in
 * one file. A crash report can then show what the system did before the application crashed.
 *
 * The file is rewritten from memory each time. A command that fails leaves its part of the snapshot
 * empty. Only a file that cannot be opened is reported, on standard error.
 *
 * Main thread only. Taking a snapshot blocks the main loop while its commands run.
 */
class SystemLoadLogger : public QObject
{
    Q_OBJECT

public:
    /**
     * The time limit of one command, so that a command that hangs does not block the main loop for
     * ever.
     */
    static constexpr int commandTimeLimitMs = 30000;

    /**
     * Does not take a snapshot yet.
     *
     * @param filePath the file; its directory is not created
     * @param parent may be null
     * @param commandTimeoutMs time limit of one command, which is then killed. Processes that the
     * command has started, as a shell does, are not killed.
     */
    explicit SystemLoadLogger(QString filePath, QObject *parent = nullptr,
                              int commandTimeoutMs = commandTimeLimitMs);

    /** Takes a snapshot every @p msec milliseconds, the first after that time. */
    void start(int msec);

    /**
     * Takes no more snapshots; the file stays. The program never calls it
     * (kept-behaviour.md: unused-slots).
     */
    void stop();

    /**
     * Copies the file to its own path with ".load" appended and returns that path. Returns an empty
     * text when there is no file. An existing copy is never overwritten, so that the snapshots of
     * the first crash are kept.
     */
    QString copyLoadFile();

private slots:
    void on_timer_timeout();

private:
    QByteArray takeSnapshot() const;
    void writeSnapshots() const;

    QString m_filePath;
    QTimer *m_timer;
    QStringList m_snapshots; // oldest first
    int m_commandTimeoutMs;
};
