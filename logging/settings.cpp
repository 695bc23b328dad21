// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "logging/settings.h"

#include "platform/pynx_api.h"

#include <QFile>
#include <QTextStream>

QVariant readSettings(const QString &name, const QString &programDir)
{
    QVariant site = readSettingsFile(programDir + QStringLiteral("/settings/") + name);
    if (!site.isNull())
        return site;
    return readSettingsFile(programDir + QStringLiteral("/settings-default/") + name);
}

QVariant readSettingsFile(const QString &path)
{
    // The error is not examined. A text that cannot be parsed is no object and has no payload, so
    // it is ignored without a message (kept-behaviour.md: silent-settings).
    PynxError error;
    const QVariantHash top =
        PynxJson::parse(readSettingsText(path).toUtf8(), error, nullptr).toHash();
    const QVariantHash envelope = top.value(QStringLiteral("value")).toHash();
    const QString typeName = envelope.value(QStringLiteral("type")).toString();
    return envelope.value(typeName);
}

QString readSettingsText(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return QString();
    QTextStream stream(&file);
    stream.setCodec("UTF-8"); // the default follows the locale, on a device often "C"
    return stream.readAll();
}

QStringList toStrings(const QVariantList &values)
{
    QStringList strings;
    for (const QVariant &value : values)
        strings.append(value.toString());
    return strings;
}

QString logFileSizeText(const QString &confName, const QString &programDir)
{
    const QVariantHash doc =
        readSettings(PynxSystemManagerLogFilesSizeConfigPath().base(), programDir).toHash();
    return doc.contains(confName)
        ? doc.value(confName).toString()
        : doc.value(QStringLiteral("default"), QStringLiteral("0")).toString();
}

quint32 logFileSizeFromConf(const QString &confName, const QString &programDir)
{
    return static_cast<quint32>(parseSize(logFileSizeText(confName, programDir)));
}

qint32 parseSize(const QString &text)
{
    const QString lower = text.toLower();
    // An empty text fails the assertion of at() (kept-behaviour.md: empty-size).
    const QChar suffix = lower.at(lower.size() - 1);
    quint32 factor = 1;
    if (suffix == QLatin1Char('k'))
        factor = 1024;
    else if (suffix == QLatin1Char('m'))
        factor = 1048576;
    // The last character is always dropped, because command lines and documents are written for
    // this: "10240" means 1024 bytes (kept-behaviour.md: size-suffix).
    const int number = lower.leftRef(lower.size() - 1).toInt();
    // The product wraps, which only unsigned numbers may do.
    return static_cast<qint32>(factor * static_cast<quint32>(number));
}
