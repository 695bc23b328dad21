// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/watchdog.h"
#include "childrun.h"
#include "standintools.h"
#include "syslogcapture.h"

#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QtTest>

// The supervisor's handlers on a supervisor whose application has an empty name: it has its log,
// and nothing that would reach for this machine's devices. What takes a watched process or a
// reporter is tested on the simulated device.
class WatchdogHandlersTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void slotsInTheirOrder();
    void aMissingProcessIsWrittenIntoTheLog_data();
    void aMissingProcessIsWrittenIntoTheLog();
    void anAlarmOfAnUnknownProcessIsIgnored();
    void aReportRequestWithoutReportingIsDropped();
    void theMemoryReportIsWrittenIntoTheLog();
    void withoutLogAHandlerThatWritesIsAProgrammingError_data();
    void withoutLogAHandlerThatWritesIsAProgrammingError();

private:
    QByteArray log();

    StandInTools m_tools; // no tool of this machine can be found by name
    QScopedPointer<QTemporaryDir> m_directory;
    QScopedPointer<Watchdog> m_watchdog;
};

void WatchdogHandlersTest::initTestCase()
{
    // The process object is never started; Qt says so each time its output is asked for.
    QLoggingCategory::setFilterRules(QStringLiteral("default.warning=false"));
}

void WatchdogHandlersTest::init()
{
    m_directory.reset(new QTemporaryDir);
    m_watchdog.reset(new Watchdog(nullptr));
    QCOMPARE(m_watchdog->init({QStringLiteral("watchdog"), QStringLiteral("--logfileName"),
                               m_directory->filePath(QStringLiteral("log")),
                               QStringLiteral("--logfileSize"), QStringLiteral("1M")}),
             1);
}

// What is in the log after the line of the start.
QByteArray WatchdogHandlersTest::log()
{
    m_watchdog.reset(); // closes, and so flushes it
    QFile file(m_directory->filePath(QStringLiteral("log")));
    if (!file.open(QIODevice::ReadOnly))
        return QByteArrayLiteral("no log");
    const QByteArray text = file.readAll();
    const QByteArray startLine = QByteArrayLiteral("Starting app:  \n");
    return text.mid(text.indexOf(startLine) + startLine.size());
}

void WatchdogHandlersTest::slotsInTheirOrder()
{
    const QMetaObject &meta = Watchdog::staticMetaObject;
    QStringList methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        methods.append(QString::fromLatin1(meta.method(i).methodSignature()));
    QCOMPARE(methods,
             QStringList({QStringLiteral("processFinished(int,QProcess::ExitStatus)"),
                          QStringLiteral("processRestart()"),
                          QStringLiteral("on_logProcessor_reportString(QString,QString)"),
                          QStringLiteral("on_stat_cpuLoadExceed(int,QStringList)"),
                          QStringLiteral("on_stat_notFound(int,QString,QStringList,int)"),
                          QStringLiteral("on_hwWatchdogTimer_timeout()"),
                          QStringLiteral("on_memoryUsage_report()")}));
}

void WatchdogHandlersTest::aMissingProcessIsWrittenIntoTheLog_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QByteArray>("line");

    QTest::newRow("arguments are joined without blanks")
        << QStringLiteral("daemon") << QStringList{QStringLiteral("-d"), QStringLiteral("-v")}
        << QByteArray("Process daemon with args [-d,-v] doesn't appear for 30 seconds\n");
    QTest::newRow("without arguments the brackets are empty")
        << QStringLiteral("daemon") << QStringList()
        << QByteArray("Process daemon with args [] doesn't appear for 30 seconds\n");
    QTest::newRow("what looks like a placeholder is none")
        << QStringLiteral("%2") << QStringList{QStringLiteral("%1"), QStringLiteral("%3")}
        << QByteArray("Process %2 with args [%1,%3] doesn't appear for 30 seconds\n");
}

void WatchdogHandlersTest::aMissingProcessIsWrittenIntoTheLog()
{
    QFETCH(QString, name);
    QFETCH(QStringList, args);
    QFETCH(QByteArray, line);
    QVERIFY(QMetaObject::invokeMethod(m_watchdog.data(), "on_stat_notFound", Q_ARG(int, 7),
                                      Q_ARG(QString, name), Q_ARG(QStringList, args),
                                      Q_ARG(int, 30)));
    QCOMPARE(log(), line);
}

void WatchdogHandlersTest::anAlarmOfAnUnknownProcessIsIgnored()
{
    QVERIFY(QMetaObject::invokeMethod(m_watchdog.data(), "on_stat_cpuLoadExceed", Q_ARG(int, 0),
                                      Q_ARG(QStringList, {QStringLiteral("a line")})));
    QCOMPARE(log(), QByteArray());
}

void WatchdogHandlersTest::aReportRequestWithoutReportingIsDropped()
{
    QVERIFY(QMetaObject::invokeMethod(m_watchdog.data(), "on_logProcessor_reportString",
                                      Q_ARG(QString, QStringLiteral("/etc/hostname")),
                                      Q_ARG(QString, QStringLiteral("name"))));
    QCOMPARE(log(), QByteArray());
}

void WatchdogHandlersTest::theMemoryReportIsWrittenIntoTheLog()
{
    QVERIFY(QMetaObject::invokeMethod(m_watchdog.data(), "on_memoryUsage_report"));
    const QRegularExpression line(
        QStringLiteral("^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} == MEMORY USAGE == "
                       "Free: [1-9]\\d* kB, Buffers\\+Cache: [1-9]\\d* kB\n$"));
    const QByteArray text = log();
    QVERIFY2(line.match(QString::fromUtf8(text)).hasMatch(), text.constData());
}

void WatchdogHandlersTest::withoutLogAHandlerThatWritesIsAProgrammingError_data()
{
    QTest::addColumn<QByteArray>("handler");
    QTest::newRow("alarm") << QByteArray("on_stat_cpuLoadExceed");
    QTest::newRow("missing process") << QByteArray("on_stat_notFound");
    QTest::newRow("memory report") << QByteArray("on_memoryUsage_report");
}

void WatchdogHandlersTest::withoutLogAHandlerThatWritesIsAProgrammingError()
{
    QFETCH(QByteArray, handler);
    const ChildResult result = runInChild([&] {
        Watchdog fresh(nullptr);
        if (handler == "on_stat_cpuLoadExceed") {
            QMetaObject::invokeMethod(&fresh, handler.constData(), Q_ARG(int, 0),
                                      Q_ARG(QStringList, QStringList()));
        } else if (handler == "on_stat_notFound") {
            QMetaObject::invokeMethod(&fresh, handler.constData(), Q_ARG(int, 0),
                                      Q_ARG(QString, QString()), Q_ARG(QStringList, QStringList()),
                                      Q_ARG(int, 30));
        } else {
            QMetaObject::invokeMethod(&fresh, handler.constData());
        }
    });
    QVERIFY2(result.failedAssertion("m_logProcessor"), result.standardError.constData());
}

QTEST_GUILESS_MAIN(WatchdogHandlersTest)
#include "tst_watchdoghandlers.moc"
