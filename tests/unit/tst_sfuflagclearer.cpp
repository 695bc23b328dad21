// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "health/sfuflagclearer.h"
#include "processresources.h"
#include "standarderrorcapture.h"
#include "standintools.h"
#include "syslogcapture.h"
#include "testfiles.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include <memory>

#include <syslog.h>

namespace {

// In this time a stand-in records its call before it is killed, also on a busy machine.
constexpr int hangLimitMs = 2000;
constexpr int countdownMs = 400;

QStringList firstFlagOnly()
{
    return {QStringLiteral("sfuflags|-f|fail|-v|0")};
}

QStringList bothFlags()
{
    return firstFlagOnly() << QStringLiteral("sfuflags|-f|boot_count|-v|0");
}

QStringList rebootOfReadOnlySystem()
{
    return {QStringLiteral("fw_setenv|update_url_cache"), QStringLiteral("reboot|-f")};
}

bool check(SfuFlagClearer &clearer)
{
    return QMetaObject::invokeMethod(&clearer, "on_clearTimer_timeout", Qt::DirectConnection);
}

} // namespace

class SfuFlagClearerTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void tools_data();
    void tools();
    void hungToolIsKilledAfterItsTime();
    void toolsAreGivenTenSeconds();

    void markerIsRemovedBeforeTheFlagsAreCleared_data();
    void markerIsRemovedBeforeTheFlagsAreCleared();
    void readOnlySystemIsRebooted_data();
    void readOnlySystemIsRebooted();
    void readOnlyChecksOutcomesAreIgnored_data();
    void readOnlyChecksOutcomesAreIgnored();
    void hungEnvironmentToolIsKilledAfterTheReboot();

    void countdownIsNotShorterThanItsInterval();
    void countdownRunsOnceForEachStart();
    void failedCheckIsTriedAgainAtTheNextStart();
    void readOnlyCheckIsTriedAgainAtTheNextStart();
    void flagsAreClearedOnlyOnce();
    void startBeginsTheCountdownAnew();
    void stopEndsTheCountdown();

private:
    QString path(const QString &name) const { return m_directory->filePath(name); }
    QString marker() const { return path(QStringLiteral("ro-test")); }

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
    QVERIFY(!hasChildren());
}

void SfuFlagClearerTest::tools_data()
{
    QTest::addColumn<QString>("script"); // null: the tool is missing
    QTest::addColumn<QStringList>("calls");
    QTest::addColumn<int>("code"); // -1: nothing is logged

    const QString first = QStringLiteral("[ $2 = boot_count ] || ");
    const QString second = QStringLiteral("[ $2 = fail ] || ");
    const QString crash = QStringLiteral("kill -KILL $$");

    QTest::newRow("both succeed and print something")
        << QStringLiteral("echo output; echo error >&2") << bothFlags() << -1;
    QTest::newRow("missing") << QString() << QStringList() << 0;
    QTest::newRow("first crashes") << first + crash << firstFlagOnly() << 1;
    QTest::newRow("first exits with 1") << first + QStringLiteral("exit 1") << firstFlagOnly() << 5;
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
    const StandardErrorCapture standardError;
    QVERIFY(check(clearer));
    QCOMPARE(standardError.text(), QByteArray());
    QCOMPARE(m_tools->calls(), calls);
    const QVector<SyslogMessage> messages = takeSyslogMessages();
    QCOMPARE(messages.size(), code == -1 ? 0 : 1);
    if (code != -1) {
        QCOMPARE(messages.first().priority, LOG_ERR);
        QCOMPARE(messages.first().text,
                 QStringLiteral("Error occured during process startup, code: %1\n").arg(code));
    }
}

void SfuFlagClearerTest::hungToolIsKilledAfterItsTime()
{
    m_tools->add(QStringLiteral("sfuflags"), QStringLiteral("exec /bin/sleep 600"));
    QTest::ignoreMessage(QtWarningMsg,
                         "QProcess: Destroyed while process (\"sfuflags\") is still running.");
    SfuFlagClearer clearer(countdownMs, marker(), hangLimitMs);
    QElapsedTimer elapsed;
    elapsed.start();
    QVERIFY(check(clearer));
    QVERIFY(elapsed.elapsed() >= hangLimitMs);

    QCOMPARE(m_tools->calls(), firstFlagOnly());
    const QVector<SyslogMessage> messages = takeSyslogMessages();
    QCOMPARE(messages.size(), 1);
    QCOMPARE(messages.first().text,
             QStringLiteral("Error occured during process startup, code: 2\n"));
    QVERIFY(!hasChildren());
}

void SfuFlagClearerTest::toolsAreGivenTenSeconds()
{
    QCOMPARE(SfuFlagClearer::toolTimeLimitMs, 10000);
}

void SfuFlagClearerTest::markerIsRemovedBeforeTheFlagsAreCleared_data()
{
    QTest::addColumn<bool>("exists");
    QTest::newRow("made by the check") << false;
    QTest::newRow("there already") << true;
}

