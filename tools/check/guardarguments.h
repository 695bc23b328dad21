// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/check/explanation.h"
#include "tools/check/findings.h"
#include "tools/guard/options.h"

#include <QStringList>
#include <QVector>

/** pynx-watchdog-guard as the application, with the arguments that it gets; a plain value. */
struct GuardArguments
{
    std::optional<WrongUsage> wrong; ///< the number counts from the guard itself
    Options options;                 ///< valid up to what is wrong; without the application
    QString application;             ///< what the guard runs; empty: nothing
};

/** Reads @p command, an application with its arguments; nothing if it is not the guard. */
std::optional<GuardArguments> readGuardArguments(const QStringList &command);

/** Checks @p command, the supervisor's arguments from the application on, which is @p first. */
Findings checkGuard(const QStringList &command, int first);

/** What the guard will do, if @p command is one; each value comes from @p source. */
QVector<Explanation> explainGuard(const QStringList &command, const QString &source);
