// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QMetaMethod>
#include <QObject>
#include <QThread>

/**
 * Connects @p signal of @p sender to @p slot of @p receiver; the only way this program connects.
 *
 * A connection that cannot be made is a programming error, never a condition of the run: it aborts
 * the program with the failed assertion "connection". Where sender and receiver live in different
 * threads the call will be queued, so every parameter type of the signal must be a registered meta
 * type; an unregistered one would be noticed only when the signal is first emitted, and the call
 * lost, so it aborts here too.
 *
 * Call it on any thread; neither object changes its owner.
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
