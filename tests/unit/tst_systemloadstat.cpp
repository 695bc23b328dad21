// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "loadmachine.h"
#include "stoppedwallclock.h"

#include <QElapsedTimer>
#include <QMetaMethod>
#include <QRegExp>
#include <QtTest>

#include <limits>

#include <sched.h>
#include <unistd.h>

class SystemLoadStatTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void metaObjectHasItsOrder();
    void constructionRaisesThePriorityOfItsThread();
    void idsGoUpAndAreNeverReused();

    // The samples that are compared, and when.
    void foundAtStartIsComparedAtTheFirstTick();
    void foundAtATickIsComparedAtTheNext();
    void addedWhileRunningIsSampledAtTheNextTick();
    void processesAreJudgedEachForItself();
    void thresholdIsInclusive_data();
    void thresholdIsInclusive();
    void removedProcessIsNotWatchedAnyMore();
    void stopDropsTheSamplesAndKeepsTheCount();
    void stopKeepsTheProcessAndTheAbsence();
    void startTwiceIsAFreshStart();
    void timerTicksOnceASecondUntilItIsStopped();

    // The time of an alarm, and its lines.
    void periodCountsConsecutiveTicks();
    void tickBelowTheThresholdStartsTheCountAgain();
    void tickWithoutComparisonLeavesTheCount();
    void periodOfZeroOrLessIsAnAlarmAtEveryTick_data();
    void periodOfZeroOrLessIsAnAlarmAtEveryTick();
    void loadText_data();
    void loadText();
    void linesNameTheProcessAsItsStatFileDoes();
    void linesCarryTheirOwnTimes();
    void timeBetweenTwoInvocationsIsMeasured();
    void threadLines();
    void threadsOfOneSampleOnlyAreLeftOut();
    void threadsAreNotReadUnlessAsked();
    void threadLoadsThatAreNotNumbersComeLast();

    // Processes that end, come back or do not exist.
    void vanishedProcessGivesAnEnormousLoad();
    void vanishedProcessIsLookedUpAgain();
    void processBackWithinATickIsComparedWithNothing();
    void threadEndingMeanwhileLeavesTheProcessValid();
    void unreadableCpuTotalCountsAsZero();
    void resolvedProcessIsNotLookedUpAgain();
    void absenceIsToldOnce_data();
    void absenceIsToldOnce();
    void absenceIsToldOnceMoreAfterAReturn();
    void absenceIsNeverTold_data();
    void absenceIsNeverTold();
};

void SystemLoadStatTest::initTestCase()
{
    qputenv("TZ", "UTC"); // it has no hour that comes twice in one night
}

void SystemLoadStatTest::metaObjectHasItsOrder()
{
    const QMetaObject &meta = SystemLoadStat::staticMetaObject;
    const QByteArray expected =
        "signal cpuLoadExceed(int,QStringList) id,data\n"
        "signal notFound(int,QString,QStringList,int) id,processName,args,time\n"
        "slot on_cpuLoadTimer_timeout() \n"
        "slot do_watchProcessLoad(QString,QStringList,int,int,bool,int)"
        " processName,processArgs,period,cpuLoad,readThreads,notFoundPeriod\n"
        "slot do_removeProcessLoad(int) id\n"
        "slot do_start() \n"
        "slot do_stop() \n";
    QByteArray methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const QMetaMethod method = meta.method(i);
        const bool isSignal = method.methodType() == QMetaMethod::Signal;
        methods += (isSignal ? "signal " : "slot ") + method.methodSignature() + ' '
            + method.parameterNames().join(',') + '\n';
        QCOMPARE(method.access(), isSignal ? QMetaMethod::Public : QMetaMethod::Private);
        QCOMPARE(method.returnType() == QMetaType::Int, method.name() == "do_watchProcessLoad");
    }
    QCOMPARE(methods, expected);
}

void SystemLoadStatTest::constructionRaisesThePriorityOfItsThread()
{
    const ChildResult child = runInChild([] {
        const SystemLoadStat stat;
        ::_exit(::sched_getscheduler(0));
    });
    QVERIFY(child.exitCode == SCHED_RR || child.standardError == "Cannot set priority\n");
}

