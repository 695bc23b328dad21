// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "logging/reportmarkers.h"

#include <QStringList>

namespace {

constexpr char fileMarker[] = "==Report file:";
constexpr char textMarker[] = "==Report==";

// The line that begins with the first `marker` of `chunk`, without any `marker` in it.
QString textAfter(const QByteArray &chunk, int start, const char *marker)
{
    const int lineFeed = chunk.indexOf('\n', start);
    const QByteArray line = chunk.mid(start, lineFeed == -1 ? -1 : lineFeed - start);
    // Decoded from the C string, so that the text ends at a NUL byte.
    return QString::fromUtf8(line.constData()).remove(QLatin1String(marker));
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
