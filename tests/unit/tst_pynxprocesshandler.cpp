// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "platform/pynx_processhandler.h"
#include "processresources.h"

#include <QTemporaryDir>
#include <QtTest>

#include <sys/resource.h>

namespace {

constexpr int eventTimeoutMs = 60000;

const QString shell = QStringLiteral("/bin/sh");
// What this program does instead of testing when its first argument says so.
const QString runACommand = QStringLiteral("--run-a-command");
const QString leaveACommand = QStringLiteral("--leave-a-command"); // PIPE MARK

QStringList script(const QString &text)
{
    return {QStringLiteral("-c"), text};
}

// Starts a command whose result codes go to `results`.
void start(const QString &program, const QStringList &arguments, QVector<int> &results)
{
    PynxProcessHandler::startAsync(
        program, arguments, 1000,
        [&results](const PynxProcessHandlerResult &result) { results.append(result.resultCode); },
        PynxProcessHandler::OutputCallback(), true);
}

// Runs a command that writes more than a pipe holds, to either channel, and ends as it does.
int runCommand()
{
    PynxProcessHandler::startAsync(
        shell,
        script(QStringLiteral("head -c 1000000 /dev/zero; head -c 1000000 /dev/zero >&2; exit 3")),
        1000,
        [](const PynxProcessHandlerResult &result) { QCoreApplication::exit(result.resultCode); },
        PynxProcessHandler::OutputCallback(), true);
    return QCoreApplication::exec();
}

// Ends while the command waits for somebody to write to the pipe.
int leaveCommand(const QStringList &pipeAndMark)
{
    PynxProcessHandler::startAsync(
        shell, script(QStringLiteral("read line < \"$0\"; : > \"$1\"")) + pipeAndMark, 1000,
        PynxProcessHandler::CompletionCallback(), PynxProcessHandler::OutputCallback(), true);
    return 0;
}

} // namespace

class PynxProcessHandlerTest : public QObject
{
    Q_OBJECT

private slots:
    void resultCode_data();
    void resultCode();
    void resultIsNegativeWithoutExitCode_data();
    void resultIsNegativeWithoutExitCode();
    void failureInsideTheStartIsReportedOnceAndLater();
    void callbackComesOnTheMainLoop();
    void argumentsReachTheCommandUnchanged();
    void programIsLookedUpInPath();
    void commandReadsEndOfFile();
    void outputOfBothChannelsComesBeforeTheResult();
    void muchOutputArrivesWhole();
    void outputIsDiscardedWithoutCallback();
    void bothCallbacksMayBeEmpty();
    void commandsRunSideBySide();
    void callbackMayStartACommand();
    void commandMayOutliveTheProgram();
    void nothingIsLeftBehind();
};

void PynxProcessHandlerTest::resultCode_data()
{
    QTest::addColumn<int>("exitCode");

    QTest::newRow("success") << 0;
    QTest::newRow("failure") << 1;
    QTest::newRow("serious failure") << 2;
    QTest::newRow("not found, says a shell") << 127;
    QTest::newRow("largest") << 255;
}

void PynxProcessHandlerTest::resultCode()
{
    QFETCH(int, exitCode);
    QVector<int> results;
    start(shell, script(QStringLiteral("exit %1").arg(exitCode)), results);
    QTRY_COMPARE_WITH_TIMEOUT(results.size(), 1, eventTimeoutMs);
    waitForTimersAndChildren();
    QCOMPARE(results, QVector<int>{exitCode});
}

void PynxProcessHandlerTest::resultIsNegativeWithoutExitCode_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("arguments");

    QTest::newRow("no program") << QString() << QStringList();
    QTest::newRow("no such path") << QStringLiteral("/nonexistent/tool") << QStringList();
    QTest::newRow("not in PATH") << QStringLiteral("no-such-tool-anywhere") << QStringList();
    QTest::newRow("a directory") << QStringLiteral("/") << QStringList();
    QTest::newRow("not executable") << QStringLiteral("/etc/passwd") << QStringList();
    QTest::newRow("killed") << shell << script(QStringLiteral("kill -KILL $$"));
    QTest::newRow("terminated") << shell << script(QStringLiteral("kill -TERM $$"));
    QTest::newRow("crashed") << shell << script(QStringLiteral("kill -SEGV $$"));
}

