// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "smallfilesystem.h"
#include "testfiles.h"
#include "tools/check/board.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>
#include <functional>
#include <memory>

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr char program[] = "/usr/lib/pynx-watchdog";
constexpr char unit[] = "/usr/lib/systemd/system/pynx-watchdog.service";
constexpr char device[] = "/sys/class/watchdog/watchdog0/";
constexpr char reporting[] = "/usr/lib/pynx-watchdog/settings-default/WatchdogAutomaticReporting";

// A board below a directory, which lacks nothing; and how the supervisor is started on it.
class GoodBoard
{
public:
    GoodBoard()
        : m_directory(QCoreApplication::applicationDirPath() + QStringLiteral("/board-XXXXXX"))
    {
        for (const char *name : {"/home/root", "/proc", "/tmp/log", "/tmp/upload", "/usr/bin"})
            QDir().mkpath(path(name));
        setMode("/tmp/upload", 0777);
        write("/proc/stat", "cpu 1 2 3 4\n");
        write("/dev/log", "");
        link(QStringLiteral("/dev/null"), "/dev/watchdog"); // only looked at
        tell("identity", "i6300ESB timer");
        tell("timeout", "30");
        tell("min_timeout", "1");
        tell("max_timeout", "2046");
        tell("nowayout", "0");
        tell("options", "0x8180");
        tell("state", "inactive");
        tell("dev", "250:0");
        for (const char *name : {"awk", "flock", "free", "fw_setenv", "gzip", "head", "killall",
                                 "logger", "od", "readlink", "reboot", "sfuflags", "sh",
                                 "sha256sum", "stat", "sync", "timeout", "top", "touch"})
            tool(name);
        tool("tar", "GNU tar");
        tool("product");
        write("/usr/lib/pynx-watchdog/tools/tar", "");
        write(unit,
              "[Service]\n"
              "Environment=PATH=/usr/lib/pynx-watchdog/tools:/usr/bin\n"
              "OOMPolicy=continue\n");
        turnReports("true");
        options.logFileName = QStringLiteral("/tmp/log/application.log");
        options.logSize = 1024 * 1024;
        options.appPath = QStringLiteral("/usr/bin/product");
    }

    QString path(const char *name) const { return m_directory.path() + QLatin1String(name); }

    void write(const char *name, const QByteArray &text) const { writeFile(path(name), text); }

    void link(const QString &target, const char *name) const
    {
        QDir().mkpath(QFileInfo(path(name)).path());
        QVERIFY(QFile::link(target, path(name)));
    }

    void remove(const char *name) const
    {
        if (QFileInfo(path(name)).isDir())
            QVERIFY(QDir(path(name)).removeRecursively());
        else
            QVERIFY(QFile::remove(path(name)));
    }

    void setMode(const char *name, mode_t mode) const
    {
        QCOMPARE(::chmod(QFile::encodeName(path(name)).constData(), mode), 0);
    }

    void tool(const char *name, const QByteArray &text = QByteArray("#!/bin/sh\n")) const
    {
        const QByteArray path = QByteArray("/usr/bin/") + name;
        write(path.constData(), text);
        setMode(path.constData(), 0755);
    }

    // What sysfs says of the device.
    void tell(const char *name, const QByteArray &text) const
    {
        write((QByteArray(device) + name).constData(), text + '\n');
    }

    void turnReports(const QByteArray &value) const
    {
        write((QByteArray(reporting) + ".json").constData(),
              R"({"value": {"type": "bool", "bool": )" + value + "}}");
        uploadTo("/tmp/upload");
    }

