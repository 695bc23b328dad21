// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "logging/reportmarkers.h"

#include <QStringList>

#include <cstring>

namespace {

constexpr char fileMarker[] = "==Report file:";
constexpr char textMarker[] = "==Report==";

// The line of `chunk` from `start` on, without any `marker` in it.
QString textAfter(const QByteArray &chunk, int start, const char *marker)
{
    const int lineFeed = chunk.indexOf('\n', start);
    const QByteArray line = chunk.mid(start, lineFeed == -1 ? -1 : lineFeed - start);
    // The text ends at a NUL byte.
    const auto size = ::strnlen(line.constData(), static_cast<std::size_t>(line.size()));
    return QString::fromUtf8(line.constData(), static_cast<int>(size))
        .remove(QLatin1String(marker));
}

} // namespace

ReportRequest findReportRequest(const QByteArray &chunk)
{
    ReportRequest request;
    const int fileStart = chunk.indexOf(fileMarker);
    if (fileStart != -1) {
        const QStringList parts =
            textAfter(chunk, fileStart, fileMarker).split(QStringLiteral("=="));
        request.file = parts.at(0);
        request.str = parts.value(1);
    }
    const int textStart = chunk.indexOf(textMarker);
    if (textStart != -1)
        request.str = textAfter(chunk, textStart, textMarker);
    return request;
}
