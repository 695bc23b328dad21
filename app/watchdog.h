// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "app/pynxprocess.h"
#include "logging/logprocessor.h"
#include "report/reporter.h"

#include <QHash>
#include <QObject>
#include <QScopedPointer>
#include <QString>
#include <QStringList>
#include <QTime>
#include <QTimer>

class HwWatchdog;
class PynxWatchdogWatchProcess;
class SfuFlagClearer;
class SystemLoadLogger;
class SystemLoadStat;
struct CommandLine;

/** What the supervisor knows of one watched process. */
struct WatchedProcessInfo
{
    qint32 maxReports = 0;  ///< alarms that are logged before the watching ends
    qint32 reportCount = 0; ///< alarms so far
    QString logFile;        ///< from the watch list; not used
};

/**
 * The supervisor: starts the application, logs what it prints, restarts it, and reboots the board
 * when a restart does not help. Each process has one, on the main thread.
 */
class Watchdog : public QObject
{
    Q_OBJECT

public:
    /** Opens the system log. @p parent may be null. @p clock measures run times. */
    explicit Watchdog(QObject *parent, Reporter::Clock clock = Reporter::monotonicMs);

    /** Kills an application that still runs. The program itself never destroys its supervisor. */
    ~Watchdog() override;

    Watchdog(const Watchdog &) = delete;
    Watchdog &operator=(const Watchdog &) = delete;

    /**
     * Sets up the supervisor from the program's @p arguments, of which the first is the program's
     * own name, and starts the application. Call it once. Returns 0 when the event loop is to run.
     * Otherwise it returns the exit status of the program, after a message on standard error or in
     * the system log.
     */
    int init(const QStringList &arguments);

private slots:
    void processFinished(int exitCode, QProcess::ExitStatus exitStatus);
    void processRestart();
    void on_logProcessor_reportString(const QString &fileName, const QString &str);
    void on_stat_cpuLoadExceed(int id, const QStringList &data);
    void on_stat_notFound(int id, const QString &name, const QStringList &args, int timeS);
    void on_hwWatchdogTimer_timeout();
    void on_memoryUsage_report();

private:
    // The steps of init().
    void applyOptions(const CommandLine &options);
    bool openLog(const CommandLine &options);
    void startHwWatchdog();
    void startLoadStat();
    void startMemoryReports();
    void startReporter();
    void watchProcesses();
    void watchProcess(const PynxWatchdogWatchProcess &process);
    void startFlagClearer();
    void startLoadLogger();

    // The application's life cycle.
    bool startApp(const QString &program, const QStringList &arguments);
    void applyCriticalErrorRule(qint64 uptimeSec);
    void killStrayProcesses();
    void rebootDevice();
    static void passTerminationOn();
    static void onTerminationSignal(int signalNumber);

    PynxProcess m_process;
    QString m_appPath;
    QStringList m_appArgs;
    qint64 m_startTimeSec = 0; // monotonic clock, whole seconds
    QTime m_exitRunTime;       // null at first; see applyCriticalErrorRule()
    qint32 m_exitCount = 0;
    // Created once and never deleted: they live until the process ends
    // (kept-behaviour.md: no-tear-down). In rotate-only mode they are null.
    SfuFlagClearer *m_flagClearer = nullptr;
    SystemLoadLogger *m_loadLogger = nullptr;
    HwWatchdog *m_hwWatchdog = nullptr;
    QTimer m_hwWatchdogTimer;
    SystemLoadStat *m_loadStat = nullptr; // lives in a thread of its own
    QTimer m_memoryTimer;
    QHash<int, WatchedProcessInfo> m_watched; // by watch id
    bool m_rotateOnly = false;
    bool m_singleRun = false;
    QScopedPointer<LogProcessor> m_logProcessor;
    QScopedPointer<Reporter> m_reporter;
    Reporter::Clock m_clock;
};

/** The only supervisor of the process, for the signal handler; null until main() has created it. */
extern Watchdog *theWatchdog;
