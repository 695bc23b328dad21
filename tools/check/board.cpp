// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/board.h"

#include "platform/pynx_api.h"
#include "tools/check/boardparts.h"
#include "tools/check/payload.h"
#include "tools/check/systemdconfiguration.h"

#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <unistd.h>

namespace {

constexpr qint64 longestText = 1048576;

Place board()
{
    return {QStringLiteral("board"), 0, 0};
}

Board lookAt(const CommandLine &options, const QString &programDir, const QString &root,
             const SystemdConfiguration &unit)
{
    Board board;
    board.options = options;
    board.programDir = programDir;
    board.root = root;
    board.seenByRoot = ::geteuid() == 0;
    findTools(board, unit);
    return board;
}

} // namespace

QString Board::file(const QString &path) const
{
    if (root.isEmpty() || path.startsWith(QLatin1Char('/')))
        return root + path;
    return root + QLatin1Char('/') + path;
}

QString Board::tool(const QString &name) const
{
    // QProcess finds the supervisor's tools by the same function. Without a PATH it would take
    // this process's own.
    return ownPath.isEmpty() ? QString() : QStandardPaths::findExecutable(name, ownPath);
}

QVariant Board::setting(const QString &name) const
{
    return readPayload(name, programDir).value;
}

bool Board::makesReports() const
{
    return setting(PynxWatchdogAutomaticReportingPath().base()).toBool();
}

Finding boardError(const char *rule, const QString &message)
{
    return error(board(), QLatin1String(rule), message);
}

Finding boardWarning(const char *rule, const QString &message)
{
    return warning(board(), QLatin1String(rule), message);
}

QString readText(const QString &path)
{
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.read(longestText));
}

Findings checkBoard(const CommandLine &options, const QString &programDir, const QString &root)
{
    const SystemdConfiguration unit = readUnit(root);
    const Board board = lookAt(options, programDir, root, unit);
    Findings findings =
        checkRights(board) + checkLog(board) + checkApplication(board) + checkAccount(board);
    if (options.rotateOnly)
        return findings;
    return findings + checkSystem(board) + checkMarker(board) + checkSnapshots(board)
        + checkUpload(board) + checkDevice(board) + checkOtherOwners(board) + checkTools(board)
        + checkBootLoader(board) + checkUnit(board, unit);
}

QVector<Explanation> explainBoard(const CommandLine &options, const QString &programDir,
                                  const QString &root)
{
    if (options.rotateOnly)
        return {};
    return explainTools(lookAt(options, programDir, root, readUnit(root)));
}
