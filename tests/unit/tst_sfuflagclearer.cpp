// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "health/sfuflagclearer.h"
#include "standintools.h"
#include "syslogcapture.h"
#include "waitcapture.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMetaMethod>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <memory>

#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

namespace {

// Long enough for a stand-in to record its call on a busy machine before it is killed.
constexpr int hangLimitMs = 2000;
constexpr int countdownMs = 400;
constexpr int cannotMount = 77;

const char readOnlyMessage[] = "Detected filesystem in read-only mode. Rebooting\n";

QStringList firstFlagOnly()
{
    return {QStringLiteral("sfuflags|-f|fail|-v|0")};
}

QStringList bothFlags()
{
    return firstFlagOnly() << QStringLiteral("sfuflags|-f|boot_count|-v|0");
}

QString environmentCall()
{
    return QStringLiteral("fw_setenv|update_url_cache");
}

QString rebootCall()
{
    return QStringLiteral("reboot|-f");
}

QStringList rebootOfReadOnlySystem()
{
    return {environmentCall(), rebootCall()};
}

bool check(SfuFlagClearer &clearer)
{
    return QMetaObject::invokeMethod(&clearer, "on_clearTimer_timeout", Qt::DirectConnection);
}

// The only child processes this program has are tools that were not waited for.
bool isChildLeft()
{
    return ::waitpid(-1, nullptr, WNOHANG) != -1 || errno != ECHILD;
}

// For a child: covers @p directory with an empty file system that nobody else sees.
bool coverWithEmptyFileSystem(const QString &directory, unsigned long flags)
{
    return ::unshare(CLONE_NEWNS) == 0
        && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
        && ::mount("none", QFile::encodeName(directory).constData(), "tmpfs", flags, nullptr) == 0;
}

} // namespace

class SfuFlagClearerTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void isObjectWithOnePrivateSlot();

    void clearsBothFlagsInOrder();
    void isSilentOnSuccess();
    void tools_data();
    void tools();
    void toolsAreGivenTenSeconds();
    void hungToolIsKilledAfterItsTime_data();
    void hungToolIsKilledAfterItsTime();
    void failedCheckIsTriedAgain_data();
    void failedCheckIsTriedAgain();
    void flagsAreClearedOnlyOnce();
    void clearedIsNeverSetBack();

    void markerIsRemoved_data();
    void markerIsRemoved();
    void markerIsInRootsHome_data();
    void markerIsInRootsHome();
    void readOnlySystemIsRebooted_data();
    void readOnlySystemIsRebooted();
    void readOnlyMountIsRebooted();
    void readOnlyChecksOutcomesAreIgnored_data();
    void readOnlyChecksOutcomesAreIgnored();
    void environmentToolIsGivenTenSecondsAndRebootAllTime();
    void hungEnvironmentToolIsKilledAfterTheReboot();
    void readOnlyCheckLeavesTheFlagsUncleared();

    void constructorStartsNoCountdown();
    void countdownIsNotShorterThanItsInterval();
    void countdownRunsOnce();
    void startBeginsTheCountdownAnew();
    void stopEndsTheCountdown();
    void restartJustBeforeTheEndBeginsAnew();

private:
    QString path(const QString &name) const { return QDir(m_directory->path()).filePath(name); }
    QString marker() const { return path(QStringLiteral("ro-test")); }
    // A script that hangs after it has noted its process id.
    QString hang() const;
    qint64 notedProcess() const;

    std::unique_ptr<StandInTools> m_tools;
    std::unique_ptr<QTemporaryDir> m_directory;
};

void SfuFlagClearerTest::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    m_tools = std::make_unique<StandInTools>();
    m_tools->add(QStringLiteral("sfuflags"));
    m_tools->add(QStringLiteral("fw_setenv"));
    m_tools->add(QStringLiteral("reboot"));
    takeSyslogMessages();
}

void SfuFlagClearerTest::cleanup()
{
    m_tools.reset();
    m_directory.reset();
    QVERIFY(!isChildLeft());
}

QString SfuFlagClearerTest::hang() const
{
    return QStringLiteral("echo $$ > '%1'\nexec /bin/sleep 600").arg(path(QStringLiteral("pid")));
}

qint64 SfuFlagClearerTest::notedProcess() const
{
    QFile file(path(QStringLiteral("pid")));
    return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed().toLongLong() : 0;
}

