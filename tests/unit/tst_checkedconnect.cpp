// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "common/checkedconnect.h"

#include <QtTest>

// This type is not known to the meta type system.
struct Unknown
{ };

// This type is declared. Qt registers it when a connection first needs it.
struct Declared
{ };
Q_DECLARE_METATYPE(Declared)

class Sender : public QObject
{
    Q_OBJECT

signals:
    void plain(const QString &, int);
    void unknown(int, const Unknown &);
    void declared(const Declared &);
};

class Receiver : public QObject
{
    Q_OBJECT

public:
    QStringList calls;

public slots:
    void onPlain(const QString &text, int number) { calls << text + QString::number(number); }
    void onEvent() { calls << QStringLiteral("event"); }
};

class CheckedConnectTest : public QObject
{
    Q_OBJECT

private slots:
    void connects();
    void takesAConnectionType();
    void knownTypesCrossThreads();
    void unknownTypesAreFatalOnlyAcrossThreads();
    void whatCannotBeConnectedIsFatal();
};

void CheckedConnectTest::connects()
{
    Sender sender;
    Receiver receiver;
    checkedConnect(&sender, &Sender::plain, &receiver, &Receiver::onPlain);
    emit sender.plain(QStringLiteral("a"), 1);
    QCOMPARE(receiver.calls, QStringList(QStringLiteral("a1")));
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

void CheckedConnectTest::knownTypesCrossThreads()
{
    QThread thread; // objects belong to it; it need not run
    Sender sender;
    QTimer timer;
    Receiver receiver;
    sender.moveToThread(&thread);
    timer.moveToThread(&thread);
    checkedConnect(&sender, &Sender::plain, &receiver, &Receiver::onPlain);
    checkedConnect(&sender, &Sender::declared, &receiver, &Receiver::onEvent);
    // The hidden parameter of a private signal has no registered type and is never passed on.
    checkedConnect(&timer, &QTimer::timeout, &receiver, &Receiver::onEvent);
    emit sender.plain(QStringLiteral("a"), 1);
    emit sender.declared({});
    QCOMPARE(receiver.calls, QStringList({QStringLiteral("a1"), QStringLiteral("event")}));
}

// Every parameter of the signal is checked, also one that the slot leaves out.
void CheckedConnectTest::unknownTypesAreFatalOnlyAcrossThreads()
{
    Sender sender;
    Receiver receiver;
    checkedConnect(&sender, &Sender::unknown, &receiver, &Receiver::onEvent);
    emit sender.unknown(1, {});
    QCOMPARE(receiver.calls, QStringList(QStringLiteral("event")));

    QThread thread;
    sender.moveToThread(&thread);
    const ChildResult result = runInChild(
        [&] { checkedConnect(&sender, &Sender::unknown, &receiver, &Receiver::onEvent); });
    QVERIFY(result.failedAssertion("connection"));
}

void CheckedConnectTest::whatCannotBeConnectedIsFatal()
{
    Sender sender;
    Receiver receiver;
    const auto isFatal = [](Sender *from, Receiver *to) {
        return runInChild([from, to] {
                   checkedConnect(from, &Sender::plain, to, &Receiver::onPlain,
                                  Qt::UniqueConnection);
               })
            .failedAssertion("connection");
    };
    QVERIFY(isFatal(nullptr, &receiver));
    QVERIFY(isFatal(&sender, nullptr));
    QVERIFY(!isFatal(&sender, &receiver));
    checkedConnect(&sender, &Sender::plain, &receiver, &Receiver::onPlain);
    QVERIFY(isFatal(&sender, &receiver)); // a second one would not be unique
}

QTEST_GUILESS_MAIN(CheckedConnectTest)
#include "tst_checkedconnect.moc"
