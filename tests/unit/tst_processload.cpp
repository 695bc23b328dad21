// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "load/processload.h"

#include <QtTest>

#include <cmath>
#include <limits>

namespace {

constexpr quint64 highest = std::numeric_limits<quint64>::max();

StatRecord record(qint64 utime, qint64 stime, qint64 cutime, qint64 cstime)
{
    StatRecord record;
    record.utime = utime;
    record.stime = stime;
    record.cutime = cutime;
    record.cstime = cstime;
    return record;
}

} // namespace

Q_DECLARE_METATYPE(StatRecord)

class ProcessLoadTest : public QObject
{
    Q_OBJECT

private slots:
    void load_data();
    void load();
    void everySplitIsComputedWithoutFusedArithmetic();
    void nothingOverNoTimeIsNotANumber();
    void somethingOverNoTimeIsInfinite();
};

void ProcessLoadTest::load_data()
{
    QTest::addColumn<StatRecord>("current");
    QTest::addColumn<StatRecord>("previous");
    QTest::addColumn<quint64>("cpuTotal");
    QTest::addColumn<double>("load");

    const StatRecord zero;
    const auto row = [](const char *title, const StatRecord &current, const StatRecord &previous,
                        quint64 cpuTotal, double load) {
        QTest::newRow(title) << current << previous << cpuTotal << load;
    };
    row("idle", record(5, 6, 7, 8), record(5, 6, 7, 8), 200, 0.0);
    row("user time", record(60, 0, 0, 0), record(10, 0, 0, 0), 200, 25.0);
    row("system time", record(0, 60, 0, 0), record(0, 10, 0, 0), 200, 25.0);
    row("children's user time", record(0, 0, 60, 0), record(0, 0, 10, 0), 200, 25.0);
    row("children's system time", record(0, 0, 0, 60), record(0, 0, 0, 10), 200, 25.0);
    row("all of them", record(11, 22, 33, 44), record(1, 2, 3, 4), 400, 25.0);
    row("one processor of three", record(100, 0, 0, 0), zero, 300, 1.0 / 3 * 100);
    row("all processors", record(150, 50, 0, 0), zero, 200, 100.0);
    row("more than the counter went on", record(300, 0, 0, 0), zero, 200, 150.0);
    row("times beyond 32 bits", record(1LL << 40, 0, 0, 0), record((1LL << 40) - 50, 0, 0, 0), 200,
        25.0);
    row("a time going back wraps", zero, record(1, 0, 0, 0), 1,
        static_cast<double>(highest) * 100.0);
    row("a time going back, made up for by another", record(0, 0, 60, 0), record(10, 0, 0, 0), 200,
        25.0);
    row("user and system time wrap each for itself", zero, record(1, 1, 0, 0), 1,
        static_cast<double>(highest) * 100.0 + static_cast<double>(highest) * 100.0);
    row("from lowest to highest", record(std::numeric_limits<qint64>::max(), 0, 0, 0),
        record(std::numeric_limits<qint64>::min(), 0, 0, 0), highest, 100.0);
    row("the counter is unsigned", record(100, 0, 0, 0), zero, highest,
        100.0 / static_cast<double>(highest) * 100.0);
}

void ProcessLoadTest::load()
{
    QFETCH(StatRecord, current);
    QFETCH(StatRecord, previous);
    QFETCH(quint64, cpuTotal);
    QTEST(processLoad(current, previous, cpuTotal), "load");
}

// A fused product and sum is rounded once instead of twice. A process that uses one whole processor
// would then miss a threshold that it reaches. Volatile values cannot be fused.
void ProcessLoadTest::everySplitIsComputedWithoutFusedArithmetic()
{
    for (const int processors : {1, 2, 4, 8}) {
        for (int ticks = 1; ticks <= 400; ++ticks) {
            const double total = ticks * processors;
            for (int user = 0; user <= ticks; ++user) {
                const volatile double userPart = user / total * 100.0;
                const volatile double systemPart = (ticks - user) / total * 100.0;
                const double load = processLoad(record(user, ticks - user, 0, 0), StatRecord(),
                                                static_cast<quint64>(total));
                if (load != userPart + systemPart) {
                    QFAIL(qPrintable(QStringLiteral("user %1 and system %2 of %3 ticks: %4")
                                         .arg(user)
                                         .arg(ticks - user)
                                         .arg(total)
                                         .arg(load, 0, 'g', 17)));
                }
            }
        }
    }
}

void ProcessLoadTest::nothingOverNoTimeIsNotANumber()
{
    QVERIFY(std::isnan(processLoad(StatRecord(), StatRecord(), 0)));
    QVERIFY(std::isnan(processLoad(record(1, 0, 0, 0), StatRecord(), 0)));
}

void ProcessLoadTest::somethingOverNoTimeIsInfinite()
{
    const double load = processLoad(record(1, 1, 0, 0), StatRecord(), 0);
    QVERIFY(std::isinf(load) && load > 0);
}

QTEST_GUILESS_MAIN(ProcessLoadTest)
#include "tst_processload.moc"
