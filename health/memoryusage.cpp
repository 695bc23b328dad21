// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "health/memoryusage.h"

#include "common/errorline.h"

#include <QFile>
#include <QHash>
#include <QStringList>
#include <QTextStream>

namespace {

constexpr int kibiShift = 10;
constexpr int mebiShift = 20;

// Returns the number after the colon. It is in bytes if exactly one word, the unit, follows it.
quint64 parseValue(const QString &text)
{
    const QStringList words = text.split(QLatin1Char(' '), QString::SkipEmptyParts);
    // first() asserts that there is a word (kept-behaviour.md: memory-line).
    const quint64 number = words.first().toULong();
    if (words.size() != 2)
        return number;

    const QString unit = words.last().toLower();
    if (unit == QLatin1String("kb"))
        return number << kibiShift;
    if (unit == QLatin1String("mb"))
        return number << mebiShift;
    writeErrorLine(QStringLiteral("MemoryUsage: unrecognized unit: ") + unit);
    return number;
}

QString kibibytes(quint64 bytes)
{
    return QString::number(bytes >> kibiShift) + QStringLiteral(" kB");
}

} // namespace

MemoryUsage MemoryUsage::read(const QString &path)
{
    MemoryUsage usage;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        writeErrorLine(QStringLiteral("MemoryUsage: unable to open file: ") + path);
        return usage;
    }

    const QHash<QString, quint64 *> fields = {
        {QStringLiteral("MemTotal"), &usage.memTotal},
        {QStringLiteral("MemFree"), &usage.memFree},
        {QStringLiteral("MemAvailable"), &usage.memAvailable},
        {QStringLiteral("Buffers"), &usage.buffers},
        {QStringLiteral("Cached"), &usage.cached},
        {QStringLiteral("Slab"), &usage.slab},
    };
    QTextStream stream(&file);
    for (QString line = stream.readLine(); !line.isNull(); line = stream.readLine()) {
        const QStringList parts = line.split(QLatin1Char(':'));
        if (parts.size() != 2)
            continue;
        // Every line is parsed, whatever its key, so that an unknown unit is noticed in every line.
        const quint64 value = parseValue(parts.last());
        if (quint64 *field = fields.value(parts.first()))
            *field = value;
    }
    return usage;
}

QString MemoryUsage::reportLine(const QString &time) const
{
    // "Free" is memory that nobody uses at this moment. memAvailable would also count caches that
    // the kernel can give up. These are in the second figure, together with the kernel's own
    // memory (kept-behaviour.md: memory-figures).
    //
    // The arguments are filled in one after the other, so a place marker in the time is filled too.
    return QStringLiteral("%1 == MEMORY USAGE == Free: %2, Buffers+Cache: %3\n")
        .arg(time)
        .arg(kibibytes(memFree)) // clazy:exclude=qstring-arg
        .arg(kibibytes(buffers + cached + slab));
}
