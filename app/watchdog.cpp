// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/watchdog.h"

#include "app/commandline.h"
#include "app/terminationsignals.h"
#include "app/uptimestring.h"
#include "common/checkedconnect.h"
#include "common/errorline.h"
#include "common/processerror.h"
#include "common/toolprocess.h"
#include "health/hwwatchdog.h"
#include "health/memoryusage.h"
#include "health/sfuflagclearer.h"
#include "health/systemloadlogger.h"
#include "load/newqthread.h"
#include "load/systemloadstat.h"
#include "logging/settings.h"
#include "platform/pynx_api.h"

#include <QCoreApplication>

#include <atomic>
#include <utility>

#include <syslog.h>

Watchdog *theWatchdog = nullptr;

namespace {

constexpr int startTimeoutMs = 500;
constexpr int restartDelayMs = 1000;
constexpr int criticalExitCount = 3;
constexpr int criticalRunTimeSec = 60;
constexpr int hwWatchdogTimeoutSec = 30;
constexpr int hwWatchdogFeedMs = 10000; // three feeds in one time-out
constexpr int memoryReportMs = 180000;
constexpr int notFoundPeriodSec = 30;
constexpr int clearFlagsAfterMs = 10000;
constexpr int snapshotMs = 10000;

std::atomic<bool> applicationTold(false); // a termination signal was passed on to it

} // namespace

Watchdog::Watchdog(QObject *parent, Reporter::Clock clock)
    : QObject(parent), m_clock(std::move(clock))
{
    ::openlog("pynx_watchdog", 0, LOG_USER);
    PynxLogger::instance()->disable();
    using Finished = void (QProcess::*)(int, QProcess::ExitStatus);
    checkedConnect(&m_process, static_cast<Finished>(&QProcess::finished), this,
                   &Watchdog::processFinished);
}

Watchdog::~Watchdog()
{
    // The destructor of m_process kills an application that still runs and emits finished(). By
    // then most other members are destroyed, so processFinished() must not run any more.
    disconnect(&m_process, nullptr, this, nullptr);
}

// ---- Start-up: runs once, before the event loop.

int Watchdog::init(const QStringList &arguments)
{
    m_appArgs = arguments.mid(1);
    if (m_appArgs.isEmpty()) {
        printUsage();
        return 1;
    }
    const CommandLine options = parseCommandLine(m_appArgs);
    applyOptions(options);

    if (!openLog(options))
        return 1;
    if (m_singleRun)
        armTerminationSignals(passTerminationOn, onTerminationSignal);
    if (!startApp(m_appPath, m_appArgs))
        return 1;
    if (m_rotateOnly)
        return 0;

    startHwWatchdog();
    startLoadStat();
    startMemoryReports();
    startReporter();
    watchProcesses();
    startFlagClearer();
    m_hwWatchdog->keepAlive(); // the steps before may have taken long
    startLoadLogger();
    return 0;
}

void Watchdog::applyOptions(const CommandLine &options)
{
    m_rotateOnly = options.rotateOnly;
    m_singleRun = options.singleRun;
    m_appPath = options.appPath;
    m_appArgs = options.appArgs;
    if (!options.userName.isEmpty())
        m_process.lookupUser(options.userName);
}

bool Watchdog::openLog(const CommandLine &options)
{
    m_logProcessor.reset(
        new LogProcessor(&m_process, options.logFileName, options.logSize, options.logTime));
    checkedConnect(m_logProcessor.data(), &LogProcessor::reportString, this,
                   &Watchdog::on_logProcessor_reportString);
    return m_logProcessor->open();
}

void Watchdog::startHwWatchdog()
{
    m_hwWatchdog = new HwWatchdog(nullptr);
    checkedConnect(&m_hwWatchdogTimer, &QTimer::timeout, this,
                   &Watchdog::on_hwWatchdogTimer_timeout);
    m_hwWatchdog->setTimeout(hwWatchdogTimeoutSec);
    m_hwWatchdogTimer.start(hwWatchdogFeedMs);
}

void Watchdog::startLoadStat()
{
    m_loadStat = NewQThread<SystemLoadStat>::create(QStringLiteral("SystemLoad"));
    checkedConnect(m_loadStat, &SystemLoadStat::cpuLoadExceed, this,
                   &Watchdog::on_stat_cpuLoadExceed);
    checkedConnect(m_loadStat, &SystemLoadStat::notFound, this, &Watchdog::on_stat_notFound);
}

