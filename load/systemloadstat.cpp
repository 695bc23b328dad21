// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "load/systemloadstat.h"

#include "common/checkedconnect.h"
#include "load/processload.h"
#include "load/threadpriority.h"
#include "platform/pynx_api.h"

#include <QStringBuilder>
#include <QThread>
#include <QVector>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <utility>

namespace {

constexpr int tickIntervalMs = 1000;
constexpr int maxThreadLines = 5;
constexpr qint64 msPerSecond = 1000;
constexpr qint64 nsPerMs = 1000000;

QString percent(double load)
{
    return QString::number(load, 'g', 6) % QLatin1Char('%');
}

struct ThreadLoad
{
    QString name;
    double load;
};

// Not a number comes last. A thread that did nothing has this load when the machine-wide counter
// did not move either (0 / 0), and a sort needs a place for every value.
bool isHigher(const ThreadLoad &left, const ThreadLoad &right)
{
    if (std::isnan(right.load))
        return !std::isnan(left.load);
    return left.load > right.load;
}

} // namespace

SystemLoadStat::SystemLoadStat(const QString &procRoot, bool raisePriority) : ProcessTable(procRoot)
{
    checkedConnect(&cpuLoadTimer, &QTimer::timeout, this, &SystemLoadStat::on_cpuLoadTimer_timeout);
    if (raisePriority)
        raiseThreadPriority();
}

void SystemLoadStat::on_cpuLoadTimer_timeout()
{
    const qint64 now = nowMs();
    m_elapsedMs = now - m_lastTickMs;
    m_lastTickMs = now;
    m_current.clear();
    takeSample(m_current);
    for (auto sample = m_current.constBegin(); sample != m_current.constEnd(); ++sample) {
        const auto previous = m_previous.constFind(sample.key());
        if (previous != m_previous.constEnd())
            compareSamples(sample.key(), sample.value(), previous.value());
    }
    m_previous = m_current;
}

int SystemLoadStat::do_watchProcessLoad(QString processName, QStringList processArgs, int period,
                                        int cpuLoad, bool readThreads, int notFoundPeriod)
{
    WatchEntry entry;
    entry.name = std::move(processName);
    entry.args = std::move(processArgs);
    entry.period = period;
    entry.cpuLoad = cpuLoad;
    entry.readThreads = readThreads;
    entry.notFoundPeriod = notFoundPeriod;
    const int id = m_nextId++;
    m_watchList.insert(id, entry);
    return id;
}

// The lines gathered for the id stay. No later entry gets the same id, so nothing reads them.
void SystemLoadStat::do_removeProcessLoad(int id)
{
    m_watchList.remove(id);
}

void SystemLoadStat::do_start()
{
    QHash<int, ProcessSample> first;
    takeSample(first);
    m_lastTickMs = nowMs();
    m_previous = first;
    cpuLoadTimer.start(tickIntervalMs);
}

// Called by nobody (kept-behaviour.md: unused-slots).
void SystemLoadStat::do_stop()
{
    cpuLoadTimer.stop();
    m_current.clear();
    m_previous.clear();
}

void SystemLoadStat::takeSample(QHash<int, ProcessSample> &out)
{
    for (auto entry = m_watchList.begin(); entry != m_watchList.end(); ++entry) {
        if (entry->pid == 0)
            lookUp(entry.key(), entry.value());
        if (entry->pid <= 0)
            continue;
        // A sample is stored also after a failed read. Of a process that has ended the times are
        // zero, and the load that follows from them shows its end
        // (kept-behaviour.md: ended-process).
        ProcessSample sample;
        if (readProcessSample(entry->pid, entry->readThreads, sample) < 0)
            entry->pid = 0;
        out.insert(entry.key(), sample);
    }
}

void SystemLoadStat::lookUp(int id, WatchEntry &entry)
{
    const int pid = findPidByNameAndArgs(entry.name, entry.args);
    if (pid > 0) {
        entry.pid = pid;
        entry.notFoundCount = 0;
        return;
    }
    if (entry.notFoundPeriod <= 0)
        return;
    if (entry.notFoundCount == entry.notFoundPeriod)
        emit notFound(id, entry.name, entry.args, entry.notFoundPeriod);
    // The count stops at one more than the period, so that an absence is reported only once.
    if (entry.notFoundCount <= entry.notFoundPeriod)
        ++entry.notFoundCount;
}