void SfuFlagClearerTest::isObjectWithOnePrivateSlot()
{
    const SfuFlagClearer clearer(10000);
    const QMetaObject *meta = clearer.metaObject();
    QCOMPARE(meta->className(), "SfuFlagClearer");
    QCOMPARE(meta->methodCount(), meta->methodOffset() + 1);
    const QMetaMethod slot = meta->method(meta->methodOffset());
    QCOMPARE(slot.methodSignature(), QByteArray("on_clearTimer_timeout()"));
    QCOMPARE(slot.methodType(), QMetaMethod::Slot);
    QCOMPARE(slot.access(), QMetaMethod::Private);
    QCOMPARE(clearer.parent(), nullptr);
}

void SfuFlagClearerTest::clearsBothFlagsInOrder()
{
    SfuFlagClearer clearer(countdownMs, marker());
    QVERIFY(check(clearer));
    QCOMPARE(m_tools->calls(), bothFlags());
}

void SfuFlagClearerTest::isSilentOnSuccess()
{
    m_tools->add(QStringLiteral("sfuflags"), QStringLiteral("echo out; echo error >&2"));
    const ChildResult child = runInChild([this] {
        SfuFlagClearer clearer(countdownMs, marker());
        check(clearer);
        std::printf("%d", takeSyslogMessages().size());
    });
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.standardOutput, QByteArray("0"));
    QCOMPARE(child.standardError, QByteArray());
    QCOMPARE(m_tools->calls(), bothFlags());
}

void SfuFlagClearerTest::tools_data()
{
    QTest::addColumn<QString>("script"); // null: the tool is missing
    QTest::addColumn<QStringList>("calls");
    QTest::addColumn<int>("code"); // -1: nothing is logged

    const QString first = QStringLiteral("[ $2 = boot_count ] || ");
    const QString second = QStringLiteral("[ $2 = fail ] || ");
    const QString crash = QStringLiteral("kill -KILL $$");

    QTest::newRow("both succeed") << QStringLiteral("exit 0") << bothFlags() << -1;
    QTest::newRow("missing") << QString() << QStringList() << 0;
    QTest::newRow("first crashes") << first + crash << firstFlagOnly() << 1;
    QTest::newRow("first exits with 1") << first + QStringLiteral("exit 1") << firstFlagOnly() << 5;
    QTest::newRow("first exits with 255")
        << first + QStringLiteral("exit 255") << firstFlagOnly() << 5;
    QTest::newRow("second is missing") << QStringLiteral("/bin/rm \"$0\"") << firstFlagOnly() << 0;
    QTest::newRow("second crashes") << second + crash << bothFlags() << 1;
    QTest::newRow("second exits with 1") << second + QStringLiteral("exit 1") << bothFlags() << 5;
}

void SfuFlagClearerTest::tools()
{
    QFETCH(QString, script);
    QFETCH(QStringList, calls);
    QFETCH(int, code);
    if (script.isNull())
        m_tools->remove(QStringLiteral("sfuflags"));
    else
        m_tools->add(QStringLiteral("sfuflags"), script);

    SfuFlagClearer clearer(countdownMs, marker());
    QVERIFY(check(clearer));
    QCOMPARE(m_tools->calls(), calls);
    const QVector<SyslogMessage> messages = takeSyslogMessages();
    QCOMPARE(messages.size(), code == -1 ? 0 : 1);
    if (code != -1) {
        QCOMPARE(messages.first().priority, LOG_ERR);
        QCOMPARE(messages.first().text,
                 QStringLiteral("Error occured during process startup, code: %1\n").arg(code));
    }
}

void SfuFlagClearerTest::toolsAreGivenTenSeconds()
{
    SfuFlagClearer clearer(countdownMs, marker());
    takeWaits();
    QVERIFY(check(clearer));
    const QVector<int> waits = takeWaits();
    QVERIFY(waits.count(10000) >= 2); // one for each flag at least
    QCOMPARE(*std::max_element(waits.begin(), waits.end()), 10000);
    QVERIFY(!waits.contains(-1));
}

void SfuFlagClearerTest::hungToolIsKilledAfterItsTime_data()
{
    QTest::addColumn<QString>("condition");
    QTest::addColumn<QStringList>("calls");
    QTest::newRow("first flag") << QString() << firstFlagOnly();
    QTest::newRow("second flag") << QStringLiteral("[ $2 = boot_count ] || exit 0\n")
                                 << bothFlags();
}

