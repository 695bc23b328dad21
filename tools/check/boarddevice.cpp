// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "tools/check/boardparts.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <utility>

#include <linux/watchdog.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace {

constexpr int timeoutSec = 30; // as the supervisor asks for
constexpr int feedSec = 10;

// What sysfs tells of the device.
class DeviceFacts
{
public:
    DeviceFacts(const Board &board, dev_t device)
    {
        const QDir all(board.file(QStringLiteral("/sys/class/watchdog")));
        const QString number = QStringLiteral("%1:%2").arg(major(device)).arg(minor(device));
        const QStringList names = all.entryList({QStringLiteral("watchdog*")}, QDir::Dirs);
        for (const QString &name : names) {
            // "/dev/watchdog" is "watchdog0" under a number of its own.
            const QString directory = all.filePath(name);
            const bool same = readText(directory + QStringLiteral("/dev")).trimmed() == number;
            if (same || (m_directory.isEmpty() && name == QLatin1String("watchdog0")))
                m_directory = directory;
        }
    }

    bool areThere() const { return !m_directory.isEmpty(); }

    QString text(const char *name) const
    {
        return readText(m_directory + QLatin1Char('/') + QLatin1String(name)).trimmed();
    }

    // Also in hexadecimal; 0 where it is not told.
    int number(const char *name) const { return text(name).toInt(nullptr, 0); }

private:
    QString m_directory;
};

// The process that has the device open.
struct Holder
{
    QString name; // as "NAME (NUMBER)"; empty: none is seen
    bool isSupervisor = false;
};

Holder findHolder(const Board &board)
{
    const QString supervisor =
        QFileInfo(board.programDir).canonicalFilePath() + QStringLiteral("/watchdog");
    const QDir table(board.file(QStringLiteral("/proc")));
    const QStringList entries = table.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString &entry : entries) {
        const QString process = table.filePath(entry);
        if (!entry.at(0).isDigit())
            continue;
        const QDir descriptors(process + QStringLiteral("/fd"));
        const QStringList links =
            descriptors.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
        for (const QString &link : links) {
            if (!QFile::symLinkTarget(descriptors.filePath(link))
                     .startsWith(QLatin1String("/dev/watchdog")))
                continue;
            const QString name = readText(process + QStringLiteral("/comm")).trimmed();
            return {quoted(name) + QStringLiteral(" (") + entry + QLatin1Char(')'),
                    QFile::symLinkTarget(process + QStringLiteral("/exe")) == supervisor};
        }
    }
    return {};
}

Findings checkTimeout(const DeviceFacts &facts, bool isFedBySupervisor)
{
    const int own = facts.number("timeout");
    const int least = facts.number("min_timeout");
    const int most = facts.number("max_timeout");
    const int options = facts.number("options");
    const bool refused = (most > 0 && timeoutSec > most) || timeoutSec < least
        || (options != 0 && (options & WDIOF_SETTIMEOUT) == 0) || isFedBySupervisor;
    if (!refused || own == 0 || own == timeoutSec)
        return {};
    QString consequence = QStringLiteral("so that a board that hangs is reset later");
    if (own <= feedSec)
        consequence =
            QStringLiteral("which resets the board again and again, as it is fed every 10 s");
    else if (own < timeoutSec)
        consequence =
            QStringLiteral("so a wait that the supervisor is made for can reset the board");
    return {
        boardError("device-timeout",
                   QStringLiteral("the watchdog device does not take 30 s and keeps its %1 s, %2")
                       .arg(own)
                       .arg(consequence))};
}

// A supervisor that ends closes the device without the character that would stop it.
Findings checkClose(const DeviceFacts &facts)
{
    const int options = facts.number("options");
    if (options == 0 || (options & WDIOF_MAGICCLOSE) != 0
        || facts.text("nowayout") != QLatin1String("0"))
        return {};
    return {
        boardError("device-close",
                   QStringLiteral("the watchdog device stops when it is closed, so nothing resets "
                                  "the board when the supervisor dies; the driver's \"nowayout\" "
                                  "would have it go on"))};
}

