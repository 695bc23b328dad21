// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/watchdog.h"
#include "childrun.h"
#include "processresources.h"
#include "standintools.h"
#include "syslogcapture.h"

#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>
#include <ctime>
#include <functional>

#include <dirent.h>
#include <dlfcn.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <unistd.h>

namespace {

// Where it is set, what the monotonic clock of this process shows, in seconds. Only for code that
// runs in a child: Qt Test itself would take hours that pass at once for a test that hangs.
std::function<qint64()> &monotonicClock()
{
    static std::function<qint64()> clock;
    return clock;
}

// Whether children of this process stop for ever where they list their descriptors, before the
// exec.
pid_t childrenOfThisStop = 0;

} // namespace

// Functions of the C library, in the test's own process and in its children before their exec.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's are reserved.
extern "C" {

int clock_gettime(clockid_t clock, timespec *time) noexcept
{
    if (clock != CLOCK_MONOTONIC || !monotonicClock())
        return static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
    *time = {monotonicClock()(), 0};
    return 0;
}

DIR *opendir(const char *name)
{
    while (childrenOfThisStop != 0 && childrenOfThisStop != ::getpid())
        ::pause();
    static const auto original =
        reinterpret_cast<DIR *(*)(const char *)>(::dlsym(RTLD_NEXT, "opendir"));
    return original(name);
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

class WatchdogTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void slotsInTheirOrder();
    void opensTheSystemLog();
    void withoutArgumentsItPrintsTheUsage();
    void withoutApplicationTheStartFailsSilently();
    void anUnusableLogEndsTheStart();
    void theStartIsLogged();
    void optionsReachTheLog();
    void anUnknownUserDoesNotStopTheStart();
    void anApplicationThatDoesNotStartInTimeEndsTheStart();

    void anExitIsTakenToTheSystemLog_data();
    void anExitIsTakenToTheSystemLog();
    void theRunTimeEndsBeforeTheCleanUp();
    void strayProcessesAreKilledAtEveryExit();
    void theLogIsFlushedAfterTheCleanUpAndBeforeTheReboot();
    void rotateOnlyCallsNoTool();
    void theThirdExitReboots();
    void theThirdExitRebootsAfterHoursToo();
    void aFailingRebootIsIgnored();
    void anExitWithoutLogIsAProgrammingError();
    void theRestartComesAfterASecond();
    void aFailedRestartIsTheLast();

    void singleRunEndsWithTheApplicationsExitCode_data();
    void singleRunEndsWithTheApplicationsExitCode();
    void aTerminationSignalEndsBothWith0();
    void nothingGrowsWithRestarts();

private:
    QString logPath() const;
    QByteArray log() const;
    QStringList arguments(const QStringList &options, const QStringList &application) const;
    void prepareWithoutStart(Watchdog &watchdog, const QStringList &options = {}) const;
    static bool exitOf(Watchdog &watchdog, int code,
                       QProcess::ExitStatus status = QProcess::NormalExit);

    QScopedPointer<StandInTools> m_tools;
    QScopedPointer<QTemporaryDir> m_directory;
};

namespace {

const QString application = QStringLiteral(SAMPLE_APPLICATION);

QStringList words(const char *line)
{
    return QString::fromUtf8(line).split(QLatin1Char(' '));
}

QStringList noticesIn(const QVector<SyslogMessage> &messages)
{
    QStringList texts;
    for (const SyslogMessage &message : messages) {
        if (message.priority == LOG_NOTICE)
            texts.append(message.text);
    }
    return texts;
}

int threads()
{
    return QDir(QStringLiteral("/proc/self/task"))
        .entryList(QDir::Dirs | QDir::NoDotAndDotDot)
        .size();
}

} // namespace

void WatchdogTest::initTestCase()
{
    // From here on no tool of this machine can be found by name.
    m_tools.reset(new StandInTools);
}

void WatchdogTest::init()
{
    m_tools->clear();
    m_tools->add(QStringLiteral("killall"));
    m_tools->add(QStringLiteral("reboot"));
    m_directory.reset(new QTemporaryDir);
    takeSyslogMessages();
    childrenOfThisStop = 0;
    QLoggingCategory::setFilterRules(QString());
}

void WatchdogTest::cleanup()
{
    // What a test in single-run mode has armed.
    sigset_t set;
    sigemptyset(&set);
    for (const int number : {SIGINT, SIGQUIT, SIGTERM}) {
        sigaddset(&set, number);
        ::signal(number, SIG_DFL);
    }
    ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    ::prctl(PR_SET_PDEATHSIG, 0);
}

QString WatchdogTest::logPath() const
{
    return m_directory->filePath(QStringLiteral("application.log"));
}

QByteArray WatchdogTest::log() const
{
    QFile file(logPath());
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList WatchdogTest::arguments(const QStringList &options,
                                    const QStringList &application) const
{
    return QStringList{QStringLiteral("watchdog"), QStringLiteral("--logfileName"), logPath(),
                       QStringLiteral("--logfileSize"), QStringLiteral("1M")}
    + options + QStringList{QStringLiteral("--app")} + application;
}

// Takes the supervisor up to the start of an application whose name is empty: everything that an
// exit needs is there, and nothing that would reach for this machine's devices.
void WatchdogTest::prepareWithoutStart(Watchdog &watchdog, const QStringList &options) const
{
    // The process object was never started; Qt says so each time its output is asked for.
    QLoggingCategory::setFilterRules(QStringLiteral("default.warning=false"));
    QCOMPARE(watchdog.init(arguments(options, {QString()})), 1);
}

bool WatchdogTest::exitOf(Watchdog &watchdog, int code, QProcess::ExitStatus status)
{
    return QMetaObject::invokeMethod(&watchdog, "processFinished", Q_ARG(int, code),
                                     Q_ARG(QProcess::ExitStatus, status));
}

void WatchdogTest::slotsInTheirOrder()
{
    const QMetaObject &meta = Watchdog::staticMetaObject;
    QStringList methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        methods.append(QString::fromLatin1(meta.method(i).methodSignature()));
    QCOMPARE(methods.mid(0, 2),
             QStringList({QStringLiteral("processFinished(int,QProcess::ExitStatus)"),
                          QStringLiteral("processRestart()")}));
}

void WatchdogTest::opensTheSystemLog()
{
    const Watchdog watchdog(nullptr);
    QCOMPARE(syslogIdentity().ident, QStringLiteral("pynx_watchdog"));
    QCOMPARE(syslogIdentity().option, 0);
    QCOMPARE(syslogIdentity().facility, static_cast<int>(LOG_USER));
}

void WatchdogTest::withoutArgumentsItPrintsTheUsage()
{
    const ChildResult result = runInChild([] {
        Watchdog watchdog(nullptr);
        ::_exit(watchdog.init({QStringLiteral("watchdog")}));
    });
    QCOMPARE(result.exitCode, 1);
    QVERIFY(result.standardError.startsWith("Usage: watchdog executable [args]"));
    QCOMPARE(result.standardError.count('\n'), 11);
}

void WatchdogTest::withoutApplicationTheStartFailsSilently()
{
    const ChildResult result = runInChild([this] {
        Watchdog watchdog(nullptr);
        const int status = watchdog.init(
            {QStringLiteral("watchdog"), QStringLiteral("--logfileName"), logPath(),
             QStringLiteral("--logfileSize"), QStringLiteral("1M"), QStringLiteral("no-option")});
        const QVector<SyslogMessage> messages = takeSyslogMessages();
        const bool logged = messages.size() == 1 && messages.at(0).priority == LOG_ERR
            && messages.at(0).text
                == QStringLiteral("Error occured during process startup, code: 0\n");
        ::_exit(logged ? status : 99);
    });
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.standardError, QByteArray());
    QCOMPARE(result.standardOutput, QByteArray());
}

void WatchdogTest::anUnusableLogEndsTheStart()
{
    const ChildResult result = runInChild([this] {
        Watchdog watchdog(nullptr);
        const QString touched = m_directory->filePath(QStringLiteral("touched"));
        ::_exit(watchdog.init({QStringLiteral("watchdog"), QStringLiteral("--logfileName"),
                               QStringLiteral("/nowhere/x.log"), QStringLiteral("--logfileSize"),
                               QStringLiteral("1M"), QStringLiteral("--app"),
                               QStringLiteral("/bin/touch"), touched}));
    });
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.standardError, QByteArray("Can't open file : /nowhere/x.log\n"));
    QVERIFY(takeSyslogMessages().isEmpty());
    QVERIFY(!QFile::exists(m_directory->filePath(QStringLiteral("touched"))));
}

