// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "loadmachine.h"
#include "stoppedwallclock.h"

#include <QDateTime>
#include <QElapsedTimer>
#include <QRegExp>
#include <QtTest>

// When an alarm is due, and what its lines say.
class LoadAlarmsTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

    void loadText_data();
    void loadText();

    void periodCountsConsecutiveTicks();
    void tickBelowTheThresholdStartsTheCountAgain();
    void countStartsAgainAfterAnAlarm();
    void tickWithoutComparisonLeavesTheCount();
    void periodOfZeroOrLessIsAnAlarmAtEveryTick_data();
    void periodOfZeroOrLessIsAnAlarmAtEveryTick();

    void linesNameTheProcessAsItsStatFileDoes();
    void linesCarryTheirOwnTimes();
    void timeBetweenTwoInvocationsIsMeasured();

    void threadLines();
    void threadLinesOfFewThreads();
    void threadsOfOneSampleOnlyAreLeftOut();
    void threadsOfEqualLoadComeInAnyOrder();
    void threadsAreNotReadUnlessAsked();
    void threadLoadsThatAreNotNumbersComeLast();
};

void LoadAlarmsTest::initTestCase()
{
    qputenv("TZ", "UTC"); // without an hour that comes twice a year
}

void LoadAlarmsTest::loadText_data()
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

void LoadAlarmsTest::loadText()
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

void LoadAlarmsTest::periodCountsConsecutiveTicks()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 3, 50);
    machine.start();
    machine.tickAt(1100, 60);
    machine.tickAt(1200, 110);
    QCOMPARE(machine.alarms.size(), 0);
    machine.tickAt(1300, 210);
    QCOMPARE(machine.alarms.size(), 1);
    QCOMPARE(machine.takeLines(),
             (QStringList{headerLine(50, 3), elapsedLine(), loadLine("60"), elapsedLine(),
                          loadLine("50"), elapsedLine(), loadLine("100")}));
}

void LoadAlarmsTest::tickBelowTheThresholdStartsTheCountAgain()
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

void LoadAlarmsTest::countStartsAgainAfterAnAlarm()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 2, 50);
    machine.start();
    for (qint64 tick = 1; tick <= 6; ++tick) {
        machine.tickAt(static_cast<quint64>(1000 + tick * 100), tick * 60);
        QCOMPARE(machine.alarms.size(), tick / 2);
    }
    QCOMPARE(machine.takeLines().size(), 1 + 2 * 2);
}

void LoadAlarmsTest::tickWithoutComparisonLeavesTheCount()
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

void LoadAlarmsTest::periodOfZeroOrLessIsAnAlarmAtEveryTick_data()
{
    QTest::addColumn<int>("period");

    QTest::newRow("zero") << 0;
    QTest::newRow("negative") << -7;
}

void LoadAlarmsTest::periodOfZeroOrLessIsAnAlarmAtEveryTick()
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

void LoadAlarmsTest::linesNameTheProcessAsItsStatFileDoes()
{
    LoadMachine machine;
    const auto setProcess = [&machine](qint64 utime) {
        machine.proc.write(QStringLiteral("10/stat"),
                           PreparedProc::statLine(11, "  dae) (mon ", {utime, 0, 0, 0}));
        // The process is read where its stat file says that it is.
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

void LoadAlarmsTest::linesCarryTheirOwnTimes()
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
    // The total of the threads is built after their lines, and the header last.
    QDateTime earlier;
    for (const int line : {1, 2, 4, 5, 3, 6, 7, 9, 10, 8, 0}) {
        const QDateTime time = LoadMachine::timeOf(lines.at(line));
        QVERIFY2(earlier.isNull() || earlier < time, qPrintable(lines.at(line)));
        earlier = time;
    }
}

void LoadAlarmsTest::timeBetweenTwoInvocationsIsMeasured()
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
        // All readings are cut to milliseconds, each at another moment.
        const qint64 elapsed = form.cap(1).toLongLong();
        QVERIFY2(elapsed >= begin - earlierEnd - 2, qPrintable(line));
        QVERIFY2(elapsed <= end - earlierBegin + 2, qPrintable(line));
        earlierBegin = begin;
        earlierEnd = end;
    }
}

