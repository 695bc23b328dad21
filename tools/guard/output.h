// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <string>

/**
 * Opens those of the standard channels that are closed, for the guard alone. A socket or a file
 * that got such a number would be written to.
 */
void occupyStandardChannels();

/** Writes "guard: " TEXT as one line to standard error. */
void say(const std::string &text);

/** Writes @p text to standard output in one piece. */
void print(const std::string &text);

/**
 * Waits, at most a second, until all that was written to standard output has been read, where that
 * is a pipe. What is written next is then read in one piece, if nobody else writes.
 */
void waitUntilRead();

/** "SIGSEGV" for 11. */
std::string signalName(int signal);
