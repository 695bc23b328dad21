// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// A program that looks settings up. They lie beside the executable, so a test copies this one to
// where it has laid its settings out.
//
//   settings-probe document NAME    prints the payload as JSON in a list of one, [null] for none
//   settings-probe log-size CONF    prints the number of bytes
#include "logging/settings.h"

#include <QCoreApplication>
#include <QJsonDocument>

#include <cstdio>

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == QLatin1String("document")) {
        const QVariantList result = {readSettings(arguments.at(2))};
        std::puts(QJsonDocument::fromVariant(result).toJson(QJsonDocument::Compact).constData());
        return 0;
    }
    if (arguments.value(1) == QLatin1String("log-size")) {
        std::printf("%u\n", logFileSizeFromConf(arguments.at(2)));
        return 0;
    }
    return 64;
}
