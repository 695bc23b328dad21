// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// A stat line of a process or thread: the reader's results are compared with those of a simple one.
#include "load/statline.h"

#include "fuzz.h"

#include <QStringList>

#include <algorithm>

namespace {

bool isAscii(char c)
{
    return static_cast<unsigned char>(c) < 0x80;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const char *const bytes = reinterpret_cast<const char *>(data);
    // The kernel writes ASCII in front of the name. The reader counts bytes there and the
    // comparison counts characters, so other text is skipped.
    if (!std::all_of(bytes, std::find(bytes, bytes + size, '('), isAscii))
        return 0;

    const StatLine line(bytes, static_cast<int>(size));
    const QString text = QString::fromUtf8(bytes, static_cast<int>(size));
    const int open = text.indexOf(QLatin1Char('('));
    const int close = text.lastIndexOf(QLatin1Char(')'));
    Q_ASSERT(line.pid() == text.leftRef(open - 1).toInt());
    Q_ASSERT(line.name() == text.mid(open + 1, close - open - 1));

    const QStringList fields = text.mid(close + 2).split(QLatin1Char(' '));
    if (fields.size() < 15) {
        mustAbort([&line] { line.record(); });
        return 0;
    }
    const StatRecord record = line.record();
    Q_ASSERT(record.pid == line.pid() && record.name == line.name());
    Q_ASSERT(record.utime == fields.at(11).toLongLong());
    Q_ASSERT(record.stime == fields.at(12).toLongLong());
    Q_ASSERT(record.cutime == fields.at(13).toLongLong());
    Q_ASSERT(record.cstime == fields.at(14).toLongLong());
    return 0;
}
