// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "platform/pynx_processhandler.h"

#include "common/checkedconnect.h"
#include "common/toolprocess.h"

#include <QByteArray>
#include <QSet>
#include <QString>
#include <QStringList>

#include <utility>

namespace {

using FinishedSignal = void (QProcess::*)(int, QProcess::ExitStatus);

constexpr int startFailedCode = -1;
constexpr int crashedCode = -2;

// One command. It deletes itself after it has handed over its result.
class AsyncCommand : public QObject
{
public:
    AsyncCommand(PynxProcessHandler::CompletionCallback completed,
                 PynxProcessHandler::OutputCallback output);

    void start(const QString &program, const QStringList &arguments);

private:
    void readOutput();
    void processError(QProcess::ProcessError error);
    void processFinished(int exitCode, QProcess::ExitStatus exitStatus);
    void complete(int resultCode);

    ToolProcess m_process;
    PynxProcessHandler::CompletionCallback m_completed;
    PynxProcessHandler::OutputCallback m_output;
};

// The running commands. Those that still run at the end of the program are not destroyed, because
// that would kill them.
QSet<AsyncCommand *> &commands()
{
    static auto *const all = new QSet<AsyncCommand *>;
    return *all;
}

AsyncCommand::AsyncCommand(PynxProcessHandler::CompletionCallback completed,
                           PynxProcessHandler::OutputCallback output)
    : m_completed(std::move(completed)), m_output(std::move(output))
{
    commands().insert(this);
    m_process.setStandardInputFile(QProcess::nullDevice());
    if (m_output) {
        m_process.setProcessChannelMode(QProcess::MergedChannels);
        checkedConnect(&m_process, &QProcess::readyReadStandardOutput, this,
                       &AsyncCommand::readOutput);
    } else {
        m_process.discardOutput();
    }
    checkedConnect(&m_process, static_cast<FinishedSignal>(&QProcess::finished), this,
                   &AsyncCommand::processFinished);
    // Queued, because a start can fail inside QProcess::start() and the result must come later.
    checkedConnect(&m_process, &QProcess::errorOccurred, this, &AsyncCommand::processError,
                   Qt::QueuedConnection);
}

void AsyncCommand::start(const QString &program, const QStringList &arguments)
{
    m_process.start(program, arguments);
}

void AsyncCommand::readOutput()
{
    m_output(m_process.readAllStandardOutput());
}

void AsyncCommand::processError(QProcess::ProcessError error)
{
    // A failed start emits no finished(). After every other error of a process, its end does.
    if (error == QProcess::FailedToStart)
        complete(startFailedCode);
}

void AsyncCommand::processFinished(int exitCode, QProcess::ExitStatus exitStatus)
{
    complete(exitStatus == QProcess::NormalExit ? exitCode : crashedCode);
}

void AsyncCommand::complete(int resultCode)
{
    // QProcess reports some failed starts twice.
    if (!commands().remove(this))
        return;
    deleteLater();
    if (m_completed)
        m_completed({resultCode});
}

} // namespace

void PynxProcessHandler::startAsync(const QString &program, const QStringList &arguments,
                                    int /*number*/, const CompletionCallback &completed,
                                    const OutputCallback &output, bool /*flag*/)
{
    auto *command = new AsyncCommand(completed, output);
    command->start(program, arguments);
}
