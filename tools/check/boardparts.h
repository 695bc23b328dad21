// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#pragma once

#include "app/commandline.h"
#include "tools/check/explanation.h"
#include "tools/check/findings.h"
#include "tools/check/systemdconfiguration.h"

#include <QStringList>
#include <QVariant>

/** The machine that is looked at; a plain value. */
struct Board
{
    CommandLine options;
    QString programDir;
    QString root;            ///< what stands for the root directory; empty for the machine's own
    bool seenByRoot = false; ///< whether root looks, as whom the supervisor is to run
    QStringList ownPath;     ///< the supervisor's PATH without the board tools
    bool boardToolsInPath = false; ///< whether the board tools come first there

    /** The file @p path of the board as this process reaches it. */
    QString file(const QString &path) const;

    /** The executable file @p name in the PATH, or an empty text. */
    QString tool(const QString &name) const;

    /** What the supervisor reads from the settings document @p name. */
    QVariant setting(const QString &name) const;

    /** Whether the supervisor makes archives. */
    bool makesReports() const;
};

Finding boardError(const char *rule, const QString &message);
Finding boardWarning(const char *rule, const QString &message);

/** The beginning of the regular file at @p path, 1 MiB at most; empty if it cannot be read. */
QString readText(const QString &path);

/** The unit that starts the supervisor. */
SystemdConfiguration readUnit(const QString &root);

/** Fills in what Board has of the PATH. */
void findTools(Board &board, const SystemdConfiguration &unit);

Findings checkLog(const Board &board);
Findings checkApplication(const Board &board);
Findings checkAccount(const Board &board);
Findings checkRights(const Board &board);
Findings checkTools(const Board &board);
QVector<Explanation> explainTools(const Board &board);
Findings checkBootLoader(const Board &board);
Findings checkSystem(const Board &board);
Findings checkSnapshots(const Board &board);
Findings checkMarker(const Board &board);
Findings checkUpload(const Board &board);
Findings checkDevice(const Board &board);
Findings checkOtherOwners(const Board &board);
Findings checkUnit(const Board &board, const SystemdConfiguration &unit);