void LoadAlarmsTest::threadLines()
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
    // All eight count in the total, also those that are not listed.
    QCOMPARE(machine.takeLines(),
             (QStringList{headerLine(50, 1), elapsedLine(), loadLine("50"),
                          QStringLiteral("daemon total thread load:28%"),
                          QStringLiteral(" thread name:thread 7 load:7%"),
                          QStringLiteral(" thread name:thread 6 load:6%"),
                          QStringLiteral(" thread name:thread 5 load:5%"),
                          QStringLiteral(" thread name:thread 4 load:4%"),
                          QStringLiteral(" thread name:thread 3 load:3%")}));
}

void LoadAlarmsTest::threadLinesOfFewThreads()
{
    LoadMachine machine;
    const auto setThreads = [&machine](qint64 utime) {
        machine.proc.setProcess(10, "daemon", {utime, 0, 0, 0});
        machine.proc.setThread(10, 10, "daemon", {0, 0, 0, 0});
        machine.proc.setThread(10, 11, "a (b) c", {0, utime, 0, 0});
    };
    setThreads(0);
    machine.watch(daemonName(), 2, 20, true);
    machine.start();
    for (qint64 tick = 1; tick <= 2; ++tick) {
        machine.proc.setCpuTotal(static_cast<quint64>(1000 + tick * 100));
        setThreads(tick * 25);
        machine.tick();
    }
    const QStringList group = {elapsedLine(), loadLine("25"),
                               QStringLiteral("daemon total thread load:25%"),
                               QStringLiteral(" thread name:a (b) c load:25%"),
                               QStringLiteral(" thread name:daemon load:0%")};
    QCOMPARE(machine.takeLines(), QStringList(headerLine(20, 2)) + group + group);
}

void LoadAlarmsTest::threadsOfOneSampleOnlyAreLeftOut()
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
    // At the next tick the new one is known.
    machine.proc.setCpuTotal(1200);
    machine.proc.setProcess(10, "daemon", {190, 0, 0, 0});
    machine.proc.setThread(10, 12, "new", {160, 0, 0, 0});
    machine.tick();
    QCOMPARE(machine.takeLines().mid(3),
             (QStringList{QStringLiteral("daemon total thread load:80%"),
                          QStringLiteral(" thread name:new load:80%"),
                          QStringLiteral(" thread name:renamed load:0%")}));
}

void LoadAlarmsTest::threadsOfEqualLoadComeInAnyOrder()
{
    LoadMachine machine;
    const auto setThreads = [&machine](qint64 utime) {
        machine.proc.setProcess(10, "daemon", {8 * utime, 0, 0, 0});
        for (int i = 0; i < 8; ++i)
            machine.proc.setThread(10, 10 + i, "thread " + QByteArray::number(i), {utime, 0, 0, 0});
    };
    setThreads(0);
    machine.watch(daemonName(), 1, 50, true);
    machine.start();
    machine.proc.setCpuTotal(1100);
    setThreads(10);
    machine.tick();
    const QStringList lines = machine.takeLines();
    QCOMPARE(lines.at(3), QStringLiteral("daemon total thread load:80%"));
    const QStringList threadLines = lines.mid(4);
    QCOMPARE(threadLines.size(), 5);
    QCOMPARE(threadLines.toSet().size(), 5);
    QCOMPARE(
        threadLines.filter(QRegExp(QStringLiteral("^ thread name:thread \\d load:10%$"))).size(),
        5);
}

void LoadAlarmsTest::threadsAreNotReadUnlessAsked()
{
    LoadMachine machine;
    // Whoever read this as a thread would abort.
    machine.proc.write(QStringLiteral("10/task/10/stat"), "short");
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0});
    machine.watch(daemonName(), 1, 50, false);
    machine.start();
    machine.tickAt(1100, 50);
    QCOMPARE(machine.takeLines().size(), 3);
}

void LoadAlarmsTest::threadLoadsThatAreNotNumbersComeLast()
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

QTEST_GUILESS_MAIN(LoadAlarmsTest)
#include "tst_loadalarms.moc"