void WatchdogTest::theStartIsLogged()
{
    Watchdog watchdog(nullptr);
    QCOMPARE(watchdog.init(arguments(words("--rotateOnly --singleRun"),
                                     {application, QStringLiteral("exit"), QStringLiteral("0")})),
             0);
    QCOMPARE(QCoreApplication::exec(), 0);
    // The program's path alone, without its arguments; two empty lines before it.
    const QRegularExpression line(
        QStringLiteral(
            "^\n\n\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} Watchdog: Starting app: ")
        + QRegularExpression::escape(application) + QStringLiteral(" \n$"));
    QVERIFY2(line.match(QString::fromUtf8(log())).hasMatch(), log().constData());
    QVERIFY(takeSyslogMessages().isEmpty());
}

void WatchdogTest::optionsReachTheLog()
{
    Watchdog watchdog(nullptr);
    QCOMPARE(
        watchdog.init({QStringLiteral("watchdog"), QStringLiteral("--rotateOnly"),
                       QStringLiteral("--singleRun"), QStringLiteral("--logTime"),
                       QStringLiteral("--logfileName"), logPath(), QStringLiteral("--logfileSize"),
                       QStringLiteral("100"), QStringLiteral("--app"), application,
                       QStringLiteral("exit"), QStringLiteral("0")}),
        0);
    // A limit of 10 bytes: the time line and the start line have each filled a generation.
    QCOMPARE(log(), QByteArray());
    QFile rotated(logPath() + QStringLiteral(".0"));
    QVERIFY(rotated.open(QIODevice::ReadOnly));
    QVERIFY(rotated.readAll().contains("Starting app"));
    QCOMPARE(QCoreApplication::exec(), 0);
}

