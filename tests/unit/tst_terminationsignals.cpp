// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "common/terminationsignals.h"

#include <QtTest>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <thread>

#include <sys/prctl.h>
#include <unistd.h>

// Every test arms in a child of its own: the signals of a process cannot be disarmed.
class TerminationSignalsTest : public QObject
{
    Q_OBJECT

private slots:
    void waitsForTheEventLoop_data();
    void waitsForTheEventLoop();
    void isHandledAtOnceInAWindow();
    void aWindowTakesWhatWaits();
    void theWindowOfTheMainThreadIsForNoOther();
    void theHandlerFindsTheDefaultActionsBack();
    void aSecondSignalEndsTheProgramThoughTheFirstWaits();
    void unarmedAWindowDoesNothing();
    void theInheritedMaskIsLeftAlone();
    void theInterruptedCodeKeepsItsErrorNumber();
    void theParentsDeathIsToldAsSigterm();
    void aChildBeforeItsExecNeverRunsTheHandler();
    void releasedInTheChild();
    void unarmedTheReleaseTouchesNothing();
};

namespace {

constexpr int terminationSignals[] = {SIGINT, SIGQUIT, SIGTERM};

void say(const char *text)
{
    const ssize_t written = ::write(STDOUT_FILENO, text, std::strlen(text));
    Q_UNUSED(written)
}

// How this process takes the three signals: "-" the default action, "+" a handler, "!" held back.
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

void sayNumber(int number)
{
    say(QByteArray("handler ").append(QByteArray::number(number)).append('\n'));
}

void sayActions(int /*number*/)
{
    say(actions().append('\n'));
}

void changeErrorNumber(int /*number*/)
{
    errno = ENOSPC;
}

void runEventLoop()
{
    QCoreApplication::exec(); // ends by a termination signal only
    say("the event loop has ended\n");
}

} // namespace

void TerminationSignalsTest::waitsForTheEventLoop_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGQUIT") << SIGQUIT;
    QTest::newRow("SIGTERM") << SIGTERM;
}

void TerminationSignalsTest::waitsForTheEventLoop()
{
    QFETCH(int, number);
    const ChildResult result = runInChild([number] {
        armTerminationSignals(sayNumber);
        if (terminationSignalCame())
            say("too early\n");
        ::raise(number);
        if (terminationSignalCame())
            say("it came\n");
        runEventLoop();
    });
    QCOMPARE(result.standardOutput,
             "it came\nhandler " + QByteArray::number(number) + "\nthe event loop has ended\n");
    QCOMPARE(result.exitCode, 0);
}

void TerminationSignalsTest::isHandledAtOnceInAWindow()
{
    const ChildResult result = runInChild([] {
        armTerminationSignals(sayNumber);
        {
            const TerminationWindow window;
            const TerminationWindow nested;
        }
        {
            const TerminationWindow window;
            {
                const TerminationWindow nested;
            }
            ::raise(SIGTERM);
            say("handled\n");
        }
        runEventLoop(); // though there was none yet that could be told to quit
    });
    QCOMPARE(result.standardOutput, QByteArray("handler 15\nhandled\nthe event loop has ended\n"));
    QCOMPARE(result.exitCode, 0);
}

void TerminationSignalsTest::aWindowTakesWhatWaits()
{
    const ChildResult result = runInChild([] {
        armTerminationSignals(sayNumber);
        ::raise(SIGINT);
        say("waiting\n");
        {
            const TerminationWindow window;
            say("handled\n");
        }
        runEventLoop();
    });
    QCOMPARE(result.standardOutput,
             QByteArray("waiting\nhandler 2\nhandled\nthe event loop has ended\n"));
}

void TerminationSignalsTest::theWindowOfTheMainThreadIsForNoOther()
{
    const ChildResult result = runInChild([] {
        armTerminationSignals(sayNumber);
        {
            const TerminationWindow window;
            std::thread([] { ::raise(SIGTERM); }).join();
            say("waiting\n");
        }
        runEventLoop();
    });
    QCOMPARE(result.standardOutput, QByteArray("waiting\nhandler 15\nthe event loop has ended\n"));
}

