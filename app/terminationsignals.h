// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

/**
 * @file
 * SIGINT, SIGQUIT and SIGTERM in single-run mode.
 *
 * They are held back from the moment they are armed until the event loop turns: its quit() is
 * forgotten when nothing runs yet, and the program would then not end. A thread started meanwhile
 * keeps them blocked for good, so the handler runs on the main thread. For the main thread only.
 */

/**
 * Makes the kernel send SIGTERM when the parent process dies, and installs @p handler for the three
 * signals, which stay blocked until the event loop's first turn. The first of them gives all three
 * their default action back before @p handler runs, so that a second one ends the program at once.
 *
 * @p handler runs in the signal handler, and only in this process: a child that gets a signal
 * before its exec ends by it, as it would after.
 */
void armTerminationSignals(void (*handler)(int));

/**
 * For the child between fork and exec: gives the three signals their default action and lets them
 * through if they were armed, so that the application does not start with them blocked.
 */
void releaseTerminationSignalsInChild();
