// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// Tells ThreadSanitizer about the order that Qt's library makes between threads. Distributions
// build Qt without instrumentation, so ThreadSanitizer does not see its mutexes and event queues.
// It would report everything that they hand over as a race. In a build with ThreadSanitizer these
// functions replace Qt's own, call them, and report the order that they make.
#include "qtsynchronisation.h"

#ifdef __SANITIZE_THREAD__

#include <QDeadlineTimer>
#include <QMetaMethod>
#include <QMutex>
#include <QObject>
#include <QThread>
#include <QWaitCondition>

#include <dlfcn.h>
#include <sanitizer/tsan_interface.h>

namespace {

// Stands for all event queues. One for each queue might show a race that this one hides. Data that
// no queue hands over is found in both cases.
char eventQueues;

template <typename Function>
Function qtFunction(const char *mangledName)
{
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, mangledName));
}

} // namespace

void QMutex::lock() QT_MUTEX_LOCK_NOEXCEPT
{
    static const auto qt = qtFunction<void (*)(QMutex *)>("_ZN6QMutex4lockEv");
    qt(this);
    __tsan_acquire(this);
}

void QMutex::unlock() noexcept
{
    static const auto qt = qtFunction<void (*)(QMutex *)>("_ZN6QMutex6unlockEv");
    __tsan_release(this);
    qt(this);
}

bool QWaitCondition::wait(QMutex *mutex, QDeadlineTimer deadline)
{
    static const auto qt = qtFunction<bool (*)(QWaitCondition *, QMutex *, QDeadlineTimer)>(
        "_ZN14QWaitCondition4waitEP6QMutex14QDeadlineTimer");
    __tsan_release(mutex);
    const bool woken = qt(this, mutex, deadline);
    __tsan_acquire(mutex);
    return woken;
}

bool QThread::wait(QDeadlineTimer deadline)
{
    static const auto qt =
        qtFunction<bool (*)(QThread *, QDeadlineTimer)>("_ZN7QThread4waitE14QDeadlineTimer");
    const bool finished = qt(this, deadline);
    __tsan_acquire(&eventQueues);
    return finished;
}

void QObject::deleteLater()
{
    static const auto qt = qtFunction<void (*)(QObject *)>("_ZN7QObject11deleteLaterEv");
    __tsan_release(&eventQueues);
    qt(this);
}

// Every signal, queued or direct, passes here.
void QMetaObject::activate(QObject *sender, const QMetaObject *mo, int local_signal_index,
                           void **argv)
{
    static const auto qt = qtFunction<void (*)(QObject *, const QMetaObject *, int, void **)>(
        "_ZN11QMetaObject8activateEP7QObjectPKS_iPPv");
    __tsan_release(&eventQueues);
    qt(sender, mo, local_signal_index, argv);
}

// Every call by name passes here. After a blocking call the receiver's order comes back.
bool QMetaObject::invokeMethod(QObject *obj, const char *member, Qt::ConnectionType type,
                               QGenericReturnArgument ret, QGenericArgument val0,
                               QGenericArgument val1, QGenericArgument val2, QGenericArgument val3,
                               QGenericArgument val4, QGenericArgument val5, QGenericArgument val6,
                               QGenericArgument val7, QGenericArgument val8, QGenericArgument val9)
{
    using Function = bool (*)(
        QObject *, const char *, Qt::ConnectionType, QGenericReturnArgument, QGenericArgument,
        QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument,
        QGenericArgument, QGenericArgument, QGenericArgument, QGenericArgument);
    static const auto qt = qtFunction<Function>(
        "_ZN11QMetaObject12invokeMethodEP7QObjectPKcN2Qt14ConnectionTypeE22QGenericReturnArgument"
        "16QGenericArgumentS7_S7_S7_S7_S7_S7_S7_S7_S7_");
    __tsan_release(&eventQueues);
    const bool called =
        qt(obj, member, type, ret, val0, val1, val2, val3, val4, val5, val6, val7, val8, val9);
    __tsan_acquire(&eventQueues);
    return called;
}

// Every event of every thread passes here before its receiver gets it.
bool SynchronisedApplication::notify(QObject *receiver, QEvent *event)
{
    __tsan_acquire(&eventQueues);
    const bool handled = QCoreApplication::notify(receiver, event);
    __tsan_release(&eventQueues);
    return handled;
}

#endif