void PynxProcessHandlerTest::resultIsNegativeWithoutExitCode()
{
    QFETCH(QString, program);
    QFETCH(QStringList, arguments);
    QVector<int> results;
    start(program, arguments, results);
    QCOMPARE(results.size(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(results.size(), 1, eventTimeoutMs);
    waitForTimersAndChildren();
    QCOMPARE(results.size(), 1);
    QVERIFY2(results.first() < 0, qPrintable(QString::number(results.first())));
}

void PynxProcessHandlerTest::failureInsideTheStartIsReportedOnceAndLater()
{
    // No descriptor is free, so that the start fails before there is a process.
    rlimit usual = {};
    QCOMPARE(::getrlimit(RLIMIT_NOFILE, &usual), 0);
    const rlimit none = {0, usual.rlim_max};
    QVector<int> results;
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &none), 0);
    start(shell, script(QStringLiteral("exit 0")), results);
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &usual), 0);

    QCOMPARE(results.size(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(!results.isEmpty(), eventTimeoutMs);
    waitForTimersAndChildren();
    QCOMPARE(results.size(), 1);
    QVERIFY2(results.first() < 0, qPrintable(QString::number(results.first())));
}

void PynxProcessHandlerTest::callbackComesOnTheMainLoop()
{
    QThread *thread = nullptr;
    PynxProcessHandler::startAsync(
        shell, script(QStringLiteral("exit 0")), 0,
        [&thread](const PynxProcessHandlerResult &) { thread = QThread::currentThread(); },
        PynxProcessHandler::OutputCallback(), false);
    QVERIFY(thread == nullptr);
    QTRY_VERIFY_WITH_TIMEOUT(thread != nullptr, eventTimeoutMs);
    QCOMPARE(thread, QCoreApplication::instance()->thread());
}

void PynxProcessHandlerTest::argumentsReachTheCommandUnchanged()
{
    const QStringList arguments = {QString(),
                                   QStringLiteral("two words"),
                                   QStringLiteral("-x"),
                                   QStringLiteral("$HOME"),
                                   QStringLiteral("\"'\\"),
                                   QStringLiteral("line\nend"),
                                   QStringLiteral("*")};
    QByteArray output;
    bool completed = false;
    PynxProcessHandler::startAsync(
        shell, script(QStringLiteral("printf '%s|' \"$@\"")) + QStringList{shell} + arguments, 1000,
        [&completed](const PynxProcessHandlerResult &) { completed = true; },
        [&output](const QByteArray &piece) { output += piece; }, true);
    QTRY_VERIFY_WITH_TIMEOUT(completed, eventTimeoutMs);
    QCOMPARE(QString::fromUtf8(output), arguments.join(QLatin1Char('|')) + QLatin1Char('|'));
}

void PynxProcessHandlerTest::programIsLookedUpInPath()
{
    QVector<int> results;
    start(QStringLiteral("sh"), script(QStringLiteral("exit 7")), results);
    QTRY_COMPARE_WITH_TIMEOUT(results, QVector<int>{7}, eventTimeoutMs);
}

void PynxProcessHandlerTest::commandReadsEndOfFile()
{
    QVector<int> results;
    start(QStringLiteral("cat"), QStringList(), results);
    QTRY_COMPARE_WITH_TIMEOUT(results, QVector<int>{0}, eventTimeoutMs);
}

void PynxProcessHandlerTest::outputOfBothChannelsComesBeforeTheResult()
{
    QByteArray events;
    bool completed = false;
    PynxProcessHandler::startAsync(
        shell, script(QStringLiteral("echo out; echo err >&2; echo end")), 1000,
        [&events, &completed](const PynxProcessHandlerResult &result) {
            events += "result " + QByteArray::number(result.resultCode);
            completed = true;
        },
        [&events](const QByteArray &piece) { events += piece; }, true);
    QTRY_VERIFY_WITH_TIMEOUT(completed, eventTimeoutMs);
    waitForTimersAndChildren();
    QCOMPARE(events, QByteArray("out\nerr\nend\nresult 0"));
}

void PynxProcessHandlerTest::muchOutputArrivesWhole()
{
    constexpr int size = 4 * 1024 * 1024;
    QByteArray output;
    bool completed = false;
    PynxProcessHandler::startAsync(
        shell, script(QStringLiteral("head -c %1 /dev/zero").arg(size)), 1000,
        [&completed](const PynxProcessHandlerResult &) { completed = true; },
        [&output](const QByteArray &piece) { output += piece; }, true);
    QTRY_VERIFY_WITH_TIMEOUT(completed, eventTimeoutMs);
    QCOMPARE(output.size(), size);
    QCOMPARE(output.count('\0'), size);
}

void PynxProcessHandlerTest::outputIsDiscardedWithoutCallback()
{
    QProcess program;
    program.start(QCoreApplication::applicationFilePath(), {runACommand});
    QVERIFY(program.waitForFinished(eventTimeoutMs));
    QCOMPARE(program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(program.readAllStandardOutput(), QByteArray());
    QCOMPARE(program.readAllStandardError(), QByteArray());
    QCOMPARE(program.exitCode(), 3);
}

void PynxProcessHandlerTest::bothCallbacksMayBeEmpty()
{
    QTemporaryDir directory;
    const QString mark = directory.filePath(QStringLiteral("mark"));
    PynxProcessHandler::startAsync(
        shell, script(QStringLiteral("echo x; : > \"$0\"")) + QStringList{mark}, 1000,
        PynxProcessHandler::CompletionCallback(), PynxProcessHandler::OutputCallback(), true);
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(mark), eventTimeoutMs);
    waitForTimersAndChildren();
}

void PynxProcessHandlerTest::commandsRunSideBySide()
{
    QTemporaryDir directory;
    const QString pipe = directory.filePath(QStringLiteral("pipe"));
    QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {pipe}), 0);

    // The first can end only when the second runs at the same time.
    QVector<int> results;
    start(shell, script(QStringLiteral("cat < \"$0\"; exit 1")) + QStringList{pipe}, results);
    start(shell, script(QStringLiteral("echo x > \"$0\"; exit 1")) + QStringList{pipe}, results);
    QTRY_COMPARE_WITH_TIMEOUT(results, (QVector<int>{1, 1}), eventTimeoutMs);
}

