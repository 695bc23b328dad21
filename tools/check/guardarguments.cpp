// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/guardarguments.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <vector>

namespace {

QVariantList toList(const std::bitset<256> &statuses)
{
    QVariantList list;
    for (std::size_t status = 0; status < statuses.size(); ++status) {
        if (statuses.test(status))
            list.append(static_cast<int>(status));
    }
    return list;
}

} // namespace

std::optional<GuardArguments> readGuardArguments(const QStringList &command)
{
    if (command.isEmpty()
        || QFileInfo(command.constFirst()).fileName() != QLatin1String("pynx-watchdog-guard"))
        return std::nullopt;
    QVector<QByteArray> words;
    for (const QString &word : command)
        words.append(QFile::encodeName(word));
    std::vector<char *> argv;
    for (QByteArray &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);

    GuardArguments guard;
    guard.wrong = readOptions(words.size(), argv.data(), guard.options);
    if (guard.options.application != nullptr)
        guard.application = QFile::decodeName(*guard.options.application);
    guard.options.application = nullptr; // points to a word of this function
    return guard;
}

Findings checkGuard(const QStringList &command, int first)
{
    const auto guard = readGuardArguments(command);
    if (!guard)
        return {};
    const auto at = [&](int word) {
        return Place{QStringLiteral("arguments"), first + std::min(word, command.size() - 1) + 1,
                     0};
    };
    if (guard->wrong) {
        return {error(at(guard->wrong->word), QStringLiteral("guard-usage"),
                      QStringLiteral("the guard says %1, and ends with status 64")
                          .arg(quoted(QString::fromStdString(guard->wrong->message))))};
    }
    if (guard->application.isEmpty()) {
        return {error(at(0), QStringLiteral("guard-usage"),
                      QStringLiteral("the guard only shows a text, and runs no application"))};
    }
    if (guard->options.timeout.count() == 0 && guard->options.startup) {
        return {warning(at(0), QStringLiteral("guard-timeout"),
                        QStringLiteral("without \"--timeout\", \"--startup\" has no effect"))};
    }
    return {};
}

QVector<Explanation> explainGuard(const QStringList &command, const QString &source)
{
    const auto guard = readGuardArguments(command);
    if (!guard || guard->wrong || guard->application.isEmpty())
        return {};
    const Options &options = guard->options;
    const auto seconds = [](auto time) { return static_cast<qlonglong>(time.count()); };
    const bool looks = options.timeout.count() != 0;
    const QString stacks = QString::fromStdString(options.stacks);
    return {
        {QStringLiteral("guard application"), guard->application, source,
         QStringLiteral("is what the guard runs; its end is the guard's")},
        {QStringLiteral("guard timeout"), seconds(options.timeout), source,
         looks ? QStringLiteral("seconds without a beat are a hang, which ends the application")
               : QStringLiteral("no hang is looked for")},
        {QStringLiteral("guard startup"), seconds(options.startup.value_or(options.timeout)),
         source,
         looks ? QStringLiteral("seconds to the first message; 0: no limit")
               : QStringLiteral("no hang is looked for")},
        {QStringLiteral("guard grace"), seconds(options.grace), source,
         QStringLiteral("seconds from SIGABRT to SIGKILL at a hang")},
        {QStringLiteral("guard stacks"), stacks, source,
         stacks.isEmpty() ? QStringLiteral("no stacks are taken")
                          : QStringLiteral("stacks of a hang or a crash are written here, and a "
                                           "report is asked for")},
        {QStringLiteral("guard restart on"), toList(options.restartOn), source,
         QStringLiteral("with these statuses the guard starts the application again, and the "
                        "supervisor sees no end")},
    };
}
