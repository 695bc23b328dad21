// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "load/processtable.h"

#include "load/statline.h"
#include "load/textfile.h"

#include <QFile>
#include <QSet>

#include <cstdio>
#include <iterator>
#include <memory>
#include <numeric>
#include <utility>

#include <dirent.h>
#include <fcntl.h>

namespace {

struct DirectoryCloser
{
    void operator()(DIR *directory) const { ::closedir(directory); }
};

using Directory = std::unique_ptr<DIR, DirectoryCloser>;

Directory openDirectory(const QString &path)
{
    return Directory(::opendir(path.toUtf8().constData()));
}

// The name of the next entry that is a process or thread id, or null at the end.
const char *nextId(const Directory &directory)
{
    while (const dirent *entry = ::readdir(directory.get())) {
        if (entry->d_name[0] >= '0' && entry->d_name[0] <= '9')
            return entry->d_name;
    }
    return nullptr;
}

// A relative path starts at the open directory, so that the kernel has less of the path to look up.
int readStatFileAt(int directory, const char *path, StatRecord &record)
{
    record = StatRecord();
    FileText text;
    // A process that ended after its file was opened reads as empty.
    if (!readTextFile(directory, path, text) || text.isEmpty())
        return -1;
    record = StatLine(text.constData(), text.size()).record();
    return 0;
}

int readThreadsIn(const QString &tasks, QHash<int, StatRecord> &threads)
{
    const Directory directory = openDirectory(tasks);
    if (!directory)
        return -1;
    while (const char *id = nextId(directory)) {
        StatRecord thread;
        const QByteArray path = QByteArray(id) + "/stat";
        if (readStatFileAt(::dirfd(directory.get()), path.constData(), thread) < 0)
            return -1;
        threads.insert(thread.pid, thread);
    }
    return 0;
}

int pidIfNameMatchesAt(int directory, const char *path, const QString &name)
{
    FileText text;
    if (!readTextFile(directory, path, text))
        return -1;
    const StatLine line(text.constData(), text.size());
    return line.name().trimmed() == name ? line.pid() : 0;
}

} // namespace

ProcessTable::ProcessTable(QString root) : m_root(std::move(root))
{ }

int ProcessTable::readCpuTotal(quint64 &total) const
{
    // Only the beginning is read, because the file is long on a machine with many processors. The
    // "e" closes the descriptor in children that the other thread may start at this moment.
    FILE *file = std::fopen((m_root + QStringLiteral("/stat")).toUtf8().constData(), "re");
    if (file == nullptr)
        return -1;
    // Without this buffer the stream would ask for the file's block size and allocate a buffer.
    char buffer[1024];
    std::setvbuf(file, buffer, _IOFBF, sizeof buffer);
    // User, nice, system, idle, iowait, irq, softirq, steal, guest and guest_nice. The guests' time
    // is part of user and nice already, so it counts twice. Thresholds in the field are set for
    // these figures (kept-behaviour.md: guest-time).
    unsigned long times[10] = {};
    // Older kernels have fewer numbers, so a missing one is no error.
    // NOLINTNEXTLINE(cert-err34-c)
    const int count = std::fscanf(file, "%*s %lu %lu %lu %lu %lu %lu %lu %lu %lu %lu", &times[0],
                                  &times[1], &times[2], &times[3], &times[4], &times[5], &times[6],
                                  &times[7], &times[8], &times[9]);
    std::fclose(file);
    if (count == EOF)
        return -1;
    total = std::accumulate(std::begin(times), std::end(times), quint64(0));
    return 0;
}

int ProcessTable::readStatFile(const QString &path, StatRecord &record) const
{
    return readStatFileAt(AT_FDCWD, path.toUtf8().constData(), record);
}

int ProcessTable::readProcessSample(int pid, bool readThreads, ProcessSample &sample) const
{
    quint64 cpuTotal = 0;
    if (const int result = readCpuTotal(cpuTotal); result < 0)
        return result;
    sample.cpuTotal = cpuTotal;

    StatRecord process;
    const QString directory = m_root + QLatin1Char('/') + QString::number(pid);
    if (const int result = readStatFile(directory + QStringLiteral("/stat"), process); result < 0)
        return result;
    static_cast<StatRecord &>(sample) = process;

    return readThreads ? readThreadsIn(directory + QStringLiteral("/task"), sample.threads) : 0;
}

int ProcessTable::pidIfNameMatches(const QString &path, const QString &name) const
{
    return pidIfNameMatchesAt(AT_FDCWD, path.toUtf8().constData(), name);
}

bool ProcessTable::argsMatch(const QString &path, const QStringList &args) const
{
    if (args.isEmpty())
        return true;
    QFile file(path); // text mode would drop carriage returns of the arguments
    // A process with an unreadable command line counts as the one that is meant: rather one process
    // too many is watched than the right one missed (kept-behaviour.md: unreadable-command-line).
    if (!file.open(QIODevice::ReadOnly))
        return true;
    QSet<QString> missing = args.toSet();
    const QList<QByteArray> elements = file.readAll().split('\0');
    for (const QByteArray &element : elements)
        missing.remove(QString::fromUtf8(element));
    return missing.isEmpty();
}

int ProcessTable::findPidByNameAndArgs(const QString &name, const QStringList &args) const
{
    const Directory directory = openDirectory(m_root);
    if (!directory)
        return 0;
    while (const char *id = nextId(directory)) {
        const QByteArray path = QByteArray(id) + "/stat";
        const int pid = pidIfNameMatchesAt(::dirfd(directory.get()), path.constData(), name);
        if (pid < 1)
            continue;
        const QString commandLine = QStringLiteral("%1/%2/cmdline").arg(m_root, QLatin1String(id));
        if (argsMatch(commandLine, args))
            return pid;
    }
    return 0;
}
