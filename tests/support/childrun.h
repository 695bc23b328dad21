// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

#include <functional>

/** The end of a piece of code that ran in a child of the test. */
struct ChildResult
{
    int exitCode = -1; ///< -1: a signal ended it
    int signal = 0;    ///< 0: it ended by itself
    QByteArray standardOutput;
    QByteArray standardError;

    /** Whether a failed assertion with @p expression ended the code. */
    bool failedAssertion(const char *expression) const;
};

/**
 * Runs @p code in a forked child, waits for its end and captures its output. It is for code that
 * aborts, that writes to the standard channels, or that changes the whole process. The child ends
 * with exit code 0 after @p code. The child has no other thread of the test.
 */
ChildResult runInChild(const std::function<void()> &code);
