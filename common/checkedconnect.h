// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QMetaMethod>
#include <QObject>
#include <QThread>

/**
 * Connects @p signal of @p sender to @p slot of @p receiver. The whole program connects by this
 * function.
 *
 * A connection that cannot be made is a programming error. It aborts the program with the failed
 * assertion "connection". If sender and receiver live in different threads, the call is queued, and
 * every parameter type of the signal must be a registered meta type. Qt would notice an
 * unregistered type only when the signal is emitted, and lose the call. This function aborts at
 * once.
 *
 * Call it on any thread. It changes the owner of neither object.
 */
template <typename Signal, typename Slot>
void checkedConnect(const typename QtPrivate::FunctionPointer<Signal>::Object *sender,
                    Signal signal,
                    const typename QtPrivate::FunctionPointer<Slot>::Object *receiver, Slot slot,
                    Qt::ConnectionType type = Qt::AutoConnection)
{
    bool connection = sender != nullptr && receiver != nullptr;
    if (connection && sender->thread() != receiver->thread()) {
        const QMetaMethod method = QMetaMethod::fromSignal(signal);
        for (int i = 0; i < method.parameterCount(); ++i)
            connection = connection && method.parameterType(i) != QMetaType::UnknownType;
    }
    connection = connection && QObject::connect(sender, signal, receiver, slot, type);
    Q_ASSERT(connection);
}