void SystemLoadStatTest::idsGoUpAndAreNeverReused()
{
    LoadMachine machine;
    QCOMPARE(machine.watch(daemonName(), 1, 50), 0);
    QCOMPARE(machine.watch(daemonName(), 1, 50), 1);
    QCOMPARE(machine.watch(QString(), -1, -1), 2);
    machine.remove(2);
    machine.remove(0);
    QCOMPARE(machine.watch(daemonName(), 1, 50), 3);
    machine.start();
    machine.stop();
    QCOMPARE(machine.watch(daemonName(), 1, 50), 4);
}

void SystemLoadStatTest::foundAtStartIsComparedAtTheFirstTick()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {100, 0, 0, 0});
    const int id = machine.watch(daemonName(), 1, 50);
    machine.start();
    QCOMPARE(machine.alarms.size(), 0);
    machine.tickAt(1200, 220);
    QCOMPARE(machine.alarms.size(), 1);
    QCOMPARE(machine.alarms.first().at(0).toInt(), id);
    QCOMPARE(machine.takeLines(), (QStringList{headerLine(50, 1), elapsedLine(), loadLine("60")}));
}

void SystemLoadStatTest::foundAtATickIsComparedAtTheNext()
{
    LoadMachine machine;
    machine.watch(daemonName(), 1, 50);
    machine.start();
    machine.tickAt(1200, 220);
    QCOMPARE(machine.alarms.size(), 0);
    machine.tickAt(1400, 320);
    QCOMPARE(machine.takeLines(), (QStringList{headerLine(50, 1), elapsedLine(), loadLine("50")}));
}

void SystemLoadStatTest::addedWhileRunningIsSampledAtTheNextTick()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {100, 0, 0, 0});
    machine.start();
    machine.watch(daemonName(), 1, 50, false, 1);
    machine.proc.removeProcess(10);
    // The ticks do the look-ups, so the first two ticks are the first two failed look-ups.
    machine.tick();
    QCOMPARE(machine.absences.size(), 0);
    machine.tick();
    QCOMPARE(machine.absences.size(), 1);
    machine.tickAt(1200, 220);
    QCOMPARE(machine.alarms.size(), 0);
    machine.tickAt(1400, 400);
    QCOMPARE(machine.takeLastLine(), loadLine("90"));
}

void SystemLoadStatTest::processesAreJudgedEachForItself()
{
    LoadMachine machine;
    for (int pid = 1; pid <= 20; ++pid)
        machine.proc.setProcess(pid, "process " + QByteArray::number(pid), {0, 0, 0, 0});
    for (int pid = 1; pid <= 20; ++pid)
        machine.watch(QStringLiteral("process %1").arg(pid), 1, 10);
    machine.start();
    machine.proc.setCpuTotal(1100);
    for (int pid = 1; pid <= 20; ++pid)
        machine.proc.setProcess(pid, "process " + QByteArray::number(pid), {21 - pid, 0, 0, 0});
    machine.tick();
    QSet<int> ids;
    for (const QList<QVariant> &alarm : qAsConst(machine.alarms)) {
        const int id = alarm.at(0).toInt();
        ids += id;
        QCOMPARE(LoadMachine::withoutTime(alarm.at(1).toStringList().at(2)),
                 QStringLiteral("process %1 cpu load:%2%").arg(id + 1).arg(20 - id));
    }
    QCOMPARE(ids, (QSet<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10}));
    QCOMPARE(machine.alarms.size(), ids.size());
}