void SfuFlagClearerTest::hungToolIsKilledAfterItsTime()
{
    QFETCH(QString, condition);
    QFETCH(QStringList, calls);
    m_tools->add(QStringLiteral("sfuflags"), condition + hang());
    QTest::ignoreMessage(QtWarningMsg,
                         "QProcess: Destroyed while process (\"sfuflags\") is still running.");
    SfuFlagClearer clearer(countdownMs, marker(), hangLimitMs);
    QElapsedTimer elapsed;
    elapsed.start();
    QVERIFY(check(clearer));
    QVERIFY(elapsed.elapsed() >= hangLimitMs);

    QCOMPARE(m_tools->calls(), calls);
    const QVector<SyslogMessage> messages = takeSyslogMessages();
    QCOMPARE(messages.size(), 1);
    QCOMPARE(messages.first().priority, LOG_ERR);
    QCOMPARE(messages.first().text,
             QStringLiteral("Error occured during process startup, code: 2\n"));
    QVERIFY(notedProcess() > 0);
    QVERIFY(!isChildLeft());
}

void SfuFlagClearerTest::failedCheckIsTriedAgain_data()
{
    QTest::addColumn<QString>("failingFlag");
    QTest::newRow("first flag") << QStringLiteral("fail");
    QTest::newRow("second flag") << QStringLiteral("boot_count");
}

void SfuFlagClearerTest::failedCheckIsTriedAgain()
{
    QFETCH(QString, failingFlag);
    m_tools->add(QStringLiteral("sfuflags"), QStringLiteral("[ $2 != %1 ]").arg(failingFlag));
    int failures = 0;
    SfuFlagClearer clearer(1, marker());
    clearer.start();
    QTRY_COMPARE(failures += takeSyslogMessages().size(), 1);

    // The application is started again: both flags once more.
    m_tools->add(QStringLiteral("sfuflags"));
    m_tools->clear();
    clearer.start();
    QTRY_COMPARE(m_tools->calls(), bothFlags());
    QCOMPARE(takeSyslogMessages().size(), 0);
}

void SfuFlagClearerTest::flagsAreClearedOnlyOnce()
{
    SfuFlagClearer clearer(1, marker());
    clearer.start();
    QTRY_COMPARE(m_tools->calls(), bothFlags());

    m_tools->clear();
    bool past = false;
    clearer.stop();
    clearer.start();
    clearer.start();
    QTimer::singleShot(countdownMs, this, [&past] { past = true; });
    QTRY_VERIFY(past);
    QCOMPARE(m_tools->calls(), QStringList());
}

void SfuFlagClearerTest::clearedIsNeverSetBack()
{
    SfuFlagClearer clearer(1, marker());
    QVERIFY(check(clearer));
    m_tools->add(QStringLiteral("sfuflags"), QStringLiteral("exit 1"));
    QVERIFY(check(clearer));
    m_tools->clear();

    bool past = false;
    clearer.start();
    QTimer::singleShot(countdownMs, this, [&past] { past = true; });
    QTRY_VERIFY(past);
    QCOMPARE(m_tools->calls(), QStringList());
}

void SfuFlagClearerTest::markerIsRemoved_data()
{
    QTest::addColumn<bool>("exists");
    QTest::newRow("made by the check") << false;
    QTest::newRow("there already") << true;
}

void SfuFlagClearerTest::markerIsRemoved()
{
    QFETCH(bool, exists);
    // The tool sees whether the marker is gone by the time the flags are touched.
    m_tools->add(QStringLiteral("sfuflags"), QStringLiteral("[ ! -e '%1' ]").arg(marker()));
    if (exists) {
        QFile file(marker());
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("left by an earlier run");
    }
    SfuFlagClearer clearer(countdownMs, marker());
    QVERIFY(check(clearer));
    QCOMPARE(m_tools->calls(), bothFlags());
    QVERIFY(!QFile::exists(marker()));
}

void SfuFlagClearerTest::markerIsInRootsHome_data()
{
    QTest::addColumn<QString>("directory"); // what stands in the marker's way
    QTest::addColumn<QStringList>("calls");
    QTest::newRow("free") << QStringLiteral("/home/root") << bothFlags();
    QTest::newRow("blocked") << QStringLiteral("/home/root/ro-test") << rebootOfReadOnlySystem();
}

void SfuFlagClearerTest::markerIsInRootsHome()
{
    QFETCH(QString, directory);
    QFETCH(QStringList, calls);
    const ChildResult child = runInChild([&directory] {
        if (!coverWithEmptyFileSystem(QStringLiteral("/home"), 0))
            ::_exit(cannotMount);
        QDir().mkpath(directory);
        SfuFlagClearer clearer(countdownMs);
        check(clearer);
    });
    if (child.exitCode == cannotMount)
        QSKIP("mounting is not allowed here");
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(m_tools->calls(), calls);
}

