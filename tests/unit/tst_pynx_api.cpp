// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "localtimezone.h"
#include "platform/pynx_api.h"
#include "stoppedwallclock.h"

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

// As the operating system reports it.
QByteArray threadName()
{
    char name[16] = {};
    ::pthread_getname_np(::pthread_self(), name, sizeof name);
    return name;
}

class NamedThread : public QThread
{
public:
    QString nameToTake;
    QByteArray nameTaken;

protected:
    void run() override
    {
        pynxSetThreadName(nameToTake);
        nameTaken = threadName();
    }
};

} // namespace

class PynxApiTest : public QObject
{
    Q_OBJECT

private slots:
    void documentNames_data();
    void documentNames();
    void pathKeepsItsBase();

    void hashValues();
    void watchProcess();
    void watchProcessWithoutFields();
    void watchProcessReadsTextAsNumbers();
    void reportsConfig();
    void reportsConfigWithoutFields();
    void systemLogReportConfig();
    void systemLogReportConfigWithoutFields();

    void json_data();
    void json();
    void jsonIsUtf8();
    void jsonTreesAreHashesAllTheWayDown();
    void jsonErrorIsRecorded_data();
    void jsonErrorIsRecorded();
    void jsonErrorWithoutPosition();
    void jsonSuccessLeavesTheRecordEmpty();

    void loggerIsOneAndCanBeDisabled();
    void localTimeDate();
    void threadNames_data();
    void threadNames();
};

// ---- Places of documents

void PynxApiTest::documentNames_data()
{
    QTest::addColumn<QString>("base");
    QTest::addColumn<QString>("expected");

    QTest::newRow("watch list") << PynxWatchdogWatchProcessListPath().base()
                                << QStringLiteral("WatchdogWatchProcessList.json");
    QTest::newRow("reporting switch") << PynxWatchdogAutomaticReportingPath().base()
                                      << QStringLiteral("WatchdogAutomaticReporting.json");
    QTest::newRow("reporting") << PynxWatchdogAutomaticReportingConfPath().base()
                               << QStringLiteral("WatchdogAutomaticReportingConf.json");
    QTest::newRow("memory switch") << PynxWatchdogMemoryReportingConfPath().base()
                                   << QStringLiteral("WatchdogMemoryReportingConf.json");
    QTest::newRow("report files") << PynxSystemManagerLogReportConfigPath().base()
                                  << QStringLiteral("SystemManagerLogReportConfig.json");
    QTest::newRow("log sizes") << PynxSystemManagerLogFilesSizeConfigPath().base()
                               << QStringLiteral("SystemManagerLogFilesSizeConfig.json");
}

void PynxApiTest::documentNames()
{
    QFETCH(QString, base);
    QFETCH(QString, expected);
    QCOMPARE(base, expected);
}

void PynxApiTest::pathKeepsItsBase()
{
    QCOMPARE(CMPath(QStringLiteral("folder/name")).base(), QStringLiteral("folder/name"));
}

// ---- Views over configuration hashes

void PynxApiTest::hashValues()
{
    const PynxHash hash = hashOf(R"({"a": 1, "b": "two"})");
    QCOMPARE(hash.value(QStringLiteral("a")).toInt(), 1);
    QCOMPARE(hash.value(QStringLiteral("b")), QVariant(QStringLiteral("two")));
    QVERIFY(hash.value(QStringLiteral("c")).isNull());
    QVERIFY(PynxHash().value(QStringLiteral("a")).isNull());
}

void PynxApiTest::watchProcess()
{
    const PynxWatchdogWatchProcess process(hashOf(R"({
        "name": "daemon", "arguments": ["-d", 5, true], "period": 10, "maxLoad": 80,
        "threadInfo": true, "maxReports": 3, "logFile": "/tmp/daemon.log"})"));
    QCOMPARE(process.name(), QStringLiteral("daemon"));
    QCOMPARE(process.arguments().size(), 3);
    QCOMPARE(process.arguments().at(0), QVariant(QStringLiteral("-d")));
    QCOMPARE(process.arguments().at(1).toString(), QStringLiteral("5"));
    QCOMPARE(process.arguments().at(2).toString(), QStringLiteral("true"));
    QCOMPARE(process.period(), 10);
    QCOMPARE(process.maxLoad(), 80);
    QCOMPARE(process.threadInfo(), true);
    QCOMPARE(process.maxReports(), 3);
    QCOMPARE(process.logFile(), QStringLiteral("/tmp/daemon.log"));
}

void PynxApiTest::watchProcessWithoutFields()
{
    const PynxWatchdogWatchProcess process((PynxHash()));
    QCOMPARE(process.name(), QString());
    QCOMPARE(process.arguments(), QVariantList());
    QCOMPARE(process.period(), 0);
    QCOMPARE(process.maxLoad(), 0);
    QCOMPARE(process.threadInfo(), false);
    QCOMPARE(process.maxReports(), 0);
    QCOMPARE(process.logFile(), QString());
}

void PynxApiTest::watchProcessReadsTextAsNumbers()
{
    const PynxWatchdogWatchProcess process(hashOf(
        R"({"name": 7, "period": "10", "maxLoad": "80", "threadInfo": "true", "maxReports": "x"})"));
    QCOMPARE(process.name(), QStringLiteral("7"));
    QCOMPARE(process.period(), 10);
    QCOMPARE(process.maxLoad(), 80);
    QCOMPARE(process.threadInfo(), true);
    QCOMPARE(process.maxReports(), 0);
}

void PynxApiTest::reportsConfig()
{
    const PynxWatchdogReportsConfig config(
        hashOf(R"({"uploadPath": "/tmp/upload", "uploadFilePrefix": "board"})"));
    QCOMPARE(config.uploadPath(), QStringLiteral("/tmp/upload"));
    QCOMPARE(config.uploadFilePrefix(), QStringLiteral("board"));
}

