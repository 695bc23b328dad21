// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/check/textpositions.h"

#include <QJsonObject>
#include <QJsonValue>
#include <QVector>

/** One place where a document does not fit its schema; a plain value. */
struct SchemaError
{
    enum class Kind { Type, Value, MissingMember, UnknownMember };

    Kind kind;
    JsonPath path; ///< of the value; of a missing member where it would be
};

/** What one settings document may hold, from the files in schemas/, which this program contains. */
class Schema
{
public:
    /** @param name the file's name without ".schema.json" */
    explicit Schema(const QString &name);

    QVector<SchemaError> errors(const QJsonValue &document) const;

    /** The names of the members that the object at @p path may have, without comments. */
    QStringList memberNames(const JsonPath &path) const;

    /** The type of the value at @p path as the schema calls it, such as "integer". */
    QString type(const JsonPath &path) const;

private:
    QJsonObject at(const JsonPath &path) const;

    QJsonObject m_schema;
};

/** Whether the member @p name is a comment, which no schema describes. */
bool isComment(const QString &name);