void SystemLoadStatTest::thresholdIsInclusive_data()
{
    QTest::addColumn<int>("cpuLoad");
    QTest::addColumn<qint64>("ticks");
    QTest::addColumn<quint64>("cpuTotal");
    QTest::addColumn<bool>("exceeds");

    QTest::newRow("equal") << 50 << 100LL << quint64(200) << true;
    QTest::newRow("one tick below") << 50 << 99LL << quint64(200) << false;
    QTest::newRow("one tick above") << 50 << 101LL << quint64(200) << true;
    QTest::newRow("threshold of 0, idle") << 0 << 0LL << quint64(200) << true;
    QTest::newRow("negative threshold, idle") << -1 << 0LL << quint64(200) << true;
    QTest::newRow("beyond what can be") << 101 << 200LL << quint64(200) << false;
    QTest::newRow("not a number") << -1 << 0LL << quint64(0) << false;
}

void SystemLoadStatTest::thresholdIsInclusive()
{
    QFETCH(int, cpuLoad);
    QFETCH(qint64, ticks);
    QFETCH(quint64, cpuTotal);
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 1, cpuLoad);
    machine.start();
    machine.tickAt(1000 + cpuTotal, ticks);
    QTEST(machine.alarms.size() == 1, "exceeds");
}

void SystemLoadStatTest::removedProcessIsNotWatchedAnyMore()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    const int removed = machine.watch(daemonName(), 2, 50, false, 1);
    const int kept = machine.watch(daemonName(), 2, 50);
    machine.start();
    machine.tickAt(1100, 60);
    machine.remove(removed);
    machine.remove(7); // an unknown id changes nothing
    for (qint64 tick = 2; tick <= 5; ++tick)
        machine.tickAt(static_cast<quint64>(1000 + tick * 100), tick * 60);
    QCOMPARE(machine.alarms.size(), 2);
    for (const QList<QVariant> &alarm : qAsConst(machine.alarms))
        QCOMPARE(alarm.at(0).toInt(), kept);
    // An absence is not reported either.
    machine.proc.removeProcess(10);
    for (qint64 tick = 0; tick < 5; ++tick)
        machine.tick();
    QCOMPARE(machine.absences.size(), 0);
}

void SystemLoadStatTest::stopDropsTheSamplesAndKeepsTheCount()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 3, 50);
    machine.start();
    machine.tickAt(1100, 60);
    machine.tickAt(1200, 121);
    machine.stop();
    // The samples are gone, so the next one is not compared.
    machine.tickAt(1300, 1000);
    QCOMPARE(machine.alarms.size(), 0);
    machine.stop();
    machine.proc.setProcess(10, "daemon", {2000, 0, 0, 0});
    machine.start();
    machine.tickAt(1400, 2062);
    QCOMPARE(machine.takeLines(),
             (QStringList{headerLine(50, 3), elapsedLine(), loadLine("60"), elapsedLine(),
                          loadLine("61"), elapsedLine(), loadLine("62")}));
}

void SystemLoadStatTest::stopKeepsTheProcessAndTheAbsence()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 1, 50);
    const int absent = machine.watch(QStringLiteral("absent"), 1, 50, false, 3);
    machine.start();
    machine.tick();
    machine.stop();
    machine.proc.setProcess(10, "renamed", {0, 0, 0, 0});
    machine.start(); // the third failed look-up
    QCOMPARE(machine.absences.size(), 0);
    machine.proc.setCpuTotal(1100);
    machine.proc.setProcess(10, "renamed", {60, 0, 0, 0});
    machine.tick();
    QCOMPARE(machine.absences.size(), 1);
    QCOMPARE(machine.absences.first().at(0).toInt(), absent);
    QCOMPARE(machine.takeLastLine(), QStringLiteral("renamed cpu load:60%"));
}

void SystemLoadStatTest::startTwiceIsAFreshStart()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 1, 10);
    machine.start();
    machine.proc.setCpuTotal(1100);
    machine.proc.setProcess(10, "daemon", {90, 0, 0, 0});
    machine.start();
    machine.tickAt(1200, 110);
    QCOMPARE(machine.takeLastLine(), loadLine("20"));
}

