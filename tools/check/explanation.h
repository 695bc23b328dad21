// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>
#include <QVector>

/** One setting as the supervisor will have it; a plain value. */
struct Explanation
{
    QString setting; ///< such as "log size" or "watch 1 maxLoad"
    QVariant value;  ///< the value in force; null: not known
    QString source;  ///< the document's path, "arguments:N", "default", "fixed" or "board"
    QString meaning; ///< what the supervisor does because of it, in words

    /** The explanation for people: two lines, without the end of the second. */
    QString toText() const;

    /** The explanation as one JSON object on one line, without an end of line. */
    QString toJson() const;
};

/**
 * What the supervisor will do with @p arguments and the settings in @p programDir. If it will end
 * at once, or whether it does is not known, this is the first explanation, and its setting is
 * called "start".
 */
QVector<Explanation> explain(const QStringList &arguments, const QString &programDir);

/** What the supervisor will do with the settings in @p programDir, whatever its arguments are. */
QVector<Explanation> explainSettings(const QString &programDir);
