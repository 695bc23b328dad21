// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/terminationsignals.h"

#include "childrun.h"

#include <QtTest>

#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>

// Every test arms in a child of its own: the signals of a process cannot be disarmed.
class TerminationSignalsTest : public QObject
{
    Q_OBJECT

private slots:
    void heldBackUntilTheLoopTurns_data();
    void heldBackUntilTheLoopTurns();
    void theFirstGivesAllTheDefaultActionBack();
    void theParentsDeathIsToldAsSigterm();
    void aChildBeforeItsExecNeverRunsTheHandler();
    void releasedInTheChild();
    void aSignalThatCameBeforeTheReleaseEndsTheChild();
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

void quitWithAWord(int number)
{
    say(QByteArray("handler ").append(QByteArray::number(number)).append('\n'));
    QCoreApplication::quit();
}

void sayActions(int /*number*/)
{
    say(actions().append('\n'));
}

void armAndLetThrough(void (*handler)(int))
{
    armTerminationSignals(handler);
    while (actions().contains('!'))
        QCoreApplication::processEvents();
}

} // namespace

void TerminationSignalsTest::heldBackUntilTheLoopTurns_data()
{
    QTest::addColumn<int>("number");
    QTest::newRow("SIGINT") << SIGINT;
    QTest::newRow("SIGQUIT") << SIGQUIT;
    QTest::newRow("SIGTERM") << SIGTERM;
}

void TerminationSignalsTest::heldBackUntilTheLoopTurns()
{
    QFETCH(int, number);
    const ChildResult result = runInChild([number] {
        armTerminationSignals(quitWithAWord);
        ::raise(number);
        say("before the loop\n");
        QCoreApplication::exec(); // would never return if the signal had come before it
        say("the loop has ended\n");
    });
    QCOMPARE(result.standardOutput,
             "before the loop\nhandler " + QByteArray::number(number) + "\nthe loop has ended\n");
    QCOMPARE(result.exitCode, 0);
}

void TerminationSignalsTest::theFirstGivesAllTheDefaultActionBack()
{
    const ChildResult result = runInChild([] {
        armAndLetThrough(sayActions);
        say(actions().append('\n'));
        ::raise(SIGINT);
        ::raise(SIGTERM);
    });
    // In the handler the signal that it handles is held back, as by every signal handler.
    QCOMPARE(result.standardOutput, QByteArray("+++\n-!--\n"));
    QCOMPARE(result.signal, SIGTERM);
}

void TerminationSignalsTest::theParentsDeathIsToldAsSigterm()
{
    const ChildResult result = runInChild([] {
        armTerminationSignals(quitWithAWord);
        int number = 0;
        ::prctl(PR_GET_PDEATHSIG, &number);
        ::_exit(number);
    });
    QCOMPARE(result.exitCode, SIGTERM);
}

void TerminationSignalsTest::aChildBeforeItsExecNeverRunsTheHandler()
{
    const ChildResult result = runInChild([] {
        armAndLetThrough(quitWithAWord);
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
        armTerminationSignals(quitWithAWord);
        say(actions().append('\n'));
        releaseTerminationSignalsInChild();
        say(actions().append('\n'));
    });
    QCOMPARE(result.standardOutput, QByteArray("+!+!+!\n---\n"));
}

void TerminationSignalsTest::aSignalThatCameBeforeTheReleaseEndsTheChild()
{
    const ChildResult result = runInChild([] {
        armTerminationSignals(quitWithAWord);
        ::raise(SIGQUIT);
        releaseTerminationSignalsInChild();
        say("still there\n");
    });
    QCOMPARE(result.standardOutput, QByteArray());
    QCOMPARE(result.signal, SIGQUIT);
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
