// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QStringList>

/**
 * Returns "; did you mean NAME?" for the name of @p known that is nearest to @p name, or an empty
 * text when none is near. NAME is as quoted() has it. Case does not count. The distance is the
 * number of characters to insert, remove, replace or swap with their neighbour; at most a third of
 * the name's characters, and at least one.
 */
QString didYouMean(const QString &name, const QStringList &known);
