// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include <QtGlobal>

// What this process holds, for tests that nothing is left behind.

/** The descriptors that are open. */
int openDescriptors();

/** Whether a child runs, or has ended and was not yet waited for. */
bool hasChildren();

/** The single-shot timers of this thread that have not fired. */
int pendingSingleShots();

/** Bytes in use on the heap; 0 where a sanitizer replaces the allocator. */
qint64 heapInUse();
