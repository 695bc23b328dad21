// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/check/findings.h"

/** Checks the settings document at @p path, which its file name tells the meaning of. */
Findings checkDocument(const QString &path);

/**
 * Checks all documents in "settings" and "settings-default" of @p programDir, and how they go
 * together.
 */
Findings checkSettings(const QString &programDir);
