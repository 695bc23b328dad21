// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/pynxprocess.h"
#include "childrun.h"
#include "pipesize.h"

#include <QTemporaryDir>
#include <QtTest>

#include <cerrno>
#include <cstring>

#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <malloc.h>
#include <pwd.h>
#include <unistd.h>

namespace {

// What the replaced functions of the C library below do, and what they were asked.
struct Account
{
    long bufferSize = 1024; // what sysconf() says
    int lookupError = 0;
    bool known = true;
    QByteArray askedName;
    std::size_t givenSize = 0;
    bool bufferWasZero = false;
    bool entryWasZero = false;
    int initgroupsResult = 0;
    int setregidResult = 0;
    int setreuidResult = 0;
};

Account &account()
{
    static Account the;
    return the;
}

void say(const char *text)
{
    const ssize_t written = ::write(STDERR_FILENO, text, std::strlen(text));
    Q_UNUSED(written)
}

void sayCall(const char *name, unsigned first, unsigned second)
{
    say(QByteArray(name)
            .append(' ')
            .append(QByteArray::number(first))
            .append(' ')
            .append(QByteArray::number(second).append('\n')));
}

} // namespace

// The account calls of the C library, replaced in this process and so in the child before its exec:
// a test must not depend on the machine's accounts or on its own rights.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's are reserved.
extern "C" {

long sysconf(int name) noexcept
{
    if (name == _SC_GETPW_R_SIZE_MAX)
        return account().bufferSize;
    static const auto original = reinterpret_cast<long (*)(int)>(::dlsym(RTLD_NEXT, "sysconf"));
    return original(name);
}

int getpwnam_r(const char *name, passwd *entry, char *buffer, std::size_t size, passwd **result)
{
    account().askedName = name;
    account().givenSize = size;
    account().bufferWasZero =
        QByteArray(buffer, static_cast<int>(size)) == QByteArray(static_cast<int>(size), '\0');
    account().entryWasZero = QByteArray(reinterpret_cast<const char *>(entry), sizeof *entry)
        == QByteArray(sizeof *entry, '\0');
    *result = nullptr;
    if (account().lookupError != 0 || !account().known)
        return account().lookupError;
    std::strcpy(buffer, "somebody"); // NOLINT(clang-analyzer-security.insecureAPI.strcpy)
    entry->pw_name = buffer;
    entry->pw_uid = 4711;
    entry->pw_gid = 4712;
    *result = entry;
    return 0;
}

int initgroups(const char *user, gid_t group)
{
    sayCall(QByteArray("initgroups ").append(user), group, 0);
    return account().initgroupsResult;
}

int setregid(gid_t real, gid_t effective) noexcept
{
    sayCall("setregid", real, effective);
    return account().setregidResult;
}

int setreuid(uid_t real, uid_t effective) noexcept
{
    sayCall("setreuid", real, effective);
    return account().setreuidResult;
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

class PynxProcessTest : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void withoutLookupNothingIsSwitched();
    void lookup();
    void lookupBufferSize_data();
    void lookupBufferSize();
    void failedLookup_data();
    void failedLookup();
    void aFailedLookupForgetsAnEarlierAccount();
    void switchOfUser_data();
    void switchOfUser();
    void noInheritedDescriptorFromThreeUpward();
    void theOutputPipesAreLarge();
    void whatCannotBeExecutedCountsAsStarted_data();
    void whatCannotBeExecutedCountsAsStarted();
    void withoutProgramTheStartFails();
};

namespace {

struct Output
{
    QByteArray standardOutput;
    QByteArray standardError;
    int exitCode = -1;
};

Output runApplication(PynxProcess &process, const QStringList &behaviours)
{
    process.start(QStringLiteral(SAMPLE_APPLICATION), behaviours);
    if (!process.waitForFinished())
        return {};
    return {process.readAllStandardOutput(), process.readAllStandardError(), process.exitCode()};
}

} // namespace

void PynxProcessTest::init()
{
    account() = Account();
}

void PynxProcessTest::withoutLookupNothingIsSwitched()
{
    PynxProcess process;
    const Output output = runApplication(process, {QStringLiteral("exit"), QStringLiteral("3")});
    QCOMPARE(output.exitCode, 3);
    QCOMPARE(output.standardError, QByteArray());
}

void PynxProcessTest::lookup()
{
    ::mallopt(M_PERTURB, 0x5a); // fresh memory is often zero by itself
    PynxProcess process;
    QVERIFY(process.lookupUser(QString::fromUtf8("jürgen")));
    ::mallopt(M_PERTURB, 0);
    QCOMPARE(account().askedName, QByteArray("jürgen"));
    QVERIFY(account().bufferWasZero);
    QVERIFY(account().entryWasZero);
}

void PynxProcessTest::lookupBufferSize_data()
{
    QTest::addColumn<int>("systemSays");
    QTest::addColumn<int>("used");
    QTest::newRow("as the system says") << 2000 << 2000;
    QTest::newRow("8196, not 8192, where the system names none") << -1 << 8196;
}

void PynxProcessTest::lookupBufferSize()
{
    QFETCH(int, systemSays);
    QFETCH(int, used);
    account().bufferSize = systemSays;
    PynxProcess process;
    QVERIFY(process.lookupUser(QStringLiteral("somebody")));
    QCOMPARE(account().givenSize, static_cast<std::size_t>(used));
}

void PynxProcessTest::failedLookup_data()
{
    QTest::addColumn<int>("error");
    QTest::newRow("unknown account") << 0;
    QTest::newRow("lookup error") << EIO;
    QTest::newRow("buffer too small, which is not enlarged") << ERANGE;
}

void PynxProcessTest::failedLookup()
{
    QFETCH(int, error);
    account().known = false;
    account().lookupError = error;
    const ChildResult result = runInChild([] {
        PynxProcess process;
        const bool found = process.lookupUser(QString::fromUtf8("jürgen"));
        const Output output =
            runApplication(process, {QStringLiteral("exit"), QStringLiteral("3")});
        // Whatever happened in the application's child before its exec is in its standard error.
        if (!found && output.exitCode == 3 && output.standardError.isEmpty())
            say("runs as before\n");
    });
    QCOMPARE(result.standardError,
             QByteArray("Failed to get info about user: jürgen\nruns as before\n"));
}

void PynxProcessTest::aFailedLookupForgetsAnEarlierAccount()
{
    PynxProcess process;
    QVERIFY(process.lookupUser(QStringLiteral("somebody")));
    account().known = false;
    QVERIFY(!process.lookupUser(QStringLiteral("nobody else")));
    const Output output = runApplication(process, {QStringLiteral("exit"), QStringLiteral("3")});
    QCOMPARE(output.exitCode, 3);
    QCOMPARE(output.standardError, QByteArray());
}

void PynxProcessTest::switchOfUser_data()
{
    QTest::addColumn<int>("initgroupsResult");
    QTest::addColumn<int>("setregidResult");
    QTest::addColumn<int>("setreuidResult");
    QTest::addColumn<QByteArray>("said");

    QTest::newRow("supplementary groups, then group, then user")
        << 0 << 0 << 0
        << QByteArray("initgroups somebody 4712 0\nsetregid 4712 4712\nsetreuid 4711 4711\n");
    QTest::newRow("no supplementary groups: goes on")
        << -1 << 0 << 0
        << QByteArray("initgroups somebody 4712 0\nCannot initialize supplementary groups\n"
                      "setregid 4712 4712\nsetreuid 4711 4711\n");
    QTest::newRow("no group: the user is not tried")
        << 0 << -1 << 0
        << QByteArray("initgroups somebody 4712 0\nsetregid 4712 4712\nCannot change user/group\n");
    QTest::newRow("no user")
        << 0 << 0 << -1
        << QByteArray("initgroups somebody 4712 0\nsetregid 4712 4712\nsetreuid 4711 4711\n"
                      "Cannot change user/group\n");
    QTest::newRow("nothing is permitted")
        << -1 << -1 << -1
        << QByteArray("initgroups somebody 4712 0\nCannot initialize supplementary groups\n"
                      "setregid 4712 4712\nCannot change user/group\n");
}

void PynxProcessTest::switchOfUser()
{
    QFETCH(int, initgroupsResult);
    QFETCH(int, setregidResult);
    QFETCH(int, setreuidResult);
    QFETCH(QByteArray, said);
    account().initgroupsResult = initgroupsResult;
    account().setregidResult = setregidResult;
    account().setreuidResult = setreuidResult;

    PynxProcess process;
    QVERIFY(process.lookupUser(QStringLiteral("somebody")));
    const Output output =
        runApplication(process, {QStringLiteral("print"), QStringLiteral("here\\n")});
    QCOMPARE(output.standardOutput, QByteArray("here\n")); // runs whatever came of the switch
    QCOMPARE(output.standardError, said);
}

void PynxProcessTest::noInheritedDescriptorFromThreeUpward()
{
    const int first = ::open("/dev/null", O_RDONLY); // without close-on-exec, as a device would be
    const int far = ::fcntl(first, F_DUPFD, 200);
    QVERIFY(first >= 3 && far >= 200);

    PynxProcess process;
    const Output output = runApplication(process, {QStringLiteral("descriptors")});
    ::close(far);
    ::close(first);
    QCOMPARE(output.standardOutput, QByteArray("descriptors 0 1 2\n"));
}

void PynxProcessTest::theOutputPipesAreLarge()
{
    PynxProcess process;
    for (int run = 1; run <= 2; ++run) {
        process.start(QStringLiteral(SAMPLE_APPLICATION), {QStringLiteral("wait")});
        QVERIFY(process.waitForStarted());
        QCOMPARE(pipeSize(process.processId(), STDOUT_FILENO), 256 * 1024);
        QCOMPARE(pipeSize(process.processId(), STDERR_FILENO), 256 * 1024);
        QVERIFY(pipeSize(process.processId(), STDIN_FILENO) < 256 * 1024);
        process.kill();
        QVERIFY(process.waitForFinished());
    }
}

void PynxProcessTest::whatCannotBeExecutedCountsAsStarted_data()
{
    QTest::addColumn<QString>("program");
    QTest::newRow("missing") << QStringLiteral("/nowhere/application");
    QTest::newRow("without execute permission") << QStringLiteral("/etc/passwd");
    QTest::newRow("a directory") << QStringLiteral("/usr");
    QTest::newRow("not in the search path") << QStringLiteral("no-such-application-anywhere");
}

void PynxProcessTest::whatCannotBeExecutedCountsAsStarted()
{
    QFETCH(QString, program);
    PynxProcess process;
    process.start(program, QStringList());
    QVERIFY(process.waitForStarted());
    QVERIFY(process.waitForFinished());
    QCOMPARE(process.exitCode(), 255);
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
}

void PynxProcessTest::withoutProgramTheStartFails()
{
    PynxProcess process;
    process.start(QString(), QStringList());
    QVERIFY(!process.waitForStarted(500));
    QCOMPARE(process.error(), QProcess::FailedToStart);
}

QTEST_GUILESS_MAIN(PynxProcessTest)
#include "tst_pynxprocess.moc"
