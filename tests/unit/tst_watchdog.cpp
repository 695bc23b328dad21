// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/watchdog.h"
#include "childrun.h"
#include "standarderrorcapture.h"
#include "standintools.h"
#include "syslogcapture.h"
#include "testfiles.h"

#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <cstdio>

#include <syslog.h>
#include <unistd.h>

// The count of ends, and the handlers, on a supervisor whose application has an empty name. The
// start of the application fails. So the supervisor has its log but nothing that uses this
// machine's devices. tests/system tests what needs an application, a watched process or a reporter.
class WatchdogTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void slotsInTheirOrder();
    void opensTheSystemLog();

    void anExitIsTakenToTheSystemLog_data();
    void anExitIsTakenToTheSystemLog();
    void theRunTimeIsCountedInSecondsOfTheClock();
    void theRunTimeEndsBeforeTheCleanUp();
    void theRestartComesAfterASecond();
    void theLogIsFlushedAfterTheCleanUpAndBeforeTheReboot();
    void theThirdEndReboots_data();
    void theThirdEndReboots();
    void aTerminationSignalFlushesTheLog();

    void placeholdersInTheNameOfAMissingProcessAreNone();
    void anAlarmOfAnUnknownProcessIsIgnored();
    void aReportRequestWithoutReportingIsDropped();
    void withoutLogAHandlerThatNeedsItIsAProgrammingError();

private:
    QStringList arguments(const QStringList &rest) const;
    void run(qint64 seconds, int code = 0, QProcess::ExitStatus status = QProcess::NormalExit);
    QByteArray log() const;

    StandInTools m_tools; // no tool of this machine can be found by name
    QScopedPointer<QTemporaryDir> m_directory;
    Reporter::Clock m_clock;
    QScopedPointer<Watchdog> m_watchdog;
};

namespace {

template <typename... Arguments>
void call(Watchdog &watchdog, const char *slot, const Arguments &...arguments)
{
    if (!QMetaObject::invokeMethod(&watchdog, slot, arguments...))
        qFatal("cannot call the slot %s", slot);
}

void finish(Watchdog &watchdog, int code, QProcess::ExitStatus status)
{
    call(watchdog, "processFinished", Q_ARG(int, code), Q_ARG(QProcess::ExitStatus, status));
}

} // namespace

void WatchdogTest::initTestCase()
{
    // The process is never started, and Qt warns each time its output is read.
    QLoggingCategory::setFilterRules(QStringLiteral("default.warning=false"));
}

void WatchdogTest::init()
{
    m_tools.clear();
    m_tools.add(QStringLiteral("killall"));
    m_tools.add(QStringLiteral("reboot"));
    m_directory.reset(new QTemporaryDir);
    m_clock = [] { return 0; };
    m_watchdog.reset(new Watchdog(nullptr, [this] { return m_clock(); }));
    QCOMPARE(m_watchdog->init(arguments({QStringLiteral("--app"), QString()})), 1);
    takeSyslogMessages();
}

QStringList WatchdogTest::arguments(const QStringList &rest) const
{
    return QStringList{QStringLiteral("watchdog"), QStringLiteral("--logfileName"),
                       m_directory->filePath(QStringLiteral("log")),
                       QStringLiteral("--logfileSize"), QStringLiteral("1M")}
    + rest;
}

// One run of the application, from a start to its end.
void WatchdogTest::run(qint64 seconds, int code, QProcess::ExitStatus status)
{
    const qint64 start = m_clock();
    call(*m_watchdog, "processRestart");
    takeSyslogMessages();
    m_clock = [start, seconds] { return start + seconds * 1000; };
    finish(*m_watchdog, code, status);
}

QByteArray WatchdogTest::log() const
{
    return readFile(m_directory->filePath(QStringLiteral("log")));
}

// The index of a slot is part of the interface of the class.
void WatchdogTest::slotsInTheirOrder()
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