Findings checkHolder(const Board &board, const DeviceFacts &facts, const Holder &holder)
{
    if (holder.isSupervisor)
        return {};
    if (!holder.name.isEmpty()) {
        return {
            boardError("device-held",
                       QStringLiteral("%1 holds the watchdog device, so the supervisor cannot open "
                                      "it, and does not guard the board")
                           .arg(holder.name))};
    }
    if (board.seenByRoot && facts.text("state") == QLatin1String("active")) {
        return {boardWarning(
            "device-armed",
            QStringLiteral("the watchdog device counts although nobody has it open: "
                           "it resets the board unless the supervisor starts in time"))};
    }
    return {};
}

// Whether systemd feeds the device itself.
bool isOn(const QString &runtimeWatchdog)
{
    static const QRegularExpression off(QStringLiteral("^(0+ *[a-z]*|off|)$"));
    return !off.match(runtimeWatchdog.toLower()).hasMatch();
}

// The other daemons for the device that systemd or init scripts start.
QStringList daemonsAtBoot(const Board &board)
{
    static const QStringList daemons = {QStringLiteral("watchdog"), QStringLiteral("watchdogd"),
                                        QStringLiteral("wd_keepalive")};
    const QDir etc(board.file(QStringLiteral("/etc")));
    const auto below = [&etc](const QString &directory, const QString &pattern) {
        return QDir(etc.filePath(directory)).entryList({pattern}, QDir::AllEntries | QDir::System);
    };
    QStringList started;
    const QStringList wants = below(QStringLiteral("systemd/system"), QStringLiteral("*.wants"));
    for (const QString &target : wants)
        started += below(QStringLiteral("systemd/system/") + target, QStringLiteral("*.service"));
    QStringList places = below(QStringLiteral("."), QStringLiteral("rc?.d"));
    places.append(QStringLiteral("init.d"));
    for (const QString &place : std::as_const(places)) {
        const QStringList scripts = below(place, QStringLiteral("S??*"));
        for (const QString &script : scripts)
            started += script.mid(3) + QStringLiteral(".service");
    }
    QStringList found;
    for (const QString &daemon : daemons) {
        if (started.contains(daemon + QStringLiteral(".service")))
            found.append(daemon);
    }
    return found;
}

} // namespace

Findings checkDevice(const Board &board)
{
    // It is not opened, because that would start it.
    struct stat status = {};
    const QByteArray device = QFile::encodeName(board.file(QStringLiteral("/dev/watchdog")));
    if (::stat(device.constData(), &status) != 0 || !S_ISCHR(status.st_mode)) {
        return {boardError("device-missing",
                           QStringLiteral("\"/dev/watchdog\" is no device: the supervisor works "
                                          "without, and nothing resets a board that hangs"))};
    }
    const DeviceFacts facts(board, status.st_rdev);
    const Holder holder = findHolder(board);
    Findings findings = checkHolder(board, facts, holder);
    if (!facts.areThere()) {
        findings.append(boardWarning(
            "device-unseen",
            QStringLiteral("cannot see whether the watchdog device takes 30 s: "
                           "\"/sys/class/watchdog\" does not have it (CONFIG_WATCHDOG_SYSFS)")));
        return findings;
    }
    if (facts.text("identity") == QLatin1String("Software Watchdog")) {
        findings.append(
            boardWarning("device-software",
                         QStringLiteral("the watchdog device is the kernel's own software, "
                                        "which does not reset a board whose kernel hangs")));
    }
    return findings + checkTimeout(facts, holder.isSupervisor) + checkClose(facts);
}

Findings checkOtherOwners(const Board &board)
{
    Findings findings;
    const SystemdConfiguration systemd(board.root, QStringLiteral("system.conf"),
                                       {QStringLiteral("system.conf.d")});
    const QString runtimeWatchdog = systemd.value(QStringLiteral("Manager/RuntimeWatchdogSec"));
    if (isOn(runtimeWatchdog)) {
        findings.append(
            boardError("runtime-watchdog",
                       QStringLiteral("systemd opens the watchdog device itself, as its "
                                      "configuration has \"RuntimeWatchdogSec\" %1, so the "
                                      "supervisor cannot")
                           .arg(quoted(runtimeWatchdog))));
    }
    const QStringList daemons = daemonsAtBoot(board);
    for (const QString &daemon : daemons) {
        findings.append(
            boardError("other-daemon",
                       QStringLiteral("%1 is started at boot, too: only one can hold the "
                                      "watchdog device")
                           .arg(quoted(daemon))));
    }
    return findings;
}
