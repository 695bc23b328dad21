// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// What the supervisor does when another part of it has something to tell.
#include "app/watchdog.h"

#include "health/hwwatchdog.h"
#include "health/memoryusage.h"
#include "load/systemloadstat.h"
#include "platform/pynx_api.h"

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
    if (!m_watched.contains(id))
        return;
    WatchedProcessInfo info = m_watched.take(id);
    info.reportCount += 1;
    if (info.reportCount > info.maxReports) {
        // Not put back: alarms that are under way already find no record.
        const bool removed =
            QMetaObject::invokeMethod(m_loadStat, "do_removeProcessLoad", Q_ARG(int, id));
        Q_ASSERT(removed);
        return;
    }
    for (const QString &line : data)
        m_logProcessor->write(line + QLatin1Char('\n'));
    m_watched.insert(id, info);
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
