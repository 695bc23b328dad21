// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/check/findings.h"

#include <QStringList>

/**
 * Checks the supervisor's @p arguments, without the program's own name, also against the settings
 * in @p programDir. The place of a finding is "arguments" and the argument's number, from 1.
 */
Findings checkArguments(const QStringList &arguments, const QString &programDir);

/**
 * Whether parseCommandLine() returns. It does not where a size is empty, and it cannot be told
 * where the document of the sizes may not be read.
 */
bool canBeParsed(const QStringList &arguments, const QString &programDir);
