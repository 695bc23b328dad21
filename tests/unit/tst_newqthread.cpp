// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "common/checkedconnect.h"
#include "emulation.h"
#include "load/newqthread.h"
#include "load/systemloadstat.h"
#include "qtsynchronisation.h"

#include <QDir>
#include <QPointer>
#include <QProcess>
#include <QScopedPointer>
#include <QSemaphore>
#include <QtTest>

#include <atomic>
#include <thread>
#include <utility>

#include <grp.h>
#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

namespace {

constexpr uid_t nobody = 65534;
const char unprivilegedRun[] = "--unprivileged-run";

/** A worker that notes where and from what it was constructed. */
class Worker : public QObject
{
    Q_OBJECT

public:
    explicit Worker(int number = 0, QString text = QString())
        : constructedOn(QThread::currentThread()), number(number), text(std::move(text))
    { }

    QThread *const constructedOn;
    const int number;
    const QString text;
    QThread *calledOn = nullptr;

public slots:
    void call() { calledOn = QThread::currentThread(); }
};

/** A worker whose construction takes until somebody else allows its end. */
class SlowWorker : public QObject
{
public:
    SlowWorker(QSemaphore *begun, QSemaphore *mayEnd)
    {
        begun->release();
        mayEnd->acquire();
    }
};

/** Takes the load watcher's signals on its own thread, as the supervisor does; a spy would not. */
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

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The threads of this process that have this name.
QList<pid_t> threadsNamed(const QByteArray &name)
{
    QList<pid_t> threads;
    const QStringList ids =
        QDir(QStringLiteral("/proc/self/task")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &id : ids) {
        if (contentOf(QStringLiteral("/proc/self/task/%1/comm").arg(id)) == name + '\n')
            threads += id.toInt();
    }
    return threads;
}

/** Ends the thread of a worker, and the worker with it, as nothing in the program does. */
template <typename T>
void end(T *worker)
{
    const QPointer<QThread> thread = worker->thread();
    worker->deleteLater();
    thread->quit();
    QTRY_VERIFY(thread.isNull());
}

int watch(SystemLoadStat *stat, const QString &name, int notFoundPeriod)
{
    int id = -1;
    const bool called = QMetaObject::invokeMethod(
        stat, "do_watchProcessLoad", Qt::BlockingQueuedConnection, Q_RETURN_ARG(int, id),
        Q_ARG(QString, name), Q_ARG(QStringList, QStringList()), Q_ARG(int, 1), Q_ARG(int, 0),
        Q_ARG(bool, true), Q_ARG(int, notFoundPeriod));
    return called ? id : -1;
}

// Whether a thread of this process may be given real-time scheduling; tried on one of its own.
bool mayRunInRealTime()
{
    bool allowed = false;
    std::thread([&allowed] {
        sched_param parameters = {};
        parameters.sched_priority = ::sched_get_priority_max(SCHED_RR);
        allowed = ::sched_setscheduler(0, SCHED_RR, &parameters) == 0;
    }).join();
    return allowed;
}

// A name for this process that another run of this test on the same machine does not have.
void takeOwnName()
{
    pynxSetThreadName(QStringLiteral("test-%1").arg(::getpid()));
}

// What another user's process with no right to real time goes through: exit code 0 when the load
// watcher worked all the same.
int runUnprivileged()
{
    const rlimit none = {0, 0};
    const bool dropped = ::setrlimit(RLIMIT_RTPRIO, &none) == 0
        && (::getuid() != 0 || (::setgroups(0, nullptr) == 0 && ::setuid(nobody) == 0));
    if (!dropped || mayRunInRealTime())
        return 2;
    takeOwnName();
    SystemLoadStat *stat = NewQThread<SystemLoadStat>::create(QStringLiteral("SystemLoad"));
    watch(stat, QString::fromUtf8(contentOf(QStringLiteral("/proc/self/comm")).trimmed()), 0);
    const Receiver receiver(stat);
    QMetaObject::invokeMethod(stat, "do_start");
    return QTest::qWaitFor([&receiver] { return !receiver.alarms.isEmpty(); }, 30000) ? 0 : 1;
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
    void threadBearsTheName_data();
    void threadBearsTheName();
    void threadDeletesItselfAndNotTheWorker();
    void manyAtOnce();

    void loadWatcherAnswersAcrossThreads();
    void loadWatcherRunsInRealTimeAlone();
    void loadWatcherWorksWithoutPrivilege();
};

void NewQThreadTest::initTestCase()
{
    takeOwnName();
}

void NewQThreadTest::workerLivesOnTheNewThread()
{
    Worker *worker = NewQThread<Worker>::create(QStringLiteral("worker"));
    QVERIFY(worker != nullptr);
    QVERIFY(worker->thread() != QThread::currentThread());
    QCOMPARE(worker->constructedOn, worker->thread());
    QVERIFY(worker->parent() == nullptr);
    QVERIFY(worker->thread()->isRunning());
    // The thread object is its creator's.
    QCOMPARE(worker->thread()->thread(), QThread::currentThread());
    QVERIFY(worker->thread()->parent() == nullptr);
    // Its event loop runs.
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
        worker->thread()->moveToThread(home); // this one has no event loop to delete it
        worker->thread()->quit();
        worker->thread()->wait();
        delete worker;
    });
    begun.acquire();
    QCOMPARE(threadsNamed("slow").size(), 1); // the name comes first
    QVERIFY(!returned);
    mayEnd.release();
    QTRY_VERIFY(returned);
    creator.join();
}

