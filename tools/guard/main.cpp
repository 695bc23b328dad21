// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/guard/guard.h"
#include "tools/guard/output.h"

int main(int argc, char *argv[])
{
    occupyStandardChannels();
    Options options;
    if (const auto status = parseOptions(argc, argv, options))
        return *status;
    return Guard(options).run();
}
