// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// Preloaded into the program: says on standard error what the program starts, each with the time of
// CLOCK_MONOTONIC in seconds, so that it can be put in order with what others have seen. Qt's
// functions of the same names are stood in for, which the program calls from outside of Qt.
#include <QDir>
#include <QProcess>
#include <QThread>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <dlfcn.h>

namespace {

// What the program starts is none of its steps.
__attribute__((constructor)) void leaveEnvironment()
{
    ::unsetenv("LD_PRELOAD");
}

void record(const char *what, long long value)
{
    timespec now = {};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    std::fprintf(stderr, "start-up: %lld.%09ld %s %lld\n", static_cast<long long>(now.tv_sec),
                 now.tv_nsec, what, value);
    std::fflush(stderr);
}

template <typename Function>
Function next(const char *mangledName)
{
    void *function = ::dlsym(RTLD_NEXT, mangledName);
    if (function == nullptr)
        std::abort();
    return reinterpret_cast<Function>(function);
}

const char *kindOf(const QTimer &timer)
{
    return timer.isSingleShot() ? "countdown" : "timer";
}

} // namespace

void QTimer::start(int msec)
{
    record(kindOf(*this), msec);
    next<void (*)(QTimer *, int)>("_ZN6QTimer5startEi")(this, msec);
}

void QTimer::start()
{
    record(kindOf(*this), interval());
    next<void (*)(QTimer *)>("_ZN6QTimer5startEv")(this);
}

void QThread::start(Priority priority)
{
    record("thread", 0);
    next<void (*)(QThread *, Priority)>("_ZN7QThread5startENS_8PriorityE")(this, priority);
}

void QProcess::start(const QString &program, const QStringList &arguments, OpenMode mode)
{
    record("process", 0);
    next<void (*)(QProcess *, const QString &, const QStringList &, OpenMode)>(
        "_ZN8QProcess5startERK7QStringRK11QStringList6QFlagsIN9QIODevice12OpenModeFlagEE")(
        this, program, arguments, mode);
}

bool QProcess::waitForStarted(int msecs)
{
    record("wait", msecs);
    return next<bool (*)(QProcess *, int)>("_ZN8QProcess14waitForStartedEi")(this, msecs);
}

void QTimer::singleShotImpl(int msec, Qt::TimerType timerType, const QObject *receiver,
                            QtPrivate::QSlotObjectBase *slotObject)
{
    record("later", msec);
    next<void (*)(int, Qt::TimerType, const QObject *, QtPrivate::QSlotObjectBase *)>(
        "_ZN6QTimer14singleShotImplEiN2Qt9TimerTypeEPK7QObjectPN9QtPrivate15QSlotObjectBaseE")(
        msec, timerType, receiver, slotObject);
}

bool QDir::mkpath(const QString &path) const
{
    record("directory", 0);
    return next<bool (*)(const QDir *, const QString &)>("_ZNK4QDir6mkpathERK7QString")(this, path);
}
