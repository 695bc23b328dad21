// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/terminationsignals.h"

#include <QCoreApplication>
#include <QTimer>

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

namespace {

constexpr int terminationSignals[] = {SIGINT, SIGQUIT, SIGTERM};

pid_t armedProcess = 0; // 0: not armed
void (*armedHandler)(int) = nullptr;

sigset_t terminationSignalSet()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int number : terminationSignals)
        sigaddset(&set, number);
    return set;
}

void letThrough()
{
    const sigset_t set = terminationSignalSet();
    ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

void restoreDefaultActions()
{
    for (const int number : terminationSignals)
        ::signal(number, SIG_DFL);
}

void handleSignal(int number)
{
    restoreDefaultActions();
    if (::getpid() == armedProcess) {
        armedHandler(number);
    } else {
        // A child before its exec: it must not touch its copy of our state. Not raise(): where the
        // fork went round the C library, that one may still take the thread for its parent's.
        ::kill(::getpid(), number);
    }
}

} // namespace

void armTerminationSignals(void (*handler)(int))
{
    const sigset_t set = terminationSignalSet();
    ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
    armedProcess = ::getpid();
    armedHandler = handler;
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    for (const int number : terminationSignals)
        ::signal(number, handleSignal);
    QTimer::singleShot(0, QCoreApplication::instance(), letThrough);
}

void releaseTerminationSignalsInChild()
{
    if (armedProcess == 0)
        return;
    restoreDefaultActions();
    letThrough();
}
