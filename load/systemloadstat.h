// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "load/processtable.h"
#include "load/statrecord.h"
#include "load/watchentry.h"

#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

/**
 * Watches the CPU load of processes, found by name and arguments, and of their threads, once a
 * second.
 *
 * It emits a signal with lines for a log when a load has been at or over its threshold for a number
 * of consecutive ticks, and another signal when a process stays absent. It writes no log itself.
 *
 * The object must be constructed on the thread on which it is to live, see NewQThread. It gives
 * this thread real-time priority. Other threads use watch() and queued calls of its slots by name.
 * The functions of ProcessTable are for the object's own thread only.
 */
class SystemLoadStat : public QObject, public ProcessTable
{
    Q_OBJECT

public:
    /**
     * @param procRoot where the process file system is mounted; an absolute path
     * @param raisePriority whether the calling thread is to run in real time, see
     * raiseThreadPriority()
     */
    explicit SystemLoadStat(const QString &procRoot = QStringLiteral("/proc"),
                            bool raisePriority = true);

signals:
    /**
     * The process with the watch id @p id was at or over its threshold; @p data has lines for a
     * log.
     */
    void cpuLoadExceed(int id, QStringList data);

    /**
     * The process with the watch id @p id has been absent for @p time seconds; once for each
     * absence.
     */
    void notFound(int id, QString processName, QStringList args, int time);

private slots:
    void on_cpuLoadTimer_timeout();

    /**
     * Watches one more process and returns its watch id, which is never used again.
     *
     * @param processName its command name, which the kernel cuts at 15 bytes
     * @param processArgs arguments, each of which its command line must contain
     * @param period consecutive seconds at or over the threshold that cause an alarm; with 0 or
     * less there is an alarm every second
     * @param cpuLoad the threshold, in percent of all processors' time together
     * @param readThreads whether an alarm also lists the process's threads
     * @param notFoundPeriod seconds before an absence is reported; 0 or less: never
     */
    int do_watchProcessLoad(QString processName, QStringList processArgs, int period, int cpuLoad,
                            bool readThreads, int notFoundPeriod);

    /** Stops watching @p id; an unknown id is ignored. */
    void do_removeProcessLoad(int id);

    /** Takes a first sample and starts the ticks. */
    void do_start();

    /** Stops the ticks. do_start() continues with the same counts. The program never calls it. */
    void do_stop();

private:
    // The steps of one tick.
    void takeSample(QHash<int, ProcessSample> &out);
    void lookUp(int id, WatchEntry &entry);
    void compareSamples(int id, const ProcessSample &current, const ProcessSample &previous);

    // The lines of an alarm.
    static QString headerLine(const ProcessSample &sample, const WatchEntry &entry);
    QStringList loadLines(const ProcessSample &sample, double load) const;
    static QStringList threadLoadLines(const QHash<int, StatRecord> &current,
                                       const QHash<int, StatRecord> &previous, quint64 cpuTotal,
                                       int maxLines, double &total);
    static QString timePrefix();
    static qint64 nowMs();

    QTimer cpuLoadTimer;
    int m_nextId = 0;
    QHash<int, WatchEntry> m_watchList;
    QHash<int, ProcessSample> m_previous;
    QHash<int, ProcessSample> m_current;
    QHash<int, ExceedState> m_exceeded;
    qint64 m_lastTickMs = 0; // monotonic clock
    qint64 m_elapsedMs = 0;  // between the last two ticks
};

/**
 * Makes @p stat watch the process that @p entry describes and returns its watch id. Any thread; the
 * caller is blocked until the thread of @p stat has added the entry.
 */
int watch(SystemLoadStat *stat, const WatchEntry &entry);