void WatchdogTest::opensTheSystemLog()
{
    QCOMPARE(syslogIdentity().ident, QStringLiteral("pynx_watchdog"));
    QCOMPARE(syslogIdentity().option, 0);
    QCOMPARE(syslogIdentity().facility, static_cast<int>(LOG_USER));
}

void WatchdogTest::anExitIsTakenToTheSystemLog_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QProcess::ExitStatus>("status");
    QTest::addColumn<qint64>("ranSec");
    QTest::addColumn<QString>("notice");

    QTest::newRow("normal")
        << 5 << QProcess::NormalExit << qint64(59)
        << QStringLiteral("Restarting process: exit code:5, exist status:0, uptime:59 sec\n");
    QTest::newRow("crash")
        << 11 << QProcess::CrashExit << qint64(3599)
        << QStringLiteral(
               "Restarting process: exit code:11, exist status:1, uptime:59 min 59 sec\n");
    QTest::newRow("run time cut to 32 bits")
        << 0 << QProcess::NormalExit << (qint64(1) << 32) + 59
        << QStringLiteral("Restarting process: exit code:0, exist status:0, uptime:59 sec\n");
}

void WatchdogTest::anExitIsTakenToTheSystemLog()
{
    QFETCH(int, code);
    QFETCH(QProcess::ExitStatus, status);
    QFETCH(qint64, ranSec);
    QFETCH(QString, notice);
    run(ranSec, code, status);
    const QVector<SyslogMessage> messages = takeSyslogMessages();
    QCOMPARE(messages.size(), 1);
    QCOMPARE(messages.at(0).priority, static_cast<int>(LOG_NOTICE));
    QCOMPARE(messages.at(0).text, notice);
}

void WatchdogTest::theRunTimeIsCountedInSecondsOfTheClock()
{
    m_clock = [] { return 1999; };
    call(*m_watchdog, "processRestart");
    m_clock = [] { return 3000; };
    finish(*m_watchdog, 0, QProcess::NormalExit);
    QVERIFY(takeSyslogMessages().constLast().text.endsWith(QStringLiteral("uptime:2 sec\n")));
}

void WatchdogTest::theRunTimeEndsBeforeTheCleanUp()
{
    m_clock = [this] { return m_tools.calls().isEmpty() ? 0 : 100000; };
    finish(*m_watchdog, 0, QProcess::NormalExit);
    QCOMPARE(m_clock(), 100000); // the clean-up takes 100 seconds
    QVERIFY(takeSyslogMessages().constLast().text.endsWith(QStringLiteral("uptime:0 sec\n")));
}

// Each start fails, and says so. Timers run out in their order, however late they are noticed.
void WatchdogTest::theRestartComesAfterASecond()
{
    finish(*m_watchdog, 0, QProcess::NormalExit);
    takeSyslogMessages();
    QVector<int> starts;
    for (const int ms : {900, 1500})
        QTimer::singleShot(ms, Qt::PreciseTimer, m_watchdog.data(),
                           [&] { starts << takeSyslogMessages().size(); });
    QTRY_COMPARE_WITH_TIMEOUT(starts.size(), 2, 30000);
    QCOMPARE(starts, QVector<int>({0, 1}));
}

void WatchdogTest::theLogIsFlushedAfterTheCleanUpAndBeforeTheReboot()
{
    // Without an event loop only the exit flushes the log. Each tool records the number of starts
    // in the file.
    const QString seen = m_directory->filePath(QStringLiteral("seen"));
    const QString countStarts = QStringLiteral("/bin/grep -c 'Starting app' '%1' >> '%2'")
                                    .arg(m_directory->filePath(QStringLiteral("log")), seen);
    m_tools.add(QStringLiteral("killall"), countStarts);
    m_tools.add(QStringLiteral("reboot"), countStarts);
    for (int i = 0; i < 3; ++i)
        run(0);
    // Each clean-up comes before the flush of its exit, and the reboot after the third flush.
    QCOMPARE(readFile(seen), QByteArray("0\n2\n3\n4\n"));
}

void WatchdogTest::theThirdEndReboots_data()
{
    QTest::addColumn<int>("ranSec");
    QTest::newRow("at once") << 0;
    QTest::newRow("after hours too") << 7200;
}

