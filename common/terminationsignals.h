// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

/**
 * @file
 * SIGINT, SIGQUIT and SIGTERM in single-run mode.
 *
 * What the program does at such a signal runs inside the signal handler, but not in the middle of
 * anything: a handler that flushes the log while the log is being written, or allocates memory
 * while memory is being allocated, can make the program abort or hang. So the handler that the
 * kernel calls only takes a note of the signal and wakes the event loop, which raises it again at
 * its next turn. Where the main thread may wait for long, a TerminationWindow lets the signal
 * through at once. A signal is not lost when it comes before the event loop runs.
 *
 * The second signal ends the program at once, also when the first is still waiting because the main
 * thread is held up.
 */

/**
 * Makes the kernel send SIGTERM when the parent process dies, and has @p handler run for the first
 * of the three signals; all three have their default action back by then. When @p handler has run,
 * the event loop is told to quit. To be called once, on the main thread, with an application
 * object.
 *
 * @p handler runs in the signal handler, and only in this process: a child that gets a signal
 * before its exec ends by it, as it would after.
 */
void armTerminationSignals(void (*handler)(int));

/** Whether one of the three signals has come since they were armed. Any thread. */
bool terminationSignalCame();

/**
 * For the child between fork and exec: gives the three signals their default action if they were
 * armed.
 */
void releaseTerminationSignalsInChild();

/**
 * As long as one lives, a termination signal is handled at once where it falls, and one that waits
 * is handled now: for the main thread's waits for others, such as a tool. Does nothing unless the
 * signals are armed. Main thread only; windows may be nested.
 */
class TerminationWindow
{
public:
    TerminationWindow();
    ~TerminationWindow();
    TerminationWindow(const TerminationWindow &) = delete;
    TerminationWindow &operator=(const TerminationWindow &) = delete;
};
