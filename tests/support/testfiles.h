// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

/** What the file at @p path holds on disk; empty when it is missing or cannot be read. */
QByteArray readFile(const QString &path);

/** Makes the file at @p path, and the folders above it, hold @p content; ends the test otherwise.
 */
void writeFile(const QString &path, const QByteArray &content);
