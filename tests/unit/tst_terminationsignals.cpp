// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/terminationsignals.h"
#include "childrun.h"

#include <QtTest>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>

#include <unistd.h>

// Every test sets the signals up in a child of its own, because that cannot be undone. tests/system
// tests the rest.
class TerminationSignalsTest : public QObject
{
    Q_OBJECT

private slots:
    void isPassedOnAtOnceAndHandledByTheEventLoop();
    void isHandledOnTheMainThread();
    void theHandlerFindsTheDefaultActionsBack();
    void theInterruptedCodeKeepsItsErrorNumber();
    void aChildBeforeItsExecNeverRunsTheHandler();
};

namespace {

constexpr int terminationSignals[] = {SIGINT, SIGQUIT, SIGTERM};

void say(const char *text)
{
    const ssize_t written = ::write(STDOUT_FILENO, text, std::strlen(text));
    Q_UNUSED(written)
}

// How this process takes the three signals: "-" the default action, "+" a handler, "!" blocked.
QByteArray actions()
{
    sigset_t blocked;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    QByteArray text;
    for (const int number : terminationSignals) {
        struct sigaction action = {};
        ::sigaction(number, nullptr, &action);
        text += action.sa_handler == SIG_DFL ? '-' : '+';
        if (sigismember(&blocked, number) == 1)
            text += '!';
    }
    return text;
}

void sayPassedOn()
{
    say("passed on\n");
}

void sayNumber(int number)
{
    say(QByteArray("handler ").append(QByteArray::number(number)).append('\n'));
    QCoreApplication::quit();
}

void sayActions(int /*number*/)
{
    say(actions().append('\n'));
    QCoreApplication::quit();
}

void changeErrorNumber()
{
    errno = ENOSPC;
}

void runEventLoop()
{
    QCoreApplication::exec(); // only a termination signal ends it
    say("the event loop has ended\n");
}

} // namespace

void TerminationSignalsTest::isPassedOnAtOnceAndHandledByTheEventLoop()
{
    const ChildResult result = runInChild([] {
        armTerminationSignals(sayPassedOn, sayNumber);
        if (terminationSignalCame())
            say("too early\n");
        ::raise(SIGQUIT);
        if (terminationSignalCame())
            say("it came\n");
        runEventLoop();
    });
    QCOMPARE(result.standardOutput,
             QByteArray("passed on\nit came\nhandler 3\nthe event loop has ended\n"));
    QCOMPARE(result.exitCode, 0);
}

void TerminationSignalsTest::isHandledOnTheMainThread()
{
    const ChildResult result = runInChild([] {
        armTerminationSignals(sayPassedOn, [](int /*number*/) {
            say(QThread::currentThread() == QCoreApplication::instance()->thread() ? "main\n"
                                                                                   : "other\n");
            QCoreApplication::quit();
        });
        std::thread([] { ::raise(SIGTERM); }).join();
        runEventLoop();
    });
    QCOMPARE(result.standardOutput, QByteArray("passed on\nmain\nthe event loop has ended\n"));
}

void TerminationSignalsTest::theHandlerFindsTheDefaultActionsBack()
{
    const ChildResult result = runInChild([] {
        armTerminationSignals(sayPassedOn, sayActions);
        say(actions().append('\n'));
        ::raise(SIGINT);
        runEventLoop();
        ::raise(SIGTERM);
    });
    // While the handler runs, the kernel blocks its signal, as for every signal handler.
    QCOMPARE(result.standardOutput, QByteArray("+++\npassed on\n-!--\nthe event loop has ended\n"));
    QCOMPARE(result.signal, SIGTERM);
}

void TerminationSignalsTest::theInterruptedCodeKeepsItsErrorNumber()
{
    const ChildResult result = runInChild([] {
        armTerminationSignals(changeErrorNumber, sayNumber);
        errno = EDOM;
        ::raise(SIGTERM);
        ::_exit(errno);
    });
    QCOMPARE(result.exitCode, EDOM);
}

void TerminationSignalsTest::aChildBeforeItsExecNeverRunsTheHandler()
{
    const ChildResult result = runInChild([] {
        armTerminationSignals(sayPassedOn, sayNumber);
        const ChildResult child = runInChild([] {
            ::raise(SIGTERM);
            say("still there\n");
        });
        say(child.standardOutput.constData());
        ::_exit(child.signal);
    });
    QCOMPARE(result.standardOutput, QByteArray());
    QCOMPARE(result.exitCode, SIGTERM);
}

QTEST_GUILESS_MAIN(TerminationSignalsTest)
#include "tst_terminationsignals.moc"
