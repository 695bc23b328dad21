// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QCoreApplication>
#include <QString>
#include <QStringList>
#include <QVariant>

/**
 * Returns the payload of the settings document @p name. The site's file, in the directory
 * "settings" of @p programDir, comes first. If it gives no payload, the factory's file is read, in
 * "settings-default" there.
 *
 * A site file replaces the whole factory's file. A document that is missing, unreadable or
 * malformed gives a null value without a message. Main thread, after the application object was
 * made.
 */
QVariant readSettings(const QString &name,
                      const QString &programDir = QCoreApplication::applicationDirPath());

/**
 * Returns the payload of the settings file at @p path, or a null value when the file cannot be read
 * or has none.
 *
 * The file is JSON (UTF-8). Its top object has a member "value", the envelope. The member "type" of
 * the envelope names another member of the envelope, which is the payload.
 */
QVariant readSettingsFile(const QString &path);

/** Returns the text of the settings file at @p path, or an empty one when it cannot be read. */
QString readSettingsText(const QString &path);

/** Returns @p values as texts; one that has no text, such as a list, becomes empty. */
QStringList toStrings(const QVariantList &values);

/**
 * Returns the log size limit of the configuration @p confName, as a text for parseSize(), from the
 * log-files-size document, which is found as by readSettings(). An unknown name gets the document's
 * entry "default", or "0" where that is missing too.
 */
QString logFileSizeText(const QString &confName,
                        const QString &programDir = QCoreApplication::applicationDirPath());

/**
 * Returns the log size limit in bytes of the configuration @p confName; see logFileSizeText().
 *
 * An entry that reads as an empty text ends the program with a failed assertion; see parseSize().
 */
quint32 logFileSizeFromConf(const QString &confName,
                            const QString &programDir = QCoreApplication::applicationDirPath());

/**
 * Returns the number of bytes that @p text means: a decimal number with the suffix "k" (1024) or
 * "m" (1048576) in either case.
 *
 * The last character is always dropped before the number is read. A number without a suffix
 * therefore loses its last digit: "1000" is 100 bytes. A text that is no number counts as 0. The
 * product wraps at 32 bits. An empty text ends the program with a failed assertion.
 */
qint32 parseSize(const QString &text);
