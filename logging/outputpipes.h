// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

class QProcess;

/**
 * Makes room for 256 KiB, unread, in each of the pipes through which @p process prints; to be
 * called when it has started, on its thread.
 *
 * The kernel's 64 KiB make an application that prints without pause wait for the supervisor, and
 * wake it, four times as often: the turn of the event loop around each read is what logging costs
 * beyond the copying. The application can also print for longer while the supervisor is held up.
 *
 * Does nothing, silently, to a pipe that is as large already or that the kernel does not enlarge
 * for this user: the pipe then works as it is.
 */
void enlargeOutputPipes(const QProcess *process);
