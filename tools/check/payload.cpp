// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/payload.h"

#include "logging/settings.h"

#include <QFileInfo>

namespace {

constexpr qint64 largestDocument = 1024 * 1024; // bytes

// A directory, or a file that is not there, cannot be opened, which the supervisor takes as empty.
bool mayBeRead(const QString &path)
{
    const QFileInfo file(path);
    return !file.exists() || file.isDir() || (file.isFile() && file.size() <= largestDocument);
}

} // namespace

Payload readPayload(const QString &name, const QString &programDir)
{
    const QString site = programDir + QStringLiteral("/settings/") + name;
    if (!mayBeRead(site))
        return {QVariant(), site, false};
    if (!readSettingsFile(site).isNull())
        return {readSettings(name, programDir), site};
    const QString factory = programDir + QStringLiteral("/settings-default/") + name;
    if (!mayBeRead(factory))
        return {QVariant(), factory, false};
    const QVariant value = readSettings(name, programDir);
    return {value, value.isNull() ? QStringLiteral("default") : factory};
}

QStringList toStrings(const QVariantList &values)
{
    QStringList strings;
    for (const QVariant &value : values)
        strings.append(value.toString());
    return strings;
}
