// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

/**
 * Lets the heap keep what is freed, up to a limit of some chunks of output, instead of giving it
 * back to the kernel at once. To be called once, at the start of the program, before there is a
 * second thread.
 *
 * What is read of the application's output comes in short-lived blocks of up to 256 KiB. By its own
 * limits the C library would give the larger of them mappings of their own, and give the memory of
 * all of them back after each chunk, only to have it mapped and cleared anew for the next, at the
 * cost of a third or more of all that logging takes.
 */
void keepFreedHeap();