void Watchdog::startMemoryReports()
{
    if (!readSettings(PynxWatchdogMemoryReportingConfPath().base()).toBool())
        return;
    checkedConnect(&m_memoryTimer, &QTimer::timeout, this, &Watchdog::on_memoryUsage_report);
    m_memoryTimer.start(memoryReportMs);
}

void Watchdog::startReporter()
{
    if (!readSettings(PynxWatchdogAutomaticReportingPath().base()).toBool())
        return;
    const PynxSystemLogReportConfig content(
        PynxHash(readSettings(PynxSystemManagerLogReportConfigPath().base()).toHash()));
    const PynxWatchdogReportsConfig upload(
        PynxHash(readSettings(PynxWatchdogAutomaticReportingConfPath().base()).toHash()));
    m_reporter.reset(
        new Reporter(toStrings(content.files()), upload.uploadPath(), upload.uploadFilePrefix()));
    m_logProcessor->enableReports();
}

void Watchdog::watchProcesses()
{
    const QVariantList entries = readSettings(PynxWatchdogWatchProcessListPath().base()).toList();
    for (const QVariant &entry : entries)
        watchProcess(PynxWatchdogWatchProcess(PynxHash(entry.toHash())));
    if (entries.isEmpty())
        return;
    const bool started = QMetaObject::invokeMethod(m_loadStat, "do_start");
    Q_ASSERT(started);
}

void Watchdog::watchProcess(const PynxWatchdogWatchProcess &process)
{
    WatchEntry entry;
    entry.name = process.name();
    entry.args = toStrings(process.arguments());
    entry.period = process.period();
    entry.cpuLoad = process.maxLoad();
    entry.readThreads = process.threadInfo();
    entry.notFoundPeriod = notFoundPeriodSec;
    const int id = watch(m_loadStat, entry);
    m_watched.insert(id, {process.maxReports(), 0, process.logFile()});
}

void Watchdog::startFlagClearer()
{
    m_flagClearer = new SfuFlagClearer(clearFlagsAfterMs);
    m_flagClearer->start();
}

void Watchdog::startLoadLogger()
{
    m_loadLogger = new SystemLoadLogger(QStringLiteral("/tmp/log/system"), nullptr);
    m_loadLogger->start(snapshotMs);
}

// ---- The application's life: start, end, accounting, restart.

bool Watchdog::startApp(const QString &program, const QStringList &arguments)
{
    m_startTimeSec = m_clock() / 1000;
    m_process.start(program, arguments, QIODevice::ReadWrite);
    const bool started = m_process.waitForStarted(startTimeoutMs);
    if (!started)
        logProcessError(m_process.error());
    // The arguments are filled in one after the other (kept-behaviour.md: chained-arguments).
    m_logProcessor->write(QStringLiteral("\n\n%1 Watchdog: %2 \n")
                              .arg(pynxLocalTimeDateString()) // clazy:exclude=qstring-arg
                              .arg(QStringLiteral("Starting app: ") + program));
    if (!m_reporter.isNull())
        m_reporter->clearHistory(); // the limit of reports is for one run of the application
    return started;
}

void Watchdog::processFinished(int exitCode, QProcess::ExitStatus exitStatus)
{
    const qint64 uptimeSec = m_clock() / 1000 - m_startTimeSec;
    if (!m_rotateOnly)
        killStrayProcesses();
    Q_ASSERT(m_logProcessor);
    m_logProcessor->flushOutput();
    m_exitCount += 1;
    if (m_flagClearer != nullptr)
        m_flagClearer->stop();
    // The reboot comes before the report (kept-behaviour.md: reboot-before-report).
    applyCriticalErrorRule(uptimeSec);
    if (exitStatus == QProcess::CrashExit && !m_reporter.isNull())
        m_reporter->requestReport({m_loadLogger->copyLoadFile()}, QStringLiteral("main"));

    if (m_singleRun) {
        // After a termination signal the supervisor's status is 0. The application ends by that
        // signal too, and its end can be noticed before the event loop has stopped.
        QCoreApplication::exit(terminationSignalCame() ? 0 : exitCode);
        return;
    }
    // Scripts look for this misspelt text (kept-behaviour.md: misspelt-texts).
    ::syslog(LOG_NOTICE, "Restarting process: exit code:%d, exist status:%d, uptime:%s\n", exitCode,
             static_cast<int>(exitStatus),
             uptimeString(static_cast<int>(uptimeSec)).toUtf8().constData());
    QTimer::singleShot(restartDelayMs, this, &Watchdog::processRestart);
}

