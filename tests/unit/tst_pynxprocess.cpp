// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/pynxprocess.h"
#include "standarderrorcapture.h"

#include <QtTest>

#include <cerrno>

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <pwd.h>
#include <unistd.h>

namespace {

long sizeThatTheSystemNames = 1024;
int lookupError = 0;
char givenName[32] = "";
std::size_t givenSize = 0;
int forks = 0;

/** The size of the pipe that is a process's descriptor; -1 if there is no such pipe. */
int pipeSize(qint64 pid, int descriptor)
{
    const QString path = QStringLiteral("/proc/%1/fd/%2").arg(pid).arg(descriptor);
    const int pipe = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const int size = ::fcntl(pipe, F_GETPIPE_SZ);
    ::close(pipe);
    return size;
}

} // namespace

// These replace functions of the C library in the test's process. With the real ones and real
// accounts a test could not see the size of the buffer.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): its names are reserved.
extern "C" {

long sysconf(int name) noexcept
{
    if (name == _SC_GETPW_R_SIZE_MAX)
        return sizeThatTheSystemNames;
    static const auto original = reinterpret_cast<long (*)(int)>(::dlsym(RTLD_NEXT, "sysconf"));
    return original(name);
}

int getpwnam_r(const char *name, passwd *, char *, std::size_t size, passwd **result)
{
    qstrncpy(givenName, name, sizeof givenName);
    givenSize = size;
    *result = nullptr;
    return lookupError;
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

// tests/system tests the change of the account, the descriptors, and programs that cannot be
// executed.
class PynxProcessTest : public QObject
{
    Q_OBJECT

private slots:
    void lookupBufferSize_data();
    void lookupBufferSize();
    void failedLookup_data();
    void failedLookup();
    void isStartedByFork();
    void theOutputPipesAreLarge();
};

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
    sizeThatTheSystemNames = systemSays;
    PynxProcess().lookupUser(QStringLiteral("somebody"));
    QCOMPARE(givenSize, static_cast<std::size_t>(used));
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
    lookupError = error;
    const StandardErrorCapture capture;
    QVERIFY(!PynxProcess().lookupUser(QString::fromUtf8("jürgen")));
    QCOMPARE(QByteArray(givenName), QByteArray("jürgen"));
    QCOMPARE(capture.text(), QByteArray("Failed to get info about user: jürgen\n"));
}

// The child allocates memory before its exec. Only after fork() is that safe.
void PynxProcessTest::isStartedByFork()
{
    QCOMPARE(::pthread_atfork([] { ++forks; }, nullptr, nullptr), 0);
    PynxProcess process;
    process.start(QStringLiteral(SAMPLE_APPLICATION),
                  {QStringLiteral("exit"), QStringLiteral("0")});
    QVERIFY(process.waitForFinished());
    QCOMPARE(forks, 1);
}

void PynxProcessTest::theOutputPipesAreLarge()
{
    PynxProcess process;
    process.start(QStringLiteral(SAMPLE_APPLICATION), {QStringLiteral("wait")});
    QVERIFY(process.waitForStarted());
    QCOMPARE(pipeSize(process.processId(), STDOUT_FILENO), 256 * 1024);
    QCOMPARE(pipeSize(process.processId(), STDERR_FILENO), 256 * 1024);
    QVERIFY(pipeSize(process.processId(), STDIN_FILENO) < 256 * 1024);
    process.kill();
    QVERIFY(process.waitForFinished());
}

QTEST_GUILESS_MAIN(PynxProcessTest)
#include "tst_pynxprocess.moc"
