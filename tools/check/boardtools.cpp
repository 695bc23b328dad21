// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/boardparts.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>

namespace {

constexpr int answerMs = 5000;
constexpr qint64 longestProgram = 8388608;

struct Tool
{
    const char *name;
    const char *without; // what the supervisor, or a board tool, does not do without it
};

const Tool ownTools[] = {
    {"killall", "what the application leaves behind, the processes named \"pYNX\", runs on"},
    {"reboot", "neither the application's third end nor a read-only root reboots the board"},
    {"sfuflags", "the boot is never confirmed, and the boot loader falls back at last"},
    {"fw_setenv", "\"update_url_cache\" stays when the root file system is read-only"},
    {"sh", "the snapshots do not have what \"top\" prints"},
    {"top", "the snapshots do not have what it prints"},
    {"head", "the snapshots do not have what \"top\" prints"},
    {"free", "the snapshots do not have what it prints"},
};

const char *const toolsOfBoardTools[] = {
    "awk",       "flock", "gzip", "logger",  "od",    "readlink",
    "sha256sum", "stat",  "sync", "timeout", "touch",
};

const QLatin1String gnuTar("GNU tar");

// Tells programs of one name apart by a text in each, so that none has to be run.
QLatin1String kindOf(const QString &path)
{
    const QLatin1String kinds[] = {QLatin1String("BusyBox"),       gnuTar,
                                   QLatin1String("GNU coreutils"), QLatin1String("procps"),
                                   QLatin1String("PSmisc"),        QLatin1String("systemctl")};
    QFile file(path);
    if (!QFileInfo(path).isFile() || !file.open(QIODevice::ReadOnly))
        return QLatin1String("cannot be read");
    const QByteArray program = file.read(longestProgram);
    if (program.startsWith("#!"))
        return QLatin1String("script");
    for (const QLatin1String kind : kinds) {
        if (program.contains(kind.data()))
            return kind;
    }
    return QLatin1String("another program");
}

// Only GNU tar fails because of a file that grows.
bool isGnuTar(const QString &path)
{
    return kindOf(path) == gnuTar;
}

Finding missing(const char *name, const char *without)
{
    return boardError("tool-missing",
                      QStringLiteral("%1 is not in the supervisor's PATH: %2")
                          .arg(quoted(QLatin1String(name)), QLatin1String(without)));
}

Findings checkTar(const Board &board)
{
    const QString tar = board.tool(QStringLiteral("tar"));
    if (tar.isEmpty())
        return {missing("tar", "no archive is made")};
    Findings findings;
    const bool isGnu = isGnuTar(tar);
    if (isGnu && board.tool(QStringLiteral("gzip")).isEmpty())
        findings.append(missing("gzip", "GNU tar makes no archive"));
    if (isGnu && !board.boardToolsInPath) {
        findings.append(boardWarning(
            "tar-alone",
            QStringLiteral("GNU tar fails when a log grows while it is read, and the archive keeps "
                           "its name \"tmp_...\": put the board tools first in the PATH")));
    }
    return findings;
}

// What the board tools lack, or why they are not used.
Findings checkBoardTools(const Board &board)
{
    const QString directory = board.programDir + QStringLiteral("/tools");
    if (!board.boardToolsInPath) {
        if (!QFileInfo::exists(directory + QStringLiteral("/tar")))
            return {};
        return {
            boardWarning("board-tools",
                         QStringLiteral("%1 is not first in the supervisor's PATH: its \"tar\" and "
                                        "\"reboot\" are not used")
                             .arg(quoted(directory)))};
    }
    Findings findings;
    for (const char *name : toolsOfBoardTools) {
        if (board.tool(QLatin1String(name)).isEmpty()) {
            findings.append(
                boardWarning("board-tools-need",
                             QStringLiteral("%1 is not in the supervisor's PATH: the board "
                                            "tools leave out what they use it for")
                                 .arg(quoted(QLatin1String(name)))));
        }
    }
    return findings;
}

} // namespace

Findings checkTools(const Board &board)
{
    Findings findings;
    for (const Tool &tool : ownTools) {
        if (board.tool(QLatin1String(tool.name)).isEmpty())
            findings.append(missing(tool.name, tool.without));
    }
    if (board.makesReports())
        findings += checkTar(board);
    return findings + checkBoardTools(board);
}

QVector<Explanation> explainTools(const Board &board)
{
    QVector<Explanation> explanations;
    const auto explainTool = [&](const char *name) {
        const QString path = board.tool(QLatin1String(name));
        explanations.append({QStringLiteral("tool ") + QLatin1String(name), path,
                             QStringLiteral("board"),
                             path.isEmpty() ? QStringLiteral("missing") : kindOf(path)});
    };
    for (const Tool &tool : ownTools)
        explainTool(tool.name);
    if (board.makesReports())
        explainTool("tar");
    return explanations;
}

// fw_setenv and sfuflags change the environment whatever they are given, so only fw_printenv is
// asked.
Findings checkBootLoader(const Board &board)
{
    const QString reader = board.tool(QStringLiteral("fw_printenv"));
    if (reader.isEmpty() || board.tool(QStringLiteral("fw_setenv")).isEmpty())
        return {};
    QProcess process;
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(reader, {}, QIODevice::ReadOnly);
    if (process.waitForFinished(answerMs) && process.exitStatus() == QProcess::NormalExit
        && process.exitCode() == 0)
        return {};
    return {
        boardWarning("boot-environment",
                     QStringLiteral("\"fw_printenv\" cannot read the boot loader's environment, so "
                                    "\"fw_setenv\" can hardly change it"))};
}