void SfuFlagClearerTest::readOnlySystemIsRebooted_data()
{
    QTest::addColumn<QString>("marker"); // relative to the test's directory
    QTest::newRow("directory missing") << QStringLiteral("missing/ro-test");
    QTest::newRow("not to be made: a directory") << QStringLiteral("directory");
    // A file of the kernel's can be opened, but nobody can remove it, not even root.
    QTest::newRow("not to be removed") << QStringLiteral("/proc/self/comm");
}

void SfuFlagClearerTest::readOnlySystemIsRebooted()
{
    QFETCH(QString, marker);
    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("directory")));
    const ChildResult child = runInChild([this, &marker] {
        SfuFlagClearer clearer(countdownMs, path(marker));
        check(clearer);
        std::printf("%d", takeSyslogMessages().size());
    });
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.standardError, QByteArray(readOnlyMessage));
    QCOMPARE(child.standardOutput, QByteArray("0"));
    QCOMPARE(m_tools->calls(), rebootOfReadOnlySystem());
}

void SfuFlagClearerTest::readOnlyMountIsRebooted()
{
    const QString directory = path(QStringLiteral("mount"));
    QVERIFY(QDir().mkdir(directory));
    const ChildResult child = runInChild([&directory] {
        if (!coverWithEmptyFileSystem(directory, MS_RDONLY))
            ::_exit(cannotMount);
        SfuFlagClearer clearer(countdownMs, directory + QStringLiteral("/ro-test"));
        check(clearer);
    });
    if (child.exitCode == cannotMount)
        QSKIP("mounting is not allowed here");
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.standardError, QByteArray(readOnlyMessage));
    QCOMPARE(m_tools->calls(), rebootOfReadOnlySystem());
}

void SfuFlagClearerTest::readOnlyChecksOutcomesAreIgnored_data()
{
    QTest::addColumn<QString>("tool");
    QTest::addColumn<QString>("script"); // null: the tool is missing
    QTest::addColumn<QStringList>("calls");

    const QString environment = QStringLiteral("fw_setenv");
    const QString reboot = QStringLiteral("reboot");
    const QString fail = QStringLiteral("exit 1");
    const QString crash = QStringLiteral("kill -KILL $$");
    QTest::newRow("fw_setenv missing") << environment << QString() << QStringList(rebootCall());
    QTest::newRow("fw_setenv fails") << environment << fail << rebootOfReadOnlySystem();
    QTest::newRow("fw_setenv crashes") << environment << crash << rebootOfReadOnlySystem();
    QTest::newRow("reboot missing") << reboot << QString() << QStringList(environmentCall());
    QTest::newRow("reboot fails") << reboot << fail << rebootOfReadOnlySystem();
    QTest::newRow("reboot crashes") << reboot << crash << rebootOfReadOnlySystem();
}

void SfuFlagClearerTest::readOnlyChecksOutcomesAreIgnored()
{
    QFETCH(QString, tool);
    QFETCH(QString, script);
    QFETCH(QStringList, calls);
    if (script.isNull())
        m_tools->remove(tool);
    else
        m_tools->add(tool, script);

    const ChildResult child = runInChild([this] {
        SfuFlagClearer clearer(countdownMs, path(QStringLiteral("missing/ro-test")));
        check(clearer);
        std::printf("%d", takeSyslogMessages().size());
    });
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.standardError, QByteArray(readOnlyMessage));
    QCOMPARE(child.standardOutput, QByteArray("0"));
    QCOMPARE(m_tools->calls(), calls);
}

void SfuFlagClearerTest::environmentToolIsGivenTenSecondsAndRebootAllTime()
{
    SfuFlagClearer clearer(countdownMs, path(QStringLiteral("missing/ro-test")));
    takeWaits();
    QVERIFY(check(clearer));
    const QVector<int> waits = takeWaits();
    const int environment = waits.indexOf(10000);
    QVERIFY(environment != -1);
    QVERIFY(waits.indexOf(-1) > environment);
}

void SfuFlagClearerTest::hungEnvironmentToolIsKilledAfterTheReboot()
{
    m_tools->add(QStringLiteral("fw_setenv"), hang());
    m_tools->add(QStringLiteral("reboot"),
                 QStringLiteral("read pid < '%1' && kill -0 $pid && echo > '%2'")
                     .arg(path(QStringLiteral("pid")), path(QStringLiteral("alive"))));
    QTest::ignoreMessage(QtWarningMsg,
                         "QProcess: Destroyed while process (\"fw_setenv\") is still running.");
    SfuFlagClearer clearer(countdownMs, path(QStringLiteral("missing/ro-test")), hangLimitMs);
    QElapsedTimer elapsed;
    elapsed.start();
    QVERIFY(check(clearer));
    QVERIFY(elapsed.elapsed() >= hangLimitMs);
    QCOMPARE(m_tools->calls(), rebootOfReadOnlySystem());
    QVERIFY(QFile::exists(path(QStringLiteral("alive"))));
    QVERIFY(!isChildLeft());
}

