// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "schedulingcapture.h"

#include <QMutex>
#include <QMutexLocker>

#include <cerrno>

#include <sched.h>

namespace {

struct Scheduling
{
    QMutex mutex;
    QVector<SchedulingRequest> requests;
    bool isReadable = true;
    bool isAllowed = true;
};

Scheduling &scheduling()
{
    static Scheduling instance;
    return instance;
}

} // namespace

QVector<SchedulingRequest> takeSchedulingRequests()
{
    const QMutexLocker locker(&scheduling().mutex);
    QVector<SchedulingRequest> taken;
    taken.swap(scheduling().requests);
    return taken;
}

void setSchedulingReadable(bool readable)
{
    const QMutexLocker locker(&scheduling().mutex);
    scheduling().isReadable = readable;
}

void setSchedulingAllowed(bool allowed)
{
    const QMutexLocker locker(&scheduling().mutex);
    scheduling().isAllowed = allowed;
}

// The C library's functions, in the test's own process.
extern "C" {

int sched_getparam(pid_t /*pid*/, sched_param *param) noexcept
{
    const QMutexLocker locker(&scheduling().mutex);
    if (!scheduling().isReadable) {
        errno = ESRCH;
        return -1;
    }
    param->sched_priority = 0;
    return 0;
}

int sched_setscheduler(pid_t pid, int policy, const sched_param *param) noexcept
{
    const QMutexLocker locker(&scheduling().mutex);
    scheduling().requests.append({pid, policy, param->sched_priority});
    if (!scheduling().isAllowed) {
        errno = EPERM;
        return -1;
    }
    return 0;
}
}
