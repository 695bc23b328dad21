// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVector>

/** Where something was found; a plain value. */
struct Place
{
    QString file;   ///< a path, or "arguments" or "board"
    int line = 0;   ///< from 1; the number of an argument; 0: none
    int column = 0; ///< in characters, from 1; 0: none
};

/** One mistake; a plain value. */
struct Finding
{
    enum class Level {
        Error,  ///< what is written does not take effect, or ends the supervisor
        Warning ///< it takes effect, but is hardly what was meant
    };

    Place place;
    Level level;
    QString rule; ///< a short name
    QString message;

    /** The finding as compilers write theirs, without an end of line. */
    QString toText() const;

    /** The finding as one JSON object on one line, without an end of line. */
    QString toJson() const;
};

using Findings = QVector<Finding>;

Finding error(const Place &place, const QString &rule, const QString &message);
Finding warning(const Place &place, const QString &rule, const QString &message);

/**
 * Returns @p text for a message: in double quotes, on one line, and not longer than a line. A
 * character that is not printable, such as the beginning of a terminal's command, becomes U+FFFD.
 */
QString quoted(const QString &text);