void Watchdog::processRestart()
{
    if (m_flagClearer != nullptr)
        m_flagClearer->start();
    // A failed start has no end that could bring the next restart
    // (kept-behaviour.md: failed-restart).
    startApp(m_appPath, m_appArgs);
}

// The third end since the supervisor's start reboots the board, however long the application ran.
// No later end does. The reason is m_exitRunTime: it is a null time at first, a null time plus
// seconds is null again, and null is less than any other time. With plain seconds, an application
// that runs for long between its ends would never cause the reboot after which the boot loader
// falls back (kept-behaviour.md: third-end).
void Watchdog::applyCriticalErrorRule(qint64 uptimeSec)
{
    const QTime criticalRunTime = QTime(0, 0, 0, 0).addSecs(criticalRunTimeSec);
    m_exitRunTime = m_exitRunTime.addSecs(static_cast<int>(uptimeSec));
    if (!m_rotateOnly && m_exitCount == criticalExitCount && criticalRunTime > m_exitRunTime) {
        writeErrorLine(QStringLiteral("Critical FW error, rebooting."));
        rebootDevice();
    }
    if (m_exitRunTime > criticalRunTime) {
        m_exitRunTime.setHMS(0, 0, 0, 0);
        m_exitCount = 0;
    }
}

void Watchdog::killStrayProcesses()
{
    // This has no time limit, and neither has the reboot below. If one of them hangs, the hardware
    // watchdog resets the board (kept-behaviour.md: long-waits).
    ToolProcess::run(QStringLiteral("killall"), {QStringLiteral("-9"), QStringLiteral("pYNX")});
}

void Watchdog::rebootDevice()
{
    ToolProcess::run(QStringLiteral("reboot"), {QStringLiteral("-f")});
}

// Runs in the signal handler at once, so that the signal is passed on also while the supervisor
// waits for a tool or a file.
void Watchdog::passTerminationOn()
{
    applicationTold = theWatchdog->m_process.processId() != 0;
    theWatchdog->m_process.terminate(); // only calls kill(), which is safe here
}

// Runs in the signal handler too, but at the event loop's next turn
// (kept-behaviour.md: handler-calls).
void Watchdog::onTerminationSignal(int /*signalNumber*/)
{
    // The application gets the signal only once, because many applications take a second one as an
    // order to stop at once.
    if (!applicationTold)
        theWatchdog->m_process.terminate();
    Q_ASSERT(theWatchdog->m_logProcessor);
    theWatchdog->m_logProcessor->flushOutput();
    QCoreApplication::quit();
}

// ---- Slots for the signals of other parts.

void Watchdog::on_logProcessor_reportString(const QString &fileName, const QString &str)
{
    if (m_reporter.isNull())
        return;
    m_logProcessor->flushOutput();
    m_reporter->requestReport({fileName}, str);
}

void Watchdog::on_stat_cpuLoadExceed(int id, const QStringList &data)
{
    Q_ASSERT(m_logProcessor);
    const auto info = m_watched.find(id);
    if (info == m_watched.end())
        return;
    info->reportCount += 1;
    if (info->reportCount > info->maxReports) {
        // The removal is final, so alarms that are still queued are ignored
        // (kept-behaviour.md: alarm-limit).
        m_watched.erase(info);
        const bool removed =
            QMetaObject::invokeMethod(m_loadStat, "do_removeProcessLoad", Q_ARG(int, id));
        Q_ASSERT(removed);
        return;
    }
    for (const QString &line : data)
        m_logProcessor->write(line + QLatin1Char('\n'));
}

void Watchdog::on_stat_notFound(int /*id*/, const QString &name, const QStringList &args, int timeS)
{
    Q_ASSERT(m_logProcessor);
    m_logProcessor->write(
        QStringLiteral("Process %1 with args [%2] doesn't appear for %3 seconds\n")
            .arg(name, args.join(QLatin1Char(',')), QString::number(timeS)));
}

void Watchdog::on_hwWatchdogTimer_timeout()
{
    m_hwWatchdog->keepAlive();
}

void Watchdog::on_memoryUsage_report()
{
    Q_ASSERT(m_logProcessor);
    m_logProcessor->write(MemoryUsage::read().reportLine(pynxLocalTimeDateString()));
}
