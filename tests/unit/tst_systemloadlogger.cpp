// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "emulation.h"
#include "health/systemloadlogger.h"
#include "standintools.h"
#include "waitcapture.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QMetaMethod>
#include <QPointer>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QTimer>
#include <QtTest>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <memory>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Long enough for a stand-in to write its output on a busy machine before it is killed.
constexpr int hangLimitMs = 3000;

// What an fsync() was asked to make durable.
struct Sync
{
    QByteArray path;
    qint64 size = -1;
};

QVector<Sync> &syncs()
{
    static QVector<Sync> all;
    return all;
}

} // namespace

// The C library's function, for every caller in this process.
extern "C" int fsync(int fd)
{
    Sync sync;
    char path[4096];
    const QByteArray link = "/proc/self/fd/" + QByteArray::number(fd);
    const ssize_t length = ::readlink(link.constData(), path, sizeof path);
    if (length > 0)
        sync.path = QByteArray(path, static_cast<int>(length));
    struct stat status = {};
    if (::fstat(fd, &status) == 0)
        sync.size = status.st_size;
    syncs().append(sync);
    return static_cast<int>(::syscall(SYS_fsync, fd));
}

namespace {

bool tick(SystemLoadLogger &logger)
{
    return QMetaObject::invokeMethod(&logger, "on_timer_timeout", Qt::DirectConnection);
}

// A logger that is never deleted, as in the supervisor: its timer would be left without an owner.
// Nor is the list, so that a leak checker finds all of them in use.
SystemLoadLogger &makeLogger(const QString &filePath, int commandTimeoutMs = 30000)
{
    static auto &loggers = *new QVector<SystemLoadLogger *>;
    loggers.append(new SystemLoadLogger(filePath, nullptr, commandTimeoutMs));
    return *loggers.last();
}

// Qt's own word on the steps that run against a file that is not open.
QRegularExpression notOpenWarning()
{
    return QRegularExpression(QStringLiteral("^QIODevice::write .*not open$"));
}

QByteArray withoutQtWarnings(const QByteArray &text)
{
    QByteArray rest;
    const QList<QByteArray> lines = text.split('\n');
    for (const QByteArray &line : lines) {
        if (!line.startsWith("QIODevice::write (QFile, "))
            rest += line + '\n';
    }
    rest.chop(1);
    return rest;
}

QByteArray contentOf(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("no file");
}

bool writeFile(const QString &path, const QByteArray &content)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(content) == content.size();
}

// Takes in what has ended; false while something still runs.
bool isNoChildLeft()
{
    pid_t child = 0;
    while ((child = ::waitpid(-1, nullptr, WNOHANG)) > 0) { }
    return child == -1 && errno == ECHILD;
}

QString theShellCall()
{
    return QStringLiteral("sh|-c|COLUMNS=115 top -b -n1 | head -n 50");
}

// Finds the logger's timer, which nobody owns, when it is due, and keeps it from its receiver.
class TimerFinder : public QObject
{
public:
    TimerFinder() { QCoreApplication::instance()->installEventFilter(this); }

    QPointer<QTimer> timer;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() != QEvent::Timer)
            return false;
        if (timer.isNull())
            timer = qobject_cast<QTimer *>(watched);
        return !timer.isNull() && watched == timer;
    }
};

} // namespace

class SystemLoadLoggerTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void isObjectWithOnePrivateSlot();

    void runsItsCommandsInOrder();
    void shellRunsTopWithItsLimits();
    void realToolsGivePicture();

    void keepsTheLastThreeSnapshots_data();
    void keepsTheLastThreeSnapshots();
    void snapshotsDoNotOutliveTheLogger();
    void output_data();
    void output();
    void outputLongerThanAnyBufferIsKept();
    void textIsUtf8InEveryLocale();
    void standardErrorOfCommandsIsDropped();
    void failedCommandsAreSilent();

    void commandsAreGivenThirtySeconds();
    void hungCommandIsKilledAndItsOutputKept();
    void hungTopOutlivesItsRound();

    void fileThatCannotBeOpened_data();
    void fileThatCannotBeOpened();
    void stepsRunAgainstTheUnopenedFile();
    void snapshotsRotateWithoutFile();
    void syncComesBeforeTheText();

    void copyOfMissingFileIsNone();
    void copyIsMade();
    void copyIsNeverOverwritten();
    void copyThatFailsIsNotNoticed();

    void constructorDoesNotStartTheTimer();
    void startAndStop();
    void timerOutlivesTheLogger();

