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
 * What is said below of result codes, channels and ownership is what the stand-in does; with the
 * maker's library linked instead, that library decides.
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
     * Starts @p program, looked up in PATH where it is no path, with @p arguments and returns.
     *
     * @p completed is called exactly once, on the main event loop and never from within this call,
     * also when the command cannot be started. What the command needs is owned here until then and
     * released afterwards; a command that outlives the event loop is left to itself.
     *
     * The command reads end of file. Both its output channels go to @p output, in pieces as they
     * arrive and all of them before @p completed; without one they are discarded, so that a tool's
     * own warnings do not get in among this program's messages on standard error. Either callback
     * may be empty.
     *
     * What @p number and @p flag mean is between the caller and the maker's library; the stand-in
     * ignores them. Main thread only.
     */
    static void startAsync(const QString &program, const QStringList &arguments, int number,
                           const CompletionCallback &completed, const OutputCallback &output,
                           bool flag);
};