void TerminationSignalsTest::theHandlerFindsTheDefaultActionsBack()
{
    const ChildResult result = runInChild([] {
        armTerminationSignals(sayActions);
        say(actions().append('\n'));
        const TerminationWindow window;
        ::raise(SIGINT);
        ::raise(SIGTERM);
    });
    // In the handler the signal that it handles is held back, as by every signal handler.
    QCOMPARE(result.standardOutput, QByteArray("+++\n-!--\n"));
    QCOMPARE(result.signal, SIGTERM);
}

void TerminationSignalsTest::aSecondSignalEndsTheProgramThoughTheFirstWaits()
{
    const ChildResult result = runInChild([] {
        armTerminationSignals(sayNumber);
        ::raise(SIGINT);
        say("waiting\n");
        ::raise(SIGTERM);
        say("still there\n");
    });
    QCOMPARE(result.standardOutput, QByteArray("waiting\n"));
    QCOMPARE(result.signal, SIGTERM);
}

void TerminationSignalsTest::unarmedAWindowDoesNothing()
{
    const ChildResult result = runInChild([] {
        ::signal(SIGTERM, SIG_DFL);
        const TerminationWindow window;
        ::raise(SIGTERM);
    });
    QCOMPARE(result.signal, SIGTERM);
}

void TerminationSignalsTest::theInheritedMaskIsLeftAlone()
{
    const ChildResult result = runInChild([] {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGQUIT);
        ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
        armTerminationSignals(sayNumber);
        say(actions().append('\n'));
        ::raise(SIGTERM);
        runEventLoop();
        say(actions().append('\n'));
    });
    QCOMPARE(result.standardOutput,
             QByteArray("++!+\nhandler 15\nthe event loop has ended\n--!-\n"));
}

void TerminationSignalsTest::theInterruptedCodeKeepsItsErrorNumber()
{
    const ChildResult result = runInChild([] {
        armTerminationSignals(changeErrorNumber);
        const TerminationWindow window;
        errno = EDOM;
        ::raise(SIGTERM);
        ::_exit(errno);
    });
    QCOMPARE(result.exitCode, EDOM);
}

void TerminationSignalsTest::theParentsDeathIsToldAsSigterm()
{
    const ChildResult result = runInChild([] {
        armTerminationSignals(sayNumber);
        int number = 0;
        ::prctl(PR_GET_PDEATHSIG, &number);
        ::_exit(number);
    });
    QCOMPARE(result.exitCode, SIGTERM);
}

void TerminationSignalsTest::aChildBeforeItsExecNeverRunsTheHandler()
{
    const ChildResult result = runInChild([] {
        armTerminationSignals(sayNumber);
        const TerminationWindow window;
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

void TerminationSignalsTest::releasedInTheChild()
{
    const ChildResult result = runInChild([] {
        armTerminationSignals(sayNumber);
        say(actions().append('\n'));
        releaseTerminationSignalsInChild();
        say(actions().append('\n'));
    });
    QCOMPARE(result.standardOutput, QByteArray("+++\n---\n"));
}

void TerminationSignalsTest::unarmedTheReleaseTouchesNothing()
{
    const ChildResult result = runInChild([] {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGTERM);
        ::pthread_sigmask(SIG_BLOCK, &set, nullptr);
        ::signal(SIGINT, SIG_DFL);
        ::signal(SIGQUIT, SIG_IGN);
        ::signal(SIGTERM, SIG_IGN);
        const QByteArray before = actions();
        releaseTerminationSignalsInChild();
        say(QByteArray(before).append(' ').append(actions()));
    });
    QCOMPARE(result.standardOutput, QByteArray("-++! -++!"));
}

QTEST_GUILESS_MAIN(TerminationSignalsTest)
#include "tst_terminationsignals.moc"
