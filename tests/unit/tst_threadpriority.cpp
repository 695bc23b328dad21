// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "load/threadpriority.h"

#include <QtTest>

#include <sched.h>
#include <unistd.h>

namespace {

int requests = 0;
bool isReadable = true;
bool isAllowed = true;

} // namespace

// These replace functions of the C library in the test's process, because the machine decides
// whether a thread may run in real time, and reading the parameters never fails.
extern "C" {

int sched_getparam(pid_t /*pid*/, sched_param *param) noexcept
{
    *param = {};
    return isReadable ? 0 : -1;
}

int sched_setscheduler(pid_t pid, int policy, const sched_param *param) noexcept
{
    const bool isMeant = pid == 0 // the calling thread
        && policy == SCHED_RR && param->sched_priority == ::sched_get_priority_max(SCHED_RR);
    requests += isMeant ? 1 : 100;
    return isAllowed ? 0 : -1;
}
}

class ThreadPriorityTest : public QObject
{
    Q_OBJECT

private slots:
    void asksForRoundRobinAtTheTopForThisThreadOnly_data();
    void asksForRoundRobinAtTheTopForThisThreadOnly();
};

void ThreadPriorityTest::asksForRoundRobinAtTheTopForThisThreadOnly_data()
{
    QTest::addColumn<bool>("readable");
    QTest::addColumn<bool>("allowed");
    QTest::addColumn<int>("requested");
    QTest::addColumn<QByteArray>("message");

    QTest::newRow("allowed, so it is silent") << true << true << 1 << QByteArray();
    QTest::newRow("not allowed") << true << false << 1 << QByteArray("Cannot set priority\n");
    QTest::newRow("not readable, so it is left alone")
        << false << true << 0 << QByteArray("Scheduler getparam failed...\n");
}

void ThreadPriorityTest::asksForRoundRobinAtTheTopForThisThreadOnly()
{
    QFETCH(bool, readable);
    QFETCH(bool, allowed);
    const ChildResult result = runInChild([readable, allowed] {
        isReadable = readable;
        isAllowed = allowed;
        raiseThreadPriority();
        ::_exit(requests);
    });
    QTEST(result.exitCode, "requested");
    QTEST(result.standardError, "message");
    QCOMPARE(result.standardOutput, QByteArray());
}

QTEST_GUILESS_MAIN(ThreadPriorityTest)
#include "tst_threadpriority.moc"
