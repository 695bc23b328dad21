// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

/**
 * @file
 * SIGINT, SIGQUIT and SIGTERM in single-run mode.
 *
 * The first of them is passed on at once. All else that is to be done runs inside the signal
 * handler too, but not in the middle of anything: a handler that flushes the log while the log is
 * written, or allocates memory while memory is allocated, can make the program abort or hang. So
 * the signal waits for the event loop, which raises it again at its next turn. It is not lost when
 * it comes before the event loop runs.
 *
 * A second signal ends the program at once, also when the first still waits because something holds
 * the main thread up.
 */

/**
 * Makes the kernel send SIGTERM when the parent process dies, and installs handlers for the three
 * signals. To be called once, on the main thread, with an application object.
 *
 * Both functions run in the signal handler, and only in this process: a child that gets a signal
 * before its exec ends by it, as it would after.
 *
 * @param passOn runs at once, on any thread and wherever the signal falls; it may do nothing but
 * what is safe in a signal handler
 * @param handler runs on the main thread at the event loop's next turn; all three signals have
 * their default action back by then
 */
void armTerminationSignals(void (*passOn)(), void (*handler)(int));

/** Whether one of the three signals has come since they were armed. Any thread. */
bool terminationSignalCame();
