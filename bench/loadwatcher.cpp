// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// Watches processes as the supervisor does, until it is ended. The load watcher has a thread of its
// own, which the benchmark finds by its name. The main thread receives the alarms. With --samples
// it takes one sample right after the other instead of one a second. It then prints after each
// hundred how many samples, alarms and absences there have been.
#include "load/newqthread.h"
#include "load/systemloadstat.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTimer>

#include <cstdio>

namespace {

// No process reaches the first load, so there is never an alarm; every process reaches the second.
constexpr int unreachable = 1000;
constexpr int alwaysReached = 0;

constexpr int notFoundPeriod = 30;

constexpr int samplesAtOnce = 100;

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    const QCommandLineOption threads(QStringLiteral("threads"),
                                     QStringLiteral("read the threads too"));
    const QCommandLineOption alarm(QStringLiteral("alarm"),
                                   QStringLiteral("raise an alarm at every tick"));
    const QCommandLineOption samples(QStringLiteral("samples"),
                                     QStringLiteral("take this many samples without waiting"),
                                     QStringLiteral("number"));
    parser.addOptions({threads, alarm, samples});
    parser.addPositionalArgument(QStringLiteral("names"), QStringLiteral("processes to watch"));
    parser.process(app);

    SystemLoadStat *stat = NewQThread<SystemLoadStat>::create(QStringLiteral("SystemLoad"));
    // In the supervisor the main thread receives each alarm. What it does then is not measured.
    static int alarmCount = 0;
    static int absenceCount = 0;
    QObject::connect(stat, &SystemLoadStat::cpuLoadExceed, &app,
                     [](int, const QStringList &) { ++alarmCount; });
    QObject::connect(stat, &SystemLoadStat::notFound, &app, [] { ++absenceCount; });

    const QStringList names = parser.positionalArguments();
    for (const QString &name : names) {
        WatchEntry entry;
        entry.name = name;
        entry.period = 1;
        entry.cpuLoad = parser.isSet(alarm) ? alwaysReached : unreachable;
        entry.readThreads = parser.isSet(threads);
        entry.notFoundPeriod = notFoundPeriod;
        watch(stat, entry);
    }
    const int wanted = parser.value(samples).toInt();
    int taken = 0;
    QTimer next;
    QObject::connect(&next, &QTimer::timeout, &app, [&] {
        for (int i = 1; i < samplesAtOnce; ++i)
            QMetaObject::invokeMethod(stat, "on_cpuLoadTimer_timeout", Qt::QueuedConnection);
        QMetaObject::invokeMethod(stat, "on_cpuLoadTimer_timeout", Qt::BlockingQueuedConnection);
        taken += samplesAtOnce;
        std::printf("%d %d %d\n", taken, alarmCount, absenceCount);
        std::fflush(stdout);
        if (taken >= wanted)
            next.stop();
    });
    if (wanted > 0)
        next.start(0);
    else
        QMetaObject::invokeMethod(stat, "do_start");
    return QCoreApplication::exec();
}
