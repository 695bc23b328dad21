// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

/**
 * Lets the heap keep what is freed at its end, up to a small limit, instead of giving it back to
 * the kernel at once. To be called once, at the start of the program, before there is a second
 * thread.
 *
 * Every chunk of the application's output is a short-lived block of up to 64 KiB. The C library's
 * own limit is about as small as that: it would give the memory back after each chunk, only to have
 * it mapped and cleared anew for the next, at the cost of a third of all that logging takes.
 */
void keepFreedHeap();
