// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The supervisor's command line; each line of the input is one argument.
#include "app/commandline.h"

#include "fuzz.h"

namespace {

// Whether an option in front of the application gives an empty size.
bool hasEmptySize(QStringList arguments)
{
    const QStringList withValue = {QStringLiteral("--logfileName"), QStringLiteral("--logfileSize"),
                                   QStringLiteral("--logfileSizeConf"), QStringLiteral("--user"),
                                   QStringLiteral("--app")};
    while (arguments.size() > 1) {
        const QString option = arguments.takeFirst();
        if (!withValue.contains(option))
            continue;
        if (option == QLatin1String("--app"))
            return false;
        if (arguments.takeFirst().isEmpty() && option == QLatin1String("--logfileSize"))
            return true;
    }
    return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size)
{
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char *>(data), static_cast<int>(size));
    const QStringList arguments = text.split(QLatin1Char('\n'));
    if (hasEmptySize(arguments)) {
        mustAbort([&arguments] { parseCommandLine(arguments); });
        return 0;
    }
    const CommandLine line = parseCommandLine(arguments);
    const int before = arguments.size() - line.appArgs.size();
    Q_ASSERT(line.appArgs == arguments.mid(before));
    Q_ASSERT(line.appPath.isEmpty() || line.appPath == arguments.at(before - 1));
    return 0;
}
