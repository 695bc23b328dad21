// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <bitset>
#include <chrono>
#include <optional>
#include <string>

/** What stands on the command line; a plain value. */
struct Options
{
    bool help = false;                           ///< show a short text and end
    bool version = false;                        ///< show the version and end
    std::chrono::seconds timeout{0};             ///< a beat at least this often; 0: not looked for
    std::optional<std::chrono::seconds> startup; ///< until the first message; unset: `timeout`
    std::chrono::seconds grace{5};               ///< between SIGABRT and SIGKILL
    std::string stacks = "/tmp/log";             ///< the directory for stacks; empty: none
    std::bitset<256> restartOn;                  ///< the statuses that are started again
    char **application = nullptr;                ///< its name and arguments, as for execvp()
};

/** What is wrong with a command line. */
struct WrongUsage
{
    int word;            ///< its number in argv; argc: one is missing
    std::string message; ///< in words
};

/** Reads the command line into @p options, up to what is wrong with it. */
std::optional<WrongUsage> readOptions(int argc, char *argv[], Options &options);

/**
 * Reads the command line into @p options. Returns the status to end with, after the help, the
 * version or a message on a wrong usage; and nothing when the application is to run.
 */
std::optional<int> parseOptions(int argc, char *argv[], Options &options);
