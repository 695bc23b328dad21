// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "common/checkedconnect.h"
#include "emulation.h"
#include "load/newqthread.h"
#include "load/systemloadstat.h"
#include "qtsynchronisation.h"
#include "testfiles.h"

#include <QDir>
#include <QPointer>
#include <QSemaphore>
#include <QtTest>

#include <atomic>
#include <thread>
#include <utility>

#include <sched.h>
#include <unistd.h>

namespace {

/** A worker that records the thread and the argument of its construction. */
class Worker : public QObject
{
    Q_OBJECT

public:
    explicit Worker(int number = 0, QString text = QString())
        : constructedOn(QThread::currentThread()), number(number), text(std::move(text))
    { }

    QThread *const constructedOn;
    const int policy = ::sched_getscheduler(0);
    const int number;
    const QString text;
    QThread *calledOn = nullptr;

public slots:
    void call() { calledOn = QThread::currentThread(); }
};

/** A worker whose construction lasts until another thread allows its end. */
class SlowWorker : public QObject
{
public:
    SlowWorker(QSemaphore *begun, QSemaphore *mayEnd)
    {
        begun->release();
        mayEnd->acquire();
    }
};

/** Receives the load watcher's signals on its own thread, as the supervisor does. */
class Receiver : public QObject
{
    Q_OBJECT

public:
    explicit Receiver(SystemLoadStat *stat)
    {
        checkedConnect(stat, &SystemLoadStat::cpuLoadExceed, this, &Receiver::takeAlarm);
        checkedConnect(stat, &SystemLoadStat::notFound, this, &Receiver::takeAbsence);
    }

    QList<int> alarms; // watch ids
    QList<int> absences;
    QStringList lines; // of the last alarm
    bool isOnItsThread = true;

private:
    void takeAlarm(int id, const QStringList &data)
    {
        alarms += id;
        lines = data;
        isOnItsThread = isOnItsThread && QThread::currentThread() == thread();
    }
    void takeAbsence(int id)
    {
        absences += id;
        isOnItsThread = isOnItsThread && QThread::currentThread() == thread();
    }
};

// The ids of this process's threads with this name.
QList<pid_t> threadsNamed(const QByteArray &name)
{
    QList<pid_t> threads;
    const QStringList ids =
        QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &id : ids) {
        if (readFile(QStringLiteral("/proc/self/task/%1/comm").arg(id)) == name + '\n')
            threads += id.toInt();
    }
    return threads;
}

/** Ends the thread of a worker and the worker. The program itself never does that. */
template <typename T>
void end(T *worker)
{
    const QPointer<QThread> thread = worker->thread();
    worker->deleteLater();
    thread->quit();
    QTRY_VERIFY(thread.isNull());
}

WatchEntry entryFor(const QString &name)
{
    WatchEntry entry;
    entry.name = name;
    entry.period = 1;
    entry.readThreads = true;
    entry.notFoundPeriod = 1;
    return entry;
}

} // namespace

class NewQThreadTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void workerLivesOnTheNewThread();
    void workerIsConstructedFromTheArguments();
    void createReturnsOnlyOnceTheWorkerExists();
    void threadBearsTheName();
    void threadBeginsWithItsCreatorsScheduling();
    void threadDeletesItselfAndNotTheWorker();
    void manyAtOnce();

    void loadWatcherAnswersAcrossThreads();
};

void NewQThreadTest::initTestCase()
{
    // Another run of this test on the same machine has another name.
    pynxSetThreadName(QStringLiteral("test-%1").arg(::getpid()));
}

void NewQThreadTest::workerLivesOnTheNewThread()
{
    Worker *worker = NewQThread<Worker>::create(QStringLiteral("worker"));
    QVERIFY(worker != nullptr);
    QVERIFY(worker->thread() != QThread::currentThread());
    QCOMPARE(worker->constructedOn, worker->thread());
    QVERIFY(worker->parent() == nullptr);
    QVERIFY(worker->thread()->isRunning());
    // The thread object belongs to its creator's thread.
    QCOMPARE(worker->thread()->thread(), QThread::currentThread());
    QVERIFY(worker->thread()->parent() == nullptr);
    // The event loop of the thread runs.
    QMetaObject::invokeMethod(worker, "call", Qt::BlockingQueuedConnection);
    QCOMPARE(worker->calledOn, worker->thread());
    end(worker);
}

void NewQThreadTest::workerIsConstructedFromTheArguments()
{
    Worker *worker = NewQThread<Worker, int, QString>::create(QStringLiteral("worker"), 7,
                                                              QStringLiteral("text"));
    QCOMPARE(worker->number, 7);
    QCOMPARE(worker->text, QStringLiteral("text"));
    end(worker);
}

