// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "load/timeprefix.h"

#include <QDateTime>
#include <QSet>
#include <QtTest>

class TimePrefixTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void isDateTimeAndABlank();
    void isAlwaysThatOfTheMoment();
};

void TimePrefixTest::initTestCase()
{
    qputenv("TZ", "UTC"); // without an hour that comes twice a year
}

void TimePrefixTest::isDateTimeAndABlank()
{
    TimePrefix prefix;
    const QRegExp form(QStringLiteral("\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} "));
    QVERIFY2(form.exactMatch(prefix.now()), qPrintable(prefix.now()));
}

// Over enough milliseconds that a text kept too long would be seen.
void TimePrefixTest::isAlwaysThatOfTheMoment()
{
    TimePrefix prefix;
    QSet<QString> texts;
    while (texts.size() < 100) {
        const QDateTime before = QDateTime::currentDateTime();
        const QString text = prefix.now();
        const QDateTime after = QDateTime::currentDateTime();
        const QDateTime time =
            QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz "));
        QVERIFY(before <= time);
        QVERIFY(time <= after);
        texts += text;
    }
}

QTEST_GUILESS_MAIN(TimePrefixTest)
#include "tst_timeprefix.moc"
