// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "platform/pynx_processhandler.h"
#include "testfiles.h"

#include <QTemporaryDir>
#include <QtTest>

#include <sys/resource.h>

namespace {

constexpr int eventTimeoutMs = 60000;

QStringList script(const QString &text)
{
    return {QStringLiteral("-c"), text};
}

// With this first argument the program does not test. It starts a command and ends. The command
// waits for the file GO and then makes the file MARK.
const QString leaveACommand = QStringLiteral("--leave-a-command"); // --leave-a-command GO MARK

int leaveCommand(const QStringList &goAndMark)
{
    const QString wait = QStringLiteral("until [ -e \"$0\" ]; do sleep 0.02; done; : > \"$1\"");
    PynxProcessHandler::startAsync(QStringLiteral("sh"), script(wait) + goAndMark, 1000,
                                   PynxProcessHandler::CompletionCallback(),
                                   PynxProcessHandler::OutputCallback(), true);
    return 0;
}

} // namespace

class PynxProcessHandlerTest : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_results.clear(); }

    void resultIsTheExitCode_data();
    void resultIsTheExitCode();
    void resultIsNegativeWithoutExitCode_data();
    void resultIsNegativeWithoutExitCode();
    void failureInsideTheStartIsReportedOnceAndLater();
    void outputOfBothChannelsComesBeforeTheResult();
    void outputIsDiscardedWithoutCallback();
    void commandMayOutliveTheProgram();

private:
    // Starts a command whose result codes are added to m_results.
    void start(const QString &program, const QStringList &arguments,
               const PynxProcessHandler::OutputCallback &output = nullptr);

    QVector<int> m_results;
};

void PynxProcessHandlerTest::start(const QString &program, const QStringList &arguments,
                                   const PynxProcessHandler::OutputCallback &output)
{
    PynxProcessHandler::startAsync(
        program, arguments, 1000,
        [this](const PynxProcessHandlerResult &result) { m_results.append(result.resultCode); },
        output, true);
}

void PynxProcessHandlerTest::resultIsTheExitCode_data()
{
    QTest::addColumn<int>("exitCode");

    QTest::newRow("success") << 0;
    QTest::newRow("failure") << 1;
    QTest::newRow("largest") << 255;
}

void PynxProcessHandlerTest::resultIsTheExitCode()
{
    QFETCH(int, exitCode);
    start(QStringLiteral("sh"), script(QStringLiteral("exit %1").arg(exitCode)));
    QCOMPARE(m_results.size(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(m_results, QVector<int>{exitCode}, eventTimeoutMs);
}

void PynxProcessHandlerTest::resultIsNegativeWithoutExitCode_data()
{
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("arguments");

    QTest::newRow("no program") << QString() << QStringList();
    QTest::newRow("not in PATH") << QStringLiteral("no-such-tool-anywhere") << QStringList();
    QTest::newRow("not executable") << QStringLiteral("/etc/passwd") << QStringList();
    QTest::newRow("killed") << QStringLiteral("sh") << script(QStringLiteral("kill -KILL $$"));
}

void PynxProcessHandlerTest::resultIsNegativeWithoutExitCode()
{
    QFETCH(QString, program);
    QFETCH(QStringList, arguments);
    start(program, arguments);
    QCOMPARE(m_results.size(), 0);
    QTRY_COMPARE_WITH_TIMEOUT(m_results.size(), 1, eventTimeoutMs);
    QVERIFY2(m_results.first() < 0, qPrintable(QString::number(m_results.first())));
}

void PynxProcessHandlerTest::failureInsideTheStartIsReportedOnceAndLater()
{
    // No descriptor is free, so the start fails before there is a process.
    rlimit usual = {};
    QCOMPARE(::getrlimit(RLIMIT_NOFILE, &usual), 0);
    const rlimit none = {0, usual.rlim_max};
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &none), 0);
    start(QStringLiteral("sh"), script(QStringLiteral("exit 0")));
    QCOMPARE(::setrlimit(RLIMIT_NOFILE, &usual), 0);
    QCOMPARE(m_results.size(), 0);

    // When a second command has ended, all results of the first have come.
    start(QStringLiteral("sh"), script(QStringLiteral("exit 9")));
    QTRY_VERIFY_WITH_TIMEOUT(m_results.contains(9), eventTimeoutMs);
    QCOMPARE(m_results.size(), 2);
    QVERIFY2(m_results.first() < 0, qPrintable(QString::number(m_results.first())));
}

// The command reads an empty standard input and gets its arguments unchanged.
void PynxProcessHandlerTest::outputOfBothChannelsComesBeforeTheResult()
{
    const QString odd = QStringLiteral("two words -x $HOME \"'\\ line\nend *");
    QByteArray output;
    QByteArray outputAtResult;
    PynxProcessHandler::startAsync(
        QStringLiteral("sh"),
        script(QStringLiteral("cat; printf %s \"$1\"; echo err >&2; head -c 200000 /dev/zero"))
            + QStringList{QStringLiteral("sh"), odd},
        1000, [&](const PynxProcessHandlerResult & /*result*/) { outputAtResult = output; },
        [&](const QByteArray &piece) { output += piece; }, true);
    QTRY_VERIFY_WITH_TIMEOUT(!outputAtResult.isEmpty(), eventTimeoutMs);
    QVERIFY(outputAtResult == odd.toUtf8() + "err\n" + QByteArray(200000, '\0'));
}

void PynxProcessHandlerTest::outputIsDiscardedWithoutCallback()
{
    const ChildResult result = runInChild([this] {
        start(QStringLiteral("sh"), script(QStringLiteral("echo out; echo err >&2; exit 3")));
        if (!QTest::qWaitFor([this] { return m_results == QVector<int>{3}; }, eventTimeoutMs))
            qFatal("the command did not end");
    });
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.standardOutput, QByteArray());
    QCOMPARE(result.standardError, QByteArray());
}

void PynxProcessHandlerTest::commandMayOutliveTheProgram()
{
    const QTemporaryDir directory;
    const QString go = directory.filePath(QStringLiteral("go"));
    const QString mark = directory.filePath(QStringLiteral("mark"));
    QCOMPARE(QProcess::execute(QCoreApplication::applicationFilePath(), {leaveACommand, go, mark}),
             0);
    writeFile(go, QByteArray());
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(mark), eventTimeoutMs);
}

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    if (arguments.value(1) == leaveACommand)
        return leaveCommand(arguments.mid(2));
    PynxProcessHandlerTest test;
    return QTest::qExec(&test, argc, argv);
}
#include "tst_pynxprocesshandler.moc"