void SystemLoadStatTest::timerTicksOnceASecondUntilItIsStopped()
{
    LoadMachine ticking;
    LoadMachine stopped;
    for (LoadMachine *machine : {&ticking, &stopped}) {
        machine->proc.setProcess(10, "daemon", {0, 0, 0, 0});
        machine->watch(daemonName(), 0, 50);
    }
    QElapsedTimer clock;
    clock.start();
    stopped.start();
    ticking.start();
    QTRY_COMPARE_WITH_TIMEOUT(ticking.alarms.size(), 2, 30000);
    // A coarse timer may be 5 % early in each of two intervals.
    QVERIFY(clock.elapsed() >= 1900);
    stopped.stop();
    const int alarmsBefore = stopped.alarms.size();
    QVERIFY(alarmsBefore > 0);
    QTRY_COMPARE_WITH_TIMEOUT(ticking.alarms.size(), 4, 30000);
    QCOMPARE(stopped.alarms.size(), alarmsBefore);
    // The watching can be started once more.
    stopped.start();
    QTRY_VERIFY_WITH_TIMEOUT(stopped.alarms.size() > alarmsBefore, 30000);
}

void SystemLoadStatTest::periodCountsConsecutiveTicks()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 3, 50);
    machine.start();
    for (int alarm = 0; alarm < 2; ++alarm) { // the count restarts after the first alarm
        const quint64 cpuTotal = 1000 + 300 * static_cast<quint64>(alarm);
        const qint64 utime = 210LL * alarm;
        machine.tickAt(cpuTotal + 100, utime + 60);
        machine.tickAt(cpuTotal + 200, utime + 110);
        QCOMPARE(machine.alarms.size(), 0);
        machine.tickAt(cpuTotal + 300, utime + 210);
        QCOMPARE(machine.alarms.size(), 1);
        QCOMPARE(machine.takeLines(),
                 (QStringList{headerLine(50, 3), elapsedLine(), loadLine("60"), elapsedLine(),
                              loadLine("50"), elapsedLine(), loadLine("100")}));
    }
}

void SystemLoadStatTest::tickBelowTheThresholdStartsTheCountAgain()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 3, 50);
    machine.start();
    machine.tickAt(1100, 60);
    machine.tickAt(1200, 120);
    machine.tickAt(1300, 169); // below
    machine.tickAt(1400, 230);
    machine.tickAt(1500, 292);
    QCOMPARE(machine.alarms.size(), 0);
    machine.tickAt(1600, 355);
    QCOMPARE(machine.takeLines(),
             (QStringList{headerLine(50, 3), elapsedLine(), loadLine("61"), elapsedLine(),
                          loadLine("62"), elapsedLine(), loadLine("63")}));
}

void SystemLoadStatTest::tickWithoutComparisonLeavesTheCount()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 3, 50);
    machine.start();
    machine.tickAt(1100, 60);
    machine.proc.setCpuTotal(1200);
    machine.proc.removeProcess(10);
    machine.tick();          // seen to end: the enormous load counts
    machine.tick();          // not there
    machine.tickAt(1400, 0); // found
    QCOMPARE(machine.alarms.size(), 0);
    machine.tickAt(1500, 70);
    const QStringList lines = machine.takeLines();
    QCOMPARE(lines.size(), 1 + 3 * 2);
    QCOMPARE(lines.at(2), loadLine("60"));
    QCOMPARE(lines.at(6), loadLine("70"));
}

void SystemLoadStatTest::periodOfZeroOrLessIsAnAlarmAtEveryTick_data()
{
    QTest::addColumn<int>("period");

    QTest::newRow("zero") << 0;
    QTest::newRow("negative") << -7;
}

void SystemLoadStatTest::periodOfZeroOrLessIsAnAlarmAtEveryTick()
{
    QFETCH(int, period);
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), period, 50);
    machine.start();
    machine.tickAt(1100, 49);
    QCOMPARE(machine.alarms.size(), 1);
    QCOMPARE(machine.takeLines(), QStringList(headerLine(50, period)));
    machine.tickAt(1200, 100);
    QCOMPARE(machine.takeLines(),
             (QStringList{headerLine(50, period), elapsedLine(), loadLine("51")}));
    machine.tickAt(1300, 100);
    QCOMPARE(machine.takeLines(), QStringList(headerLine(50, period)));
}