private:
    QString path(const QString &name) const { return m_directory->filePath(name); }
    QString file() const { return path(QStringLiteral("system")); }
    // A script that numbers its runs: "NAME 1", "NAME 2" …
    QString count(const QString &name) const;
    void useCountingCommands();
    void useRealShell();
    pid_t notedProcess() const;

    std::unique_ptr<StandInTools> m_tools;
    std::unique_ptr<QTemporaryDir> m_directory;
};

void SystemLoadLoggerTest::initTestCase()
{
    if (runsUnderEmulation())
        QSKIP("the emulation cannot make a process the parent of what others leave behind");
    // What a killed command leaves behind becomes a child of this program, so that it can be seen
    // and ended.
    QCOMPARE(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0);
}

void SystemLoadLoggerTest::init()
{
    m_directory = std::make_unique<QTemporaryDir>();
    m_tools = std::make_unique<StandInTools>();
    m_tools->add(QStringLiteral("sh"), QStringLiteral("echo top"));
    m_tools->add(QStringLiteral("free"), QStringLiteral("echo free"));
    syncs().clear();
}

void SystemLoadLoggerTest::cleanup()
{
    // What outlives its round by requirement is ended here, also when its test has failed.
    const pid_t outliving = notedProcess();
    if (outliving > 0 && ::waitpid(outliving, nullptr, WNOHANG) == 0)
        ::kill(outliving, SIGKILL);
    m_tools.reset();
    m_directory.reset();
    QTRY_VERIFY(isNoChildLeft());
}

QString SystemLoadLoggerTest::count(const QString &name) const
{
    return QStringLiteral("n=0; [ ! -e '%1' ] || read n < '%1'\n"
                          "n=$((n + 1)); echo $n > '%1'; echo %2 $n")
        .arg(path(name), name);
}

void SystemLoadLoggerTest::useCountingCommands()
{
    m_tools->add(QStringLiteral("sh"), count(QStringLiteral("top")));
    m_tools->add(QStringLiteral("free"), count(QStringLiteral("free")));
}

void SystemLoadLoggerTest::useRealShell()
{
    m_tools->add(QStringLiteral("sh"), QStringLiteral("exec /bin/sh \"$@\""));
    m_tools->add(QStringLiteral("head"), QStringLiteral("exec /usr/bin/head \"$@\""));
}

pid_t SystemLoadLoggerTest::notedProcess() const
{
    return contentOf(path(QStringLiteral("pid"))).trimmed().toInt();
}

void SystemLoadLoggerTest::isObjectWithOnePrivateSlot()
{
    auto &owner = makeLogger(file());
    auto *logger = &makeLogger(file());
    QCOMPARE(logger->parent(), nullptr);
    logger->setParent(&owner);
    const QMetaObject *meta = logger->metaObject();
    QCOMPARE(meta->className(), "SystemLoadLogger");
    QCOMPARE(meta->methodCount(), meta->methodOffset() + 1);
    const QMetaMethod slot = meta->method(meta->methodOffset());
    QCOMPARE(slot.methodSignature(), QByteArray("on_timer_timeout()"));
    QCOMPARE(slot.methodType(), QMetaMethod::Slot);
    QCOMPARE(slot.access(), QMetaMethod::Private);
}

void SystemLoadLoggerTest::runsItsCommandsInOrder()
{
    SystemLoadLogger &logger = makeLogger(file());
    QVERIFY(tick(logger));
    QCOMPARE(m_tools->calls(), QStringList({theShellCall(), QStringLiteral("free")}));
    QVERIFY(tick(logger));
    QCOMPARE(m_tools->calls(),
             QStringList(
                 {theShellCall(), QStringLiteral("free"), theShellCall(), QStringLiteral("free")}));
}

