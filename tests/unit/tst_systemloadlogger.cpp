// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "health/systemloadlogger.h"
#include "processresources.h"
#include "standarderrorcapture.h"
#include "standintools.h"
#include "testfiles.h"

#include <QDir>
#include <QElapsedTimer>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QVector>
#include <QtTest>

#include <csignal>
#include <memory>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

// In this time a stand-in writes its output before it is killed, also on a busy machine.
constexpr int hangLimitMs = 3000;

// The sizes of the files at each fsync(); -1 means no file.
QVector<qint64> &syncedSizes()
{
    static QVector<qint64> all;
    return all;
}

bool tick(SystemLoadLogger &logger)
{
    return QMetaObject::invokeMethod(&logger, "on_timer_timeout", Qt::DirectConnection);
}

// The logger is never deleted, as in the supervisor, because its timer would have no owner. The
// list is not deleted either, so that a leak checker finds all loggers in use.
SystemLoadLogger &makeLogger(const QString &filePath,
                             int commandTimeoutMs = SystemLoadLogger::commandTimeLimitMs)
{
    static auto &loggers = *new QVector<SystemLoadLogger *>;
    loggers.append(new SystemLoadLogger(filePath, nullptr, commandTimeoutMs));
    return *loggers.last();
}

} // namespace

// Replaces the C library's function in this process, because a test cannot see afterwards what a
// file held when it was made durable.
extern "C" int fsync(int fd)
{
    struct stat status = {};
    syncedSizes().append(::fstat(fd, &status) == 0 ? status.st_size : -1);
    return static_cast<int>(::syscall(SYS_fsync, fd));
}

class SystemLoadLoggerTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void shellRunsTopWithItsLimitsAndThenFree();
    void keepsTheLastThreeSnapshots();
    void output_data();
    void output();
    void textIsUtf8InEveryLocale();

    void commandsAreGivenThirtySeconds();
    void hungCommandIsKilledAndItsOutputKept();
    void hungTopOutlivesItsRound();

    void syncComesBeforeTheText();
    void fileThatCannotBeOpenedIsToldAndSnapshotsRotate();

    void copyOfMissingFileIsNone();
    void copyIsMadeAndNeverOverwritten();
    void copyThatFailsIsNotNoticed();

    void takesPicturesFromStartToStop();

private:
    QString path(const QString &name) const { return m_directory->filePath(name); }
    QString file() const { return path(QStringLiteral("system")); }
    // Commands that number their runs: "top 1", "free 1", "top 2" …
    void useCountingCommands();
    void useRealShell();

    std::unique_ptr<StandInTools> m_tools;
    std::unique_ptr<QTemporaryDir> m_directory;
};

void SystemLoadLoggerTest::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    m_tools = std::make_unique<StandInTools>();
    m_tools->add(QStringLiteral("sh"), QStringLiteral("echo top"));
    m_tools->add(QStringLiteral("free"), QStringLiteral("echo free"));
    syncedSizes().clear();
}

void SystemLoadLoggerTest::cleanup()
{
    m_tools.reset();
    m_directory.reset();
    QVERIFY(!hasChildren());
}

void SystemLoadLoggerTest::useCountingCommands()
{
    const QString count = QStringLiteral("n=0; [ ! -e '%1' ] || read n < '%1'\n"
                                         "n=$((n + 1)); echo $n > '%1'; echo %2 $n");
    m_tools->add(QStringLiteral("sh"),
                 count.arg(path(QStringLiteral("tops")), QStringLiteral("top")));
    m_tools->add(QStringLiteral("free"),
                 count.arg(path(QStringLiteral("frees")), QStringLiteral("free")));
}

void SystemLoadLoggerTest::useRealShell()
{
    m_tools->add(QStringLiteral("sh"), QStringLiteral("exec /bin/sh \"$@\""));
    m_tools->add(QStringLiteral("head"), QStringLiteral("exec /usr/bin/head \"$@\""));
}

void SystemLoadLoggerTest::shellRunsTopWithItsLimitsAndThenFree()
{
    useRealShell();
    m_tools->add(QStringLiteral("top"),
                 QStringLiteral("echo columns $COLUMNS\n"
                                "n=2; while [ $n -le 60 ]; do echo line $n; n=$((n + 1)); done"));
    QVERIFY(tick(makeLogger(file())));

    const QStringList calls = m_tools->calls();
    QCOMPARE(calls.first(), QStringLiteral("sh|-c|COLUMNS=115 top -b -n1 | head -n 50"));
    QVERIFY(calls.contains(QStringLiteral("top|-b|-n1")));
    QVERIFY(calls.contains(QStringLiteral("head|-n|50")));
    QCOMPARE(calls.last(), QStringLiteral("free"));
    QByteArray expected = "columns 115\n";
    for (int line = 2; line <= 50; ++line)
        expected += "line " + QByteArray::number(line) + '\n';
    QCOMPARE(readFile(file()), expected + "\nfree\n\n");
}

