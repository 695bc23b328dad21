// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The supervisor's command line as pynx-watchdog-check judges and explains it, without settings;
// each line of the input is one argument.
#include "app/commandline.h"
#include "fuzz.h"
#include "tools/check/arguments.h"
#include "tools/check/explanation.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char *>(data), static_cast<int>(size));
    const QStringList arguments = text.split(QLatin1Char('\n'));
    const QString noSettings = QStringLiteral("/nowhere");

    const Findings findings = checkArguments(arguments, noSettings);
    for (const Finding &finding : findings) {
        Q_ASSERT(finding.place.line <= arguments.size());
        Q_ASSERT(!finding.toText().contains(QLatin1Char('\n')));
    }
    const QVector<Explanation> explanations = explain(arguments, noSettings);
    for (const Explanation &explanation : explanations)
        Q_ASSERT(explanation.toText().count(QLatin1Char('\n')) == 1);

    const bool ends = explanations.first().setting == QLatin1String("start");
    const bool hasError =
        std::any_of(findings.cbegin(), findings.cend(),
                    [](const Finding &finding) { return finding.level == Finding::Level::Error; });
    Q_ASSERT(!ends || hasError);
    if (canBeParsed(arguments, noSettings)) {
        const CommandLine options = parseCommandLine(arguments, noSettings);
        Q_ASSERT(ends == options.appPath.isEmpty());
    } else {
        Q_ASSERT(ends);
        mustAbort([&] { parseCommandLine(arguments, noSettings); });
    }
    return 0;
}
