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
 * It tells of a load that has reached its threshold on a number of consecutive ticks, with a block
 * of lines ready for a log, and of a process that stays absent. It writes nothing itself.
 *
 * The object is constructed on the thread it is to live on, see NewQThread, and makes a real-time
 * thread of it. Other threads reach it with watch() and by calling its slots by name, queued; the
 * functions of the process table are for its own thread too.
 */
class SystemLoadStat : public QObject, public ProcessTable
{
    Q_OBJECT

public:
    /**
     * @param procRoot where the process file system lies; an absolute path
     * @param raisePriority whether the calling thread is to run in real time, see
     * raiseThreadPriority()
     */
    explicit SystemLoadStat(const QString &procRoot = QStringLiteral("/proc"),
                            bool raisePriority = true);

signals:
    /** The process of the watch id @p id was at or over its threshold; @p data are lines for a log.
     */
    void cpuLoadExceed(int id, QStringList data);

    /** The process of the watch id @p id has been absent for @p time seconds; once an absence. */
    void notFound(int id, QString processName, QStringList args, int time);

private slots:
    void on_cpuLoadTimer_timeout();

    /**
     * Watches one more process and returns its watch id, which is never given again.
     *
     * @param processName its command name; the kernel keeps 15 bytes of one
     * @param processArgs all of which its command line must hold
     * @param period consecutive seconds at or over the threshold that make an alarm; with 0 or less
     * every second makes one
     * @param cpuLoad the threshold, in percent of all processors' time together
     * @param readThreads whether an alarm also tells of the process's threads
     * @param notFoundPeriod seconds after which an absence is told; 0 or less: never
     */
    int do_watchProcessLoad(QString processName, QStringList processArgs, int period, int cpuLoad,
                            bool readThreads, int notFoundPeriod);

    /** Ends the watching of @p id, known or not. */
    void do_removeProcessLoad(int id);

    /** Takes a first sample and starts the ticks. */
    void do_start();

    /** Stops the ticks; do_start() goes on with the counts as they are. The program never does. */
    void do_stop();

private:
    // What one tick is made of.
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
 * Has @p stat watch the process that @p entry describes and returns its watch id. Any thread; the
 * caller is blocked until the thread of @p stat has taken the entry over.
 */
int watch(SystemLoadStat *stat, const WatchEntry &entry);