    void uploadTo(const QByteArray &directory) const
    {
        write((QByteArray(reporting) + "Conf.json").constData(),
              R"({"value": {"type": "hash", "hash": {"uploadPath": ")" + directory
                  + R"(", "uploadFilePrefix": "report"}}})");
    }

    void dropIn(const QByteArray &text) const
    {
        write("/etc/systemd/system/pynx-watchdog.service.d/site.conf", "[Service]\n" + text + '\n');
    }

    void process(const QString &fd, const QString &exe) const
    {
        write("/proc/77/comm", "holder\n");
        link(fd, "/proc/77/fd/4");
        link(exe, "/proc/77/exe");
    }

    // The findings as "LEVEL RULE", but for those on what the process that runs the test may do.
    QStringList findings() const
    {
        QStringList result;
        const Findings all = checkBoard(options, path(program), m_directory.path());
        for (const Finding &finding : all) {
            const QString text = finding.toText();
            const QStringList rights = {QStringLiteral("not-root"), QStringLiteral("real-time"),
                                        QStringLiteral("reboot-right")};
            if (rights.contains(finding.rule))
                continue;
            if (!text.startsWith(QLatin1String("board: ")) || text.contains(QLatin1Char('\n')))
                result.append(text);
            result.append(text.section(QLatin1Char(':'), 1, 1).trimmed() + QLatin1Char(' ')
                          + finding.rule);
        }
        return result;
    }

    // What is told of the tools, as "TOOL: WHAT IT IS".
    QStringList tools() const
    {
        QStringList result;
        const auto explanations = explainBoard(options, path(program), m_directory.path());
        for (const Explanation &explanation : explanations) {
            const QString name = explanation.setting.section(QLatin1Char(' '), 1);
            const QString file = explanation.meaning == QLatin1String("missing")
                ? QString()
                : path("/usr/bin/") + name;
            if (explanation.value != file)
                result.append(explanation.value.toString());
            result.append(name + QStringLiteral(": ") + explanation.meaning);
        }
        return result;
    }

    CommandLine options;

private:
    QTemporaryDir m_directory;
};

using Change = std::function<void(GoodBoard &)>;

} // namespace

Q_DECLARE_METATYPE(Change)

class CheckBoardTest : public QObject
{
    Q_OBJECT

private slots:
    void findings_data();
    void findings();

    void consequenceOfAnotherTimeout_data();
    void consequenceOfAnotherTimeout();
    void otherFileSystemThanTheRoot();
    void fileSystemWithoutRoom();
    void readOnlyFileSystem();
    void uploadDirectoryBehindALink();
    void rotateOnlyNeedsTheLogAlone();
    void kindsOfTools_data();
    void kindsOfTools();
    void toolsThatAreCalled();
    void emptyMachine();
};

