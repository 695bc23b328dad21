// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The application's life as the supervisor sees it: start, end, accounting, restart.
#include "app/watchdog.h"

#include "app/terminationsignals.h"
#include "app/uptimestring.h"
#include "common/errorline.h"
#include "common/processerror.h"
#include "common/toolprocess.h"
#include "health/sfuflagclearer.h"
#include "health/systemloadlogger.h"
#include "platform/pynx_api.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTimer>

#include <atomic>

#include <syslog.h>

namespace {

constexpr int startTimeoutMs = 500;
constexpr int restartDelayMs = 1000;
constexpr int criticalExitCount = 3;
constexpr int criticalRunTimeSec = 60;

std::atomic<bool> applicationTold(false); // of a termination signal

qint64 monotonicSeconds()
{
    QElapsedTimer timer;
    timer.start();
    return timer.msecsSinceReference() / 1000;
}

} // namespace

bool Watchdog::startApp(const QString &program, const QStringList &arguments)
{
    m_startTimeSec = monotonicSeconds();
    m_process.start(program, arguments, QIODevice::ReadWrite);
    const bool started = m_process.waitForStarted(startTimeoutMs);
    if (!started)
        logProcessError(m_process.error());
    m_logProcessor->write(QStringLiteral("\n\n%1 Watchdog: %2 \n")
                              .arg(pynxLocalTimeDateString()) // clazy:exclude=qstring-arg
                              .arg(QStringLiteral("Starting app: ") + program));
    if (!m_reporter.isNull())
        m_reporter->clearHistory(); // every run of the application has reports of its own
    return started;
}

void Watchdog::processFinished(int exitCode, QProcess::ExitStatus exitStatus)
{
    const qint64 uptimeSec = monotonicSeconds() - m_startTimeSec;
    if (!m_rotateOnly)
        killStrayProcesses();
    Q_ASSERT(m_logProcessor);
    m_logProcessor->flushOutput();
    m_exitCount += 1;
    if (m_flagClearer != nullptr)
        m_flagClearer->stop();
    applyCriticalErrorRule(uptimeSec);
    if (exitStatus == QProcess::CrashExit && !m_reporter.isNull())
        m_reporter->requestReport({m_loadLogger->copyLoadFile()}, QStringLiteral("main"));

    if (m_singleRun) {
        // A supervisor that was told to end does so with 0, also where the application's own end is
        // handled before the event loop has stopped.
        QCoreApplication::exit(terminationSignalCame() ? 0 : exitCode);
        return;
    }
    ::syslog(LOG_NOTICE, "Restarting process: exit code:%d, exist status:%d, uptime:%s\n", exitCode,
             static_cast<int>(exitStatus),
             uptimeString(static_cast<int>(uptimeSec)).toUtf8().constData());
    QTimer::singleShot(restartDelayMs, this, &Watchdog::processRestart);
}

void Watchdog::processRestart()
{
    if (m_flagClearer != nullptr)
        m_flagClearer->start();
    startApp(m_appPath, m_appArgs);
}

// The third exit since the supervisor started reboots the board, however long the application ran,
// and no later one does. That follows from the accumulated run time: it starts as a null time, a
// null time stays null whatever is added to it, and it compares as shorter than any other. Devices
// in the field rely on it, so the arithmetic is to stay that of QTime.
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
    ToolProcess::run(QStringLiteral("killall"), {QStringLiteral("-9"), QStringLiteral("pYNX")});
}

void Watchdog::rebootDevice()
{
    ToolProcess::run(QStringLiteral("reboot"), {QStringLiteral("-f")});
}

// Runs wherever the signal falls: a supervisor that something holds up still passes it on at once.
void Watchdog::passTerminationOn()
{
    applicationTold = theWatchdog->m_process.processId() != 0;
    theWatchdog->m_process.terminate(); // no more than a kill()
}

// Runs inside the signal handler as well, but not before the event loop's next turn.
void Watchdog::onTerminationSignal(int /*signalNumber*/)
{
    // Only an application that was not there yet: to many, a second signal means more than a first.
    if (!applicationTold)
        theWatchdog->m_process.terminate();
    Q_ASSERT(theWatchdog->m_logProcessor);
    theWatchdog->m_logProcessor->flushOutput();
    QCoreApplication::quit();
}