void SystemLoadStat::compareSamples(int id, const ProcessSample &current,
                                    const ProcessSample &previous)
{
    const quint64 cpuTotal = current.cpuTotal - previous.cpuTotal;
    const double load = processLoad(current, previous, cpuTotal);
    const WatchEntry entry = m_watchList.value(id);
    ExceedState state = m_exceeded.take(id);
    if (static_cast<double>(entry.cpuLoad) <= load) {
        state.lines += loadLines(current, load);
        if (entry.readThreads) {
            double total = 0.0;
            const QStringList threadLines =
                threadLoadLines(current.threads, previous.threads, cpuTotal, maxThreadLines, total);
            state.lines += timePrefix() % current.name % QStringLiteral(" total thread load:")
                % percent(total);
            state.lines += threadLines;
        }
        ++state.count;
    } else {
        state = ExceedState();
    }
    // Checked at every tick, also below the threshold, so that a period of 0 or less gives an alarm
    // every second (kept-behaviour.md: period-zero).
    if (state.count >= entry.period) {
        state.lines.prepend(headerLine(current, entry));
        emit cpuLoadExceed(id, state.lines);
        state = ExceedState();
    }
    m_exceeded.insert(id, state);
}

// The line holds the configured threshold and period and no measured load.
QString SystemLoadStat::headerLine(const ProcessSample &sample, const WatchEntry &entry)
{
    return timePrefix() % QStringLiteral("Process:") % sample.name % QStringLiteral(" (")
        % QString::number(sample.pid) % QStringLiteral(") cpu load is : ")
        % QString::number(entry.cpuLoad) % QStringLiteral(" for ") % QString::number(entry.period)
        % QStringLiteral(" seconds ");
}

QStringList SystemLoadStat::loadLines(const ProcessSample &sample, double load) const
{
    QStringList lines;
    lines += timePrefix() % QStringLiteral("Time between two invocations:")
        % QString::number(m_elapsedMs) % QStringLiteral("ms");
    lines += timePrefix() % sample.name % QStringLiteral(" cpu load:") % percent(load);
    return lines;
}

QStringList SystemLoadStat::threadLoadLines(const QHash<int, StatRecord> &current,
                                            const QHash<int, StatRecord> &previous,
                                            quint64 cpuTotal, int maxLines, double &total)
{
    total = 0.0;
    QVector<ThreadLoad> loads;
    loads.reserve(current.size());
    for (auto thread = current.constBegin(); thread != current.constEnd(); ++thread) {
        const auto before = previous.constFind(thread.key());
        if (before == previous.constEnd())
            continue;
        const double load = processLoad(thread.value(), before.value(), cpuTotal);
        total += load;
        loads.append({thread->name, load});
    }
    const int count = std::min(maxLines, loads.size());
    std::partial_sort(loads.begin(), loads.begin() + count, loads.end(), isHigher);

    QStringList lines;
    for (int i = 0; i < count; ++i)
        lines += timePrefix() % QStringLiteral(" thread name:") % loads.at(i).name
            % QStringLiteral(" load:") % percent(loads.at(i).load);
    return lines;
}

QString SystemLoadStat::timePrefix()
{
    return pynxLocalTimeDateString() % QLatin1Char(' ');
}

qint64 SystemLoadStat::nowMs()
{
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * msPerSecond + now.tv_nsec / nsPerMs;
}

int watch(SystemLoadStat *stat, const WatchEntry &entry)
{
    const bool isOnItsThread = stat->thread() == QThread::currentThread();
    int id = -1;
    const bool called = QMetaObject::invokeMethod(
        stat, "do_watchProcessLoad",
        isOnItsThread ? Qt::DirectConnection : Qt::BlockingQueuedConnection, Q_RETURN_ARG(int, id),
        Q_ARG(QString, entry.name), Q_ARG(QStringList, entry.args), Q_ARG(int, entry.period),
        Q_ARG(int, entry.cpuLoad), Q_ARG(bool, entry.readThreads),
        Q_ARG(int, entry.notFoundPeriod));
    Q_ASSERT(called);
    return id;
}
