// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QObject>
#include <QString>
#include <QTimer>

/**
 * Tells the boot loader that the application runs. It resets the boot flags "fail" and "boot_count"
 * once the application has stayed up for a while, and only once in the supervisor's life.
 *
 * SFU is the platform's firmware update. The class is named after its tool `sfuflags`, which sets
 * the flags.
 *
 * Before that it proves that the root file system is writable. A running system cannot repair one
 * that has fallen back to read-only. The board is then rebooted, after the URL cache of an update
 * has been deleted from the boot environment.
 *
 * Main thread only. The check blocks the main loop while its tools run.
 */
class SfuFlagClearer : public QObject
{
    Q_OBJECT

public:
    /** The time limit of one run of a tool. Only the reboot has no limit. */
    static constexpr int toolTimeLimitMs = 10000;

    /**
     * Does not start the countdown.
     *
     * @param intervalMs how long the application must have stayed up
     * @param markerPath file that is made and removed to prove that the file system is writable
     * @param toolTimeoutMs time limit of one run of a tool, which is then killed
     */
    explicit SfuFlagClearer(int intervalMs,
                            QString markerPath = QStringLiteral("/home/root/ro-test"),
                            int toolTimeoutMs = toolTimeLimitMs);

    /**
     * The application was started: the countdown begins anew, unless the flags are already reset.
     */
    void start();

    /** The application has ended: the countdown stops. */
    void stop();

private slots:
    void on_clearTimer_timeout();

private:
    bool isFileSystemWritable() const;
    bool clearFlag(const QString &flag) const;
    void rebootFromReadOnlySystem() const;

    QTimer m_clearTimer;
    bool m_cleared = false; // both flags were reset; never false again
    QString m_markerPath;
    int m_toolTimeoutMs;
};