void PynxProcessHandlerTest::callbackMayStartACommand()
{
    QVector<int> results;
    PynxProcessHandler::startAsync(
        QStringLiteral("/nonexistent/tool"), QStringList(), 1000,
        [&results](const PynxProcessHandlerResult &) {
            start(shell, script(QStringLiteral("exit 5")), results);
        },
        PynxProcessHandler::OutputCallback(), true);
    QTRY_COMPARE_WITH_TIMEOUT(results, QVector<int>{5}, eventTimeoutMs);
}

void PynxProcessHandlerTest::commandMayOutliveTheProgram()
{
    QTemporaryDir directory;
    const QString pipe = directory.filePath(QStringLiteral("pipe"));
    const QString mark = directory.filePath(QStringLiteral("mark"));
    QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {pipe}), 0);
    // This program once more, so that all is done that is done at a program's end.
    QProcess program;
    program.start(QCoreApplication::applicationFilePath(), {leaveACommand, pipe, mark});
    QVERIFY(program.waitForFinished(eventTimeoutMs));
    QCOMPARE(program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(program.readAllStandardError(), QByteArray());
    QCOMPARE(program.exitCode(), 0);

    QFile writer(pipe);
    QVERIFY(writer.open(QIODevice::WriteOnly));
    writer.write("go\n");
    writer.close();
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(mark), eventTimeoutMs);
}

void PynxProcessHandlerTest::nothingIsLeftBehind()
{
    constexpr int rounds = 40;
    constexpr int batch = 25;
    QVector<int> results;
    const auto run = [&results](int times) {
        for (int i = 0; i < times; ++i) {
            results.clear();
            for (int k = 0; k < batch; ++k) {
                start(QStringLiteral("true"), QStringList(), results);
                start(QStringLiteral("/nonexistent/tool"), QStringList(), results);
                start(QString(), QStringList(), results);
            }
            QTRY_COMPARE_WITH_TIMEOUT(results.size(), 3 * batch, eventTimeoutMs);
            waitForTimersAndChildren();
        }
    };
    run(2); // what is allocated once is there
    const int descriptors = openDescriptors();
    const qint64 heap = heapInUse();
    run(rounds);
    QCOMPARE(openDescriptors(), descriptors);
    QVERIFY(!hasChildren());
    // A command whose object stayed behind would keep far more than 100 bytes.
    const qint64 growth = heapInUse() - heap;
    QVERIFY2(growth < qint64(rounds) * batch * 100, qPrintable(QString::number(growth)));
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == runACommand)
        return runCommand();
    if (arguments.value(1) == leaveACommand)
        return leaveCommand(arguments.mid(2));
    PynxProcessHandlerTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_pynxprocesshandler.moc"
