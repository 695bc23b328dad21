// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "loadmachine.h"

#include <QMetaObject>
#include <QRegExp>

namespace {

constexpr int daemonPid = 10;
constexpr int timeSize = 23; // characters of a line's time, without the blank behind it

} // namespace

LoadMachine::LoadMachine()
    : stat(proc.root(), false), alarms(&stat, &SystemLoadStat::cpuLoadExceed),
      absences(&stat, &SystemLoadStat::notFound)
{
    proc.setCpuTotal(1000);
}

int LoadMachine::watch(const QString &name, int period, int cpuLoad, bool threads,
                       int notFoundPeriod, const QStringList &args)
{
    WatchEntry entry;
    entry.name = name;
    entry.args = args;
    entry.period = period;
    entry.cpuLoad = cpuLoad;
    entry.readThreads = threads;
    entry.notFoundPeriod = notFoundPeriod;
    return ::watch(&stat, entry);
}

void LoadMachine::remove(int id)
{
    call("do_removeProcessLoad", Q_ARG(int, id));
}

void LoadMachine::start()
{
    call("do_start");
}

void LoadMachine::stop()
{
    call("do_stop");
}

void LoadMachine::tick()
{
    call("on_cpuLoadTimer_timeout");
}

void LoadMachine::tickAt(quint64 cpuTotal, qint64 utime)
{
    proc.setCpuTotal(cpuTotal);
    proc.setProcess(daemonPid, "daemon", {utime, 0, 0, 0});
    tick();
}

QStringList LoadMachine::takeRawLines()
{
    QStringList lines = alarms.isEmpty() ? QStringList() : alarms.constLast().at(1).toStringList();
    alarms.clear();
    return lines;
}

QStringList LoadMachine::takeLines()
{
    QStringList texts;
    const QStringList lines = takeRawLines();
    for (const QString &line : lines)
        texts += withoutTime(line);
    return texts.replaceInStrings(QRegExp(QStringLiteral("^Time between two invocations:\\d+ms$")),
                                  elapsedLine());
}

QString LoadMachine::takeLastLine()
{
    const QStringList lines = takeLines();
    return lines.isEmpty() ? QString() : lines.last();
}

QDateTime LoadMachine::timeOf(const QString &line)
{
    return QDateTime::fromString(line.left(timeSize), QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
}

QString LoadMachine::withoutTime(const QString &line)
{
    return timeOf(line).isValid() && line.at(timeSize) == QLatin1Char(' ')
        ? line.mid(timeSize + 1)
        : QStringLiteral("no time: ") + line;
}

template <typename... Arguments>
void LoadMachine::call(const char *slot, const Arguments &...arguments)
{
    if (!QMetaObject::invokeMethod(&stat, slot, Qt::DirectConnection, arguments...))
        qFatal("cannot call the slot %s", slot);
}

QString daemonName()
{
    return QStringLiteral("daemon");
}

QString headerLine(int cpuLoad, int period)
{
    return QStringLiteral("Process:daemon (%1) cpu load is : %2 for %3 seconds ")
        .arg(daemonPid)
        .arg(cpuLoad)
        .arg(period);
}

QString elapsedLine()
{
    return QStringLiteral("Time between two invocations:*ms");
}

QString loadLine(const char *load)
{
    return QStringLiteral("daemon cpu load:%1%").arg(QLatin1String(load));
}