void NewQThreadTest::threadBearsTheName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("kernelName");

    QTest::newRow("short") << QStringLiteral("SystemLoad") << QByteArray("SystemLoad");
    QTest::newRow("as long as the kernel takes it")
        << QStringLiteral("fifteen letters") << QByteArray("fifteen letters");
    QTest::newRow("cut by the kernel")
        << QStringLiteral("sixteen letters!") << QByteArray("sixteen letters");
}

void NewQThreadTest::threadBearsTheName()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, kernelName);
    const QByteArray ownName = contentOf(QStringLiteral("/proc/self/comm"));
    Worker *worker = NewQThread<Worker>::create(name);
    QCOMPARE(threadsNamed(kernelName).size(), 1);
    QVERIFY(!threadsNamed(kernelName).contains(::getpid()));
    QCOMPARE(contentOf(QStringLiteral("/proc/self/comm")), ownName);
    end(worker);
    // The kernel's thread ends a moment after the thread object is finished.
    QTRY_COMPARE(threadsNamed(kernelName).size(), 0);
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
        QString::fromUtf8(contentOf(QStringLiteral("/proc/self/comm")).trimmed());
    QCOMPARE(watch(stat, ownName, 1), 0);
    QCOMPARE(watch(stat, QStringLiteral("nobody at all"), 1), 1);
    QVERIFY(QMetaObject::invokeMethod(stat, "do_start"));
    QTRY_VERIFY_WITH_TIMEOUT(!receiver.alarms.isEmpty() && !receiver.absences.isEmpty(), 30000);
    QCOMPARE(receiver.alarms.first(), 0);
    QCOMPARE(receiver.absences, QList<int>{1});
    QVERIFY(receiver.lines.first().contains(
        QStringLiteral("Process:%1 (%2) cpu load is : 0 for 1 seconds ")
            .arg(ownName)
            .arg(getpid())));
    // Both its own threads are there, the watching one too.
    QCOMPARE(receiver.lines.filter(QStringLiteral(" thread name:SystemLoad load:")).size(), 1);
    QCOMPARE(receiver.lines.filter(QStringLiteral(" thread name:%1 load:").arg(ownName)).size(), 1);

    // Entries come and go while it runs.
    QVERIFY(QMetaObject::invokeMethod(stat, "do_removeProcessLoad", Q_ARG(int, 0)));
    QCOMPARE(watch(stat, ownName, 1), 2);
    QTRY_VERIFY_WITH_TIMEOUT(receiver.alarms.last() == 2, 30000);
    QVERIFY(receiver.isOnItsThread);
    QVERIFY(QMetaObject::invokeMethod(stat, "do_stop"));
    end(stat);
}

void NewQThreadTest::loadWatcherRunsInRealTimeAlone()
{
    if (!mayRunInRealTime())
        QSKIP("real-time scheduling is not allowed here");
    const int ownPolicy = ::sched_getscheduler(0);
    SystemLoadStat *stat = NewQThread<SystemLoadStat>::create(QStringLiteral("SystemLoad"));
    QTRY_COMPARE(threadsNamed("SystemLoad").size(), 1); // the previous test's may not be gone yet
    const pid_t thread = threadsNamed("SystemLoad").value(0);
    QCOMPARE(::sched_getscheduler(thread), SCHED_RR);
    sched_param parameters = {};
    QCOMPARE(::sched_getparam(thread, &parameters), 0);
    QCOMPARE(parameters.sched_priority, ::sched_get_priority_max(SCHED_RR));

    QCOMPARE(ownPolicy, SCHED_OTHER);
    QCOMPARE(::sched_getscheduler(0), ownPolicy);
    // Nor is it handed on to a thread that is made later.
    Worker *worker = NewQThread<Worker>::create(QStringLiteral("made later"));
    QCOMPARE(::sched_getscheduler(threadsNamed("made later").value(0)), ownPolicy);
    end(worker);
    end(stat);
}

void NewQThreadTest::loadWatcherWorksWithoutPrivilege()
{
    if (runsUnderEmulation())
        QSKIP("the namespace of the emulation holds no other user");
    QProcess run;
    run.start(QCoreApplication::applicationFilePath(), {QString::fromLatin1(unprivilegedRun)});
    QVERIFY(run.waitForFinished(60000));
    QCOMPARE(run.exitStatus(), QProcess::NormalExit);
    QCOMPARE(run.readAllStandardError(), QByteArray("Cannot set priority\n"));
    QCOMPARE(run.exitCode(), 0);
}

int main(int argc, char *argv[])
{
    const SynchronisedApplication app(argc, argv);
    if (argc == 2 && qstrcmp(argv[1], unprivilegedRun) == 0) {
        const int code = runUnprivileged();
        std::fflush(nullptr);
        ::_exit(code); // as the supervisor ends: with the thread running
    }
    NewQThreadTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_newqthread.moc"
