// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/payload.h"

#include "logging/settings.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>

#include <unistd.h>

namespace {

// A directory, or a file that is not there, cannot be opened, which the supervisor takes as empty.
// A read of some of the kernel's files waits.
bool mayBeRead(const QString &path)
{
    if (isClosed(path))
        return false;
    const QFileInfo file(path);
    if (!file.exists() || file.isDir())
        return true;
    const QString target = file.canonicalFilePath();
    return file.isFile() && file.size() <= maxDocumentBytes
        && !target.startsWith(QLatin1String("/proc/"))
        && !target.startsWith(QLatin1String("/sys/"));
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

bool isClosed(const QString &path)
{
    return ::access(QFile::encodeName(path).constData(), R_OK) != 0 && errno == EACCES;
}
