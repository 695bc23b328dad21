// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>

#include <functional>

/** How a piece of code ended that was run in a child of the test. */
struct ChildResult
{
    int exitCode = -1; ///< -1: ended by a signal
    int signal = 0;    ///< 0: ended by itself
    QByteArray standardOutput;
    QByteArray standardError;

    /** Whether the code was ended by a failed assertion with @p expression. */
    bool failedAssertion(const char *expression) const;
};

/**
 * Runs @p code in a forked child and waits for its end, taking in what it writes. For code that
 * aborts, that writes to the process's own channels, or that changes the whole process. The child
 * ends with exit code 0 after @p code. Not for code that needs another thread of the test.
 */
ChildResult runInChild(const std::function<void()> &code);
