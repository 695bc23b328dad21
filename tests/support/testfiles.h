// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QString>

/** The content of the file at @p path; empty if it is missing or cannot be read. */
QByteArray readFile(const QString &path);

/** Writes @p content to the file at @p path and makes its folders; ends the test if that fails. */
void writeFile(const QString &path, const QByteArray &content);
