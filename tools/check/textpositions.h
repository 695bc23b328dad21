// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QHash>
#include <QPair>
#include <QString>
#include <QStringList>
#include <QVector>

/**
 * The names of the members on the way from the top of a document to a value, and for an element its
 * number, such as {"value", "list", "0", "name"}.
 */
using JsonPath = QStringList;

/** Where the values of a JSON text stand. All offsets are in bytes from its beginning. */
class TextPositions
{
public:
    /** A member that another one of the same name, later in its object, takes the place of. */
    struct Overridden
    {
        QString name;
        int key; ///< the beginning of its name
    };

    TextPositions() = default;

    /**
     * Finds the positions in @p json. In a text that offends against the standard, as the
     * supervisor accepts some, only those before the offence are found.
     */
    explicit TextPositions(const QByteArray &json);

    /**
     * The beginning of the value at @p path, or of the nearest value around it that was found.
     */
    int value(const JsonPath &path) const;

    /** The same for the name of a member. An element begins at its value. */
    int key(const JsonPath &path) const;

    QVector<Overridden> overridden() const { return m_overridden; }

    int errorOffset() const { return m_errorOffset; } ///< where the text offends; -1: nowhere
    QString error() const { return m_error; }

private:
    friend class PositionRecorder;

    struct Entry
    {
        int key;
        int value;
    };

    Entry find(const JsonPath &path) const;

    // Each value has a number, from 0 for the top. A child is found by the number of its parent and
    // its own name, so that the memory does not grow with the depth.
    QVector<Entry> m_entries;
    QHash<QPair<int, QString>, int> m_children;
    QVector<Overridden> m_overridden;
    int m_errorOffset = -1;
    QString m_error;
};
