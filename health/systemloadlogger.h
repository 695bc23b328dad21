// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

class QTimer;

/**
 * Keeps the last three pictures of the whole system, what `top` and `free` print, in one file, so
 * that a crash report can show what went on around the application before it crashed.
 *
 * The file is rewritten from memory each time. A command that fails leaves its part of the picture
 * empty; only a file that cannot be opened is reported, on standard error.
 *
 * Main thread only. A round blocks the main loop while its commands run.
 */
class SystemLoadLogger : public QObject
{
    Q_OBJECT

public:
    /** How long one command may take: a hung one must not hold up the main loop for good. */
    static constexpr int commandTimeLimitMs = 30000;

    /**
     * Does not take a picture yet.
     *
     * @param filePath the file; its directory is not created
     * @param parent may be null
     * @param commandTimeoutMs how long to wait for one command before it is killed. Only the
     *        command itself is: what a shell has started outlives it.
     */
    explicit SystemLoadLogger(QString filePath, QObject *parent = nullptr,
                              int commandTimeoutMs = commandTimeLimitMs);

    /** Takes a picture every @p msec milliseconds, the first after that time. */
    void start(int msec);

    /** Takes no more pictures; the file stays. The program never calls it. */
    void stop();

    /**
     * Copies the file to its own path with ".load" appended and returns that path; an empty text
     * when there is no file. A copy that is there already is never overwritten: the picture of the
     * first crash is the one that is kept.
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
