// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "logging/outputpipes.h"

#include "pipesize.h"

#include <QProcess>
#include <QtTest>

#include <unistd.h>

namespace {

constexpr int kiB = 1024;
constexpr int enlarged = 256 * kiB;

} // namespace

class OutputPipesTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void bothOutputPipesAreEnlarged();
    void inputPipeIsLeftAlone();
    void largerPipeIsNotMadeSmaller();
    void channelWithoutPipeIsPassedOver();

private:
    QScopedPointer<QProcess> m_process;
};

void OutputPipesTest::init()
{
    m_process.reset(new QProcess);
    m_process->setProgram(QStringLiteral(SAMPLE_APPLICATION));
    m_process->setArguments({QStringLiteral("wait")});
}

void OutputPipesTest::cleanup()
{
    m_process->kill();
    QVERIFY(m_process->waitForFinished());
    m_process.reset();
}

void OutputPipesTest::bothOutputPipesAreEnlarged()
{
    m_process->start();
    QVERIFY(m_process->waitForStarted());
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO}) {
        const int before = pipeSize(m_process->processId(), descriptor);
        QVERIFY(before > 0 && before < enlarged);
    }
    enlargeOutputPipes(m_process.data());
    for (const int descriptor : {STDOUT_FILENO, STDERR_FILENO})
        QCOMPARE(pipeSize(m_process->processId(), descriptor), enlarged);
}

void OutputPipesTest::inputPipeIsLeftAlone()
{
    m_process->start();
    QVERIFY(m_process->waitForStarted());
    const int before = pipeSize(m_process->processId(), STDIN_FILENO);
    QVERIFY(before > 0 && before < enlarged);
    m_process->write("for an application that reads nothing"); // its notifier waits now, too
    enlargeOutputPipes(m_process.data());
    QCOMPARE(pipeSize(m_process->processId(), STDIN_FILENO), before);
}

void OutputPipesTest::largerPipeIsNotMadeSmaller()
{
    m_process->start();
    QVERIFY(m_process->waitForStarted());
    QVERIFY(setPipeSize(m_process->processId(), STDOUT_FILENO, 2 * enlarged));
    enlargeOutputPipes(m_process.data());
    QCOMPARE(pipeSize(m_process->processId(), STDOUT_FILENO), 2 * enlarged);
    QCOMPARE(pipeSize(m_process->processId(), STDERR_FILENO), enlarged);
}

void OutputPipesTest::channelWithoutPipeIsPassedOver()
{
    m_process->setStandardOutputFile(QProcess::nullDevice());
    m_process->start();
    QVERIFY(m_process->waitForStarted());
    enlargeOutputPipes(m_process.data());
    QCOMPARE(pipeSize(m_process->processId(), STDERR_FILENO), enlarged);
}

QTEST_GUILESS_MAIN(OutputPipesTest)
#include "tst_outputpipes.moc"
