// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The supervisor's start-up: everything that is done once, before the event loop runs.
#include "app/watchdog.h"

#include "app/commandline.h"
#include "app/terminationsignals.h"
#include "common/checkedconnect.h"
#include "health/hwwatchdog.h"
#include "health/sfuflagclearer.h"
#include "health/systemloadlogger.h"
#include "load/newqthread.h"
#include "load/systemloadstat.h"
#include "logging/settings.h"
#include "platform/pynx_api.h"

namespace {

constexpr int hwWatchdogTimeoutSec = 30;
constexpr int hwWatchdogFeedMs = 10000; // three feeds to a time-out
constexpr int memoryReportMs = 180000;
constexpr int notFoundPeriodSec = 30;
constexpr int clearFlagsAfterMs = 10000;
constexpr int snapshotMs = 10000;

QStringList toStrings(const QVariantList &values)
{
    QStringList strings;
    for (const QVariant &value : values)
        strings.append(value.toString());
    return strings;
}

} // namespace

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
    m_hwWatchdog->keepAlive(); // what came before may have taken its time
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
    int id = 0;
    const bool watched = QMetaObject::invokeMethod(
        m_loadStat, "do_watchProcessLoad", Qt::BlockingQueuedConnection, Q_RETURN_ARG(int, id),
        Q_ARG(QString, process.name()), Q_ARG(QStringList, toStrings(process.arguments())),
        Q_ARG(int, process.period()), Q_ARG(int, process.maxLoad()),
        Q_ARG(bool, process.threadInfo()), Q_ARG(int, notFoundPeriodSec));
    Q_ASSERT(watched);
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
