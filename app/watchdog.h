// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "app/pynxprocess.h"
#include "logging/logprocessor.h"

#include <QObject>
#include <QScopedPointer>
#include <QString>
#include <QStringList>
#include <QTime>

struct CommandLine;

/**
 * The supervisor: starts the application, logs what it prints, restarts it and reboots the board
 * when it cannot be helped. There is one to a process; it lives on the main thread.
 */
class Watchdog : public QObject
{
    Q_OBJECT

public:
    /** Opens the system log. @p parent may be null. */
    explicit Watchdog(QObject *parent);

    /** Kills an application that still runs. The program itself never gets here. */
    ~Watchdog() override;

    Watchdog(const Watchdog &) = delete;
    Watchdog &operator=(const Watchdog &) = delete;

    /**
     * Sets the supervisor up from the program's @p arguments, its own name first, and starts the
     * application. Call it once. Returns 0 when the event loop is to run, otherwise the exit status
     * of the program, after the reason was written to standard error or the system log.
     */
    int init(const QStringList &arguments);

private slots:
    void processFinished(int exitCode, QProcess::ExitStatus exitStatus);
    void processRestart();

private:
    // The steps of init().
    void applyOptions(const CommandLine &options);
    bool openLog(const CommandLine &options);

    // The application's life cycle.
    bool startApp(const QString &program, const QStringList &arguments);
    void countExit(qint64 uptimeSec);
    void killStrayProcesses();
    void rebootDevice();
    static void onTerminationSignal(int signalNumber);

    PynxProcess m_process;
    QString m_appPath;
    QStringList m_appArgs;
    qint64 m_startTimeSec = 0; // monotonic clock, whole seconds
    QTime m_exitRunTime;       // null at first, and adding to a null time gives a null time
    qint32 m_exitCount = 0;
    bool m_rotateOnly = false;
    bool m_singleRun = false;
    QScopedPointer<LogProcessor> m_logProcessor;
};

/** The process's one supervisor, for the signal handler; null until the entry point has made it. */
extern Watchdog *theWatchdog;
