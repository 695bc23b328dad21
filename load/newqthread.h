// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "common/checkedconnect.h"
#include "platform/pynx_api.h"

#include <QMutex>
#include <QMutexLocker>
#include <QString>
#include <QThread>
#include <QWaitCondition>

#include <functional>

/**
 * A thread with one worker of type @p T, which is constructed from arguments of the types @p Args.
 *
 * The worker is constructed on the new thread. It and every object that it creates therefore belong
 * to that thread without being moved. Threads are made with create(); nothing else of this class is
 * needed. The thread object deletes itself if its event loop ends. It never deletes the worker.
 */
template <typename T, typename... Args>
class NewQThread : public QThread
{
public:
    /** Prepares the thread; use create() instead. */
    explicit NewQThread(const QString &name, Args... args);
    ~NewQThread() override = default;

    /**
     * Starts a thread that the operating system knows as @p name and has it construct its worker
     * from @p args. Returns the worker once it exists. The caller is blocked until then, without a
     * time limit.
     *
     * The caller owns the worker, which lives in the new thread: use only queued calls and signals
     * to reach it. It must not be deleted before that thread has ended. Any thread.
     */
    static T *create(const QString &name, Args... args);

protected:
    void run() override;

private:
    T *m_object = nullptr;
    QWaitCondition m_objectCreated;
    QMutex m_mutex; // guards m_object until create() returns
    std::function<void()> m_creator;
};

template <typename T, typename... Args>
NewQThread<T, Args...>::NewQThread(const QString &name, Args... args)
    : m_creator([this, name, args...]() {
          pynxSetThreadName(name);
          m_object = new T(args...);
      })
{ }

template <typename T, typename... Args>
T *NewQThread<T, Args...>::create(const QString &name, Args... args)
{
    auto *thread = new NewQThread(name, args...);
    checkedConnect(thread, &QThread::finished, thread, &QObject::deleteLater);

    QMutexLocker locker(&thread->m_mutex);
    thread->start(QThread::InheritPriority);
    while (thread->m_object == nullptr)
        thread->m_objectCreated.wait(&thread->m_mutex);
    return thread->m_object;
}

template <typename T, typename... Args>
void NewQThread<T, Args...>::run()
{
    {
        // Locked during the construction, so that create() never sees an unfinished worker.
        const QMutexLocker locker(&m_mutex);
        m_creator();
        m_objectCreated.wakeAll();
    }
    exec();
}