void CheckBoardTest::findings_data()
{
    QTest::addColumn<Change>("change");
    QTest::addColumn<QString>("expected"); // empty: nothing is found
    const auto row = [](const char *name, const char *expected, const Change &change) {
        QTest::newRow(name) << change << QString::fromLatin1(expected);
    };

    row("nothing missing", "", [](GoodBoard &) {});

    row("no directory of the marker", "error marker-directory",
        [](GoodBoard &b) { b.remove("/home/root"); });
    row("a file in the place of the marker's directory", "error marker-directory",
        [](GoodBoard &b) {
            b.remove("/home/root");
            b.write("/home/root", "");
        });
    row("a directory in the marker's place", "error marker-directory",
        [](GoodBoard &b) { QDir().mkpath(b.path("/home/root/ro-test")); });
    row("an old marker", "", [](GoodBoard &b) { b.write("/home/root/ro-test", ""); });

    row("no directory of the snapshots", "error snapshot-directory", [](GoodBoard &b) {
        b.remove("/tmp/log");
        b.options.logFileName = QStringLiteral("/tmp/application.log");
    });
    row("no directory of the log", "error log-directory",
        [](GoodBoard &b) { b.options.logFileName = QStringLiteral("/var/log/application.log"); });
    row("no log, as it has no size", "", [](GoodBoard &b) {
        b.options.logFileName = QStringLiteral("/var/log/application.log");
        b.options.logSize = 0;
    });
    row("a directory in the log's place", "error log-directory",
        [](GoodBoard &b) { QDir().mkpath(b.path("/tmp/log/application.log")); });
    row("a directory in the place of its .0", "error log-directory",
        [](GoodBoard &b) { QDir().mkpath(b.path("/tmp/log/application.log.0")); });
    row("logs of an earlier run", "", [](GoodBoard &b) {
        b.write("/tmp/log/application.log", "text");
        b.write("/tmp/log/application.log.0", "text");
    });

    const auto guard = [](GoodBoard &b, const QStringList &arguments) {
        b.tool("pynx-watchdog-guard");
        b.options.appPath = QStringLiteral("pynx-watchdog-guard");
        b.options.appArgs = arguments;
    };
    row("a guarded application", "", [=](GoodBoard &b) {
        guard(b, {QStringLiteral("--"), QStringLiteral("/usr/bin/product"), QStringLiteral("x")});
    });
    row("a guarded application that is missing", "error application",
        [=](GoodBoard &b) { guard(b, {QStringLiteral("/usr/bin/missing")}); });
    row("a directory for stacks that is missing", "warning guard-stacks", [=](GoodBoard &b) {
        guard(b,
              {QStringLiteral("--stacks"), QStringLiteral("/stacks"), QStringLiteral("product")});
    });
    row("no stacks", "", [=](GoodBoard &b) {
        guard(b, {QStringLiteral("--stacks"), QString(), QStringLiteral("product")});
    });
    row("an application that is missing", "error application",
        [](GoodBoard &b) { b.remove("/usr/bin/product"); });
    row("an application in the PATH", "",
        [](GoodBoard &b) { b.options.appPath = QStringLiteral("product"); });
    row("an application that is not in the PATH", "error application",
        [](GoodBoard &b) { b.options.appPath = QStringLiteral("other"); });
    row("a directory in the application's place", "error application",
        [](GoodBoard &b) { b.options.appPath = QStringLiteral("/usr/bin"); });
    row("an unknown account", "error account",
        [](GoodBoard &b) { b.options.userName = QStringLiteral("no-such-account"); });
    row("root as the account", "warning account",
        [](GoodBoard &b) { b.options.userName = QStringLiteral("root"); });

    row("no system log", "warning system-log", [](GoodBoard &b) { b.remove("/dev/log"); });
    row("no process table", "error proc-missing", [](GoodBoard &b) { b.remove("/proc"); });

    row("an upload directory that can be made", "",
        [](GoodBoard &b) { b.uploadTo("/data/new/upload"); });
    row("an upload directory that cannot be made", "error upload-directory", [](GoodBoard &b) {
        b.write("/data", "");
        b.uploadTo("/data/upload");
    });
    row("a file in the upload directory's place", "error upload-directory", [](GoodBoard &b) {
        b.write("/data", "");
        b.uploadTo("/data");
    });
    row("a file in its place without reports", "", [](GoodBoard &b) {
        b.write("/data", "");
        b.turnReports("false");
        b.uploadTo("/data");
    });
    row("an upload directory of the owner's", "warning upload-rights",
        [](GoodBoard &b) { b.setMode("/tmp/upload", 0755); });
    row("an upload directory of a group", "",
        [](GoodBoard &b) { b.setMode("/tmp/upload", 02770); });
    row("an upload directory with the sticky bit", "warning upload-rights",
        [](GoodBoard &b) { b.setMode("/tmp/upload", 01777); });
    row("settings that are a FIFO", "", [](GoodBoard &b) {
        b.remove("/usr/lib/pynx-watchdog/settings-default/WatchdogAutomaticReporting.json");
        QCOMPARE(::mkfifo(QFile::encodeName(b.path(reporting)) + ".json", 0666), 0);
    });

    row("no device", "error device-missing", [](GoodBoard &b) { b.remove("/dev/watchdog"); });
    row("a file in the device's place", "error device-missing", [](GoodBoard &b) {
        b.remove("/dev/watchdog");
        b.write("/dev/watchdog", "");
    });
    row("no word of the device in sysfs", "warning device-unseen",
        [](GoodBoard &b) { b.remove("/sys"); });
    row("another device in sysfs", "", [](GoodBoard &b) {
        // The first watchdog has 60 s at most, but the device is the second.
        b.tell("timeout", "60");
        b.tell("min_timeout", "60");
        const QByteArray other = "/sys/class/watchdog/watchdog1/";
        b.write((other + "dev").constData(), "1:3\n");
        b.write((other + "timeout").constData(), "60\n");
    });
    row("a driver for 16 s", "error device-timeout", [](GoodBoard &b) {
        b.tell("timeout", "15");
        b.tell("max_timeout", "16");
    });
    row("30 s as its most", "", [](GoodBoard &b) { b.tell("max_timeout", "30"); });
    row("30 s as its least", "", [](GoodBoard &b) {
        b.tell("timeout", "60");
        b.tell("min_timeout", "30");
    });
    row("a most that is not told", "", [](GoodBoard &b) {
        b.tell("timeout", "15");
        b.tell("max_timeout", "0");
    });
    row("a driver from 60 s", "error device-timeout", [](GoodBoard &b) {
        b.tell("timeout", "60");
        b.tell("min_timeout", "60");
    });
    row("a driver that cannot be set", "error device-timeout", [](GoodBoard &b) {
        b.tell("timeout", "60");
        b.tell("options", "0x8100");
    });
    row("one that cannot, and has 30 s", "", [](GoodBoard &b) { b.tell("options", "0x8100"); });
    row("a driver that stops when closed", "error device-close",
        [](GoodBoard &b) { b.tell("options", "0x8080"); });
    row("such a one with nowayout", "", [](GoodBoard &b) {
        b.tell("options", "0x8080");
        b.tell("nowayout", "1");
    });
    row("a software watchdog", "warning device-software",
        [](GoodBoard &b) { b.tell("identity", "Software Watchdog"); });
    // Only root sees all that may hold it.
    const char *const armed = ::geteuid() == 0 ? "warning device-armed" : "";
    row("a device that counts and nobody holds", armed,
        [](GoodBoard &b) { b.tell("state", "active"); });
    row("another process that holds it", "error device-held", [](GoodBoard &b) {
        b.tell("state", "active");
        b.process(QStringLiteral("/dev/watchdog0"), QStringLiteral("/usr/sbin/other"));
    });
    row("the supervisor that holds it", "", [](GoodBoard &b) {
        b.tell("state", "active");
        b.process(QStringLiteral("/dev/watchdog"), b.path(program) + QStringLiteral("/watchdog"));
    });
    row("the supervisor, and a driver that shortened 30 s", "error device-timeout",
        [](GoodBoard &b) {
            b.tell("timeout", "16");
            b.process(QStringLiteral("/dev/watchdog"),
                      b.path(program) + QStringLiteral("/watchdog"));
        });
    row("a process with another file", "", [](GoodBoard &b) {
        b.process(QStringLiteral("/dev/null"), QStringLiteral("/usr/sbin/other"));
    });

    const char *const systemConf = "/etc/systemd/system.conf";
    row("systemd feeds the device", "error runtime-watchdog",
        [=](GoodBoard &b) { b.write(systemConf, "[Manager]\nRuntimeWatchdogSec=30\n"); });
    row("a drop-in switches that off", "", [=](GoodBoard &b) {
        b.write(systemConf, "[Manager]\nRuntimeWatchdogSec=30\n");
        b.write("/run/systemd/system.conf.d/a.conf", "[Manager]\nRuntimeWatchdogSec = off\n");
    });
    row("a drop-in of the vendor's switches it on", "error runtime-watchdog", [=](GoodBoard &b) {
        b.write("/usr/lib/systemd/system.conf.d/a.conf", "[Manager]\nRuntimeWatchdogSec=1min\n");
    });
    row("a drop-in of the same name replaces that", "", [=](GoodBoard &b) {
        b.write("/usr/lib/systemd/system.conf.d/a.conf", "[Manager]\nRuntimeWatchdogSec=1min\n");
        b.write("/etc/systemd/system.conf.d/a.conf", "[Manager]\nRebootWatchdogSec=30s\n");
    });
    row("it is zero", "",
        [=](GoodBoard &b) { b.write(systemConf, "[Manager]\nRuntimeWatchdogSec=0s\n"); });
    row("it is a comment", "",
        [=](GoodBoard &b) { b.write(systemConf, "[Manager]\n#RuntimeWatchdogSec=30\n"); });
    row("it is in the wrong section", "",
        [=](GoodBoard &b) { b.write(systemConf, "[Unit]\nRuntimeWatchdogSec=30\n"); });

    row("another daemon as a unit", "error other-daemon", [](GoodBoard &b) {
        b.link(QStringLiteral("/lib/systemd/system/watchdog.service"),
               "/etc/systemd/system/multi-user.target.wants/watchdog.service");
    });
    row("another daemon as an init script", "error other-daemon",
        [](GoodBoard &b) { b.write("/etc/init.d/S15watchdog", ""); });
    row("another daemon in a run level", "error other-daemon", [](GoodBoard &b) {
        b.link(QStringLiteral("../init.d/watchdogd"), "/etc/rc2.d/S03watchdogd");
    });
    row("a daemon that is not started", "", [](GoodBoard &b) {
        b.write("/etc/init.d/watchdog", "");
        b.write("/etc/rc2.d/K01watchdog", "");
        b.write("/usr/lib/systemd/system/watchdog.service", "");
    });

    for (const char *name :
         {"killall", "reboot", "sfuflags", "fw_setenv", "sh", "head", "top", "free", "tar"}) {
        const QByteArray file = QByteArray("/usr/bin/") + name;
        row(QByteArray("without ") + name, "error tool-missing",
            [=](GoodBoard &b) { b.remove(file.constData()); });
    }
    row("a tool that cannot be executed", "error tool-missing",
        [](GoodBoard &b) { b.setMode("/usr/bin/top", 0644); });
    row("without tar and reports", "", [](GoodBoard &b) {
        b.remove("/usr/bin/tar");
        b.turnReports("false");
    });
    row("without gzip", "error tool-missing, warning board-tools-need",
        [](GoodBoard &b) { b.remove("/usr/bin/gzip"); });
    row("without flock", "warning board-tools-need",
        [](GoodBoard &b) { b.remove("/usr/bin/flock"); });
    row("that without board tools", "", [](GoodBoard &b) {
        b.remove("/usr/bin/flock");
        b.remove("/usr/lib/pynx-watchdog/tools");
        b.turnReports("false");
    });
    row("GNU tar without board tools", "warning tar-alone", [](GoodBoard &b) {
        b.remove("/usr/lib/pynx-watchdog/tools");
        b.setMode("/tmp/upload", 02770);
    });
    row("another tar without board tools", "", [](GoodBoard &b) {
        b.remove("/usr/lib/pynx-watchdog/tools");
        b.setMode("/tmp/upload", 02770);
        b.tool("tar", "busybox");
    });
    row("links in the upload directory without board tools", "warning upload-rights",
        [](GoodBoard &b) {
            b.remove("/usr/lib/pynx-watchdog/tools");
            b.tool("tar", "busybox");
        });

    row("the PATH of a drop-in", "warning board-tools", [](GoodBoard &b) {
        b.turnReports("false");
        b.dropIn("Environment=\"A=b\" PATH=/usr/bin:/usr/lib/pynx-watchdog/tools");
    });
    row("the PATH of a file of the unit's", "warning board-tools", [](GoodBoard &b) {
        b.turnReports("false");
        b.dropIn("EnvironmentFile=-/etc/default/pynx-watchdog");
        b.write("/etc/default/pynx-watchdog", "APPLICATION=x\nPATH=/usr/bin\n");
    });
    row("one that is a comment there", "", [](GoodBoard &b) {
        b.dropIn("EnvironmentFile=-/etc/default/pynx-watchdog");
        b.write("/etc/default/pynx-watchdog", "# PATH=/usr/bin\n");
    });
    row("the init script's PATH", "", [](GoodBoard &b) {
        b.remove(unit);
        b.write("/etc/init.d/S99pynx-watchdog", "");
    });

    row("a boot loader's environment that cannot be read", "warning boot-environment",
        [](GoodBoard &b) { b.tool("fw_printenv", "#!/bin/sh\nexit 1\n"); });
    row("one that can be read", "",
        [](GoodBoard &b) { b.tool("fw_printenv", "#!/bin/sh\necho a=b\n"); });

    row("without an OOM policy", "error oom-policy", [](GoodBoard &b) {
        b.write(unit, "[Service]\nEnvironment=PATH=/usr/lib/pynx-watchdog/tools:/usr/bin");
    });
    row("an OOM policy of a drop-in", "error oom-policy",
        [](GoodBoard &b) { b.dropIn("OOMPolicy=kill"); });
    row("the OOM policy of the system", "", [=](GoodBoard &b) {
        b.dropIn("OOMPolicy=");
        b.write(systemConf, "[Manager]\nDefaultOOMPolicy=continue\n");
    });
    row("an account in the unit", "error unit-user",
        [](GoodBoard &b) { b.dropIn("User=product"); });
    row("root in the unit", "", [](GoodBoard &b) { b.dropIn("User=root"); });
    for (const char *name : {"PrivateDevices", "PrivateTmp", "ProtectHome"}) {
        const QByteArray setting = name;
        row(setting + " in the unit", "error unit-sandbox",
            [=](GoodBoard &b) { b.dropIn(setting + "=yes"); });
        row("no " + setting + " in the unit", "", [=](GoodBoard &b) { b.dropIn(setting + "=no"); });
    }
}

