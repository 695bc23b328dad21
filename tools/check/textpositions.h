// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>
#include <QStringList>
#include <QVector>

/** Where the values of a JSON text stand. All offsets are in bytes from its beginning. */
struct TextPositions
{
    /** A member or element, by its path from the top, as in "/value/list/0/name". */
    struct Entry
    {
        int key = 0;   ///< the beginning of a member's name, or of an element
        int value = 0; ///< the beginning of the value
    };

    /** A member that another one of the same name, later in its object, takes the place of. */
    struct Overridden
    {
        QString path;
        int key = 0;
    };

    QHash<QString, Entry> entries;
    QVector<Overridden> overridden;

    int errorOffset = -1; ///< where the text offends against the standard; -1: nowhere
    QString error;
};

/**
 * Finds the positions in @p json. In a text that offends against the standard, as the supervisor
 * accepts some, only those before the offence are found.
 */
TextPositions findPositions(const QByteArray &json);