void WatchdogTest::anUnknownUserDoesNotStopTheStart()
{
    const ChildResult result = runInChild([this] {
        Watchdog watchdog(nullptr);
        ::_exit(
            watchdog.init(arguments(words("--rotateOnly --user no-such-account"),
                                    {application, QStringLiteral("exit"), QStringLiteral("0")})));
    });
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.standardError, QByteArray("Failed to get info about user: no-such-account\n"));
}

void WatchdogTest::anApplicationThatDoesNotStartInTimeEndsTheStart()
{
    childrenOfThisStop = ::getpid();
    QLoggingCategory::setFilterRules(QStringLiteral("default.warning=false"));
    Watchdog watchdog(nullptr);
    QElapsedTimer sinceStart;
    sinceStart.start();
    QCOMPARE(watchdog.init(arguments(words("--rotateOnly"),
                                     {application, QStringLiteral("exit"), QStringLiteral("0")})),
             1);
    QVERIFY(sinceStart.elapsed() >= 500);
    const QVector<SyslogMessage> messages = takeSyslogMessages();
    QCOMPARE(messages.size(), 1);
    QCOMPARE(messages.at(0).priority, static_cast<int>(LOG_ERR));
    QCOMPARE(messages.at(0).text,
             QStringLiteral("Error occured during process startup, code: %1\n")
                 .arg(static_cast<int>(QProcess::Timedout)));
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
    QTest::newRow("after a day")
        << 0 << QProcess::NormalExit << qint64(90061)
        << QStringLiteral(
               "Restarting process: exit code:0, exist status:0, uptime:1 days 1 hours 1 min 1 sec\n");
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

    const ChildResult result = runInChild([&] {
        monotonicClock() = [] { return 1000; };
        Watchdog watchdog(nullptr);
        prepareWithoutStart(watchdog);
        takeSyslogMessages();
        monotonicClock() = [ranSec] { return 1000 + ranSec; };
        exitOf(watchdog, code, status);
        const QVector<SyslogMessage> messages = takeSyslogMessages();
        for (const SyslogMessage &message : messages)
            std::printf("%d %s", message.priority, qPrintable(message.text));
    });
    QCOMPARE(QString::fromUtf8(result.standardOutput),
             QString::number(LOG_NOTICE) + QLatin1Char(' ') + notice);
}

void WatchdogTest::theRunTimeEndsBeforeTheCleanUp()
{
    const ChildResult result = runInChild([this] {
        // The clean-up takes 100 seconds.
        monotonicClock() = [this] { return m_tools->calls().isEmpty() ? 1000 : 1100; };
        Watchdog watchdog(nullptr);
        prepareWithoutStart(watchdog);
        exitOf(watchdog, 0);
        std::printf("%s", qPrintable(noticesIn(takeSyslogMessages()).join(QString())));
    });
    QCOMPARE(m_tools->calls().size(), 1);
    QCOMPARE(result.standardOutput,
             QByteArray("Restarting process: exit code:0, exist status:0, uptime:0 sec\n"));
}