void SystemLoadStatTest::loadText_data()
{
    QTest::addColumn<qint64>("ticks");
    QTest::addColumn<quint64>("cpuTotal");
    QTest::addColumn<QString>("line");

    const auto row = [](const char *load, qint64 ticks, quint64 cpuTotal) {
        QTest::newRow(load) << ticks << cpuTotal << loadLine(load);
    };
    row("0", 0, 200);
    row("100", 200, 200);
    row("33.3333", 100, 300);
    row("66.6667", 200, 300);
    row("0.0001", 1, 1000000);
    row("1.23457e-05", 1, 8100000);
    row("1e+06", 10000, 1);
    row("123457", 123456789, 100000);
}

void SystemLoadStatTest::loadText()
{
    QFETCH(qint64, ticks);
    QFETCH(quint64, cpuTotal);
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 1, 0);
    machine.start();
    machine.tickAt(1000 + cpuTotal, ticks);
    QTEST(machine.takeLastLine(), "line");
}

void SystemLoadStatTest::linesNameTheProcessAsItsStatFileDoes()
{
    LoadMachine machine;
    const auto setProcess = [&machine](qint64 utime) {
        machine.proc.write(QStringLiteral("10/stat"),
                           PreparedProc::statLine(11, "  dae) (mon ", {utime, 0, 0, 0}));
        // The process is read in the directory of the id in its stat file.
        machine.proc.write(QStringLiteral("11/stat"),
                           PreparedProc::statLine(12, " odd\nname ", {utime, 0, 0, 0}));
    };
    setProcess(0);
    machine.watch(QStringLiteral("dae) (mon"), 1, 50);
    machine.start();
    machine.proc.setCpuTotal(1100);
    setProcess(50);
    machine.tick();
    QCOMPARE(
        machine.takeLines(),
        (QStringList{QStringLiteral("Process: odd\nname  (12) cpu load is : 50 for 1 seconds "),
                     elapsedLine(), QStringLiteral(" odd\nname  cpu load:50%")}));
}

void SystemLoadStatTest::linesCarryTheirOwnTimes()
{
    StoppedWallClock clock(1000000000000);
    clock.advanceAfterReading(1);
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.proc.setThread(10, 10, "daemon", {0, 0, 0, 0});
    machine.proc.setThread(10, 11, "other", {0, 0, 0, 0});
    machine.watch(daemonName(), 2, 50, true);
    machine.start();
    machine.tickAt(1100, 60);
    machine.tickAt(1200, 120);
    const QStringList lines = machine.takeRawLines();
    QCOMPARE(lines.size(), 1 + 2 * 5);
    // The line of the threads' total is made after the threads' lines, and the header last.
    QDateTime earlier;
    for (const int line : {1, 2, 4, 5, 3, 6, 7, 9, 10, 8, 0}) {
        const QDateTime time = LoadMachine::timeOf(lines.at(line));
        QVERIFY2(earlier.isNull() || earlier < time, qPrintable(lines.at(line)));
        earlier = time;
    }
}

void SystemLoadStatTest::timeBetweenTwoInvocationsIsMeasured()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 1, 0);
    QElapsedTimer clock;
    clock.start();
    qint64 earlierBegin = clock.elapsed();
    machine.start();
    qint64 earlierEnd = clock.elapsed();
    for (qint64 tick = 1; tick <= 3; ++tick) {
        QTest::qSleep(static_cast<int>(tick) * 20);
        const qint64 begin = clock.elapsed();
        machine.tickAt(static_cast<quint64>(1000 + tick * 100), tick);
        const qint64 end = clock.elapsed();
        const QString line = LoadMachine::withoutTime(machine.takeRawLines().value(1));
        QRegExp form(QStringLiteral("Time between two invocations:(\\d+)ms"));
        QVERIFY2(form.exactMatch(line), qPrintable(line));
        // Each reading is cut to milliseconds, and each is taken at another moment.
        const qint64 elapsed = form.cap(1).toLongLong();
        QVERIFY2(elapsed >= begin - earlierEnd - 2, qPrintable(line));
        QVERIFY2(elapsed <= end - earlierBegin + 2, qPrintable(line));
        earlierBegin = begin;
        earlierEnd = end;
    }
}