// A reboot that does not come leaves everything as it was; the next start tries again.
void SfuFlagClearerTest::readOnlyCheckLeavesTheFlagsUncleared()
{
    SfuFlagClearer clearer(1, path(QStringLiteral("later/ro-test")));
    clearer.start();
    QTRY_COMPARE(m_tools->calls(), rebootOfReadOnlySystem());

    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("later")));
    m_tools->clear();
    clearer.start();
    QTRY_COMPARE(m_tools->calls(), bothFlags());
}

void SfuFlagClearerTest::constructorStartsNoCountdown()
{
    const SfuFlagClearer clearer(1, marker());
    bool past = false;
    QTimer::singleShot(countdownMs, this, [&past] { past = true; });
    QTRY_VERIFY(past);
    QCOMPARE(m_tools->calls(), QStringList());
}

void SfuFlagClearerTest::countdownIsNotShorterThanItsInterval()
{
    SfuFlagClearer clearer(countdownMs, marker());
    QElapsedTimer elapsed;
    elapsed.start();
    clearer.start();
    QTRY_COMPARE(m_tools->calls(), bothFlags());
    // The timer is a coarse one, which may be up to 5 % early.
    QVERIFY(elapsed.elapsed() >= countdownMs * 95 / 100);
}

void SfuFlagClearerTest::countdownRunsOnce()
{
    m_tools->add(QStringLiteral("sfuflags"), QStringLiteral("exit 1"));
    SfuFlagClearer clearer(1, marker());
    clearer.start();
    QTRY_COMPARE(m_tools->calls(), firstFlagOnly());
    bool past = false;
    QTimer::singleShot(countdownMs, this, [&past] { past = true; });
    QTRY_VERIFY(past);
    QCOMPARE(m_tools->calls(), firstFlagOnly());
}

// The calls are looked at in the event loop, where what was due before has happened and what is due
// after has not, however busy the machine is.
void SfuFlagClearerTest::startBeginsTheCountdownAnew()
{
    SfuFlagClearer clearer(countdownMs, marker());
    QObject scope;
    QStringList callsBeforeTheEnd = {QStringLiteral("not looked at")};
    clearer.start();
    QTimer::singleShot(countdownMs / 2, Qt::PreciseTimer, &scope, [&] {
        clearer.start();
        QTimer::singleShot(countdownMs * 3 / 4, Qt::PreciseTimer, &scope,
                           [&] { callsBeforeTheEnd = m_tools->calls(); });
    });
    QTRY_COMPARE(m_tools->calls(), bothFlags());
    QCOMPARE(callsBeforeTheEnd, QStringList());
}

void SfuFlagClearerTest::stopEndsTheCountdown()
{
    SfuFlagClearer clearer(countdownMs, marker());
    bool past = false;
    clearer.start();
    clearer.stop();
    QTimer::singleShot(countdownMs * 2, this, [&past] { past = true; });
    QTRY_VERIFY(past);
    QCOMPARE(m_tools->calls(), QStringList());

    clearer.stop(); // without a countdown: nothing
    clearer.start();
    QTRY_COMPARE(m_tools->calls(), bothFlags());
}

// The application ends shortly before its time is up, and is started again.
void SfuFlagClearerTest::restartJustBeforeTheEndBeginsAnew()
{
    SfuFlagClearer clearer(countdownMs, marker());
    QObject scope;
    QStringList callsBeforeTheEnd = {QStringLiteral("not looked at")};
    clearer.start();
    QTimer::singleShot(countdownMs * 9 / 10, Qt::PreciseTimer, &scope, [&] {
        clearer.stop();
        clearer.start();
        QTimer::singleShot(countdownMs * 9 / 10, Qt::PreciseTimer, &scope,
                           [&] { callsBeforeTheEnd = m_tools->calls(); });
    });
    QTRY_COMPARE(m_tools->calls(), bothFlags());
    QCOMPARE(callsBeforeTheEnd, QStringList());
}

QTEST_GUILESS_MAIN(SfuFlagClearerTest)
#include "tst_sfuflagclearer.moc"
