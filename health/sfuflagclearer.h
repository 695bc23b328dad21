// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

/**
 * Tells the boot loader that the application runs: resets the boot flags "fail" and "boot_count"
 * once the application has stayed up for a while, and only once in the supervisor's life.
 *
 * Before that it proves that the root file system is writable. One that has fallen back to
 * read-only cannot be repaired by a running system, so the board is rebooted, without the URL cache
 * of an update in its boot environment.
 *
 * Main thread only. The check blocks the main loop while its tools run.
 */
class SfuFlagClearer : public QObject
{
    Q_OBJECT

public:
    /** How long one run of a tool may take. The reboot alone may take as long as it will. */
    static constexpr int toolTimeLimitMs = 10000;

    /**
     * Does not start the countdown.
     *
     * @param intervalMs how long the application must have stayed up
     * @param markerPath file that is made and removed to prove that the file system is writable
     * @param toolTimeoutMs how long to wait for one run of a tool before it is killed
     */
    explicit SfuFlagClearer(int intervalMs,
                            QString markerPath = QStringLiteral("/home/root/ro-test"),
                            int toolTimeoutMs = toolTimeLimitMs);

    /** The application was started: begins the countdown anew, unless the flags are cleared. */
    void start();

    /** The application has ended: stops the countdown. */
    void stop();

private slots:
    void on_clearTimer_timeout();

private:
    bool isFileSystemWritable() const;
    bool clearFlag(const QString &flag) const;
    void rebootFromReadOnlySystem() const;

    QTimer m_clearTimer;
    bool m_cleared = false; // both flags were reset; stays so
    QString m_markerPath;
    int m_toolTimeoutMs;
};
