// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/schemarules.h"

#include "platform/pynx_api.h"
#include "tools/check/nearestname.h"

#include <QJsonArray>

#include <algorithm>

namespace {

// A value as the supervisor has it, and what comes of it when that is 0, empty or false.
struct Reading
{
    QVariant value;
    QString consequence;

    bool isNothing() const
    {
        if (value.type() == QVariant::Int)
            return value.toInt() <= 0;
        if (value.type() == QVariant::List)
            return value.toList().isEmpty();
        return value.type() == QVariant::Bool ? false : value.toString().isEmpty();
    }

    QString text() const
    {
        QString shown = value.toString();
        if (value.type() == QVariant::List)
            shown = QStringLiteral("an empty list");
        else if (value.type() == QVariant::Hash)
            shown = QStringLiteral("an empty object");
        else if (value.type() == QVariant::String)
            shown = shown.isEmpty() ? QStringLiteral("an empty text") : quoted(shown);
        return isNothing() && !consequence.isEmpty() ? shown + QStringLiteral(": ") + consequence
                                                     : shown;
    }
};

Reading readingOfEntry(const PynxWatchdogWatchProcess &process, const QString &member)
{
    if (member == QLatin1String("name"))
        return {process.name(), QStringLiteral("no process is ever found")};
    if (member == QLatin1String("arguments"))
        return {process.arguments(), QStringLiteral("any process of this name fits")};
    if (member == QLatin1String("maxLoad"))
        return {process.maxLoad(), QStringLiteral("every load is too high")};
    if (member == QLatin1String("period"))
        return {process.period(), QStringLiteral("an alarm every second")};
    if (member == QLatin1String("threadInfo"))
        return {process.threadInfo(), QString()};
    if (member == QLatin1String("maxReports"))
        return {process.maxReports(), QStringLiteral("no alarm is ever written")};
    return {process.logFile(), QString()};
}

// How the supervisor reads the value at @p path, as its own views and Watchdog do.
Reading readingOf(const SettingsDocument &document, DocumentType type, const JsonPath &path)
{
    const QVariant content = document.content();
    const JsonPath inside = path.mid(document.contentPath().size());
    const PynxHash hash(content.toHash());
    const QString &last = path.last();
    if (path.size() <= document.contentPath().size() && path != document.contentPath())
        return {document.json(path).toVariant().toString(), QString()};
    switch (type) {
    case DocumentType::WatchList: {
        if (inside.isEmpty())
            return {content.toList(), QStringLiteral("nothing is watched")};
        const QVariant entry = content.toList().value(inside.first().toInt());
        if (inside.size() == 1)
            return {entry.toHash(), QStringLiteral("no process is ever found")};
        const PynxWatchdogWatchProcess process{PynxHash(entry.toHash())};
        if (inside.size() == 2)
            return readingOfEntry(process, last);
        return {process.arguments().value(last.toInt()).toString(), QString()};
    }
    case DocumentType::AutomaticReportingConf:
        if (last == QLatin1String("uploadPath"))
            return {PynxWatchdogReportsConfig(hash).uploadPath(),
                    QStringLiteral("the archives go to the root directory")};
        if (last == QLatin1String("uploadFilePrefix"))
            return {PynxWatchdogReportsConfig(hash).uploadFilePrefix(),
                    QStringLiteral("the archives' names begin with \"-\"")};
        return {content.toHash(), QString()};
    case DocumentType::ReportFiles:
        if (inside.isEmpty())
            return {content.toHash(), QString()};
        if (inside.size() == 1)
            return {PynxSystemLogReportConfig(hash).files(),
                    QStringLiteral("an archive holds only what was asked for")};
        return {PynxSystemLogReportConfig(hash).files().value(last.toInt()).toString(), QString()};
    case DocumentType::LogSizes:
        if (inside.isEmpty())
            return {content.toHash(), QString()};
        return {hash.value(last).toString(), QString()};
    case DocumentType::AutomaticReporting:
    case DocumentType::MemoryReporting:
        break;
    }
    return {content.toBool(), QString()};
}

// Whether the supervisor has the value that somebody means who wrote @p written.
bool isSame(const QJsonValue &written, const QVariant &read)
{
    switch (static_cast<QMetaType::Type>(read.type())) {
    case QMetaType::Int:
        return written.isString() ? written.toString() == read.toString()
                                  : written.isDouble() && written.toDouble() == read.toInt();
    case QMetaType::Bool:
        if (written.isString()) {
            static const QStringList no = {QStringLiteral("false"), QStringLiteral("0"),
                                           QStringLiteral("no"), QStringLiteral("off")};
            static const QStringList yes = {QStringLiteral("true"), QStringLiteral("1"),
                                            QStringLiteral("yes"), QStringLiteral("on")};
            return (read.toBool() ? yes : no).contains(written.toString().toLower());
        }
        return written.isBool() || written.toDouble(-1) == read.toInt();
    case QMetaType::QString:
        return written.isString() || written.isDouble() || written.isBool();
    case QMetaType::QVariantList:
        return written.isArray();
    default:
        return written.isObject();
    }
}

QString inWords(const QJsonValue &value)
{
    if (value.isString())
        return QStringLiteral("the text ") + quoted(value.toString());
    if (value.isArray())
        return QStringLiteral("a list");
    if (value.isObject())
        return QStringLiteral("an object");
    return value.isNull() ? QStringLiteral("null") : value.toVariant().toString();
}

QString typeInWords(const QString &type)
{
    if (type == QLatin1String("integer"))
        return QStringLiteral("a whole number");
    if (type == QLatin1String("boolean"))
        return QStringLiteral("true or false");
    if (type == QLatin1String("array"))
        return QStringLiteral("a list");
    return type == QLatin1String("string") ? QStringLiteral("a text") : QStringLiteral("an object");
}

QString subject(const SettingsDocument &document, const JsonPath &path)
{
    if (path == document.contentPath())
        return QStringLiteral("the content");
    return document.json(path.mid(0, path.size() - 1)).isArray() ? QStringLiteral("this")
                                                                 : quoted(path.last());
}

void checkType(SettingsDocument &document, DocumentType type, const Schema &schema,
               const JsonPath &path)
{
    const Reading reading = readingOf(document, type, path);
    const QJsonValue written = document.json(path);
    const QString is = subject(document, path) + QStringLiteral(" is ") + inWords(written);
    const Place place = document.valuePlace(path);
    const QString rule = QStringLiteral("wrong-type");
    if (isSame(written, reading.value)) {
        document.add(warning(place, rule,
                             QStringLiteral("%1 instead of %2; the supervisor reads %3")
                                 .arg(is, typeInWords(schema.type(path)), reading.text())),
                     path);
    } else {
        document.add(
            error(place, rule,
                  is + QStringLiteral(", which the supervisor reads as ") + reading.text()),
            path);
    }
}

// Without this member, a watched process has no effect at all.
bool isEssential(const QString &member)
{
    return member == QLatin1String("name") || member == QLatin1String("maxReports");
}

void checkMissing(SettingsDocument &document, DocumentType type, const JsonPath &path)
{
    const Place place = document.valuePlace(path.mid(0, path.size() - 1));
    const QString rule = QStringLiteral("missing-member");
    const QString isMissing = quoted(path.last()) + QStringLiteral(" is missing");
    if (type == DocumentType::LogSizes) {
        document.add(warning(place, rule,
                             isMissing
                                 + QStringLiteral(", so that a name that is not here means no log "
                                                  "file")));
        return;
    }
    const Reading reading = readingOf(document, type, path);
    const QString message =
        isMissing + QStringLiteral(", which the supervisor reads as ") + reading.text();
    const auto level = isEssential(path.last()) ? error : warning;
    document.add(level(place, rule, message));
}

void checkUnknown(SettingsDocument &document, const Schema &schema, const JsonPath &path)
{
    const QStringList known = schema.memberNames(path);
    const QStringList members = document.json(path).toObject().keys();
    for (const QString &member : members) {
        if (document.isFull())
            return;
        if (!known.contains(member) && !isComment(member)) {
            document.add(error(
                document.keyPlace(path + JsonPath{member}), QStringLiteral("unknown-member"),
                quoted(member) + QStringLiteral(" is passed over") + didYouMean(member, known)));
        }
    }
}

void checkValue(SettingsDocument &document, DocumentType type, const JsonPath &path)
{
    const Reading reading = readingOf(document, type, path);
    const QString &name = path.last();
    const bool isNothing = reading.isNothing();
    QString message = subject(document, path) + QStringLiteral(" is ") + reading.text();
    if (name == QLatin1String("maxLoad") && !isNothing)
        message += QStringLiteral(" percent of the time of all processors together, which a "
                                  "process hardly reaches");
    else if (!isNothing)
        message += QStringLiteral(", which is unusual");
    const auto level = isEssential(name) && isNothing ? error : warning;
    document.add(level(document.valuePlace(path), QStringLiteral("unusual-value"), message), path);
}

// What is wrong with the envelope was found before, and what stands in it unread does not count.
bool isRead(const SettingsDocument &document, const JsonPath &path)
{
    const JsonPath content = document.contentPath();
    return path == JsonPath{QStringLiteral("value"), QStringLiteral("type")}
    || (!content.isEmpty() && path.mid(0, content.size()) == content);
}

} // namespace

void checkSchema(SettingsDocument &document, DocumentType type, const Schema &schema)
{
    using Kind = SchemaError::Kind;
    QVector<SchemaError> errors = schema.errors(document.json());
    // A value of the wrong type can be out of its range, too, and is told of once.
    std::stable_sort(
        errors.begin(), errors.end(),
        [](const SchemaError &one, const SchemaError &other) { return one.kind < other.kind; });
    for (const auto *error = errors.cbegin(); error != errors.cend() && !document.isFull();
         ++error) {
        if (error->kind == Kind::UnknownMember
            && (error->path.isEmpty() || isRead(document, error->path)))
            checkUnknown(document, schema, error->path);
        else if (!isRead(document, error->path) || document.hasFinding(error->path))
            continue;
        else if (error->kind == Kind::MissingMember)
            checkMissing(document, type, error->path);
        else if (error->kind == Kind::Type)
            checkType(document, type, schema, error->path);
        else
            checkValue(document, type, error->path);
    }
}
