// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "load/threadpriority.h"
#include "schedulingcapture.h"

#include <QtTest>

#include <sched.h>
#include <unistd.h>

namespace {

// Runs it in a child, which tells how it ended: the number of requests that reached the scheduler.
ChildResult raiseInChild(bool readable, bool allowed)
{
    return runInChild([readable, allowed] {
        setSchedulingReadable(readable);
        setSchedulingAllowed(allowed);
        raiseThreadPriority();
        ::_exit(takeSchedulingRequests().size());
    });
}

} // namespace

class ThreadPriorityTest : public QObject
{
    Q_OBJECT

private slots:
    void asksForRoundRobinAtTheTopForThisThreadOnly();
    void isSilentWhenAllowed();
    void tellsWhenItIsNotAllowed();
    void leavesTheSchedulingAloneThatItCannotRead();
};

void ThreadPriorityTest::asksForRoundRobinAtTheTopForThisThreadOnly()
{
    takeSchedulingRequests();
    raiseThreadPriority();
    const QVector<SchedulingRequest> requests = takeSchedulingRequests();
    QCOMPARE(requests.size(), 1);
    QCOMPARE(requests.first().thread, 0);
    QCOMPARE(requests.first().policy, SCHED_RR);
    QCOMPARE(requests.first().priority, ::sched_get_priority_max(SCHED_RR));
}

void ThreadPriorityTest::isSilentWhenAllowed()
{
    const ChildResult result = raiseInChild(true, true);
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.standardError, QByteArray());
    QCOMPARE(result.standardOutput, QByteArray());
}

void ThreadPriorityTest::tellsWhenItIsNotAllowed()
{
    const ChildResult result = raiseInChild(true, false);
    QCOMPARE(result.exitCode, 1);
    QCOMPARE(result.standardError, QByteArray("Cannot set priority\n"));
    QCOMPARE(result.standardOutput, QByteArray());
}

void ThreadPriorityTest::leavesTheSchedulingAloneThatItCannotRead()
{
    const ChildResult result = raiseInChild(false, true);
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.standardError, QByteArray("Scheduler getparam failed...\n"));
    QCOMPARE(result.standardOutput, QByteArray());
}

QTEST_GUILESS_MAIN(ThreadPriorityTest)
#include "tst_threadpriority.moc"