void SystemLoadLoggerTest::shellRunsTopWithItsLimits()
{
    useRealShell();
    m_tools->add(QStringLiteral("top"),
                 QStringLiteral("echo columns $COLUMNS\n"
                                "n=2; while [ $n -le 60 ]; do echo line $n; n=$((n + 1)); done"));
    SystemLoadLogger &logger = makeLogger(file());
    QVERIFY(tick(logger));

    QVERIFY(m_tools->calls().contains(QStringLiteral("top|-b|-n1")));
    QVERIFY(m_tools->calls().contains(QStringLiteral("head|-n|50")));
    QByteArray expected = "columns 115\n";
    for (int line = 2; line <= 50; ++line)
        expected += "line " + QByteArray::number(line) + '\n';
    QCOMPARE(contentOf(file()), expected + "\nfree\n\n");
}

void SystemLoadLoggerTest::realToolsGivePicture()
{
    m_tools.reset(); // the machine's own search path
    for (const char *tool : {"sh", "top", "head", "free"}) {
        if (QStandardPaths::findExecutable(QLatin1String(tool)).isEmpty())
            QSKIP("this machine lacks one of sh, top, head and free");
    }
    SystemLoadLogger &logger = makeLogger(file());
    QVERIFY(tick(logger));

    const QByteArray content = contentOf(file());
    QVERIFY2(content.contains("PID"), content.constData());    // of top
    QVERIFY2(content.contains("\nMem:"), content.constData()); // of free
    QVERIFY(content.endsWith("\n\n"));
    const QList<QByteArray> lines = content.split('\n');
    for (const QByteArray &line : lines)
        QVERIFY2(line.size() <= 115, line.constData());
}

void SystemLoadLoggerTest::keepsTheLastThreeSnapshots_data()
{
    QTest::addColumn<int>("ticks");
    QTest::addColumn<QByteArray>("content");

    const QByteArray first = "top 1\n\nfree 1\n\n";
    const QByteArray second = "top 2\n\nfree 2\n\n";
    const QByteArray third = "top 3\n\nfree 3\n\n";
    const QByteArray fourth = "top 4\n\nfree 4\n\n";
    const QByteArray fifth = "top 5\n\nfree 5\n\n";
    QTest::newRow("first tick") << 1 << first;
    QTest::newRow("second tick") << 2 << first + second;
    QTest::newRow("third tick") << 3 << first + second + third;
    QTest::newRow("fourth tick") << 4 << second + third + fourth;
    QTest::newRow("fifth tick") << 5 << third + fourth + fifth;
}

void SystemLoadLoggerTest::keepsTheLastThreeSnapshots()
{
    QFETCH(int, ticks);
    QFETCH(QByteArray, content);
    useCountingCommands();
    SystemLoadLogger &logger = makeLogger(file());
    for (int i = 0; i < ticks; ++i)
        QVERIFY(tick(logger));
    QCOMPARE(contentOf(file()), content);
}

void SystemLoadLoggerTest::snapshotsDoNotOutliveTheLogger()
{
    useCountingCommands();
    QVERIFY(writeFile(file(), QByteArray(1000, 'x')));
    QVERIFY(tick(makeLogger(file())));
    QVERIFY(tick(makeLogger(file())));
    QCOMPARE(contentOf(file()), QByteArray("top 2\n\nfree 2\n\n"));
}

