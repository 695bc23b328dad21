// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "loadmachine.h"

#include <QtTest>

#include <limits>

// Processes that end, come back, or are not there at all.
class LoadAbsenceTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();

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

void LoadAbsenceTest::initTestCase()
{
    qputenv("TZ", "UTC"); // without an hour that comes twice a year
}

void LoadAbsenceTest::vanishedProcessGivesAnEnormousLoad()
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

void LoadAbsenceTest::vanishedProcessIsLookedUpAgain()
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

void LoadAbsenceTest::processBackWithinATickIsComparedWithNothing()
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

void LoadAbsenceTest::threadEndingMeanwhileLeavesTheProcessValid()
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
    // The process is looked up anew: with another name it is not found any more.
    machine.proc.setProcess(10, "another", {120, 0, 0, 0});
    machine.tick();
    machine.tick();
    QCOMPARE(machine.alarms.size(), 0);
    QCOMPARE(machine.absences.size(), 1);
}

void LoadAbsenceTest::unreadableCpuTotalCountsAsZero()
{
    LoadMachine machine;
    machine.proc.setProcess(10, "daemon", {100, 0, 0, 0});
    machine.watch(daemonName(), 1, 50);
    machine.start();
    machine.proc.remove(QStringLiteral("stat"));
    machine.tick();
    // Everything went back to zero, the counter too, and both differences wrap.
    QCOMPARE(machine.takeLines(),
             (QStringList{QStringLiteral("Process: (0) cpu load is : 50 for 1 seconds "),
                          elapsedLine(), QStringLiteral(" cpu load:100%")}));
    machine.tick();
    QCOMPARE(machine.alarms.size(), 0);
    machine.tickAt(1000, 700);
    QCOMPARE(machine.takeLastLine(), loadLine("70"));
}

void LoadAbsenceTest::resolvedProcessIsNotLookedUpAgain()
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

void LoadAbsenceTest::absenceIsToldOnce_data()
{
    QTest::addColumn<int>("period");

    QTest::newRow("1 s") << 1;
    QTest::newRow("3 s") << 3;
    QTest::newRow("30 s") << 30;
}

void LoadAbsenceTest::absenceIsToldOnce()
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

void LoadAbsenceTest::absenceIsToldOnceMoreAfterAReturn()
{
    LoadMachine machine;
    machine.watch(daemonName(), 1, 1000, false, 2);
    machine.start();
    machine.tick();
    machine.proc.setProcess(10, "daemon", {0, 0, 0, 0}); // just in time
    machine.tick();
    for (int absence = 1; absence <= 3; ++absence) {
        machine.proc.removeProcess(10);
        machine.tick(); // the reading fails, nothing is looked up
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

void LoadAbsenceTest::absenceIsNeverTold_data()
{
    QTest::addColumn<int>("period");

    QTest::newRow("zero") << 0;
    QTest::newRow("negative") << -1;
    QTest::newRow("lowest") << std::numeric_limits<int>::min();
}

void LoadAbsenceTest::absenceIsNeverTold()
{
    QFETCH(int, period);
    LoadMachine machine;
    machine.watch(daemonName(), 1, 50, false, period);
    machine.start();
    for (int tick = 0; tick < 10; ++tick)
        machine.tick();
    QCOMPARE(machine.absences.size(), 0);
    // It is looked for all the same.
    machine.tickAt(1100, 0);
    machine.tickAt(1200, 60);
    QCOMPARE(machine.alarms.size(), 1);
}

QTEST_GUILESS_MAIN(LoadAbsenceTest)
#include "tst_loadabsence.moc"
