// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QString>
#include <QVariant>

/**
 * The payload of the settings document @p name: that of the site's file in "settings" beside the
 * executable, or, where that gives none, that of the factory's file in "settings-default" beside
 * it.
 *
 * A site file replaces the factory's file as a whole. A missing, unreadable or malformed document
 * is silent and gives a null value. Main thread, after the application object was made.
 */
QVariant readSettings(const QString &name);

/**
 * The payload of the settings file at @p path, or a null value when it cannot be read or holds
 * none.
 *
 * The file is JSON (UTF-8): a top object with a member "value", the envelope, whose member "type"
 * names that other member of the envelope which is the payload.
 */
QVariant readSettingsFile(const QString &path);

/**
 * The log size limit in bytes of the configuration @p confName from the log-files-size document, or
 * its entry "default" where that name is unknown, or 0 where that is missing too.
 *
 * An entry that reads as an empty text ends the program with a failed assertion; see parseSize().
 */
quint32 logFileSizeFromConf(const QString &confName);

/**
 * The number of bytes that @p text says: a decimal number with the suffix "k" (1024) or "m"
 * (1048576) in either case.
 *
 * The last character is always dropped before the number is read, so that a number without suffix
 * loses its last digit: "1000" is 100 bytes. What is not a number then counts as 0; the product
 * wraps at 32 bits. An empty text ends the program with a failed assertion.
 */
qint32 parseSize(const QString &text);
