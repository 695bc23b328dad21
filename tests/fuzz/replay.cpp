// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// Runs a target with the inputs on the command line, which are files or directories of files.
#include "childrun.h"
#include "fuzz.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <memory>

namespace {

bool replay(const QString &path)
{
    std::fprintf(stderr, "replaying %s\n", qPrintable(path));
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        std::fprintf(stderr, "cannot read %s\n", qPrintable(path));
        return false;
    }
    const QByteArray bytes = file.readAll();
    // A byte array has a NUL byte behind its end. The copy has none, so that the sanitizer finds a
    // read behind the end.
    const auto size = static_cast<std::size_t>(bytes.size());
    const std::unique_ptr<std::uint8_t[]> input(new std::uint8_t[size]);
    std::copy(bytes.begin(), bytes.end(), input.get());
    LLVMFuzzerTestOneInput(input.get(), size);
    return true;
}

bool replayDirectory(const QString &path)
{
    const QFileInfoList files = QDir(path).entryInfoList(QDir::Files, QDir::Name);
    if (files.isEmpty()) {
        std::fprintf(stderr, "there are no inputs in %s\n", qPrintable(path));
        return false;
    }
    bool done = true;
    for (const QFileInfo &file : files)
        done = replay(file.filePath()) && done;
    return done;
}

} // namespace

void mustAbort(const std::function<void()> &code)
{
    const ChildResult result = runInChild(code);
    if (result.signal != SIGABRT || !result.standardError.contains("ASSERT"))
        qFatal("no assertion failed: %s", result.standardError.constData());
}

int main(int argc, char *argv[])
{
    const QCoreApplication application(argc, argv);
    const QStringList paths = QCoreApplication::arguments().mid(1);
    if (paths.isEmpty()) {
        std::fprintf(stderr, "Usage: %s FILE|DIRECTORY...\n", argv[0]);
        return 2;
    }
    bool done = true;
    for (const QString &path : paths)
        done = (QFileInfo(path).isFile() ? replay(path) : replayDirectory(path)) && done;
    return done ? 0 : 1;
}
