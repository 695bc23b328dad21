// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "loadmachine.h"
#include "schedulingcapture.h"

#include <QElapsedTimer>
#include <QMap>
#include <QMetaMethod>
#include <QtTest>

#include <limits>

class SystemLoadStatTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void metaObjectHasItsOrder();
    void constructionRaisesThePriorityOfItsThread();
    void idsGoUpAndAreNeverReused();

    void emptyWatchListTicksForNothing();
    void foundAtStartIsComparedAtTheFirstTick();
    void foundAtATickIsComparedAtTheNext();
    void addedWhileRunningIsSampledAtTheNextTick();
    void processesAreJudgedEachForItself();
    void sameProcessCanBeWatchedTwice();
    void argumentsDecideWhoIsFound();

    void thresholdIsInclusive_data();
    void thresholdIsInclusive();
    void thresholdMeetsTheRoundedLoad_data();
    void thresholdMeetsTheRoundedLoad();
    void loadThatIsNotANumberNeverQualifies();
    void infiniteLoadQualifies();

    void removedProcessIsNotWatchedAnyMore();
    void removingAnUnknownIdDoesNothing();
    void removalWhileAlarmsAreQueued();

    void stopDropsTheSamplesAndKeepsTheCount();
    void stopKeepsTheProcessAndTheAbsence();
    void timerTicksUntilItIsStopped();
    void startTwiceIsAFreshStart();
};

void SystemLoadStatTest::initTestCase()
{
    qputenv("TZ", "UTC"); // without an hour that comes twice a year
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
    QVERIFY(SystemLoadStat().parent() == nullptr);
}

void SystemLoadStatTest::constructionRaisesThePriorityOfItsThread()
{
    takeSchedulingRequests();
    const SystemLoadStat stat;
    QCOMPARE(takeSchedulingRequests().size(), 1);
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

void SystemLoadStatTest::emptyWatchListTicksForNothing()
{
    LoadMachine machine;
    machine.start();
    machine.tick();
    machine.tick();
    QCOMPARE(machine.alarms.size(), 0);
    QCOMPARE(machine.absences.size(), 0);
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
    // Nothing was looked up before the ticks: two failed look-ups are the first two.
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
        machine.proc.setProcess(pid, "process " + QByteArray::number(pid), {pid, 0, 0, 0});
    machine.tick();
    QSet<int> ids;
    for (const QList<QVariant> &alarm : qAsConst(machine.alarms)) {
        const int id = alarm.at(0).toInt();
        ids += id;
        QCOMPARE(LoadMachine::withoutTime(alarm.at(1).toStringList().at(2)),
                 QStringLiteral("process %1 cpu load:%1%").arg(id + 1));
    }
    QCOMPARE(ids, (QSet<int>{9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19}));
    QCOMPARE(machine.alarms.size(), ids.size());
}

void SystemLoadStatTest::sameProcessCanBeWatchedTwice()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 1, 50);
    machine.watch(daemonName(), 2, 20);
    machine.start();
    machine.tickAt(1100, 60);
    QCOMPARE(machine.alarms.size(), 1);
    QCOMPARE(machine.takeLines().value(0), headerLine(50, 1));
    machine.tickAt(1200, 80);
    QCOMPARE(machine.alarms.size(), 1);
    QCOMPARE(machine.takeLines().value(0), headerLine(20, 2));
}

void SystemLoadStatTest::argumentsDecideWhoIsFound()
{
    LoadMachine machine;
    const auto setProcesses = [&machine](qint64 utime) {
        machine.proc.setProcess(10, "daemon", {utime, 0, 0, 0});
        machine.proc.setProcess(20, "daemon", {2 * utime, 0, 0, 0});
    };
    setProcesses(0);
    machine.proc.write(QStringLiteral("10/cmdline"), QByteArray("daemon\0-d\0", 10));
    machine.proc.write(QStringLiteral("20/cmdline"), QByteArray("daemon\0-v\0", 10));
    machine.watch(daemonName(), 1, 0, false, noAbsence, {QStringLiteral("-d")});
    machine.watch(daemonName(), 1, 0, false, noAbsence, {QStringLiteral("-v")});
    machine.watch(daemonName(), 1, 0, false, 1, {QStringLiteral("-d"), QStringLiteral("-v")});
    machine.start();
    machine.proc.setCpuTotal(1100);
    setProcesses(10);
    machine.tick();
    QMap<int, QString> loads;
    for (const QList<QVariant> &alarm : qAsConst(machine.alarms))
        loads.insert(alarm.at(0).toInt(),
                     LoadMachine::withoutTime(alarm.at(1).toStringList().at(2)));
    QCOMPARE(loads, (QMap<int, QString>{{0, loadLine("10")}, {1, loadLine("20")}}));
    QCOMPARE(machine.absences.size(), 1);
    QCOMPARE(machine.absences.first().at(0).toInt(), 2);
}