void SystemLoadLoggerTest::keepsTheLastThreeSnapshots()
{
    useCountingCommands();
    writeFile(file(), QByteArray(1000, 'x')); // an earlier supervisor has left it
    SystemLoadLogger &logger = makeLogger(file());
    QByteArrayList snapshots;
    for (int i = 1; i <= 5; ++i) {
        QVERIFY(tick(logger));
        const QByteArray number = QByteArray::number(i);
        snapshots += "top " + number + "\n\nfree " + number + "\n\n";
        QCOMPARE(readFile(file()), snapshots.mid(qMax(0, i - 3)).join());
    }
}

void SystemLoadLoggerTest::output_data()
{
    QTest::addColumn<QString>("shScript"); // null: missing
    QTest::addColumn<QString>("freeScript");
    QTest::addColumn<QByteArray>("content");

    const QString top = QStringLiteral("echo top");
    const QString free = QStringLiteral("echo free");
    QTest::newRow("both") << top << free << QByteArray("top\n\nfree\n\n");
    QTest::newRow("free is missing") << top << QString() << QByteArray("top\n\n\n");
    QTest::newRow("the shell is missing") << QString() << free << QByteArray("\nfree\n\n");
    QTest::newRow("no line end") << QStringLiteral("printf top") << QStringLiteral("printf free")
                                 << QByteArray("top\nfree\n");
    QTest::newRow("exit codes and crashes do not matter")
        << QStringLiteral("echo top; exit 1") << QStringLiteral("echo free; kill -KILL $$")
        << QByteArray("top\n\nfree\n\n");
    QTest::newRow("standard error is dropped")
        << QStringLiteral("echo error >&2; echo top") << QStringLiteral("echo free; echo error >&2")
        << QByteArray("top\n\nfree\n\n");
    QTest::newRow("NUL in the first output")
        << QStringLiteral("printf 'before\\000after\\n'") << free << QByteArray("before");
    QTest::newRow("NUL in the second output")
        << top << QStringLiteral("printf 'fr\\000ee\\n'") << QByteArray("top\n\nfr");
    QTest::newRow("not UTF-8") << QStringLiteral("printf 'a\\377b'") << free
                               << QByteArray("a\357\277\275b\nfree\n\n");
}

void SystemLoadLoggerTest::output()
{
    QFETCH(QString, shScript);
    QFETCH(QString, freeScript);
    QFETCH(QByteArray, content);
    for (const auto &tool : {qMakePair(QStringLiteral("sh"), shScript),
                             qMakePair(QStringLiteral("free"), freeScript)}) {
        m_tools->add(tool.first, tool.second);
        if (tool.second.isNull())
            m_tools->remove(tool.first);
    }
    SystemLoadLogger &logger = makeLogger(file());
    const StandardErrorCapture standardError;
    QVERIFY(tick(logger));
    QCOMPARE(readFile(file()), content);
    // There is nothing between two snapshots.
    QVERIFY(tick(logger));
    QCOMPARE(readFile(file()), content + content);
    QCOMPARE(standardError.text(), QByteArray());
}

void SystemLoadLoggerTest::textIsUtf8InEveryLocale()
{
    m_tools->add(QStringLiteral("sh"), QStringLiteral("printf '\\342\\202\\254'"));
    QTextCodec *const codec = QTextCodec::codecForLocale();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
    const bool done = tick(makeLogger(file()));
    QTextCodec::setCodecForLocale(codec);
    QVERIFY(done);
    QCOMPARE(readFile(file()), QByteArray("\342\202\254\nfree\n\n"));
}

void SystemLoadLoggerTest::commandsAreGivenThirtySeconds()
{
    QCOMPARE(SystemLoadLogger::commandTimeLimitMs, 30000);
}

void SystemLoadLoggerTest::hungCommandIsKilledAndItsOutputKept()
{
    m_tools->add(QStringLiteral("sh"), QStringLiteral("echo partly; exec /bin/sleep 600"));
    QTest::ignoreMessage(QtWarningMsg,
                         "QProcess: Destroyed while process (\"sh\") is still running.");
    SystemLoadLogger &logger = makeLogger(file(), hangLimitMs);
    QElapsedTimer elapsed;
    elapsed.start();
    QVERIFY(tick(logger));
    QVERIFY(elapsed.elapsed() >= hangLimitMs);
    QCOMPARE(readFile(file()), QByteArray("partly\n\nfree\n\n"));
    QVERIFY(!hasChildren());
}

