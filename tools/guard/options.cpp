// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/guard/options.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include <getopt.h>

namespace {

constexpr int wrongUsageStatus = 64;
constexpr std::size_t mostDigits = 9; // some 30 years

constexpr char usage[] = R"(Usage: pynx-watchdog-guard [OPTION]... -- APPLICATION [ARGUMENT]...

Runs the application, notices when it hangs, and tells how each of its runs came to its end.

  --timeout SECONDS    a beat (WATCHDOG=1 of sd_notify) has to come at least this often;
                       0, the default: no hang is looked for
  --startup SECONDS    the first message has to come within this time; 0: at any time;
                       default: the time-out
  --grace SECONDS      the time from SIGABRT to SIGKILL (5)
  --stacks DIR         where the stacks of a hang or a crash are written (/tmp/log);
                       empty: none are taken, and the application is not traced
  --restart-on STATUS[,STATUS...]
                       start the application again when it ends with one of these statuses
  -h, --help           show this text and end
  --version            show the version and end

The status is the application's, and so is the signal that ended it; 64: wrong usage,
255: the application cannot be executed.
)";

std::optional<long> number(std::string_view text)
{
    if (text.empty() || text.size() > mostDigits
        || text.find_first_not_of("0123456789") != std::string_view::npos)
        return std::nullopt;
    return std::strtol(std::string(text).c_str(), nullptr, 10);
}

bool readSeconds(std::string_view text, std::chrono::seconds &seconds)
{
    const auto value = number(text);
    seconds = std::chrono::seconds(value.value_or(0));
    return value.has_value();
}

bool readStatuses(std::string_view text, std::bitset<256> &statuses)
{
    for (std::size_t comma = 0; comma != std::string_view::npos;) {
        comma = text.find(',');
        const auto status = number(text.substr(0, comma));
        if (!status || *status >= static_cast<long>(statuses.size()))
            return false;
        statuses.set(static_cast<std::size_t>(*status));
        text.remove_prefix(std::min(comma, text.size() - 1) + 1);
    }
    return true;
}

bool readOption(int which, const char *value, Options &options)
{
    switch (which) {
    case 't':
        return readSeconds(value, options.timeout);
    case 's':
        return readSeconds(value, options.startup.emplace());
    case 'g':
        return readSeconds(value, options.grace);
    case 'd':
        options.stacks = value;
        return true;
    default:
        return readStatuses(value, options.restartOn);
    }
}

} // namespace

std::optional<WrongUsage> readOptions(int argc, char *argv[], Options &options)
{
    static const option known[] = {{"timeout", required_argument, nullptr, 't'},
                                   {"startup", required_argument, nullptr, 's'},
                                   {"grace", required_argument, nullptr, 'g'},
                                   {"stacks", required_argument, nullptr, 'd'},
                                   {"restart-on", required_argument, nullptr, 'r'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {"version", no_argument, nullptr, 'v'},
                                   {nullptr, 0, nullptr, 0}};
    ::opterr = 0;
    ::optind = 0; // begins anew
    int which = 0;
    int index = 0;
    // "+": the first word that is no option is the application. ":": a missing value is told apart.
    for (int word = 1; (which = ::getopt_long(argc, argv, "+:h", known, &index)) != -1;
         word = ::optind) {
        switch (which) {
        case 'h':
            options.help = true;
            return std::nullopt;
        case 'v':
            options.version = true;
            return std::nullopt;
        case ':':
            return WrongUsage{word, std::string(argv[word]) + " needs a value"};
        case '?':
            return WrongUsage{word, "unknown option: " + std::string(argv[word])};
        default:
            if (!readOption(which, ::optarg, options))
                return WrongUsage{
                    word, "--" + std::string(known[index].name) + " cannot be: " + ::optarg};
        }
    }
    if (::optind >= argc)
        return WrongUsage{argc, "no application is named"};
    options.application = argv + ::optind;
    return std::nullopt;
}

std::optional<int> parseOptions(int argc, char *argv[], Options &options)
{
    if (const auto wrong = readOptions(argc, argv, options)) {
        std::fprintf(stderr, "pynx-watchdog-guard: %s\nTry pynx-watchdog-guard --help.\n",
                     wrong->message.c_str());
        return wrongUsageStatus;
    }
    if (options.help)
        std::fputs(usage, stdout);
    else if (options.version)
        std::puts("pynx-watchdog-guard " WATCHDOG_VERSION);
    else
        return std::nullopt;
    return EXIT_SUCCESS;
}