void SystemLoadStatTest::thresholdIsInclusive_data()
{
    QTest::addColumn<int>("cpuLoad");
    QTest::addColumn<qint64>("ticks");
    QTest::addColumn<bool>("exceeds");

    QTest::newRow("equal") << 50 << 100LL << true;
    QTest::newRow("one tick below") << 50 << 99LL << false;
    QTest::newRow("one tick above") << 50 << 101LL << true;
    QTest::newRow("threshold of 0, idle") << 0 << 0LL << true;
    QTest::newRow("negative threshold, idle") << -1 << 0LL << true;
    QTest::newRow("beyond what can be") << 101 << 200LL << false;
    QTest::newRow("highest threshold") << std::numeric_limits<int>::max() << 200LL << false;
}

// A share is divided before it becomes a percentage, in double: what that makes of it decides.
void SystemLoadStatTest::thresholdMeetsTheRoundedLoad_data()
{
    QTest::addColumn<int>("percent");
    QTest::addColumn<bool>("exceeds");

    QTest::newRow("rounded down") << 29 << false;
    QTest::newRow("rounded down, more") << 57 << false;
    QTest::newRow("rounded up") << 28 << true;
    QTest::newRow("exact") << 30 << true;
}

void SystemLoadStatTest::thresholdMeetsTheRoundedLoad()
{
    QFETCH(int, percent);
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 1, percent);
    machine.start();
    machine.tickAt(1100, percent); // so many of a hundred
    QTEST(machine.alarms.size() == 1, "exceeds");
}

void SystemLoadStatTest::thresholdIsInclusive()
{
    QFETCH(int, cpuLoad);
    QFETCH(qint64, ticks);
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 1, cpuLoad);
    machine.start();
    machine.tickAt(1200, ticks);
    QTEST(machine.alarms.size() == 1, "exceeds");
}

void SystemLoadStatTest::loadThatIsNotANumberNeverQualifies()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 1, -1);
    machine.start();
    machine.tick();
    QCOMPARE(machine.alarms.size(), 0);
}

void SystemLoadStatTest::infiniteLoadQualifies()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 1, 100);
    machine.start();
    machine.proc.setProcess(10, "daemon", {1, 1, 0, 0});
    machine.tick();
    QCOMPARE(machine.takeLastLine(), loadLine("inf"));
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
    for (qint64 tick = 2; tick <= 5; ++tick)
        machine.tickAt(static_cast<quint64>(1000 + tick * 100), tick * 60);
    QCOMPARE(machine.alarms.size(), 2);
    for (const QList<QVariant> &alarm : qAsConst(machine.alarms))
        QCOMPARE(alarm.at(0).toInt(), kept);
    // An absence is not told either.
    machine.proc.removeProcess(10);
    for (qint64 tick = 0; tick < 5; ++tick)
        machine.tick();
    QCOMPARE(machine.absences.size(), 0);
}

void SystemLoadStatTest::removingAnUnknownIdDoesNothing()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 1, 50);
    machine.remove(1);
    machine.remove(-1);
    machine.start();
    machine.remove(7);
    machine.tickAt(1100, 60);
    QCOMPARE(machine.alarms.size(), 1);
    QCOMPARE(machine.watch(daemonName(), 1, 50), 1);
}

void SystemLoadStatTest::removalWhileAlarmsAreQueued()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    const int id = machine.watch(daemonName(), 1, 50);
    QObject receiver;
    QList<QStringList> received;
    connect(
        &machine.stat, &SystemLoadStat::cpuLoadExceed, &receiver,
        [&](int, const QStringList &lines) {
            received += lines;
            QMetaObject::invokeMethod(&machine.stat, "do_removeProcessLoad", Qt::QueuedConnection,
                                      Q_ARG(int, id));
        },
        Qt::QueuedConnection);
    machine.start();
    machine.tickAt(1100, 60);
    machine.tickAt(1200, 130);
    QCOMPARE(received.size(), 0);
    QTRY_COMPARE(received.size(), 2);
    QCOMPARE(LoadMachine::withoutTime(received.at(0).last()), loadLine("60"));
    QCOMPARE(LoadMachine::withoutTime(received.at(1).last()), loadLine("70"));
    QCoreApplication::processEvents();
    machine.tickAt(1300, 230);
    machine.tickAt(1400, 330);
    QCOMPARE(machine.alarms.size(), 2);
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
    // With the samples gone there is nothing to compare the next one with.
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

void SystemLoadStatTest::timerTicksUntilItIsStopped()
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
    // Two intervals of a coarse timer, which may be off by a twentieth.
    QVERIFY(clock.elapsed() >= 1900);
    stopped.stop();
    const int alarmsBefore = stopped.alarms.size();
    QVERIFY(alarmsBefore > 0);
    QTRY_COMPARE_WITH_TIMEOUT(ticking.alarms.size(), 4, 30000);
    QCOMPARE(stopped.alarms.size(), alarmsBefore);
    // Its slot has nothing to compare, too, but a running timer would have made the sample for it.
    stopped.tick();
    QCOMPARE(stopped.alarms.size(), alarmsBefore);
    // And it can be started once more.
    stopped.start();
    QTRY_VERIFY_WITH_TIMEOUT(stopped.alarms.size() > alarmsBefore, 30000);
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

QTEST_GUILESS_MAIN(SystemLoadStatTest)
#include "tst_systemloadstat.moc"