void SystemLoadLoggerTest::output_data()
{
    QTest::addColumn<QString>("shScript"); // null: missing
    QTest::addColumn<QString>("freeScript");
    QTest::addColumn<QByteArray>("content");

    const QString top = QStringLiteral("echo top");
    const QString free = QStringLiteral("echo free");
    const QString nothing = QStringLiteral("exit 0");
    QTest::newRow("both") << top << free << QByteArray("top\n\nfree\n\n");
    QTest::newRow("free is missing") << top << QString() << QByteArray("top\n\n\n");
    QTest::newRow("the shell is missing") << QString() << free << QByteArray("\nfree\n\n");
    QTest::newRow("both are missing") << QString() << QString() << QByteArray("\n\n");
    QTest::newRow("nothing printed") << nothing << nothing << QByteArray("\n\n");
    QTest::newRow("no line end") << QStringLiteral("printf top") << QStringLiteral("printf free")
                                 << QByteArray("top\nfree\n");
    QTest::newRow("exit codes do not matter")
        << QStringLiteral("echo top; exit 1") << QStringLiteral("echo free; exit 255")
        << QByteArray("top\n\nfree\n\n");
    QTest::newRow("nor does a crash")
        << QStringLiteral("echo top; kill -KILL $$") << free << QByteArray("top\n\nfree\n\n");
    QTest::newRow("NUL in the first output")
        << QStringLiteral("printf 'before\\000after\\n'") << free << QByteArray("before");
    QTest::newRow("NUL in the second output")
        << top << QStringLiteral("printf 'fr\\000ee\\n'") << QByteArray("top\n\nfr");
    QTest::newRow("NUL at the start") << QStringLiteral("printf '\\000'") << free << QByteArray();
    QTest::newRow("UTF-8") << QStringLiteral("printf 'pr\\303\\274fer'") << free
                           << QByteArray("pr\303\274fer\nfree\n\n");
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
    QVERIFY(tick(logger));
    QCOMPARE(contentOf(file()), content);
    // Snapshots follow each other with nothing between them.
    QVERIFY(tick(logger));
    QCOMPARE(contentOf(file()), content + content);
}

void SystemLoadLoggerTest::outputLongerThanAnyBufferIsKept()
{
    const QByteArray text = QByteArray("0123456789abcde\n").repeated(16384); // 256 KiB
    QVERIFY(writeFile(path(QStringLiteral("text")), text));
    m_tools->add(QStringLiteral("sh"),
                 QStringLiteral("exec /bin/cat '%1'").arg(path(QStringLiteral("text"))));
    SystemLoadLogger &logger = makeLogger(file());
    for (int i = 0; i < 4; ++i)
        QVERIFY(tick(logger));
    const QByteArray snapshot = text + "\nfree\n\n";
    QVERIFY(contentOf(file()) == snapshot + snapshot + snapshot); // too long to be printed
}

void SystemLoadLoggerTest::textIsUtf8InEveryLocale()
{
    m_tools->add(QStringLiteral("sh"), QStringLiteral("printf '\\342\\202\\254'"));
    QTextCodec *const codec = QTextCodec::codecForLocale();
    QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
    SystemLoadLogger &logger = makeLogger(file());
    const bool done = tick(logger);
    QTextCodec::setCodecForLocale(codec);
    QVERIFY(done);
    QCOMPARE(contentOf(file()), QByteArray("\342\202\254\nfree\n\n"));
}

void SystemLoadLoggerTest::standardErrorOfCommandsIsDropped()
{
    m_tools->add(QStringLiteral("sh"), QStringLiteral("echo error >&2; echo top"));
    m_tools->add(QStringLiteral("free"), QStringLiteral("echo free; echo error >&2"));
    const ChildResult child = runInChild([this] { tick(makeLogger(file())); });
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.standardError, QByteArray());
    QCOMPARE(child.standardOutput, QByteArray());
    QCOMPARE(contentOf(file()), QByteArray("top\n\nfree\n\n"));
}

void SystemLoadLoggerTest::failedCommandsAreSilent()
{
    m_tools->remove(QStringLiteral("sh"));
    m_tools->add(QStringLiteral("free"), QStringLiteral("exit 1"));
    const ChildResult child = runInChild([this] { tick(makeLogger(file())); });
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.standardError, QByteArray());
    QCOMPARE(child.standardOutput, QByteArray());
    QCOMPARE(contentOf(file()), QByteArray("\n\n"));
}

void SystemLoadLoggerTest::commandsAreGivenThirtySeconds()
{
    static auto &logger = *new SystemLoadLogger(file());
    takeWaits();
    QVERIFY(tick(logger));
    const QVector<int> waits = takeWaits();
    QVERIFY(waits.count(30000) >= 2); // one for each command at least
    QCOMPARE(*std::max_element(waits.begin(), waits.end()), 30000);
    QVERIFY(!waits.contains(-1));
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
    QCOMPARE(contentOf(file()), QByteArray("partly\n\nfree\n\n"));
    QVERIFY(isNoChildLeft());
}

