// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/allocator.h"
#include "app/watchdog.h"

#include <QCoreApplication>

#include <csignal>

int main(int argc, char *argv[])
{
    keepFreedHeap();
    // The reader of our output may go away. A write then fails and does not end the supervisor. Qt
    // restores the default action in its child processes.
    std::signal(SIGPIPE, SIG_IGN);
    QCoreApplication application(argc, argv);
    theWatchdog = new Watchdog(nullptr); // never deleted: it lives until the process ends
    const int status = theWatchdog->init(QCoreApplication::arguments());
    return status == 0 ? QCoreApplication::exec() : status;
}
