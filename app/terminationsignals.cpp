// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/terminationsignals.h"

#include <QCoreApplication>
#include <QEvent>
#include <QSocketNotifier>

#include <atomic>
#include <cerrno>
#include <csignal>

#include <sys/eventfd.h>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

constexpr int terminationSignals[] = {SIGINT, SIGQUIT, SIGTERM};

// Written before the handlers are installed, and read by them.
pid_t armedProcess = 0;
void (*armedPassOn)() = nullptr;
void (*armedHandler)(int) = nullptr;
int wakeUp = -1; // an event descriptor on which the event loop listens

// Lock-free, because a signal handler must not wait for a lock.
std::atomic<int> waitingSignal(0); // 0: none came
std::atomic<bool> loopHasTurned(false);

void restoreDefaultActions()
{
    for (const int number : terminationSignals)
        ::signal(number, SIG_DFL);
}

void handleSignal(int number)
{
    const int interruptedError = errno;
    const bool isOurs = ::getpid() == armedProcess;
    int none = 0;
    if (isOurs && waitingSignal.compare_exchange_strong(none, number)) {
        armedPassOn();
        ::eventfd_write(wakeUp, 1);
    } else if (isOurs && loopHasTurned) {
        restoreDefaultActions();
        armedHandler(number);
    } else {
        // Either a second signal came while the first waits, or this is a child before its exec.
        // The child must not use its copy of our state.
        restoreDefaultActions();
        ::kill(::getpid(), number);
    }
    errno = interruptedError;
}

// Raises the waiting signal again at the next turn of the event loop.
class Listener : public QSocketNotifier
{
public:
    explicit Listener(int descriptor)
        : QSocketNotifier(descriptor, QSocketNotifier::Read, QCoreApplication::instance())
    { }

protected:
    bool event(QEvent *event) override
    {
        if (event->type() != QEvent::SockAct)
            return QSocketNotifier::event(event);
        setEnabled(false);
        loopHasTurned = true;
        ::raise(waitingSignal);
        return true;
    }
};

} // namespace

void armTerminationSignals(void (*passOn)(), void (*handler)(int))
{
    armedProcess = ::getpid();
    armedPassOn = passOn;
    armedHandler = handler;
    wakeUp = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    new Listener(wakeUp); // owned by the application object
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    for (const int number : terminationSignals)
        ::signal(number, handleSignal);
}

bool terminationSignalCame()
{
    return waitingSignal != 0;
}