// Only the shell is killed, not what it has started. Required: nobody hunts down a process that
// the kernel may hold in an uninterruptible wait.
void SystemLoadLoggerTest::hungTopOutlivesItsRound()
{
    useRealShell();
    m_tools->add(
        QStringLiteral("top"),
        QStringLiteral("echo $$ > '%1'\nexec /bin/sleep 600").arg(path(QStringLiteral("pid"))));
    QTest::ignoreMessage(QtWarningMsg,
                         "QProcess: Destroyed while process (\"sh\") is still running.");
    SystemLoadLogger &logger = makeLogger(file(), hangLimitMs);
    QVERIFY(tick(logger));
    QCOMPARE(contentOf(file()), QByteArray("\nfree\n\n"));

    QVERIFY(notedProcess() > 0);
    QCOMPARE(::waitpid(notedProcess(), nullptr, WNOHANG), 0); // it runs
}

void SystemLoadLoggerTest::fileThatCannotBeOpened_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArray>("reason");
    QTest::newRow("directory missing")
        << QStringLiteral("missing/system") << QByteArray("No such file or directory");
    QTest::newRow("a directory") << QStringLiteral("directory") << QByteArray("Is a directory");
    QTest::newRow("no directory on the way")
        << QStringLiteral("text/system") << QByteArray("Not a directory");
    QTest::newRow("a name in UTF-8")
        << QString::fromUtf8("gr\u00f6\u00dfe/system") << QByteArray("No such file or directory");
}

void SystemLoadLoggerTest::fileThatCannotBeOpened()
{
    QFETCH(QString, name);
    QFETCH(QByteArray, reason);
    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("directory")));
    QVERIFY(writeFile(path(QStringLiteral("text")), "text"));
    const QStringList before = QDir(m_directory->path()).entryList();

    const ChildResult child = runInChild([this, &name] {
        SystemLoadLogger &logger = makeLogger(path(name));
        tick(logger);
        tick(logger);
    });
    QCOMPARE(child.exitCode, 0);
    QCOMPARE(child.standardOutput, QByteArray());
    QByteArray message = "Cannot open file : " + path(name).toUtf8() + " : err : " + reason + " \n";
    QCOMPARE(withoutQtWarnings(child.standardError), message + message);
    QCOMPARE(QDir(m_directory->path()).entryList(), before);
    QCOMPARE(contentOf(path(QStringLiteral("text"))), QByteArray("text"));
}

// Nothing is left out when the file cannot be opened; the steps find nothing to work on.
void SystemLoadLoggerTest::stepsRunAgainstTheUnopenedFile()
{
    SystemLoadLogger &logger = makeLogger(path(QStringLiteral("missing/system")));
    QTest::ignoreMessage(QtWarningMsg, notOpenWarning());
    QVERIFY(tick(logger));
    QCOMPARE(syncs().size(), 1);
    QCOMPARE(syncs().first().path, QByteArray());
    QCOMPARE(syncs().first().size, -1);
}

void SystemLoadLoggerTest::snapshotsRotateWithoutFile()
{
    useCountingCommands();
    const QString late = path(QStringLiteral("late/system"));
    SystemLoadLogger &logger = makeLogger(late);
    for (int i = 0; i < 4; ++i) {
        QTest::ignoreMessage(QtWarningMsg, notOpenWarning());
        QVERIFY(tick(logger));
    }
    QVERIFY(QDir(m_directory->path()).mkdir(QStringLiteral("late")));
    QVERIFY(tick(logger));
    QCOMPARE(contentOf(late),
             QByteArray("top 3\n\nfree 3\n\ntop 4\n\nfree 4\n\ntop 5\n\nfree 5\n\n"));
}

void SystemLoadLoggerTest::syncComesBeforeTheText()
{
    SystemLoadLogger &logger = makeLogger(file());
    for (int i = 0; i < 3; ++i) {
        syncs().clear();
        QVERIFY(tick(logger));
        QCOMPARE(syncs().size(), 1);
        QCOMPARE(syncs().first().path, QFile::encodeName(QFileInfo(file()).canonicalFilePath()));
        QCOMPARE(syncs().first().size, 0);
        QCOMPARE(contentOf(file()), QByteArray("top\n\nfree\n\n").repeated(i + 1));
    }
}

