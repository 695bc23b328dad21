// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "platform/pynx_api.h"
#include "tools/check/boardparts.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>

#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/vfs.h>
#include <unistd.h>

namespace {

constexpr qint64 chunkBytes = 65536; // the last piece of output exceeds the limit
constexpr qint64 bytesPerKib = 1024;
constexpr char markerDirectory[] = "/home/root";
constexpr char snapshotDirectory[] = "/tmp/log";

// Why no file can be made in the directory, as the end of a sentence; empty: one can. Of rights,
// only root can tell.
QString obstacle(const Board &board, const QString &directory)
{
    const QByteArray path = QFile::encodeName(board.file(directory));
    struct stat status = {};
    if (::stat(path.constData(), &status) != 0) {
        if (errno == EACCES && !board.seenByRoot)
            return QString();
        return errno == ENOENT ? QStringLiteral("is missing") : QStringLiteral("cannot be reached");
    }
    if (!S_ISDIR(status.st_mode))
        return QStringLiteral("is no directory");
    if (::access(path.constData(), W_OK | X_OK) == 0)
        return QString();
    if (errno == EROFS)
        return QStringLiteral("is on a read-only file system");
    return board.seenByRoot ? QStringLiteral("cannot be written to") : QString();
}

QString sentence(const char *file, const QString &obstacle, const char *consequence)
{
    return QStringLiteral("%1 %2, %3")
        .arg(quoted(QLatin1String(file)), obstacle, QLatin1String(consequence));
}

bool isOnOtherFileSystem(const QString &one, const QString &other)
{
    struct stat first = {};
    struct stat second = {};
    return ::stat(QFile::encodeName(one).constData(), &first) == 0
        && ::stat(QFile::encodeName(other).constData(), &second) == 0
        && first.st_dev != second.st_dev;
}

// What both generations of the log take in the end.
qint64 logBytes(const Board &board)
{
    return 2 * static_cast<qint64>(board.options.logSize) + chunkBytes;
}

// Finds what does not fit. Root may use what the file system keeps in reserve.
Findings checkSpace(const Board &board, const char *rule, const QString &directory, qint64 needed,
                    const QString &purpose)
{
    struct statvfs status = {};
    if (::statvfs(QFile::encodeName(board.file(directory)).constData(), &status) != 0)
        return {};
    const auto free = static_cast<qint64>(status.f_bfree) * static_cast<qint64>(status.f_frsize);
    if (free >= needed)
        return {};
    const auto kib = [](qint64 bytes) { return QString::number(bytes / bytesPerKib); };
    return {boardWarning(rule,
                         QStringLiteral("the file system of %1 has %2 KiB left, and %3 takes up to "
                                        "%4 KiB more: the rest will be lost")
                             .arg(quoted(directory), kib(free), purpose, kib(needed)))};
}

Findings checkMissingUpload(const Board &board, const QString &path)
{
    QString existing = path;
    while (!QFileInfo::exists(board.file(existing)) && existing.size() > 1)
        existing = QFileInfo(existing).path();
    const QString why = obstacle(board, existing);
    if (why.isEmpty())
        return {};
    return {
        boardError("upload-directory",
                   QStringLiteral("%1 is missing and cannot be made, as %2 %3: no archive is made")
                       .arg(quoted(path), quoted(existing), why))};
}

// What others may do in the upload directory. The account that collects the archives need not be
// root.
Findings checkUploadRights(const Board &board, const QString &path)
{
    struct stat status = {};
    const QByteArray file = QFile::encodeName(board.file(path));
    if (::lstat(file.constData(), &status) == 0 && S_ISLNK(status.st_mode) && status.st_uid != 0) {
        return {boardWarning("upload-link",
                             QStringLiteral("%1 is a link that belongs not to root but to user %2, "
                                            "who decides where the archives are written")
                                 .arg(quoted(path))
                                 .arg(status.st_uid))};
    }
    if (::stat(file.constData(), &status) != 0)
        return {};
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) == 0) {
        return {boardWarning("upload-rights",
                             QStringLiteral("only the owner may write in %1, so nobody else can "
                                            "remove an archive that was collected")
                                 .arg(quoted(path)))};
    }
    if ((status.st_mode & S_ISVTX) != 0) {
        return {boardWarning("upload-rights",
                             QStringLiteral("%1 has the sticky bit, so only root and its owner can "
                                            "remove an archive that was collected")
                                 .arg(quoted(path)))};
    }
    if ((status.st_mode & S_IWOTH) != 0 && !board.boardToolsInPath) {
        return {
            boardWarning("upload-rights",
                         QStringLiteral("everybody may place links in %1, and without the board "
                                        "tools root's \"tar\" writes where they lead")
                             .arg(quoted(path)))};
    }
    return {};
}