void CheckBoardTest::findings()
{
    QFETCH(Change, change);
    QFETCH(QString, expected);
    GoodBoard board;
    change(board);
    QCOMPARE(board.findings().join(QStringLiteral(", ")), expected);
}

void CheckBoardTest::consequenceOfAnotherTimeout_data()
{
    QTest::addColumn<QByteArray>("timeout");
    QTest::addColumn<QString>("consequence");
    QTest::newRow("not longer than between two feeds") << QByteArray("10") << "again and again";
    QTest::newRow("shorter than 30 s") << QByteArray("11") << "can reset the board";
    QTest::newRow("longer than 30 s") << QByteArray("60") << "is reset later";
}

void CheckBoardTest::consequenceOfAnotherTimeout()
{
    QFETCH(QByteArray, timeout);
    QFETCH(QString, consequence);
    const GoodBoard board;
    board.tell("timeout", timeout);
    board.tell("options", "0x8100"); // it cannot be set
    const Findings found = checkBoard(board.options, board.path(program), board.path(""));
    QCOMPARE(std::count_if(found.cbegin(), found.cend(),
                           [&](const Finding &finding) {
                               return finding.rule == QLatin1String("device-timeout")
                                   && finding.message.contains(consequence);
                           }),
             1);
}

void CheckBoardTest::otherFileSystemThanTheRoot()
{
    const GoodBoard board;
    const SmallFileSystem mounted(board.path("/home/root"));
    if (!mounted.isMounted())
        QSKIP("mounting is not allowed");
    QCOMPARE(board.findings(), QStringList(QStringLiteral("warning marker-file-system")));
}

