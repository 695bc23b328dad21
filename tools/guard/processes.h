// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

// What the guard reads of processes and threads in /proc.

/** The ids of the threads of @p process, the main thread first; empty when it is gone. */
std::vector<pid_t> threadsOf(pid_t process);

/** The state letter of a thread as ps(1) shows it; 'X' when it is gone. */
char stateOf(pid_t process, pid_t thread);

/** The parent of @p process; 0 when it is gone. */
pid_t parentOf(pid_t process);

/** Whether the thread neither handles nor ignores @p signal; false where that cannot be read. */
bool hasDefaultAction(pid_t thread, int signal);

/** Whether the thread has blocked @p signal. */
bool isBlocked(pid_t thread, int signal);

/** The beginning of a file of /proc, at most 8 KiB; empty when it cannot be read. */
std::string readStart(const std::string &path);
