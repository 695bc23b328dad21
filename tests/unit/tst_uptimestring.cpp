// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/uptimestring.h"

#include <QtTest>

class UptimeStringTest : public QObject
{
    Q_OBJECT

private slots:
    void text_data();
    void text();
};

void UptimeStringTest::text_data()
{
    QTest::addColumn<int>("seconds");
    QTest::addColumn<QString>("text");

    QTest::newRow("nothing") << 0 << QStringLiteral("0 sec");
    QTest::newRow("seconds") << 59 << QStringLiteral("59 sec");
    QTest::newRow("units are never singular") << 60 << QStringLiteral("1 min 0 sec");
    QTest::newRow("below an hour") << 3599 << QStringLiteral("59 min 59 sec");
    QTest::newRow("hours write their minutes even when 0")
        << 3600 << QStringLiteral("1 hours 0 min 0 sec");
    QTest::newRow("hours, minutes, seconds") << 7384 << QStringLiteral("2 hours 3 min 4 sec");
    QTest::newRow("below a day") << 86399 << QStringLiteral("23 hours 59 min 59 sec");
    QTest::newRow("days without hours write no minutes of 0")
        << 86400 << QStringLiteral("1 days 0 sec");
    QTest::newRow("days and minutes without hours")
        << 86460 << QStringLiteral("1 days 1 min 0 sec");
    QTest::newRow("all of them") << 90061 << QStringLiteral("1 days 1 hours 1 min 1 sec");
    QTest::newRow("many days") << 864000 << QStringLiteral("10 days 0 sec");
    QTest::newRow("largest") << 2147483647 << QStringLiteral("24855 days 3 hours 14 min 7 sec");
    QTest::newRow("signed: each part towards zero")
        << -90061 << QStringLiteral("-1 days -1 hours -1 min -1 sec");
}

void UptimeStringTest::text()
{
    QFETCH(int, seconds);
    QFETCH(QString, text);
    QCOMPARE(uptimeString(seconds), text);
}

QTEST_GUILESS_MAIN(UptimeStringTest)
#include "tst_uptimestring.moc"