void PynxApiTest::reportsConfigWithoutFields()
{
    const PynxWatchdogReportsConfig config((PynxHash()));
    QCOMPARE(config.uploadPath(), QString());
    QCOMPARE(config.uploadFilePrefix(), QString());
}

void PynxApiTest::systemLogReportConfig()
{
    const PynxSystemLogReportConfig config(hashOf(R"({"files": ["/tmp/b", "/tmp/a"]})"));
    const QVariantList inOrder = {QStringLiteral("/tmp/b"), QStringLiteral("/tmp/a")};
    QCOMPARE(config.files(), inOrder);
}

void PynxApiTest::systemLogReportConfigWithoutFields()
{
    QCOMPARE(PynxSystemLogReportConfig((PynxHash())).files(), QVariantList());
}

// ---- JSON

void PynxApiTest::json_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QVariant>("expected");

    const QVariantHash object = {{QStringLiteral("a"), 1}};
    QTest::newRow("object") << QByteArray(R"({"a": 1})") << QVariant(object);
    QTest::newRow("empty object") << QByteArray("{}") << QVariant(QVariantHash());
    QTest::newRow("list") << QByteArray(R"(["x", false])")
                          << QVariant(QVariantList({QStringLiteral("x"), false}));
    QTest::newRow("empty list") << QByteArray("[]") << QVariant(QVariantList());
    QTest::newRow("null is a null value")
        << QByteArray("[null]") << QVariant(QVariantList({QVariant()}));
    QTest::newRow("fraction") << QByteArray("[1.5]") << QVariant(QVariantList({1.5}));
}

void PynxApiTest::json()
{
    QFETCH(QByteArray, text);
    QFETCH(QVariant, expected);
    QCOMPARE(parse(text), expected);
}

void PynxApiTest::jsonIsUtf8()
{
    const QVariantHash read = parse("{\"\xc3\xbc\": \"\xe2\x82\xac\"}").toHash();
    QCOMPARE(read.value(QStringLiteral("\u00fc")), QVariant(QStringLiteral("\u20ac")));
}

void PynxApiTest::jsonTreesAreHashesAllTheWayDown()
{
    const QVariantHash top = parse(R"({"a": {"b": [{"c": 1}]}})").toHash();
    QCOMPARE(top.value(QStringLiteral("a")).type(), QVariant::Hash);
    const QVariant list = top.value(QStringLiteral("a")).toHash().value(QStringLiteral("b"));
    QCOMPARE(list.type(), QVariant::List);
    QCOMPARE(list.toList().at(0).type(), QVariant::Hash);
    QCOMPARE(list.toList().at(0).toHash().value(QStringLiteral("c")).toInt(), 1);
}

void PynxApiTest::jsonErrorIsRecorded_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<uint>("position");
    QTest::newRow("empty") << QByteArray() << 0U;
    QTest::newRow("cut off") << QByteArray("[1,") << 3U;
    QTest::newRow("no JSON") << QByteArray("value") << 1U;
    QTest::newRow("neither object nor list") << QByteArray("5") << 1U;
    QTest::newRow("something behind it") << QByteArray("{} x") << 3U;
}

void PynxApiTest::jsonErrorIsRecorded()
{
    QFETCH(QByteArray, text);
    QFETCH(uint, position);
    PynxError error;
    uint stoppedAt = 99;
    QVERIFY(PynxJson::parse(text, error, &stoppedAt).isNull());
    QVERIFY(error.code != 0);
    QVERIFY(!error.message.isEmpty());
    QCOMPARE(stoppedAt, position);
}

void PynxApiTest::jsonErrorWithoutPosition()
{
    PynxError error;
    QVERIFY(PynxJson::parse("{", error, nullptr).isNull());
    QVERIFY(error.code != 0);
}

void PynxApiTest::jsonSuccessLeavesTheRecordEmpty()
{
    PynxError error;
    QVERIFY(!PynxJson::parse("{}", error, nullptr).isNull());
    QCOMPARE(error.code, 0);
    QCOMPARE(error.message, QString());
}

// ---- The rest

void PynxApiTest::loggerIsOneAndCanBeDisabled()
{
    QVERIFY(PynxLogger::instance() != nullptr);
    QCOMPARE(PynxLogger::instance(), PynxLogger::instance());
    PynxLogger::instance()->disable();
}

void PynxApiTest::localTimeDate()
{
    const LocalTimeZone zone("<+0530>-05:30");
    const StoppedWallClock clock(1780531200070); // 2026-06-04, midnight in UTC, and 70 ms
    QCOMPARE(pynxLocalTimeDateString(), QStringLiteral("2026-06-04 05:30:00.070"));
}

void PynxApiTest::threadNames_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("reported");
    QTest::newRow("short") << QStringLiteral("SystemLoad") << QByteArray("SystemLoad");
    QTest::newRow("15 bytes") << QStringLiteral("123456789012345") << QByteArray("123456789012345");
    QTest::newRow("cut at 15 bytes")
        << QStringLiteral("1234567890123456") << QByteArray("123456789012345");
    QTest::newRow("UTF-8") << QStringLiteral("gr\u00fcn") << QByteArray("gr\xc3\xbcn");
}

void PynxApiTest::threadNames()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, reported);
    const QByteArray ownName = threadName();
    NamedThread thread;
    thread.nameToTake = name;
    thread.start();
    QVERIFY(thread.wait());
    QCOMPARE(thread.nameTaken, reported);
    QCOMPARE(threadName(), ownName); // the calling thread's name alone was set
}

QTEST_GUILESS_MAIN(PynxApiTest)
#include "tst_pynx_api.moc"
