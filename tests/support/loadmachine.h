// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "load/systemloadstat.h"
#include "preparedproc.h"

#include <QDateTime>
#include <QSignalSpy>
#include <QString>
#include <QStringList>

constexpr int noAbsence = 0; // not to be told of

/**
 * A load watcher on a machine of the test's making, every tick of which is the test's own. What it
 * signals is taken at once, on the same thread. The machine-wide counter begins at 1000.
 */
class LoadMachine
{
public:
    LoadMachine();

    // The slots, by their names.
    int watch(const QString &name, int period, int cpuLoad, bool threads = false,
              int notFoundPeriod = noAbsence, const QStringList &args = QStringList());
    void remove(int id);
    void start();
    void stop();
    void tick();

    /** Lets "daemon", the process 10, have used @p utime when the counter is there; and ticks. */
    void tickAt(quint64 cpuTotal, qint64 utime);

    /** The lines of the last alarm, or none when there was none since; forgets all alarms. */
    QStringList takeRawLines();

    /** The same without their times, and with "*" for the milliseconds between two ticks. */
    QStringList takeLines();
    QString takeLastLine();

    /** A line of an alarm taken apart; where it has no time, the text says so. */
    static QDateTime timeOf(const QString &line);
    static QString withoutTime(const QString &line);

    PreparedProc proc;
    SystemLoadStat stat;
    QSignalSpy alarms;
    QSignalSpy absences;

private:
    template <typename... Arguments>
    void call(const char *slot, const Arguments &...arguments);
};

// What there is to say of "daemon".
QString daemonName();
QString headerLine(int cpuLoad, int period);
QString elapsedLine();
QString loadLine(const char *load);