void SystemLoadStatTest::threadLines()
{
    LoadMachine machine;
    const auto setThreads = [&machine](qint64 factor) {
        machine.proc.setProcess(10, "daemon", {100 * factor, 0, 0, 0});
        for (int i = 0; i < 8; ++i)
            machine.proc.setThread(10, 10 + i, "thread " + QByteArray::number(i),
                                   {i * factor, i * factor, 0, 0});
    };
    setThreads(0);
    machine.watch(daemonName(), 1, 50, true);
    machine.start();
    machine.proc.setCpuTotal(1200);
    setThreads(1);
    machine.tick();
    // All eight threads count in the total, also those that are not listed.
    QCOMPARE(machine.takeLines(),
             (QStringList{headerLine(50, 1), elapsedLine(), loadLine("50"),
                          QStringLiteral("daemon total thread load:28%"),
                          QStringLiteral(" thread name:thread 7 load:7%"),
                          QStringLiteral(" thread name:thread 6 load:6%"),
                          QStringLiteral(" thread name:thread 5 load:5%"),
                          QStringLiteral(" thread name:thread 4 load:4%"),
                          QStringLiteral(" thread name:thread 3 load:3%")}));
}

void SystemLoadStatTest::threadsOfOneSampleOnlyAreLeftOut()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.proc.setThread(10, 10, "daemon", {0, 0, 0, 0});
    machine.proc.setThread(10, 11, "ended", {50, 0, 0, 0});
    machine.watch(daemonName(), 1, 20, true);
    machine.start();
    machine.proc.setCpuTotal(1100);
    machine.proc.setProcess(10, "daemon", {90, 0, 0, 0});
    machine.proc.setThread(10, 10, "renamed", {10, 0, 0, 0});
    machine.proc.setThread(10, 12, "new", {80, 0, 0, 0});
    machine.proc.remove(QStringLiteral("10/task/11"));
    machine.tick();
    QCOMPARE(machine.takeLines().mid(2),
             (QStringList{loadLine("90"), QStringLiteral("daemon total thread load:10%"),
                          QStringLiteral(" thread name:renamed load:10%")}));
    // At the next tick the new thread is known.
    machine.proc.setCpuTotal(1200);
    machine.proc.setProcess(10, "daemon", {190, 0, 0, 0});
    machine.proc.setThread(10, 12, "new", {160, 0, 0, 0});
    machine.tick();
    QCOMPARE(machine.takeLines().mid(3),
             (QStringList{QStringLiteral("daemon total thread load:80%"),
                          QStringLiteral(" thread name:new load:80%"),
                          QStringLiteral(" thread name:renamed load:0%")}));
}

void SystemLoadStatTest::threadsAreNotReadUnlessAsked()
{
    LoadMachine machine;
    // The program would abort if it read this as a thread's file.
    machine.proc.write(QStringLiteral("10/task/10/stat"), "short");
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 1, 50, false);
    machine.start();
    machine.tickAt(1100, 50);
    QCOMPARE(machine.takeLines().size(), 3);
}

void SystemLoadStatTest::threadLoadsThatAreNotNumbersComeLast()
{
    LoadMachine machine;
    const auto setThreads = [&machine](qint64 factor) {
        machine.proc.setProcess(10, "daemon", {factor, factor, 0, 0});
        for (int i = 0; i < 300; ++i) {
            const qint64 time = i % 100 == 7 ? factor : 0;
            machine.proc.setThread(10, 10 + i, "thread " + QByteArray::number(i),
                                   {time, time, 0, 0});
        }
    };
    setThreads(0);
    machine.watch(daemonName(), 1, 50, true);
    machine.start();
    setThreads(1);
    machine.tick();
    const QStringList lines = machine.takeLines();
    QCOMPARE(lines.at(2), loadLine("inf"));
    QCOMPARE(lines.at(3), QStringLiteral("daemon total thread load:nan%"));
    QCOMPARE(lines.mid(4, 3).toSet(),
             (QSet<QString>{QStringLiteral(" thread name:thread 7 load:inf%"),
                            QStringLiteral(" thread name:thread 107 load:inf%"),
                            QStringLiteral(" thread name:thread 207 load:inf%")}));
    QCOMPARE(lines.mid(7).filter(QStringLiteral("load:nan%")).size(), 2);
    QCOMPARE(lines.size(), 9);
}

