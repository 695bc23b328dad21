// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "common/checkedconnect.h"

#include <QtTest>

// Nobody tells the meta type system of this one.
struct Unknown
{
    int number = 0;
};

// This one is declared, and registered when a connection first needs it.
struct Declared
{
    int number = 0;
};
Q_DECLARE_METATYPE(Declared)

class Sender : public QObject
{
    Q_OBJECT

signals:
    void plain(const QString &, int);
    void unknown(const Unknown &);
    void unknownLast(int, const Unknown &);
    void declared(const Declared &);
};

class Receiver : public QObject
{
    Q_OBJECT

public:
    QStringList calls;
    QThread *calledOn = nullptr;

public slots:
    void onPlain(const QString &text, int number)
    {
        calls << text + QString::number(number);
        calledOn = QThread::currentThread();
    }
    void onUnknown(const Unknown &value) { calls << QString::number(value.number); }
    void onNumber(int number) { calls << QString::number(number); }
    void onDeclared(const Declared &value) { calls << QString::number(value.number); }
    void onTimeout() { calls << QStringLiteral("timeout"); }
    void endOfStory() { }
};

// A receiver on a thread of its own.
class RemoteReceiver
{
public:
    RemoteReceiver()
    {
        m_receiver.moveToThread(&m_thread);
        m_thread.start();
    }
    ~RemoteReceiver() { stop(); }
    RemoteReceiver(const RemoteReceiver &) = delete;
    RemoteReceiver &operator=(const RemoteReceiver &) = delete;

    Receiver *receiver() { return &m_receiver; }
    QThread *thread() { return &m_thread; }

    // What it was called with so far; it gets no calls from then on.
    QStringList takeCalls()
    {
        // Queued behind all that was queued before.
        QMetaObject::invokeMethod(&m_receiver, "endOfStory", Qt::BlockingQueuedConnection);
        stop();
        return m_receiver.calls;
    }

private:
    void stop()
    {
        m_thread.quit();
        m_thread.wait();
    }

    QThread m_thread;
    Receiver m_receiver;
};

class CheckedConnectTest : public QObject
{
    Q_OBJECT

private slots:
    void connects();
    void takesAConnectionType();
    void nullSenderIsFatal();
    void nullReceiverIsFatal();
    void refusedConnectionIsFatal();
    void unknownTypeWillDoInOneThread();
    void unknownTypeAcrossThreadsIsFatal();
    void unknownTypeInAnyPlaceIsFatal();
    void unknownTypeIsFatalEvenWhenTheSlotLeavesItOut();
    void knownTypesCrossThreads();
    void declaredTypeCrossesThreads();
    void privateSignalCrossesThreads();
};

void CheckedConnectTest::connects()
{
    Sender sender;
    Receiver receiver;
    checkedConnect(&sender, &Sender::plain, &receiver, &Receiver::onPlain);
    emit sender.plain(QStringLiteral("a"), 1);
    emit sender.plain(QStringLiteral("b"), 2);
    QCOMPARE(receiver.calls, QStringList({QStringLiteral("a1"), QStringLiteral("b2")}));
}

void CheckedConnectTest::takesAConnectionType()
{
    Sender sender;
    Receiver receiver;
    checkedConnect(&sender, &Sender::plain, &receiver, &Receiver::onPlain, Qt::QueuedConnection);
    emit sender.plain(QStringLiteral("a"), 1);
    QCOMPARE(receiver.calls, QStringList());
    QCoreApplication::processEvents();
    QCOMPARE(receiver.calls, QStringList(QStringLiteral("a1")));
}

void CheckedConnectTest::nullSenderIsFatal()
{
    const ChildResult result = runInChild([] {
        Receiver receiver;
        checkedConnect(static_cast<Sender *>(nullptr), &Sender::plain, &receiver,
                       &Receiver::onPlain);
    });
    QVERIFY(result.failedAssertion("connection"));
}