Findings checkUploadStorage(const Board &board, const QString &path)
{
    struct statfs status = {};
    if (::statfs(QFile::encodeName(board.file(path)).constData(), &status) != 0
        || (static_cast<unsigned>(status.f_type) != TMPFS_MAGIC
            && static_cast<unsigned>(status.f_type) != RAMFS_MAGIC))
        return {};
    return {boardWarning("upload-in-memory",
                         QStringLiteral("%1 is in memory: what is not collected before a reboot is "
                                        "lost with it, also the archive that tells its reason")
                             .arg(quoted(path)))};
}

} // namespace

Findings checkLog(const Board &board)
{
    const QString log = board.options.logFileName;
    if (log.isEmpty() || board.options.logSize == 0)
        return {};
    const QString directory = QFileInfo(log).path();
    const QString rotated = log + QStringLiteral(".0");
    const QFileInfo logFile(board.file(log));
    const QFileInfo rotatedFile(board.file(rotated));
    QString what = directory;
    QString why = obstacle(board, directory);
    bool canBeOpened = why.isEmpty() || logFile.exists();
    if (logFile.isDir() || (logFile.exists() && board.seenByRoot && !logFile.isWritable())) {
        what = log;
        why = logFile.isDir() ? QStringLiteral("is a directory")
                              : QStringLiteral("cannot be written to");
        canBeOpened = false;
    } else if (why.isEmpty() && rotatedFile.isDir()) {
        what = rotated;
        why = QStringLiteral("is a directory");
    }
    if (!why.isEmpty()) {
        const QString consequence = canBeOpened
            ? QStringLiteral(
                "the log cannot be rotated, and then the output goes to standard output")
            : QStringLiteral("the log cannot be opened, and the supervisor ends with status 1");
        return {boardError("log-directory",
                           QStringLiteral("%1 %2: %3").arg(quoted(what), why, consequence))};
    }
    return checkSpace(board, "log-space", directory,
                      logBytes(board) - logFile.size() - rotatedFile.size(),
                      QStringLiteral("the log with its \".0\""));
}

Findings checkSystem(const Board &board)
{
    Findings findings;
    if (!QFileInfo::exists(board.file(QStringLiteral("/proc/stat")))) {
        findings.append(
            boardError("proc-missing",
                       QStringLiteral("\"/proc\" is not mounted: no process is found, and "
                                      "no memory is told")));
    }
    if (!QFileInfo::exists(board.file(QStringLiteral("/dev/log")))) {
        findings.append(
            boardWarning("system-log",
                         QStringLiteral("\"/dev/log\" is missing: what the supervisor says "
                                        "to the system log is lost")));
    }
    return findings;
}

Findings checkMarker(const Board &board)
{
    QString why = obstacle(board, QLatin1String(markerDirectory));
    if (why.isEmpty()
        && QFileInfo(board.file(QLatin1String(markerDirectory) + QStringLiteral("/ro-test")))
               .isDir())
        why = QStringLiteral("has a directory \"ro-test\"");
    if (!why.isEmpty()) {
        return {boardError("marker-directory",
                           sentence(markerDirectory, why,
                                    "which counts as a root file system that failed: the board is "
                                    "rebooted 10 s after the start"))};
    }
    if (isOnOtherFileSystem(board.file(QLatin1String(markerDirectory)),
                            board.file(QStringLiteral("/")))) {
        return {boardWarning("marker-file-system",
                             QStringLiteral("%1 is not on the root file system, so nobody notices "
                                            "when that can no longer be written to")
                                 .arg(quoted(QLatin1String(markerDirectory))))};
    }
    return {};
}

Findings checkSnapshots(const Board &board)
{
    const QString why = obstacle(board, QLatin1String(snapshotDirectory));
    if (why.isEmpty())
        return {};
    return {
        boardError("snapshot-directory",
                   sentence(snapshotDirectory, why, "so there are no snapshots of the system"))};
}

Findings checkUpload(const Board &board)
{
    if (!board.makesReports())
        return {};
    const PynxWatchdogReportsConfig settings(
        PynxHash(board.setting(PynxWatchdogAutomaticReportingConfPath().base()).toHash()));
    const QString path = settings.uploadPath();
    if (!path.startsWith(QLatin1Char('/'))) // the check of the documents tells
        return {};
    if (!QFileInfo::exists(board.file(path)))
        return checkMissingUpload(board, path);
    const QString why = obstacle(board, path);
    if (!why.isEmpty()) {
        return {boardError("upload-directory",
                           QStringLiteral("%1 %2: no archive is made").arg(quoted(path), why))};
    }
    return checkUploadRights(board, path) + checkUploadStorage(board, path)
        + checkSpace(board, "upload-space", path, logBytes(board),
                     QStringLiteral("an archive of the log"));
}
