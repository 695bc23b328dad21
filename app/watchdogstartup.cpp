// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The supervisor's start-up: everything that is done once, before the event loop runs.
#include "app/commandline.h"
#include "app/terminationsignals.h"
#include "app/watchdog.h"

int Watchdog::init(const QStringList &arguments)
{
    m_appArgs = arguments.mid(1);
    if (m_appArgs.isEmpty()) {
        printUsage();
        return 1;
    }
    const CommandLine options = parseCommandLine(m_appArgs);
    applyOptions(options);

    if (!openLog(options))
        return 1;
    if (m_singleRun)
        armTerminationSignals(onTerminationSignal);
    if (!startApp(m_appPath, m_appArgs))
        return 1;
    if (m_rotateOnly)
        return 0;

    return 0;
}

void Watchdog::applyOptions(const CommandLine &options)
{
    m_rotateOnly = options.rotateOnly;
    m_singleRun = options.singleRun;
    m_appPath = options.appPath;
    m_appArgs = options.appArgs;
    if (!options.userName.isEmpty())
        m_process.lookupUser(options.userName);
}

bool Watchdog::openLog(const CommandLine &options)
{
    m_logProcessor.reset(
        new LogProcessor(&m_process, options.logFileName, options.logSize, options.logTime));
    return m_logProcessor->open();
}