void WatchdogTest::theThirdEndReboots()
{
    QFETCH(int, ranSec);
    const StandardErrorCapture capture;
    for (int i = 0; i < 7; ++i)
        run(ranSec);
    QCOMPARE(capture.text(), QByteArray("Critical FW error, rebooting.\n"));
    // No later exit reboots, and the clean-up comes before the reboot.
    const QString kill = QStringLiteral("killall|-9|pYNX");
    QCOMPARE(m_tools.calls(),
             QStringList({kill, kill, kill, QStringLiteral("reboot|-f"), kill, kill, kill, kill}));
}

void WatchdogTest::aTerminationSignalFlushesTheLog()
{
    // The child keeps the handlers, which stay installed, out of the other tests.
    const ChildResult result = runInChild([this] {
        Watchdog watchdog(nullptr);
        theWatchdog = &watchdog;
        m_directory.reset(new QTemporaryDir);
        if (watchdog.init(arguments({QStringLiteral("--rotateOnly"), QStringLiteral("--singleRun"),
                                     QStringLiteral("--app"), QStringLiteral(SAMPLE_APPLICATION),
                                     QStringLiteral("wait")}))
            != 0)
            ::_exit(99);
        ::raise(SIGTERM);
        // The event loop ends at its first turn, before the log's timer could flush.
        const int status = QCoreApplication::exec();
        std::printf("%d starts, status %d", log().count("Starting app"), status);
    });
    QCOMPARE(result.standardOutput, QByteArray("1 starts, status 0"));
}

void WatchdogTest::placeholdersInTheNameOfAMissingProcessAreNone()
{
    call(*m_watchdog, "on_stat_notFound", Q_ARG(int, 7), Q_ARG(QString, QStringLiteral("%2")),
         Q_ARG(QStringList, QStringList({QStringLiteral("%1"), QStringLiteral("%3")})),
         Q_ARG(int, 30));
    m_watchdog.reset(); // closes and so flushes the log
    QVERIFY(log().endsWith("Process %2 with args [%1,%3] doesn't appear for 30 seconds\n"));
}

void WatchdogTest::anAlarmOfAnUnknownProcessIsIgnored()
{
    call(*m_watchdog, "on_stat_cpuLoadExceed", Q_ARG(int, 0),
         Q_ARG(QStringList, {QStringLiteral("a line")}));
    m_watchdog.reset();
    QVERIFY(log().endsWith("Starting app:  \n"));
}

void WatchdogTest::aReportRequestWithoutReportingIsDropped()
{
    call(*m_watchdog, "on_logProcessor_reportString",
         Q_ARG(QString, QStringLiteral("/etc/hostname")), Q_ARG(QString, QStringLiteral("name")));
    QCOMPARE(log(), QByteArray()); // not even flushed
}

void WatchdogTest::withoutLogAHandlerThatNeedsItIsAProgrammingError()
{
    using Handler = void (*)(Watchdog &);
    const Handler handlers[] = {
        [](Watchdog &fresh) { finish(fresh, 0, QProcess::NormalExit); },
        [](Watchdog &fresh) {
            call(fresh, "on_stat_cpuLoadExceed", Q_ARG(int, 0), Q_ARG(QStringList, QStringList()));
        },
        [](Watchdog &fresh) {
            call(fresh, "on_stat_notFound", Q_ARG(int, 0), Q_ARG(QString, QString()),
                 Q_ARG(QStringList, QStringList()), Q_ARG(int, 30));
        },
        [](Watchdog &fresh) { call(fresh, "on_memoryUsage_report"); },
    };
    for (const Handler handler : handlers) {
        const ChildResult result = runInChild([handler] {
            Watchdog fresh(nullptr);
            handler(fresh);
        });
        QVERIFY2(result.failedAssertion("m_logProcessor"), result.standardError.constData());
    }
}

QTEST_GUILESS_MAIN(WatchdogTest)
#include "tst_watchdog.moc"
