// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <functional>

class QByteArray;
class QString;
class QStringList;

/**
 * @file
 * The part of the maker's library libpynx_processhandler that this program uses.
 *
 * The comments on result codes, channels and ownership describe the stand-in. With the maker's
 * library linked instead, that library decides.
 */

/** How a command ended. */
struct PynxProcessHandlerResult
{
    /** The exit code; negative when the command could not be started or was ended by a signal. */
    int resultCode = 0;
};

/** Runs commands without blocking the caller. */
class PynxProcessHandler
{
public:
    using CompletionCallback = std::function<void(const PynxProcessHandlerResult &)>;
    using OutputCallback = std::function<void(const QByteArray &)>;

    /**
     * Starts @p program with @p arguments and returns. A program without a path is looked up in
     * PATH.
     *
     * @p completed is called exactly once, also when the command cannot be started. It is called on
     * the main event loop and never from within this call. The handler owns what the command needs
     * until then. A command that outlives the event loop is left to itself.
     *
     * The command's standard input is at its end. Both its output channels go to @p output, in
     * pieces as they arrive and all of them before @p completed is called. Without @p output they
     * are discarded, so that a tool's own warnings do not mix with this program's messages on
     * standard error. Either callback may be empty.
     *
     * @p number and @p flag are for the maker's library; the stand-in ignores them. Main thread
     * only.
     */
    static void startAsync(const QString &program, const QStringList &arguments, int number,
                           const CompletionCallback &completed, const OutputCallback &output,
                           bool flag);
};
