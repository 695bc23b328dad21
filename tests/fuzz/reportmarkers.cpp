// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// A piece of the application's output, in which report markers are looked for.
#include "logging/reportmarkers.h"

#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    // No NUL byte follows a chunk of output.
    const auto chunk =
        QByteArray::fromRawData(reinterpret_cast<const char *>(data), static_cast<int>(size));
    const ReportRequest request = findReportRequest(chunk);
    const bool asksWithFile = chunk.contains("==Report file:");
    const bool asksWithout = chunk.contains("==Report==");
    Q_ASSERT(request.file.isEmpty() || asksWithFile);
    Q_ASSERT(request.str.isEmpty() || asksWithFile || asksWithout);
    for (const QString &text : {request.file, request.str})
        Q_ASSERT(!text.contains(QLatin1Char('\n')) && !text.contains(QChar::Null));

    // Only the first marker of each kind counts.
    ReportRequest longer = findReportRequest(chunk + "\n==Report file:second==second\n");
    Q_ASSERT(!asksWithFile || (longer.file == request.file && longer.str == request.str));
    longer = findReportRequest(chunk + "\n==Report==second\n");
    Q_ASSERT(longer.file == request.file);
    Q_ASSERT(longer.str == (asksWithout ? request.str : QStringLiteral("second")));
    return 0;
}
