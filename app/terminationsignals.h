// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

/**
 * @file
 * SIGINT, SIGQUIT and SIGTERM in single-run mode.
 *
 * The first of these signals is passed on at once. The rest of the work waits until the event loop
 * raises the signal again at its next turn. It then runs in the signal handler, but does not
 * interrupt other code. A handler that interrupts the writing of the log or the allocation of
 * memory, and does the same itself, can make the program abort or hang. A signal that comes before
 * the event loop runs is not lost.
 *
 * A second signal ends the program at once, also when the first still waits because the main thread
 * is blocked.
 */

/**
 * Makes the kernel send SIGTERM when the parent process dies, and installs handlers for the three
 * signals. Call it once, on the main thread, when the application object exists.
 *
 * Both functions run in the signal handler, and only in this process. A child that receives one of
 * the signals before its exec ends by it, as it would after its exec.
 *
 * @param passOn runs at once, on any thread and at any point of the program. It may only do what is
 * safe in a signal handler.
 * @param handler runs on the main thread at the event loop's next turn. The three signals have
 * their default actions again by then.
 */
void armTerminationSignals(void (*passOn)(), void (*handler)(int));

/** Whether one of the three signals has come since they were armed. Any thread. */
bool terminationSignalCame();