void WatchdogTest::strayProcessesAreKilledAtEveryExit()
{
    Watchdog watchdog(nullptr);
    prepareWithoutStart(watchdog);
    QVERIFY(exitOf(watchdog, 0));
    QVERIFY(exitOf(watchdog, 9, QProcess::CrashExit));
    QCOMPARE(m_tools->calls(),
             QStringList({QStringLiteral("killall|-9|pYNX"), QStringLiteral("killall|-9|pYNX")}));
}

void WatchdogTest::theLogIsFlushedAfterTheCleanUpAndBeforeTheReboot()
{
    // Without an event loop nothing but the exit flushes the log. Each tool notes how many starts
    // it finds in the file.
    const QString countStarts =
        QStringLiteral("/bin/grep -c 'Starting app' '%1' >> '%2'").arg(logPath());
    const QString seen = m_directory->filePath(QStringLiteral("seen"));
    m_tools->add(QStringLiteral("killall"), countStarts.arg(seen));
    m_tools->add(QStringLiteral("reboot"), countStarts.arg(seen));
    const ChildResult result = runInChild([this] {
        Watchdog watchdog(nullptr);
        prepareWithoutStart(watchdog);
        for (int i = 0; i < 3; ++i) {
            exitOf(watchdog, 0);
            QMetaObject::invokeMethod(&watchdog, "processRestart");
        }
        ::_exit(0);
    });
    QCOMPARE(result.exitCode, 0);
    QFile file(seen);
    QVERIFY(file.open(QIODevice::ReadOnly));
    // Three clean-ups, each before the flush of its exit, and the reboot after that of the third.
    QCOMPARE(file.readAll(), QByteArray("0\n1\n2\n3\n"));
}

void WatchdogTest::rotateOnlyCallsNoTool()
{
    Watchdog watchdog(nullptr);
    prepareWithoutStart(watchdog, words("--rotateOnly"));
    for (int i = 0; i < 5; ++i)
        QVERIFY(exitOf(watchdog, 1));
    QCOMPARE(m_tools->calls(), QStringList());
    QCOMPARE(noticesIn(takeSyslogMessages()).size(), 5);
}

void WatchdogTest::theThirdExitReboots()
{
    const ChildResult result = runInChild([this] {
        Watchdog watchdog(nullptr);
        prepareWithoutStart(watchdog);
        for (int i = 0; i < 7; ++i)
            exitOf(watchdog, 0);
    });
    QCOMPARE(result.standardError, QByteArray("Critical FW error, rebooting.\n"));
    // Only the third exit, and after the clean-up that belongs to it.
    const QString kill = QStringLiteral("killall|-9|pYNX");
    QCOMPARE(m_tools->calls(),
             QStringList({kill, kill, kill, QStringLiteral("reboot|-f"), kill, kill, kill, kill}));
}

void WatchdogTest::theThirdExitRebootsAfterHoursToo()
{
    const ChildResult result = runInChild([this] {
        Watchdog watchdog(nullptr);
        for (int i = 0; i < 3; ++i) {
            monotonicClock() = [] { return 1000; };
            prepareWithoutStart(watchdog);
            monotonicClock() = [] { return 1000 + 7200; };
            exitOf(watchdog, 0);
        }
        std::printf("%s", qPrintable(noticesIn(takeSyslogMessages()).join(QString())));
    });
    QCOMPARE(result.standardOutput.count("uptime:2 hours 0 min 0 sec"), 3);
    QCOMPARE(result.standardError, QByteArray("Critical FW error, rebooting.\n"));
    QCOMPARE(m_tools->calls().count(QStringLiteral("reboot|-f")), 1);
}

void WatchdogTest::aFailingRebootIsIgnored()
{
    m_tools->add(QStringLiteral("reboot"), QStringLiteral("exit 1"));
    m_tools->remove(QStringLiteral("killall"));
    const ChildResult result = runInChild([this] {
        Watchdog watchdog(nullptr);
        prepareWithoutStart(watchdog);
        for (int i = 0; i < 4; ++i)
            exitOf(watchdog, 0);
        std::printf("notices %d", noticesIn(takeSyslogMessages()).size());
    });
    QCOMPARE(result.standardOutput, QByteArray("notices 4"));
    QCOMPARE(m_tools->calls(), QStringList({QStringLiteral("reboot|-f")}));
}

void WatchdogTest::anExitWithoutLogIsAProgrammingError()
{
    const ChildResult result = runInChild([] {
        Watchdog watchdog(nullptr);
        exitOf(watchdog, 0);
    });
    QVERIFY2(result.failedAssertion("m_logProcessor"), result.standardError.constData());
}

