// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/sizetext.h"

#include "logging/settings.h"

#include <QRegularExpression>

namespace {

// Whether @p text is a whole number, however large, as the supervisor would accept it.
bool isNumber(const QString &text)
{
    static const QRegularExpression number(QStringLiteral("^\\s*[-+]?\\d+\\s*$"));
    return number.match(text).hasMatch();
}

// Whether @p digits times @p factor is what the supervisor reads.
bool is(const QString &digits, qint64 factor, quint32 bytes)
{
    bool ok = false;
    const int number = digits.toInt(&ok);
    return ok && number * factor == bytes;
}

// What @p suffix means to whoever writes it; 0: nothing. The supervisor drops a "b" as it drops any
// last character, and so reads what was meant.
qint64 factorOf(QChar suffix)
{
    if (suffix == QLatin1Char('k'))
        return 1024;
    if (suffix == QLatin1Char('m'))
        return 1048576;
    return suffix == QLatin1Char('b') ? 1 : 0;
}

} // namespace

Findings checkSizeText(const QString &text, const Place &place)
{
    if (text.isEmpty()) {
        return {error(place, QStringLiteral("size-empty"),
                      QStringLiteral("an empty size ends the supervisor with a failed assertion"))};
    }
    const auto bytes = static_cast<quint32>(parseSize(text));
    const QString reads = bytes == 0
        ? QStringLiteral("the supervisor reads 0 bytes, which means no log file")
        : QStringLiteral("the supervisor reads %1 bytes").arg(bytes);
    const QString digits = text.left(text.size() - 1);
    if (!isNumber(text) && !isNumber(digits)) {
        return {error(place, QStringLiteral("size-number"),
                      quoted(text) + QStringLiteral(" is no whole number with \"k\" or \"M\"; ")
                          + reads)};
    }
    const qint64 factor = factorOf(text.at(text.size() - 1).toLower());
    if (factor != 0 && !is(digits, factor, bytes)) {
        return {error(place, QStringLiteral("size-range"),
                      quoted(text)
                          + QStringLiteral(" is less than 0 or more than the supervisor can read; ")
                          + reads)};
    }
    if (factor == 0 && !is(text, 1, bytes)) {
        return {error(place, QStringLiteral("size-suffix"),
                      quoted(text)
                          + QStringLiteral(" has no \"k\" or \"M\" at its end, where the last "
                                           "character is dropped; ")
                          + reads)};
    }
    if (bytes == 0) {
        return {warning(place, QStringLiteral("size-zero"),
                        QStringLiteral("a size of 0 means no log file; the output goes to the "
                                       "supervisor's standard output"))};
    }
    return {};
}