void CheckBoardTest::fileSystemWithoutRoom()
{
    GoodBoard board;
    const SmallFileSystem logs(board.path("/tmp/log"));
    if (!logs.isMounted())
        QSKIP("mounting is not allowed");
    QCOMPARE(board.findings(), QStringList(QStringLiteral("warning log-space")));
    board.options.logSize = 0;
    QCOMPARE(board.findings(), QStringList());

    // The tool cannot see that an archive is smaller than the log.
    board.options.logSize = 1024 * 1024;
    board.options.logFileName = QStringLiteral("/home/application.log");
    const SmallFileSystem upload(board.path("/tmp/upload"));
    QVERIFY(upload.isMounted());
    QCOMPARE(board.findings(),
             QStringList({QStringLiteral("warning upload-in-memory"),
                          QStringLiteral("warning upload-space")}));
}

void CheckBoardTest::readOnlyFileSystem()
{
    const GoodBoard board;
    const QByteArray directories[] = {QFile::encodeName(board.path("/home/root")),
                                      QFile::encodeName(board.path("/tmp"))};
    const SmallFileSystem home(board.path("/home/root"));
    if (!home.isMounted())
        QSKIP("mounting is not allowed");
    const SmallFileSystem temporary(board.path("/tmp"));
    QVERIFY(temporary.isMounted());
    QVERIFY(QDir().mkpath(board.path("/tmp/log")));
    QVERIFY(QDir().mkpath(board.path("/tmp/upload")));
    for (const QByteArray &directory : directories)
        QCOMPARE(::mount(nullptr, directory.constData(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr),
                 0);
    QCOMPARE(board.findings(),
             QStringList({QStringLiteral("error log-directory"),
                          QStringLiteral("error marker-directory"),
                          QStringLiteral("error snapshot-directory"),
                          QStringLiteral("error upload-directory")}));
}

void CheckBoardTest::uploadDirectoryBehindALink()
{
    const GoodBoard board;
    board.link(QStringLiteral("tmp/upload"), "/upload");
    board.uploadTo("/upload");
    const QByteArray link = QFile::encodeName(board.path("/upload"));
    constexpr uid_t other = 1234;
    if (::lchown(link.constData(), other, other) != 0)
        QSKIP("only root can give a link away");
    QCOMPARE(board.findings(), QStringList(QStringLiteral("warning upload-link")));
    QCOMPARE(::lchown(link.constData(), 0, 0), 0);
    QCOMPARE(board.findings(), QStringList());
}

void CheckBoardTest::rotateOnlyNeedsTheLogAlone()
{
    GoodBoard board;
    for (const char *path : {"/dev", "/home", "/sys", "/usr/bin"})
        board.remove(path);
    QVERIFY(!board.findings().isEmpty());
    board.options.rotateOnly = true;
    QCOMPARE(board.findings(), QStringList(QStringLiteral("error application")));
    board.options.appPath.clear();
    QCOMPARE(board.findings(), QStringList());
    board.remove("/tmp/log");
    QCOMPARE(board.findings(), QStringList(QStringLiteral("error log-directory")));
}

void CheckBoardTest::kindsOfTools_data()
{
    QTest::addColumn<QByteArray>("program");
    QTest::addColumn<QString>("kind");
    QTest::newRow("script") << QByteArray("#!/bin/sh\n# BusyBox\n") << "script";
    QTest::newRow("unknown") << QByteArray("\177ELF") << "another program";
    QTest::newRow("empty") << QByteArray() << "another program";
    for (const char *kind :
         {"BusyBox", "GNU tar", "GNU coreutils", "procps", "PSmisc", "systemctl"}) {
        QTest::newRow(kind) << QByteArray("\177ELF\0\0", 6) + kind + '\0' << kind;
    }
}

void CheckBoardTest::kindsOfTools()
{
    QFETCH(QByteArray, program);
    QFETCH(QString, kind);
    const GoodBoard board;
    board.tool("top", program);
    QVERIFY(board.tools().contains(QStringLiteral("top: ") + kind));
}

void CheckBoardTest::toolsThatAreCalled()
{
    GoodBoard board;
    board.remove("/usr/bin/free");
    const QStringList expected =
        QStringLiteral("killall: script, reboot: script, sfuflags: script, fw_setenv: script, "
                       "sh: script, top: script, head: script, free: missing, tar: GNU tar")
            .split(QStringLiteral(", "));
    QCOMPARE(board.tools(), expected);
    board.turnReports("false");
    QCOMPARE(board.tools(), expected.mid(0, expected.size() - 1));
    board.options.rotateOnly = true;
    QCOMPARE(board.tools(), QStringList());
}

void CheckBoardTest::emptyMachine()
{
    GoodBoard board;
    for (const char *path : {"/dev", "/home", "/proc", "/sys", "/tmp", "/usr"})
        board.remove(path);
    const QStringList found = board.findings();
    for (const char *expected :
         {"error log-directory", "error proc-missing", "warning system-log",
          "error marker-directory", "error snapshot-directory", "error device-missing"})
        QVERIFY2(found.contains(QLatin1String(expected)), expected);
}

QTEST_GUILESS_MAIN(CheckBoardTest)
#include "tst_checkboard.moc"
