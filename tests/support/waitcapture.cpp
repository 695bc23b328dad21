// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "waitcapture.h"

#include <csignal>
#include <ctime>

#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int noLimit = -1;

QVector<int> &waits()
{
    static QVector<int> all;
    return all;
}

int toMilliseconds(const timespec &time)
{
    return static_cast<int>(time.tv_sec * 1000 + time.tv_nsec / 1000000);
}

int waitForKernel(pollfd *fds, nfds_t nfds, const timespec *timeout, const sigset_t *ss)
{
    // The kernel writes the time left into what it is given.
    timespec left = timeout != nullptr ? *timeout : timespec();
    return static_cast<int>(
        ::syscall(SYS_ppoll, fds, nfds, timeout != nullptr ? &left : nullptr, ss, _NSIG / 8));
}

} // namespace

QVector<int> takeWaits()
{
    QVector<int> taken;
    taken.swap(waits());
    return taken;
}

// The C library's functions, for every caller in the test's own process.
extern "C" {

int ppoll(pollfd *fds, nfds_t nfds, const timespec *timeout, const sigset_t *ss)
{
    waits().append(timeout != nullptr ? toMilliseconds(*timeout) : noLimit);
    return waitForKernel(fds, nfds, timeout, ss);
}

int poll(pollfd *fds, nfds_t nfds, int timeout)
{
    waits().append(timeout < 0 ? noLimit : timeout);
    const timespec limit = {timeout / 1000, timeout % 1000 * 1000000L};
    return waitForKernel(fds, nfds, timeout < 0 ? nullptr : &limit, nullptr);
}
}
