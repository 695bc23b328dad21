// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "load/systemloadstat.h"
#include "preparedproc.h"

#include <QDateTime>
#include <QSignalSpy>
#include <QString>
#include <QStringList>

constexpr int noAbsence = 0; // an absence is not reported

/**
 * A load watcher on a machine that the test makes. The test gives it every tick and receives its
 * signals at once, on the same thread. The machine-wide counter starts at 1000.
 */
class LoadMachine
{
public:
    LoadMachine();

    // These call the slots by their names.
    int watch(const QString &name, int period, int cpuLoad, bool threads = false,
              int notFoundPeriod = noAbsence, const QStringList &args = QStringList());
    void remove(int id);
    void start();
    void stop();
    void tick();

    /** Sets the counter and the time that process 10, "daemon", has used, and gives a tick. */
    void tickAt(quint64 cpuTotal, qint64 utime);

    /** The lines of the last alarm since the last call, if any; forgets all alarms. */
    QStringList takeRawLines();

    /** The same lines without their times, and with "*" for the milliseconds between two ticks. */
    QStringList takeLines();
    QString takeLastLine();

    /** The time and the text of an alarm's line; the text says if there is no time. */
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

// The name of process 10 and the lines of its alarms.
QString daemonName();
QString headerLine(int cpuLoad, int period);
QString elapsedLine();
QString loadLine(const char *load);
