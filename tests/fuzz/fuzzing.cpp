// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// What a target needs when the fuzzer's own library brings main().
#include "fuzz.h"

#include <QCoreApplication>

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static const QCoreApplication application(*argc, *argv);
    return 0;
}

// A fork for every such input would slow the search down; the replay has them.
void mustAbort(const std::function<void()> & /*code*/)
{ }