void SystemLoadStatTest::vanishedProcessGivesAnEnormousLoad()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {100, 50, 0, 0});
    machine.proc.setThread(10, 10, "daemon", {100, 50, 0, 0});
    machine.watch(daemonName(), 1, 101, true);
    machine.start();
    machine.proc.setCpuTotal(1200);
    machine.proc.removeProcess(10);
    machine.tick();
    const auto wrapped = static_cast<double>(std::numeric_limits<quint64>::max());
    const QString load = QString::number(wrapped / 200 * 100 + wrapped / 200 * 100, 'g', 6);
    QCOMPARE(load, QStringLiteral("1.84467e+19"));
    QCOMPARE(machine.takeLines(),
             (QStringList{QStringLiteral("Process: (0) cpu load is : 101 for 1 seconds "),
                          elapsedLine(), QStringLiteral(" cpu load:%1%").arg(load),
                          QStringLiteral(" total thread load:0%")}));
    machine.tick();
    QCOMPARE(machine.alarms.size(), 0);
}

void SystemLoadStatTest::vanishedProcessIsLookedUpAgain()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {100, 0, 0, 0});
    machine.watch(daemonName(), 1, 50);
    machine.start();
    machine.proc.removeProcess(10);
    machine.tick();
    machine.tick();
    machine.alarms.clear();
    machine.proc.setProcess(20, "daemon", {300, 0, 0, 0});
    machine.tick();
    QCOMPARE(machine.alarms.size(), 0);
    machine.proc.setCpuTotal(1100);
    machine.proc.setProcess(20, "daemon", {370, 0, 0, 0});
    machine.tick();
    QCOMPARE(machine.takeLines(),
             (QStringList{QStringLiteral("Process:daemon (20) cpu load is : 50 for 1 seconds "),
                          elapsedLine(), loadLine("70")}));
}

void SystemLoadStatTest::processBackWithinATickIsComparedWithNothing()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {500, 0, 0, 0});
    machine.watch(daemonName(), 1, 1);
    machine.start();
    machine.proc.setCpuTotal(1100);
    machine.proc.removeProcess(10);
    machine.tick();
    machine.takeLines();
    machine.proc.setCpuTotal(1200);
    machine.proc.setProcess(20, "daemon", {30, 0, 0, 0});
    machine.tick();
    QCOMPARE(machine.takeLastLine(), loadLine("30"));
}

void SystemLoadStatTest::threadEndingMeanwhileLeavesTheProcessValid()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.proc.setThread(10, 10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 1, 50, true, 1);
    machine.start();
    machine.proc.setCpuTotal(1100);
    machine.proc.setProcess(10, "daemon", {60, 0, 0, 0});
    machine.proc.write(QStringLiteral("10/task/10/stat"), "");
    machine.tick();
    QCOMPARE(machine.takeLines(),
             (QStringList{headerLine(50, 1), elapsedLine(), loadLine("60"),
                          QStringLiteral("daemon total thread load:0%")}));
    // The process is looked up again. With another name it is not found.
    machine.proc.setProcess(10, "another", {120, 0, 0, 0});
    machine.tick();
    machine.tick();
    QCOMPARE(machine.alarms.size(), 0);
    QCOMPARE(machine.absences.size(), 1);
}

