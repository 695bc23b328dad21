// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/check/settingsdocument.h"

/** The settings documents that the supervisor reads. */
enum class DocumentType {
    WatchList,
    AutomaticReporting,
    AutomaticReportingConf,
    MemoryReporting,
    ReportFiles,
    LogSizes
};

/** Adds to @p document what is wrong with its content, which is of @p type. */
void checkContent(SettingsDocument &document, DocumentType type);