void SystemLoadLoggerTest::copyOfMissingFileIsNone()
{
    SystemLoadLogger &logger = makeLogger(file());
    QCOMPARE(logger.copyLoadFile(), QString());
    QVERIFY(QDir(m_directory->path()).entryList(QDir::Files).isEmpty());

    // A copy that is there does not stand for the file.
    const QString copy = path(QStringLiteral("system.load"));
    QVERIFY(writeFile(copy, "earlier"));
    QCOMPARE(logger.copyLoadFile(), QString());
    QCOMPARE(contentOf(copy), QByteArray("earlier"));
}

void SystemLoadLoggerTest::copyIsMade()
{
    SystemLoadLogger &logger = makeLogger(file());
    QVERIFY(tick(logger));
    const QString copy = logger.copyLoadFile();
    QCOMPARE(copy, path(QStringLiteral("system.load")));
    QCOMPARE(contentOf(copy), QByteArray("top\n\nfree\n\n"));
    QCOMPARE(contentOf(file()), QByteArray("top\n\nfree\n\n"));

    // A file of somebody else's is copied as well.
    QVERIFY(writeFile(path(QStringLiteral("other")), "other"));
    QCOMPARE(contentOf(makeLogger(path(QStringLiteral("other"))).copyLoadFile()),
             QByteArray("other"));
}

// The picture of the first crash is the one that is kept.
void SystemLoadLoggerTest::copyIsNeverOverwritten()
{
    useCountingCommands();
    SystemLoadLogger &logger = makeLogger(file());
    QVERIFY(tick(logger));
    const QString first = logger.copyLoadFile();
    QVERIFY(tick(logger));
    const QString second = logger.copyLoadFile();
    QCOMPARE(second, first);
    QCOMPARE(contentOf(second), QByteArray("top 1\n\nfree 1\n\n"));
}

void SystemLoadLoggerTest::copyThatFailsIsNotNoticed()
{
    SystemLoadLogger &logger = makeLogger(file());
    QVERIFY(tick(logger));
    const QString copy = path(QStringLiteral("system.load"));
    QVERIFY(QDir().mkdir(copy));
    QCOMPARE(logger.copyLoadFile(), copy);
}

void SystemLoadLoggerTest::constructorDoesNotStartTheTimer()
{
    makeLogger(file());
    bool past = false;
    QTimer::singleShot(200, this, [&past] { past = true; });
    QTRY_VERIFY(past);
    QCOMPARE(m_tools->calls(), QStringList());
    QVERIFY(!QFile::exists(file()));
}

void SystemLoadLoggerTest::startAndStop()
{
    SystemLoadLogger &logger = makeLogger(file());
    logger.start(1);
    QTRY_VERIFY(m_tools->calls().size() >= 4); // it repeats
    logger.stop();

    m_tools->clear();
    bool past = false;
    QTimer::singleShot(200, this, [&past] { past = true; });
    QTRY_VERIFY(past);
    QCOMPARE(m_tools->calls(), QStringList());

    logger.start(1);
    QTRY_VERIFY(m_tools->calls().size() >= 2);
    logger.stop();
}

// The timer has no parent and is left as it is when the logger goes.
void SystemLoadLoggerTest::timerOutlivesTheLogger()
{
    TimerFinder finder;
    {
        SystemLoadLogger logger(file());
        logger.start(1);
        QTRY_VERIFY(finder.timer);
        QCOMPARE(finder.timer->parent(), nullptr);
        QCOMPARE(finder.timer->interval(), 1);
        QVERIFY(!finder.timer->isSingleShot());
    }
    QVERIFY(finder.timer);
    QVERIFY(finder.timer->isActive());
    delete finder.timer;
    QCOMPARE(m_tools->calls(), QStringList());
}

QTEST_GUILESS_MAIN(SystemLoadLoggerTest)
#include "tst_systemloadlogger.moc"
