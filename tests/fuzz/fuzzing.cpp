// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// Completes a target for the fuzzer, whose library has main().
#include "fuzz.h"

#include <QCoreApplication>

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv)
{
    static const QCoreApplication application(*argc, *argv);
    return 0;
}

// A fork for every such input would slow the search down. The replay of the corpus does it.
void mustAbort(const std::function<void()> & /*code*/)
{ }