void CheckedConnectTest::nullReceiverIsFatal()
{
    const ChildResult result = runInChild([] {
        Sender sender;
        checkedConnect(&sender, &Sender::plain, static_cast<Receiver *>(nullptr),
                       &Receiver::onPlain);
    });
    QVERIFY(result.failedAssertion("connection"));
}

void CheckedConnectTest::refusedConnectionIsFatal()
{
    const ChildResult result = runInChild([] {
        Sender sender;
        Receiver receiver;
        checkedConnect(&sender, &Sender::plain, &receiver, &Receiver::onPlain,
                       Qt::UniqueConnection);
        checkedConnect(&sender, &Sender::plain, &receiver, &Receiver::onPlain,
                       Qt::UniqueConnection);
    });
    QVERIFY(result.failedAssertion("connection"));
}

void CheckedConnectTest::unknownTypeWillDoInOneThread()
{
    Sender sender;
    Receiver receiver;
    checkedConnect(&sender, &Sender::unknown, &receiver, &Receiver::onUnknown);
    emit sender.unknown({7});
    QCOMPARE(receiver.calls, QStringList(QStringLiteral("7")));
}

void CheckedConnectTest::unknownTypeAcrossThreadsIsFatal()
{
    const ChildResult result = runInChild([] {
        QThread thread;
        Sender sender;
        Receiver receiver;
        receiver.moveToThread(&thread);
        checkedConnect(&sender, &Sender::unknown, &receiver, &Receiver::onUnknown);
    });
    QVERIFY(result.failedAssertion("connection"));
}

void CheckedConnectTest::unknownTypeInAnyPlaceIsFatal()
{
    const ChildResult result = runInChild([] {
        QThread thread;
        Sender sender;
        Receiver receiver;
        sender.moveToThread(&thread);
        checkedConnect(&sender, &Sender::unknownLast, &receiver, &Receiver::onNumber);
    });
    QVERIFY(result.failedAssertion("connection"));
}

// The signal's parameters count, not the slot's.
void CheckedConnectTest::unknownTypeIsFatalEvenWhenTheSlotLeavesItOut()
{
    const ChildResult result = runInChild([] {
        QThread thread;
        Sender sender;
        Receiver receiver;
        sender.moveToThread(&thread);
        checkedConnect(&sender, &Sender::unknown, &receiver, &Receiver::onTimeout);
    });
    QVERIFY(result.failedAssertion("connection"));
}

void CheckedConnectTest::knownTypesCrossThreads()
{
    Sender sender;
    RemoteReceiver remote;
    checkedConnect(&sender, &Sender::plain, remote.receiver(), &Receiver::onPlain);
    emit sender.plain(QStringLiteral("a"), 1);
    QCOMPARE(remote.takeCalls(), QStringList(QStringLiteral("a1")));
    QCOMPARE(remote.receiver()->calledOn, remote.thread());
}

void CheckedConnectTest::declaredTypeCrossesThreads()
{
    Sender sender;
    RemoteReceiver remote;
    checkedConnect(&sender, &Sender::declared, remote.receiver(), &Receiver::onDeclared);
    emit sender.declared({7});
    QCOMPARE(remote.takeCalls(), QStringList(QStringLiteral("7")));
}

// Its hidden parameter is of no type, and never passed on.
void CheckedConnectTest::privateSignalCrossesThreads()
{
    QTimer timer;
    RemoteReceiver remote;
    checkedConnect(&timer, &QTimer::timeout, remote.receiver(), &Receiver::onTimeout);
    QSignalSpy expired(&timer, &QTimer::timeout);
    timer.setSingleShot(true);
    timer.start(0);
    QVERIFY(expired.wait());
    QCOMPARE(remote.takeCalls(), QStringList(QStringLiteral("timeout")));
}

QTEST_GUILESS_MAIN(CheckedConnectTest)
#include "tst_checkedconnect.moc"