void SystemLoadStatTest::unreadableCpuTotalCountsAsZero()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {100, 0, 0, 0});
    machine.watch(daemonName(), 1, 50);
    machine.start();
    machine.proc.remove(QStringLiteral("stat"));
    machine.tick();
    // The times and the counter went back to zero, so both differences wrap around.
    QCOMPARE(machine.takeLines(),
             (QStringList{QStringLiteral("Process: (0) cpu load is : 50 for 1 seconds "),
                          elapsedLine(), QStringLiteral(" cpu load:100%")}));
    machine.tick();
    QCOMPARE(machine.alarms.size(), 0);
    machine.tickAt(1000, 700);
    QCOMPARE(machine.takeLastLine(), loadLine("70"));
}

void SystemLoadStatTest::resolvedProcessIsNotLookedUpAgain()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 1, 50, false, 1);
    machine.start();
    for (qint64 tick = 1; tick <= 3; ++tick) {
        machine.proc.setCpuTotal(static_cast<quint64>(1000 + tick * 100));
        machine.proc.setProcess(10, "renamed", {tick * 60, 0, 0, 0});
        machine.tick();
        QCOMPARE(machine.takeLastLine(), QStringLiteral("renamed cpu load:60%"));
    }
    QCOMPARE(machine.absences.size(), 0);
}

void SystemLoadStatTest::absenceIsToldOnce_data()
{
    QTest::addColumn<int>("period");

    QTest::newRow("1 s") << 1;
    QTest::newRow("3 s") << 3;
    QTest::newRow("30 s") << 30;
}

void SystemLoadStatTest::absenceIsToldOnce()
{
    QFETCH(int, period);
    LoadMachine machine;
    machine.watch(QStringLiteral("first"), 1, 50);
    const QStringList args = {QStringLiteral("-d"), QStringLiteral("-v")};
    const int id = machine.watch(daemonName(), 1, 50, false, period, args);
    machine.start();
    for (int tick = 1; tick < period; ++tick) {
        machine.tick();
        QCOMPARE(machine.absences.size(), 0);
    }
    machine.tick();
    QCOMPARE(machine.absences.size(), 1);
    const QList<QVariant> absence = machine.absences.first();
    QCOMPARE(absence.at(0).toInt(), id);
    QCOMPARE(absence.at(1).toString(), daemonName());
    QCOMPARE(absence.at(2).toStringList(), args);
    QCOMPARE(absence.at(3).toInt(), period);
    for (int tick = 0; tick < 3 * period; ++tick)
        machine.tick();
    QCOMPARE(machine.absences.size(), 1);
    QCOMPARE(machine.alarms.size(), 0);
}

void SystemLoadStatTest::absenceIsToldOnceMoreAfterAReturn()
{
    LoadMachine machine;
    machine.watch(daemonName(), 1, 1000, false, 2);
    machine.start();
    machine.tick();
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0}); // before the absence is reported
    machine.tick();
    for (int absence = 1; absence <= 3; ++absence) {
        machine.proc.removeProcess(10);
        machine.tick(); // the reading fails, so nothing is looked up
        machine.tick();
        machine.tick();
        QCOMPARE(machine.absences.size(), absence - 1);
        machine.tick();
        QCOMPARE(machine.absences.size(), absence);
        machine.tick();
        QCOMPARE(machine.absences.size(), absence);
        machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
        machine.tick();
    }
}

void SystemLoadStatTest::absenceIsNeverTold_data()
{
    QTest::addColumn<int>("period");

    QTest::newRow("zero") << 0;
    QTest::newRow("negative") << -1;
    QTest::newRow("lowest") << std::numeric_limits<int>::min();
}

void SystemLoadStatTest::absenceIsNeverTold()
{
    QFETCH(int, period);
    LoadMachine machine;
    machine.watch(daemonName(), 1, 50, false, period);
    machine.start();
    for (int tick = 0; tick < 10; ++tick)
        machine.tick();
    QCOMPARE(machine.absences.size(), 0);
    // The process is looked for in any case.
    machine.tickAt(1100, 0);
    machine.tickAt(1200, 60);
    QCOMPARE(machine.alarms.size(), 1);
}

QTEST_GUILESS_MAIN(SystemLoadStatTest)
#include "tst_systemloadstat.moc"
