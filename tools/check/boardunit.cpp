// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/boardparts.h"
#include "tools/check/systemdconfiguration.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <utility>

namespace {

// The init script starts the supervisor with this PATH behind the board tools.
constexpr char initScriptPath[] = "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

bool hasInitScript(const Board &board)
{
    const QDir scripts(board.file(QStringLiteral("/etc/init.d")));
    return !scripts.entryList({QStringLiteral("*pynx-watchdog")}, QDir::Files).isEmpty();
}

// The PATH that the unit gives the supervisor. Without one there, the supervisor is taken to have
// the PATH of this process.
QString unitsPath(const Board &board, const SystemdConfiguration &unit)
{
    static const QRegularExpression assignment(QStringLiteral("(?:^|[\\s\"'])PATH=([^\\s\"']*)"));
    QStringList texts = unit.values(QStringLiteral("Service/Environment"));
    const QStringList files = unit.values(QStringLiteral("Service/EnvironmentFile"));
    for (const QString &file : files) {
        const int begin = file.startsWith(QLatin1Char('-')) ? 1 : 0; // it may be missing then
        texts += readText(board.file(file.mid(begin))).split(QLatin1Char('\n'));
    }
    QString path = QFile::decodeName(qgetenv("PATH"));
    for (const QString &text : std::as_const(texts)) {
        const QRegularExpressionMatch match = assignment.match(text);
        if (match.hasMatch() && !text.startsWith(QLatin1Char('#')))
            path = match.captured(1);
    }
    return path;
}

} // namespace

SystemdConfiguration readUnit(const QString &root)
{
    return SystemdConfiguration(root, QStringLiteral("system/pynx-watchdog.service"),
                                {QStringLiteral("system/service.d"),
                                 QStringLiteral("system/pynx-.service.d"),
                                 QStringLiteral("system/pynx-watchdog.service.d")});
}

void findTools(Board &board, const SystemdConfiguration &unit)
{
    const QString boardTools =
        QFileInfo(board.programDir + QStringLiteral("/tools")).canonicalFilePath();
    QString path = unitsPath(board, unit);
    if (!unit.exists() && hasInitScript(board)) {
        path = QLatin1String(initScriptPath);
        board.boardToolsInPath = !boardTools.isEmpty();
    }
    const QStringList directories = path.split(QLatin1Char(':'), QString::SkipEmptyParts);
    for (const QString &name : directories) {
        const QString directory = board.file(name);
        if (boardTools.isEmpty() || QFileInfo(directory).canonicalFilePath() != boardTools)
            board.ownPath.append(directory);
        else if (board.tool(QStringLiteral("tar")).isEmpty())
            board.boardToolsInPath = true; // they come before the board's own
    }
}

Findings checkUnit(const Board &board, const SystemdConfiguration &unit)
{
    Findings findings;
    if (!unit.exists())
        return findings;
    const SystemdConfiguration systemd(board.root, QStringLiteral("system.conf"),
                                       {QStringLiteral("system.conf.d")});
    QString policy = unit.value(QStringLiteral("Service/OOMPolicy"));
    if (policy.isEmpty())
        policy = systemd.value(QStringLiteral("Manager/DefaultOOMPolicy"));
    if (policy != QLatin1String("continue")) {
        findings.append(boardError(
            "oom-policy",
            QStringLiteral(
                "\"OOMPolicy\" of the unit is not \"continue\": when memory runs out, and the "
                "kernel kills the application, systemd ends the supervisor, too")));
    }
    const QString user = unit.value(QStringLiteral("Service/User"));
    if (!user.isEmpty() && user != QLatin1String("root") && user != QLatin1String("0")) {
        findings.append(
            boardError("unit-user",
                       QStringLiteral("\"User\" of the unit is %1: without root's rights the "
                                      "supervisor cannot guard or reboot the board")
                           .arg(quoted(user))));
    }
    struct Sandbox
    {
        const char *setting;
        const char *hides;
    };
    static const Sandbox sandboxes[] = {
        {"PrivateDevices", "\"/dev/watchdog\""},
        {"PrivateTmp", "\"/tmp/log\""},
        {"ProtectHome", "\"/home/root\""},
    };
    static const QStringList off = {
        QString(),           QStringLiteral("no"), QStringLiteral("false"), QStringLiteral("off"),
        QStringLiteral("0"), QStringLiteral("n"),  QStringLiteral("f")};
    for (const Sandbox &sandbox : sandboxes) {
        const QString value =
            unit.value(QLatin1String("Service/") + QLatin1String(sandbox.setting));
        if (!off.contains(value.toLower())) {
            findings.append(
                boardError("unit-sandbox",
                           QStringLiteral("%1 of the unit is %2, which takes %3 from the "
                                          "supervisor")
                               .arg(quoted(QLatin1String(sandbox.setting)), quoted(value),
                                    QLatin1String(sandbox.hides))));
        }
    }
    return findings;
}