void WatchdogTest::theRestartComesAfterASecond()
{
    Watchdog watchdog(nullptr);
    prepareWithoutStart(watchdog, words("--rotateOnly"));
    QElapsedTimer sinceExit;
    sinceExit.start();
    QVERIFY(exitOf(watchdog, 5));
    QCOMPARE(log().count("Starting app"), 1);
    QTRY_COMPARE_WITH_TIMEOUT(log().count("Starting app"), 2, 30000);
    QVERIFY(sinceExit.elapsed() >= 1000);
}

void WatchdogTest::aFailedRestartIsTheLast()
{
    Watchdog watchdog(nullptr);
    prepareWithoutStart(watchdog, words("--rotateOnly"));
    takeSyslogMessages();
    const int timersBefore = pendingSingleShots();
    QVERIFY(QMetaObject::invokeMethod(&watchdog, "processRestart"));
    const QVector<SyslogMessage> messages = takeSyslogMessages();
    QCOMPARE(messages.size(), 1);
    QCOMPARE(messages.at(0).priority, static_cast<int>(LOG_ERR));
    QCOMPARE(messages.at(0).text,
             QStringLiteral("Error occured during process startup, code: 0\n"));
    // A failed start tells of no end, so no restart comes after it.
    QCOMPARE(pendingSingleShots(), timersBefore);
    QVERIFY(!hasChildren());
}

void WatchdogTest::singleRunEndsWithTheApplicationsExitCode_data()
{
    QTest::addColumn<QStringList>("behaviours");
    QTest::addColumn<int>("status");
    QTest::newRow("success") << words("exit 0") << 0;
    QTest::newRow("code") << words("exit 42") << 42;
    QTest::newRow("killed: the signal's number") << words("signal 9") << 9;
    QTest::newRow("crashed: the signal's number") << words("signal 11") << 11;
}

void WatchdogTest::singleRunEndsWithTheApplicationsExitCode()
{
    QFETCH(QStringList, behaviours);
    QFETCH(int, status);
    Watchdog watchdog(nullptr);
    QCOMPARE(watchdog.init(arguments(words("--rotateOnly --singleRun"),
                                     QStringList{application} + behaviours)),
             0);
    QCOMPARE(QCoreApplication::exec(), status);
    QVERIFY(takeSyslogMessages().isEmpty()); // no notice of a restart that does not come
}

void WatchdogTest::aTerminationSignalEndsBothWith0()
{
    // In a child, because the program does not forget that it was told to end.
    const ChildResult result = runInChild([this] {
        Watchdog watchdog(nullptr);
        theWatchdog = &watchdog;
        if (watchdog.init(
                arguments(words("--rotateOnly --singleRun"), {application, QStringLiteral("wait")}))
            != 0)
            ::_exit(99);
        const int before = log().count("Starting app");
        ::raise(SIGTERM);
        // The event loop ends at its first turn, before the log's timer could flush.
        const int status = QCoreApplication::exec();
        std::printf("%d, %d, status %d", before, log().count("Starting app"), status);
        while (hasChildren()) // until the signal that was passed on has ended the application
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    });
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.standardOutput, QByteArray("0, 1, status 0"));
}

void WatchdogTest::nothingGrowsWithRestarts()
{
    // In single-run mode every exit ends the event loop, which lets the test start the next run
    // without the delay of a restart; start and exit go the same way as always.
    Watchdog watchdog(nullptr);
    QCOMPARE(watchdog.init(arguments(words("--rotateOnly --singleRun"),
                                     {application, QStringLiteral("print"), QStringLiteral("x")})),
             0);
    const auto oneRun = [&] {
        QMetaObject::invokeMethod(&watchdog, "processRestart");
        return QCoreApplication::exec();
    };
    QCOMPARE(QCoreApplication::exec(), 0);
    for (int i = 0; i < 200; ++i) // everything that is made once is made
        QCOMPARE(oneRun(), 0);
    const int descriptorsBefore = openDescriptors();
    const int threadsBefore = threads();
    const qint64 heapBefore = heapInUse();
    for (int i = 0; i < 500; ++i)
        QCOMPARE(oneRun(), 0);
    QCOMPARE(openDescriptors(), descriptorsBefore);
    QCOMPARE(threads(), threadsBefore);
    const qint64 grown = heapInUse() - heapBefore;
    // Eight bytes lost in every run would be as much.
    QVERIFY2(grown < 4000, qPrintable(QString::number(grown)));
    QCOMPARE(log().count("Starting app"), 701);
}

QTEST_GUILESS_MAIN(WatchdogTest)
#include "tst_watchdog.moc"
