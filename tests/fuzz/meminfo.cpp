// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The kernel's file about the memory, /proc/meminfo.
#include "fuzz.h"
#include "health/memoryusage.h"
#include "inputfile.h"

#include <QRegExp>
#include <QTextStream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    static const InputFile file;
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<int>(size));
    file.write(bytes);

    // The program reads the file as text in the locale's encoding, without carriage returns.
    const QString text = QTextStream(bytes).readAll().remove(QLatin1Char('\r'));
    // A line with one colon and only blanks behind it has no number.
    static const QRegExp noNumber(QStringLiteral("(^|\n)[^:\n]*: *(\n|$)"));
    if (noNumber.indexIn(text) != -1) {
        mustAbort([] { MemoryUsage::read(file.path()); });
        return 0;
    }
    const MemoryUsage usage = MemoryUsage::read(file.path());
    const auto isThere = [&text](const char *key) { return text.contains(QLatin1String(key)); };
    Q_ASSERT(usage.memTotal == 0 || isThere("MemTotal:"));
    Q_ASSERT(usage.memFree == 0 || isThere("MemFree:"));
    Q_ASSERT(usage.memAvailable == 0 || isThere("MemAvailable:"));
    Q_ASSERT(usage.buffers == 0 || isThere("Buffers:"));
    Q_ASSERT(usage.cached == 0 || isThere("Cached:"));
    Q_ASSERT(usage.slab == 0 || isThere("Slab:"));
    return 0;
}
