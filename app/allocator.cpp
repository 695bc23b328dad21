// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/allocator.h"

#include <QtGlobal>

#include <malloc.h>

namespace {

// Room for several chunks of output. This is a limit: memory that was never used is not taken.
constexpr int keptBytes = 2 * 1024 * 1024;

} // namespace

void keepFreedHeap()
{
#ifdef M_TRIM_THRESHOLD
    ::mallopt(M_TRIM_THRESHOLD, keptBytes);
    ::mallopt(M_MMAP_THRESHOLD, keptBytes);
#else
    Q_UNUSED(keptBytes) // a C library without the setting: logging only costs more time
#endif
}
