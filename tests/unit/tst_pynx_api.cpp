// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "localtimezone.h"
#include "platform/pynx_api.h"

#include <QDateTime>
#include <QtTest>

#include <pthread.h>

namespace {

QVariant parse(const QByteArray &json)
{
    PynxError error;
    return PynxJson::parse(json, error, nullptr);
}

PynxHash hashOf(const QByteArray &json)
{
    return PynxHash(parse(json).toHash());
}

} // namespace

class PynxApiTest : public QObject
{
    Q_OBJECT

private slots:
    void documentNames();

    void watchProcess();
    void reportsConfig();
    void systemLogReportConfig();

    void json();
    void jsonErrorIsRecorded();

    void localTimeDate();
    void threadName();
};

void PynxApiTest::documentNames()
{
    QCOMPARE(PynxWatchdogWatchProcessListPath().base(),
             QStringLiteral("WatchdogWatchProcessList.json"));
    QCOMPARE(PynxWatchdogAutomaticReportingPath().base(),
             QStringLiteral("WatchdogAutomaticReporting.json"));
    QCOMPARE(PynxWatchdogAutomaticReportingConfPath().base(),
             QStringLiteral("WatchdogAutomaticReportingConf.json"));
    QCOMPARE(PynxWatchdogMemoryReportingConfPath().base(),
             QStringLiteral("WatchdogMemoryReportingConf.json"));
    QCOMPARE(PynxSystemManagerLogReportConfigPath().base(),
             QStringLiteral("SystemManagerLogReportConfig.json"));
    QCOMPARE(PynxSystemManagerLogFilesSizeConfigPath().base(),
             QStringLiteral("SystemManagerLogFilesSizeConfig.json"));
}

// ---- Views over configuration hashes

void PynxApiTest::watchProcess()
{
    const PynxWatchdogWatchProcess process(hashOf(R"({
        "name": "daemon", "arguments": ["-d", 5], "period": 10, "maxLoad": 80,
        "threadInfo": true, "maxReports": 3, "logFile": "/tmp/daemon.log"})"));
    QCOMPARE(process.name(), QStringLiteral("daemon"));
    QCOMPARE(process.arguments(), QVariantList({QStringLiteral("-d"), 5}));
    QCOMPARE(process.period(), 10);
    QCOMPARE(process.maxLoad(), 80);
    QCOMPARE(process.threadInfo(), true);
    QCOMPARE(process.maxReports(), 3);
    QCOMPARE(process.logFile(), QStringLiteral("/tmp/daemon.log"));

    const PynxWatchdogWatchProcess nothing((PynxHash()));
    QCOMPARE(nothing.name(), QString());
    QCOMPARE(nothing.arguments(), QVariantList());
    QCOMPARE(nothing.period(), 0);
    QCOMPARE(nothing.maxLoad(), 0);
    QCOMPARE(nothing.threadInfo(), false);
    QCOMPARE(nothing.maxReports(), 0);
    QCOMPARE(nothing.logFile(), QString());
}

void PynxApiTest::reportsConfig()
{
    const PynxWatchdogReportsConfig config(
        hashOf(R"({"uploadPath": "/tmp/upload", "uploadFilePrefix": "board"})"));
    QCOMPARE(config.uploadPath(), QStringLiteral("/tmp/upload"));
    QCOMPARE(config.uploadFilePrefix(), QStringLiteral("board"));

    const PynxWatchdogReportsConfig nothing((PynxHash()));
    QCOMPARE(nothing.uploadPath(), QString());
    QCOMPARE(nothing.uploadFilePrefix(), QString());
}

void PynxApiTest::systemLogReportConfig()
{
    const PynxSystemLogReportConfig config(hashOf(R"({"files": ["/tmp/b", "/tmp/a"]})"));
    QCOMPARE(config.files(), QVariantList({QStringLiteral("/tmp/b"), QStringLiteral("/tmp/a")}));
    QCOMPARE(PynxSystemLogReportConfig((PynxHash())).files(), QVariantList());
}

// ---- JSON

// Objects at every depth become hashes, and null becomes a null value.
void PynxApiTest::json()
{
    const QVariantHash inner = {{QStringLiteral("\u00fc"), QStringLiteral("\u20ac")}};
    const QVariantList list = {inner, false, QVariant(), 1.5, 20000000};
    const QVariantHash tree = {{QStringLiteral("a"), list}};
    const QVariant read =
        parse("{\"a\": [{\"\xc3\xbc\": \"\xe2\x82\xac\"}, false, null, 1.5, 2e7]}");
    QCOMPARE(read, QVariant(tree));
    const QVariantList elements = read.toHash().value(QStringLiteral("a")).toList();
    QCOMPARE(elements.first().type(), QVariant::Hash);
    // A large whole number is written with all its digits.
    QCOMPARE(elements.last().toString(), QStringLiteral("20000000"));
    QCOMPARE(parse("[-9223372036854775808]").toList().first().toString(),
             QStringLiteral("-9223372036854775808"));
}

void PynxApiTest::jsonErrorIsRecorded()
{
    PynxError error;
    QVERIFY(!PynxJson::parse("[]", error, nullptr).isNull());
    QCOMPARE(error.code, 0);
    QCOMPARE(error.message, QString());

    uint position = 99;
    QVERIFY(PynxJson::parse("{} x", error, &position).isNull());
    QVERIFY(error.code != 0);
    QVERIFY(!error.message.isEmpty());
    QCOMPARE(position, 3U);
    QVERIFY(PynxJson::parse("5", error, nullptr).isNull()); // neither object nor list
}

// ---- The rest

void PynxApiTest::localTimeDate()
{
    const LocalTimeZone zone("<+0530>-05:30");
    const QDateTime before = QDateTime::currentDateTime();
    const QString text = pynxLocalTimeDateString();
    const QDateTime time = QDateTime::fromString(text, QStringLiteral("yyyy-MM-dd hh:mm:ss.zzz"));
    QVERIFY2(time >= before && time <= QDateTime::currentDateTime(), qPrintable(text));
}

void PynxApiTest::threadName()
{
    char before[16] = {};
    char name[16] = {};
    ::pthread_getname_np(::pthread_self(), before, sizeof before);
    pynxSetThreadName(QStringLiteral("gr\u00fcn and cut here, after 15 bytes"));
    ::pthread_getname_np(::pthread_self(), name, sizeof name);
    pynxSetThreadName(QString::fromUtf8(before));
    QCOMPARE(QByteArray(name), QByteArray("gr\xc3\xbcn and cut h"));
}

QTEST_GUILESS_MAIN(PynxApiTest)
#include "tst_pynx_api.moc"
