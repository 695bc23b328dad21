// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "app/commandline.h"
#include "tools/check/explanation.h"
#include "tools/check/findings.h"

/**
 * Looks whether this machine has what the supervisor needs when it is started with @p options and
 * the settings in @p programDir. Changes nothing. What the account that it runs in cannot see is a
 * finding, too.
 *
 * @param root what stands for the root directory; empty for the machine's own
 */
Findings checkBoard(const CommandLine &options, const QString &programDir,
                    const QString &root = QString());

/** The tools that the supervisor then calls, and what each is. None of them is run. */
QVector<Explanation> explainBoard(const CommandLine &options, const QString &programDir,
                                  const QString &root = QString());