void SfuFlagClearerTest::markerIsRemovedBeforeTheFlagsAreCleared()
{
    QFETCH(bool, exists);
    m_tools->add(QStringLiteral("sfuflags"), QStringLiteral("[ ! -e '%1' ]").arg(marker()));
    if (exists)
        writeFile(marker(), "left by an earlier run");
    SfuFlagClearer clearer(countdownMs, marker());
    QVERIFY(check(clearer));
    QCOMPARE(m_tools->calls(), bothFlags());
    QVERIFY(!QFile::exists(marker()));
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
    SfuFlagClearer clearer(countdownMs, QDir(m_directory->path()).filePath(marker));
    const StandardErrorCapture standardError;
    QVERIFY(check(clearer));
    QCOMPARE(standardError.text(),
             QByteArray("Detected filesystem in read-only mode. Rebooting\n"));
    QCOMPARE(takeSyslogMessages().size(), 0);
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
    const QStringList both = rebootOfReadOnlySystem();
    QTest::newRow("fw_setenv missing") << environment << QString() << QStringList(both.mid(1));
    QTest::newRow("fw_setenv fails") << environment << fail << both;
    QTest::newRow("reboot missing") << reboot << QString() << QStringList(both.mid(0, 1));
    QTest::newRow("reboot fails") << reboot << fail << both;
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
    SfuFlagClearer clearer(countdownMs, path(QStringLiteral("missing/ro-test")));
    QVERIFY(check(clearer));
    QCOMPARE(takeSyslogMessages().size(), 0);
    QCOMPARE(m_tools->calls(), calls);
}

void SfuFlagClearerTest::hungEnvironmentToolIsKilledAfterTheReboot()
{
    const QString pid = path(QStringLiteral("pid"));
    const QString alive = path(QStringLiteral("alive"));
    m_tools->add(QStringLiteral("fw_setenv"),
                 QStringLiteral("echo $$ > '%1'; exec /bin/sleep 600").arg(pid));
    m_tools->add(QStringLiteral("reboot"),
                 QStringLiteral("read pid < '%1' && kill -0 $pid && echo > '%2'").arg(pid, alive));
    QTest::ignoreMessage(QtWarningMsg,
                         "QProcess: Destroyed while process (\"fw_setenv\") is still running.");
    SfuFlagClearer clearer(countdownMs, path(QStringLiteral("missing/ro-test")), hangLimitMs);
    QElapsedTimer elapsed;
    elapsed.start();
    QVERIFY(check(clearer));
    QVERIFY(elapsed.elapsed() >= hangLimitMs);
    QCOMPARE(m_tools->calls(), rebootOfReadOnlySystem());
    QVERIFY(QFile::exists(alive));
    QVERIFY(!hasChildren());
}

void SfuFlagClearerTest::countdownIsNotShorterThanItsInterval()
{
    SfuFlagClearer clearer(countdownMs, marker());
    QElapsedTimer elapsed;
    elapsed.start();
    clearer.start();
    QTRY_COMPARE(m_tools->calls(), bothFlags());
    QVERIFY(elapsed.elapsed() >= countdownMs);
}

void SfuFlagClearerTest::countdownRunsOnceForEachStart()
{
    m_tools->add(QStringLiteral("sfuflags"), QStringLiteral("exit 1"));
    SfuFlagClearer clearer(1, marker());
    QTest::qWait(countdownMs);
    QCOMPARE(m_tools->calls(), QStringList());
    clearer.start();
    QTRY_COMPARE(m_tools->calls(), firstFlagOnly());
    QTest::qWait(countdownMs);
    QCOMPARE(m_tools->calls(), firstFlagOnly());
}

void SfuFlagClearerTest::failedCheckIsTriedAgainAtTheNextStart()
{
    m_tools->add(QStringLiteral("sfuflags"), QStringLiteral("[ $2 = fail ]"));
    int failures = 0;
    SfuFlagClearer clearer(1, marker());
    clearer.start();
    QTRY_COMPARE(failures += takeSyslogMessages().size(), 1);

    m_tools->add(QStringLiteral("sfuflags"));
    m_tools->clear();
    clearer.start();
    QTRY_COMPARE(m_tools->calls(), bothFlags()); // the first one once more
}

// A reboot that does not come leaves everything as it was.
void SfuFlagClearerTest::readOnlyCheckIsTriedAgainAtTheNextStart()
{
    SfuFlagClearer clearer(1, path(QStringLiteral("later/ro-test")));
    clearer.start();
    QTRY_COMPARE(m_tools->calls(), rebootOfReadOnlySystem());

    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("later")));
    m_tools->clear();
    clearer.start();
    QTRY_COMPARE(m_tools->calls(), bothFlags());
}

void SfuFlagClearerTest::flagsAreClearedOnlyOnce()
{
    SfuFlagClearer clearer(1, marker());
    QVERIFY(check(clearer));
    m_tools->clear();
    clearer.stop();
    clearer.start();
    QTest::qWait(countdownMs);
    QCOMPARE(m_tools->calls(), QStringList());
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
    clearer.start();
    clearer.stop();
    QTest::qWait(countdownMs * 2);
    QCOMPARE(m_tools->calls(), QStringList());

    clearer.stop(); // without a countdown: nothing
    clearer.start();
    QTRY_COMPARE(m_tools->calls(), bothFlags());
}

QTEST_GUILESS_MAIN(SfuFlagClearerTest)
#include "tst_sfuflagclearer.moc"
