// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/schema.h"

#include <QFile>
#include <QJsonDocument>

#include <valijson/adapters/qtjson_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validator.hpp>

// The macro may not stand in a namespace. A static library needs the call.
static void makeSchemasKnown()
{
    Q_INIT_RESOURCE(schemas);
}

namespace {

using Kind = SchemaError::Kind;

JsonPath pathOf(const std::vector<std::string> &context)
{
    JsonPath path;
    for (std::size_t i = 1; i < context.size(); ++i) { // the first is "<root>", others are "[NAME]"
        const QString step = QString::fromStdString(context[i]);
        path.append(step.mid(1, step.size() - 2));
    }
    return path;
}

} // namespace

Schema::Schema(const QString &name)
{
    makeSchemasKnown();
    QFile file(QStringLiteral(":/schemas/%1.schema.json").arg(name));
    const bool opened = file.open(QIODevice::ReadOnly);
    Q_ASSERT(opened);
    m_schema = QJsonDocument::fromJson(file.readAll()).object();
}

// The validator says in words what is wrong. It names only the first unknown member of an object,
// and it repeats for all values around a wrong one that they are wrong.
QVector<SchemaError> Schema::errors(const QJsonValue &document) const
{
    valijson::Schema schema;
    valijson::SchemaParser parser;
    parser.populateSchema(valijson::adapters::QtJsonAdapter(QJsonValue(m_schema)), schema);
    valijson::ValidationResults results;
    valijson::Validator().validate(schema, valijson::adapters::QtJsonAdapter(document), &results);

    QVector<SchemaError> errors;
    for (const valijson::ValidationResults::Error &result : results) {
        const QString said = QString::fromStdString(result.description);
        const JsonPath path = pathOf(result.context);
        if (said.startsWith(QLatin1String("Failed to validate"))) {
            continue;
        }
        if (said.startsWith(QLatin1String("Value type"))) {
            errors.append({Kind::Type, path});
        } else if (said.startsWith(QLatin1String("Missing required"))) {
            errors.append(
                {Kind::MissingMember, path + JsonPath{said.section(QLatin1Char('\''), 1, 1)}});
        } else if (said.startsWith(QLatin1String("Object contains"))) {
            errors.append({Kind::UnknownMember, path});
        } else {
            errors.append({Kind::Value, path});
        }
    }
    return errors;
}

QStringList Schema::memberNames(const JsonPath &path) const
{
    return at(path).value(QLatin1String("properties")).toObject().keys();
}

QString Schema::type(const JsonPath &path) const
{
    return at(path).value(QLatin1String("type")).toString();
}

QJsonObject Schema::at(const JsonPath &path) const
{
    QJsonObject schema = m_schema;
    for (const QString &step : path) {
        const QJsonObject members = schema.value(QLatin1String("properties")).toObject();
        if (schema.contains(QLatin1String("items")))
            schema = schema.value(QLatin1String("items")).toObject();
        else if (members.contains(step))
            schema = members.value(step).toObject();
        else
            schema = schema.value(QLatin1String("additionalProperties")).toObject();
    }
    return schema;
}

bool isComment(const QString &name)
{
    return name.startsWith(QLatin1Char('$')) || name.startsWith(QLatin1Char('_'));
}
