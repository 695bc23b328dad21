// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "common/terminationsignals.h"

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
pid_t armedProcess = 0; // 0: not armed
pthread_t armedThread;
void (*armedHandler)(int) = nullptr;
int wakeUp = -1; // an event descriptor on which the event loop listens

// Lock-free, as a signal handler needs it.
std::atomic<int> openWindows(0);
std::atomic<int> waitingSignal(0); // 0: none
std::atomic<bool> signalCame(false);

void restoreDefaultActions()
{
    for (const int number : terminationSignals)
        ::signal(number, SIG_DFL);
}

void wakeEventLoop()
{
    ::eventfd_write(wakeUp, 1);
}

bool mayActNow()
{
    return openWindows > 0 && ::pthread_equal(::pthread_self(), armedThread) != 0;
}

void handleSignal(int number)
{
    if (::getpid() != armedProcess) {
        // A child before its exec: it must not touch its copy of our state. Not raise(): where the
        // fork bypassed the C library, raise() may take the thread for the parent's.
        restoreDefaultActions();
        ::kill(::getpid(), number);
        return;
    }
    const int interruptedError = errno;
    signalCame = true;
    if (mayActNow()) {
        restoreDefaultActions();
        armedHandler(number);
        wakeEventLoop(); // its quit() is forgotten when the event loop does not run yet
    } else if (waitingSignal.exchange(number) == 0) {
        wakeEventLoop();
    } else { // the second one, and the main thread is held up
        restoreDefaultActions();
        ::kill(::getpid(), number);
    }
    errno = interruptedError;
}

// The event loop's end of the event descriptor, which is never read: it is told to quit until it
// does.
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
        const TerminationWindow window;
        QCoreApplication::quit();
        return true;
    }
};

} // namespace

void armTerminationSignals(void (*handler)(int))
{
    armedProcess = ::getpid();
    armedThread = ::pthread_self();
    armedHandler = handler;
    wakeUp = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    new Listener(wakeUp); // belongs to the application object
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    for (const int number : terminationSignals)
        ::signal(number, handleSignal);
}

bool terminationSignalCame()
{
    return signalCame;
}

void releaseTerminationSignalsInChild()
{
    if (armedProcess != 0)
        restoreDefaultActions();
}

TerminationWindow::TerminationWindow()
{
    ++openWindows;
    if (const int number = waitingSignal.exchange(0))
        ::raise(number);
}

TerminationWindow::~TerminationWindow()
{
    --openWindows;
}
