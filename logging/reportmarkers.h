// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

/** The report that a chunk of the application's output asks for; a plain value. */
struct ReportRequest
{
    QString file; ///< a file the report is to include; may be empty
    QString str;  ///< the report's name; empty: no report is asked for
};

/**
 * Looks for report markers in @p chunk.
 *
 * "==Report file:" PATH "==" NAME asks for a report with a file, and "==Report==" NAME for one
 * without. Each form ends with its line. Only the first of each form counts. Where both occur, the
 * file comes from the first form and the name from the second. A marker that is split over two
 * chunks is not found (kept-behaviour.md: first-marker).
 */
ReportRequest findReportRequest(const QByteArray &chunk);
