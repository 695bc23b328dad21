// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/guard/liveness.h"

#include <QtTest>

using std::chrono::seconds;

/** Each run begins at 100 s, with 20 s until its first message and 10 s between its beats. */
class LivenessTest : public QObject
{
    Q_OBJECT

private slots:
    void deadline_data();
    void deadline();
    void withoutTimeThereIsNoDeadline();
};

namespace {

// "100 READY=1" is said at 100 s. "110 stop" and "120 resume" are calls.
Liveness after(const QStringList &events)
{
    const auto at = [](const QString &second) {
        return Clock::time_point(seconds(second.toInt()));
    };
    Liveness liveness(seconds(20), seconds(10), at(QStringLiteral("100")));
    for (const QString &event : events) {
        const Clock::time_point now = at(event.section(QLatin1Char(' '), 0, 0));
        const QString what = event.section(QLatin1Char(' '), 1);
        if (what == QLatin1String("stop"))
            liveness.stop(now);
        else if (what == QLatin1String("resume"))
            liveness.resume(now);
        else
            liveness.take(parseNotification(what.toStdString()), now);
    }
    return liveness;
}

} // namespace

void LivenessTest::deadline_data()
{
    QTest::addColumn<QString>("events");
    QTest::addColumn<int>("deadline"); // 0: none

    const auto row = [](const char *name, const char *events, int deadline) {
        QTest::newRow(name) << QString::fromLatin1(events) << deadline;
    };
    row("the start's time", "", 120);
    row("the first message ends it", "105 STATUS=x", 115);
    row("what is no beat changes nothing", "105 READY=1,107 STATUS=x", 115);
    row("a beat", "105 READY=1,107 WATCHDOG=1", 117);
    row("another time-out", "105 WATCHDOG_USEC=30000000", 135);
    row("no time-out", "105 WATCHDOG_USEC=0", 0);
    row("more time", "105 EXTEND_TIMEOUT_USEC=60000000", 165);
    row("less than there is", "105 EXTEND_TIMEOUT_USEC=1000000", 115);
    row("the last extension counts",
        "105 EXTEND_TIMEOUT_USEC=60000000,106 EXTEND_TIMEOUT_USEC=20000000", 126);
    row("ready ends the extension", "105 EXTEND_TIMEOUT_USEC=60000000,106 READY=1", 115);
    row("told to stop", "105 READY=1,106 stop", 196);
    row("says that it stops", "105 READY=1,106 STOPPING=1", 196);
    row("told to stop in its start", "106 stop,107 READY=1", 196);
    row("less than for a stop", "105 READY=1,106 stop,107 EXTEND_TIMEOUT_USEC=5000000", 196);
    row("more than for a stop", "105 READY=1,106 stop,107 EXTEND_TIMEOUT_USEC=120000000", 227);
    row("then beats are missed again", "105 READY=1,106 stop,190 WATCHDOG=1", 200);
    row("after the guard was stopped", "105 READY=1,300 resume", 310);
}

void LivenessTest::deadline()
{
    QFETCH(QString, events);
    QFETCH(int, deadline);
    const auto found = after(events.split(QLatin1Char(','), QString::SkipEmptyParts)).deadline();
    QCOMPARE(found.has_value(), deadline != 0);
    if (found)
        QCOMPARE(std::chrono::duration_cast<seconds>(found->time_since_epoch()).count(),
                 seconds::rep(deadline));
}

void LivenessTest::withoutTimeThereIsNoDeadline()
{
    QVERIFY(!Liveness(seconds(20), seconds(0), Clock::time_point()).deadline());
    QVERIFY(!Liveness(seconds(0), seconds(10), Clock::time_point()).deadline());
}

QTEST_GUILESS_MAIN(LivenessTest)
#include "tst_liveness.moc"
