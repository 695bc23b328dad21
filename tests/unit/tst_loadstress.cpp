// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "load/systemloadstat.h"
#include "platform/pynx_api.h"

#include <QSignalSpy>
#include <QtTest>

#include <atomic>
#include <csignal>
#include <memory>
#include <new>
#include <thread>
#include <vector>

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int enough = 4000;
constexpr int atOnce = 8;

/** What the process that starts the others tells of it. */
struct Progress
{
    std::atomic<int> processCount{0};
    std::atomic<pid_t> lastPid{0};
};

// Unlike those of another run of this test on the same machine. At most 15 bytes.
QByteArray nameOf(int number)
{
    static const pid_t run = ::getpid();
    return "brief" + QByteArray::number(number) + '-' + QByteArray::number(run);
}

// Between no time at all and half a millisecond, unlike from one to the next.
void liveShortly(long seed)
{
    const timespec time = {0, seed * 7919 % 500 * 1000};
    ::nanosleep(&time, nullptr);
}

// Starts short-lived processes for ever, a few at once.
[[noreturn]] void startProcesses(Progress *progress, const std::vector<QByteArray> &names)
{
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    for (;;) {
        for (const QByteArray &name : names) {
            const int number = progress->processCount++;
            const pid_t child = ::fork();
            if (child == 0) {
                ::prctl(PR_SET_NAME, name.constData());
                liveShortly(number);
                ::_exit(0);
            }
            progress->lastPid = child;
        }
        while (::wait(nullptr) > 0) { }
    }
}

/** Starts short-lived threads in this process for as long as the object lives. */
class ShortThreads
{
public:
    ~ShortThreads()
    {
        m_stop = true;
        m_starter.join();
    }

    int count() const { return m_count; }

private:
    void start()
    {
        while (!m_stop) {
            std::vector<std::thread> threads;
            threads.reserve(atOnce);
            for (int i = 0; i < atOnce; ++i)
                threads.emplace_back(liveShortly, m_count++);
            for (std::thread &thread : threads)
                thread.join();
        }
    }

    std::atomic<int> m_count{0};
    std::atomic<bool> m_stop{false};
    std::thread m_starter{&ShortThreads::start, this};
};

} // namespace

// Processes and threads end at every moment between being listed, opened and read.
class LoadStressTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanupTestCase();
    void shortLivedProcessesAndThreads();

private:
    Progress *m_progress = nullptr;
    pid_t m_starter = -1;
};

void LoadStressTest::initTestCase()
{
    void *shared = ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE,
                          MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    QVERIFY(shared != MAP_FAILED);
    m_progress = new (shared) Progress;
    std::vector<QByteArray> names;
    names.reserve(atOnce);
    for (int i = 0; i < atOnce; ++i)
        names.push_back(nameOf(i));
    // Forked while there is no other thread yet.
    m_starter = ::fork();
    if (m_starter == 0)
        startProcesses(m_progress, names);
    QVERIFY(m_starter > 0);
}

void LoadStressTest::cleanupTestCase()
{
    ::kill(m_starter, SIGKILL);
    ::waitpid(m_starter, nullptr, 0);
    ::munmap(m_progress, sizeof(Progress));
}

void LoadStressTest::shortLivedProcessesAndThreads()
{
    auto threads = std::make_unique<ShortThreads>();
    SystemLoadStat stat;
    const QSignalSpy alarms(&stat, &SystemLoadStat::cpuLoadExceed);
    const QSignalSpy absences(&stat, &SystemLoadStat::notFound);
    const auto watch = [&stat](const QString &name) {
        int id = -1;
        QMetaObject::invokeMethod(&stat, "do_watchProcessLoad", Qt::DirectConnection,
                                  Q_RETURN_ARG(int, id), Q_ARG(QString, name),
                                  Q_ARG(QStringList, QStringList()), Q_ARG(int, 1), Q_ARG(int, 0),
                                  Q_ARG(bool, true), Q_ARG(int, 1));
    };
    for (int i = 0; i < atOnce; ++i)
        watch(QString::fromLatin1(nameOf(i)));
    pynxSetThreadName(QStringLiteral("stress-%1").arg(::getpid()));
    watch(QStringLiteral("stress-%1").arg(::getpid()));
    QMetaObject::invokeMethod(&stat, "do_start", Qt::DirectConnection);

    int readCount = 0;
    int endedCount = 0;
    while (m_progress->processCount < enough || threads->count() < enough || alarms.isEmpty()
           || absences.isEmpty() || readCount < enough || endedCount < enough) {
        QMetaObject::invokeMethod(&stat, "on_cpuLoadTimer_timeout", Qt::DirectConnection);
        // Those that end just now.
        for (int i = 0; i < 200; ++i) {
            ProcessSample sample;
            const int result = stat.readProcessSample(m_progress->lastPid, true, sample);
            QVERIFY(result == 0 || result == -1);
            ++(result == 0 ? readCount : endedCount);
        }
    }
    // When the last of this process's threads has gone, the process reads whole.
    threads.reset();
    ProcessSample sample;
    QTRY_COMPARE(stat.readProcessSample(::getpid(), true, sample), 0);
    QVERIFY(sample.threads.contains(::getpid()));
}

QTEST_GUILESS_MAIN(LoadStressTest)
#include "tst_loadstress.moc"
