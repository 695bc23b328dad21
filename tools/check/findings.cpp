// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/findings.h"

#include <QJsonDocument>
#include <QJsonObject>

namespace {

constexpr int longestQuoted = 120; // characters; the path of a document is shown whole

QString levelName(Finding::Level level)
{
    return level == Finding::Level::Error ? QStringLiteral("error") : QStringLiteral("warning");
}

} // namespace

QString Finding::toText() const
{
    QString text = place.file;
    if (place.line > 0)
        text += QLatin1Char(':') + QString::number(place.line);
    if (place.column > 0)
        text += QLatin1Char(':') + QString::number(place.column);
    return text + QStringLiteral(": ") + levelName(level) + QStringLiteral(": ") + message
        + QStringLiteral(" [") + rule + QLatin1Char(']');
}

QString Finding::toJson() const
{
    const auto known = [](int number) { return number > 0 ? QJsonValue(number) : QJsonValue(); };
    const QJsonObject object = {
        {QStringLiteral("file"), place.file},
        {QStringLiteral("line"), known(place.line)},
        {QStringLiteral("column"), known(place.column)},
        {QStringLiteral("level"), levelName(level)},
        {QStringLiteral("rule"), rule},
        {QStringLiteral("message"), message},
    };
    return QString::fromUtf8(QJsonDocument(object).toJson(QJsonDocument::Compact));
}

Finding error(const Place &place, const QString &rule, const QString &message)
{
    return {place, Finding::Level::Error, rule, message};
}

Finding warning(const Place &place, const QString &rule, const QString &message)
{
    return {place, Finding::Level::Warning, rule, message};
}

QString quoted(const QString &text)
{
    QString result = text.left(longestQuoted);
    for (QChar &character : result) {
        if (!character.isPrint() && !character.isSurrogate())
            character = QChar(QChar::ReplacementCharacter);
    }
    if (text.size() > longestQuoted)
        result += QStringLiteral("...");
    return QLatin1Char('"') + result + QLatin1Char('"');
}