// Only the shell is killed, not the tool that it has started. The kernel may hold the tool in an
// uninterruptible wait.
void SystemLoadLoggerTest::hungTopOutlivesItsRound()
{
    const QString pid = path(QStringLiteral("pid"));
    useRealShell();
    m_tools->add(QStringLiteral("top"),
                 QStringLiteral("echo $$ > '%1'\nexec /bin/sleep 600").arg(pid));
    QTest::ignoreMessage(QtWarningMsg,
                         "QProcess: Destroyed while process (\"sh\") is still running.");
    QVERIFY(tick(makeLogger(file(), hangLimitMs)));
    QCOMPARE(readFile(file()), QByteArray("\nfree\n\n"));

    const pid_t top = readFile(pid).trimmed().toInt();
    QVERIFY(top > 0);
    QCOMPARE(::kill(top, SIGKILL), 0); // it was still there
}

void SystemLoadLoggerTest::syncComesBeforeTheText()
{
    SystemLoadLogger &logger = makeLogger(file());
    QVERIFY(tick(logger));
    QVERIFY(tick(logger));
    QCOMPARE(syncedSizes(), QVector<qint64>({0, 0}));
    QCOMPARE(readFile(file()), QByteArray("top\n\nfree\n\n").repeated(2));
}

// All steps run also if the file cannot be opened; they then have nothing to do.
void SystemLoadLoggerTest::fileThatCannotBeOpenedIsToldAndSnapshotsRotate()
{
    useCountingCommands();
    const QString directory = path(QString::fromUtf8("gr\u00f6\u00dfe"));
    const QString late = directory + QStringLiteral("/system");
    SystemLoadLogger &logger = makeLogger(late);
    const QByteArray message =
        "Cannot open file : " + late.toUtf8() + " : err : No such file or directory \n";
    {
        const StandardErrorCapture standardError;
        for (int i = 1; i <= 4; ++i) {
            // This is Qt's message about a file that is not open.
            QTest::ignoreMessage(
                QtWarningMsg, QRegularExpression(QStringLiteral("^QIODevice::write .*not open$")));
            QVERIFY(tick(logger));
            QCOMPARE(standardError.text(), message.repeated(i));
        }
    }
    QCOMPARE(syncedSizes(), QVector<qint64>({-1, -1, -1, -1}));
    QVERIFY(QDir().mkdir(directory));
    QVERIFY(tick(logger));
    QCOMPARE(readFile(late),
             QByteArray("top 3\n\nfree 3\n\ntop 4\n\nfree 4\n\ntop 5\n\nfree 5\n\n"));
}

void SystemLoadLoggerTest::copyOfMissingFileIsNone()
{
    // The copy does not replace a file that is missing.
    const QString copy = path(QStringLiteral("system.load"));
    writeFile(copy, "earlier");
    QCOMPARE(makeLogger(file()).copyLoadFile(), QString());
    QCOMPARE(readFile(copy), QByteArray("earlier"));
}

// The snapshot of the first crash is kept.
void SystemLoadLoggerTest::copyIsMadeAndNeverOverwritten()
{
    const QString copy = path(QStringLiteral("system.load"));
    writeFile(file(), "first");
    SystemLoadLogger &logger = makeLogger(file());
    QCOMPARE(logger.copyLoadFile(), copy);
    QCOMPARE(readFile(copy), QByteArray("first"));
    writeFile(file(), "second");
    QCOMPARE(logger.copyLoadFile(), copy);
    QCOMPARE(readFile(copy), QByteArray("first"));
    QCOMPARE(readFile(file()), QByteArray("second"));
}

void SystemLoadLoggerTest::copyThatFailsIsNotNoticed()
{
    writeFile(file(), "picture");
    const QString copy = path(QStringLiteral("system.load"));
    QVERIFY(QDir().mkdir(copy));
    QCOMPARE(makeLogger(file()).copyLoadFile(), copy);
}

void SystemLoadLoggerTest::takesPicturesFromStartToStop()
{
    constexpr int severalRoundsMs = 200;
    SystemLoadLogger &logger = makeLogger(file());
    QTest::qWait(severalRoundsMs);
    QCOMPARE(m_tools->calls(), QStringList());

    logger.start(1);
    QTRY_VERIFY(m_tools->calls().size() >= 4); // the timer repeats
    logger.stop();
    m_tools->clear();
    QTest::qWait(severalRoundsMs);
    QCOMPARE(m_tools->calls(), QStringList());

    logger.start(1);
    QTRY_VERIFY(m_tools->calls().size() >= 2);
    logger.stop();
}

QTEST_GUILESS_MAIN(SystemLoadLoggerTest)
#include "tst_systemloadlogger.moc"