void NewQThreadTest::createReturnsOnlyOnceTheWorkerExists()
{
    QSemaphore begun;
    QSemaphore mayEnd;
    std::atomic<bool> returned{false};
    QThread *home = QThread::currentThread();
    std::thread creator([&] {
        SlowWorker *worker = NewQThread<SlowWorker, QSemaphore *, QSemaphore *>::create(
            QStringLiteral("slow"), &begun, &mayEnd);
        returned = true;
        worker->thread()->moveToThread(home); // this thread has no event loop to delete it
        worker->thread()->quit();
        worker->thread()->wait();
        delete worker;
    });
    begun.acquire();
    QCOMPARE(threadsNamed("slow").size(), 1); // the thread has its name before the worker
    QVERIFY(!returned);
    mayEnd.release();
    QTRY_VERIFY(returned);
    creator.join();
}

void NewQThreadTest::threadBearsTheName()
{
    const QByteArray ownName = readFile(QStringLiteral("/proc/self/comm"));
    Worker *worker = NewQThread<Worker>::create(QStringLiteral("worker thread"));
    QCOMPARE(threadsNamed("worker thread").size(), 1);
    QVERIFY(!threadsNamed("worker thread").contains(::getpid()));
    QCOMPARE(readFile(QStringLiteral("/proc/self/comm")), ownName);
    end(worker);
}

void NewQThreadTest::threadBeginsWithItsCreatorsScheduling()
{
    const sched_param parameters = {};
    QCOMPARE(::sched_setscheduler(0, SCHED_BATCH, &parameters), 0); // needs no privilege
    Worker *worker = NewQThread<Worker>::create(QStringLiteral("worker"));
    QCOMPARE(::sched_setscheduler(0, SCHED_OTHER, &parameters), 0);
    QCOMPARE(worker->policy, SCHED_BATCH);
    end(worker);
}

void NewQThreadTest::threadDeletesItselfAndNotTheWorker()
{
    const QPointer<Worker> worker = NewQThread<Worker>::create(QStringLiteral("worker"));
    const QPointer<QThread> thread = worker->thread();
    thread->quit();
    QTRY_VERIFY(thread.isNull());
    QVERIFY(!worker.isNull());
    delete worker.data();
}

void NewQThreadTest::manyAtOnce()
{
    QList<Worker *> workers;
    for (int i = 0; i < 50; ++i)
        workers += NewQThread<Worker, int>::create(QStringLiteral("worker %1").arg(i), i);
    QSet<QThread *> threads;
    for (int i = 0; i < workers.size(); ++i) {
        QCOMPARE(workers.at(i)->number, i);
        QCOMPARE(threadsNamed("worker " + QByteArray::number(i)).size(), 1);
        threads += workers.at(i)->thread();
    }
    QCOMPARE(threads.size(), workers.size());
    for (Worker *worker : qAsConst(workers))
        end(worker);
}

void NewQThreadTest::loadWatcherAnswersAcrossThreads()
{
    if (runsUnderEmulation())
        QSKIP("what the emulation shows of this process in /proc has neither name nor times");
    SystemLoadStat *stat = NewQThread<SystemLoadStat>::create(QStringLiteral("SystemLoad"));
    const Receiver receiver(stat);
    const QString ownName =
        QString::fromUtf8(readFile(QStringLiteral("/proc/self/comm")).trimmed());
    QCOMPARE(watch(stat, entryFor(ownName)), 0);
    QCOMPARE(watch(stat, entryFor(QStringLiteral("nobody at all"))), 1);
    QVERIFY(QMetaObject::invokeMethod(stat, "do_start"));
    QTRY_VERIFY_WITH_TIMEOUT(!receiver.alarms.isEmpty() && !receiver.absences.isEmpty(), 30000);
    QCOMPARE(receiver.alarms.first(), 0);
    QCOMPARE(receiver.absences, QList<int>{1});
    QVERIFY(receiver.lines.first().contains(
        QStringLiteral("Process:%1 (%2) cpu load is : 0 for 1 seconds ")
            .arg(ownName)
            .arg(getpid())));
    // The alarm lists the process's two threads, the watching one included.
    QCOMPARE(receiver.lines.filter(QStringLiteral(" thread name:SystemLoad load:")).size(), 1);
    QCOMPARE(receiver.lines.filter(QStringLiteral(" thread name:%1 load:").arg(ownName)).size(), 1);

    // Entries are added and removed while it runs.
    QVERIFY(QMetaObject::invokeMethod(stat, "do_removeProcessLoad", Q_ARG(int, 0)));
    QCOMPARE(watch(stat, entryFor(ownName)), 2);
    QTRY_VERIFY_WITH_TIMEOUT(receiver.alarms.last() == 2, 30000);
    QVERIFY(receiver.isOnItsThread);
    QVERIFY(QMetaObject::invokeMethod(stat, "do_stop"));
    end(stat);
}

int main(int argc, char *argv[])
{
    const SynchronisedApplication app(argc, argv);
    NewQThreadTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_newqthread.moc"
