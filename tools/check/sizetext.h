// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/check/findings.h"

/**
 * Checks @p text, a limit of the log as an argument or a document gives it, which stands at
 * @p place. It must be what the supervisor hands to parseSize().
 */
Findings checkSizeText(const QString &text, const Place &place);
