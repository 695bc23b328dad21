// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "load/processtable.h"
#include "preparedproc.h"
#include "processresources.h"

#include <QtTest>

#include <csignal>

#include <dirent.h>

namespace {

constexpr quint64 untouched = 12345;
constexpr int somePid = 4711;
const Times someTimes = {101, 102, 103, 104};

bool isReset(const StatRecord &record)
{
    return record.name.isEmpty() && record.pid == 0 && record.utime == 0 && record.stime == 0
        && record.cutime == 0 && record.cstime == 0;
}

bool holds(const StatRecord &record, const Times &times)
{
    return record.utime == times.utime && record.stime == times.stime
        && record.cutime == times.cutime && record.cstime == times.cstime;
}

// A command line as the kernel shows it, with a NUL byte after every element.
QByteArray commandLine(const QByteArrayList &elements)
{
    return elements.join('\0') + '\0';
}

// The process ids in a directory, in the order in which the directory lists them.
QList<int> listedPids(const QString &directory)
{
    QList<int> pids;
    DIR *listing = ::opendir(directory.toUtf8().constData());
    while (const dirent *entry = ::readdir(listing)) {
        const int pid = QByteArray(entry->d_name).toInt();
        if (pid > 0)
            pids.append(pid);
    }
    ::closedir(listing);
    return pids;
}

} // namespace

class ProcessTableTest : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void cpuTotal_data();
    void cpuTotal();
    void cpuTotalWithoutFile();

    void statFile();
    void statFileLosesCarriageReturns();
    void longStatFile();
    void statFileThatIsNotThereResetsTheRecord();
    void statFileOfAProcessThatJustEndedIsNotAShortLine();
    void shortStatFileIsFatal();

    void sampleWithoutThreads();
    void sampleWithThreads();
    void sampleWithoutCpuTotalIsLeftAsItIs();
    void sampleOfAnEndedProcessHoldsTheCpuTotalOnly();
    void sampleWhoseThreadEndedKeepsTheProcess_data();
    void sampleWhoseThreadEndedKeepsTheProcess();
    void sampleWithoutTaskDirectoryFails();

    void pidIfNameMatches_data();
    void pidIfNameMatches();
    void pidWithoutFile();

    void argsMatch_data();
    void argsMatch();
    void unreadableCommandLineMatches();

    void firstListedProcessIsFound();
    void searchSkipsWhatDoesNotMatch();
    void searchSkipsUnreadableEntries();
    void searchTakesThePidFromTheStatFile();
    void searchInNothing();

    void recordedMachine_data();
    void recordedMachine();
    void descriptorsAreGivenBack();

private:
    QScopedPointer<PreparedProc> m_proc;
    QScopedPointer<ProcessTable> m_table;
};

void ProcessTableTest::init()
{
    m_proc.reset(new PreparedProc);
    m_table.reset(new ProcessTable(m_proc->root()));
}

void ProcessTableTest::cpuTotal_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<int>("result");
    QTest::addColumn<quint64>("total");

    const auto row = [](const char *title, const QByteArray &content, int result, quint64 total) {
        QTest::newRow(title) << content << result << total;
    };
    row("all ten", "cpu  1 20 300 4000 50000 600000 7000000 80000000 900000000 1000000000\n", 0,
        1987654321);
    row("guests count twice", "cpu  100 50 0 0 0 0 0 0 100 50\n", 0, 300);
    row("first line only", "cpu  1 1 1 1 1 1 1 1 1 1\ncpu0 7 7 7 7 7 7 7 7 7 7\nintr 9\n", 0, 10);
    row("kernel 2.6.11: eight", "cpu  1 1 1 1 1 1 1 1\ncpu0 7 7 7 7 7 7 7 7\n", 0, 8);
    row("kernel 2.4: four", "cpu  10 20 30 40\ncpu0 10 20 30 40\n", 0, 100);
    row("the label does not matter", "anything 1 1 1 1 1 1 1 1 1 1\n", 0, 10);
    row("the sum wraps", "cpu 18446744073709551615 2 0 0 0 0 0 0 0 0\n", 0, 1);
    row("empty", "", -1, untouched);
    row("label only", "cpu\n", -1, untouched);
}

void ProcessTableTest::cpuTotal()
{
    QFETCH(QByteArray, content);
    m_proc->write(QStringLiteral("stat"), content);
    quint64 total = untouched;
    QTEST(m_table->readCpuTotal(total), "result");
    QTEST(total, "total");
}

void ProcessTableTest::cpuTotalWithoutFile()
{
    quint64 total = untouched;
    QCOMPARE(m_table->readCpuTotal(total), -1);
    QCOMPARE(total, untouched);
}

void ProcessTableTest::statFile()
{
    m_proc->setProcess(somePid, "some name", someTimes);
    StatRecord record;
    QCOMPARE(m_table->readStatFile(m_proc->path(QStringLiteral("4711/stat")), record), 0);
    QCOMPARE(record.name, QStringLiteral("some name"));
    QCOMPARE(record.pid, somePid);
    QVERIFY(holds(record, someTimes));
}

// A command name may hold a carriage return, and the file is read as text.
void ProcessTableTest::statFileLosesCarriageReturns()
{
    m_proc->setProcess(somePid, "a\r\nb\rc", someTimes);
    StatRecord record;
    QCOMPARE(m_table->readStatFile(m_proc->path(QStringLiteral("4711/stat")), record), 0);
    QCOMPARE(record.name, QStringLiteral("a\nbc"));
    QVERIFY(holds(record, someTimes));
}

// These files are longer than any kernel's, and the last block of some of them is full.
void ProcessTableTest::longStatFile()
{
    for (const int size : {1023, 1024, 1025, 2047, 2048, 2049, 5000}) {
        const int nameSize = size - PreparedProc::statLine(somePid, "", someTimes).size();
        const QByteArray name(nameSize, 'n');
        m_proc->setProcess(somePid, name, someTimes);
        StatRecord record;
        QCOMPARE(m_table->readStatFile(m_proc->path(QStringLiteral("4711/stat")), record), 0);
        QCOMPARE(record.name.size(), nameSize);
        QVERIFY(holds(record, someTimes));
    }
}

void ProcessTableTest::statFileThatIsNotThereResetsTheRecord()
{
    StatRecord record;
    record.name = QStringLiteral("old");
    record.pid = 1;
    record.utime = record.stime = record.cutime = record.cstime = 1;
    QCOMPARE(m_table->readStatFile(m_proc->path(QStringLiteral("4711/stat")), record), -1);
    QVERIFY(isReset(record));
}

// Such a file can be opened, but the kernel then gives no content.
void ProcessTableTest::statFileOfAProcessThatJustEndedIsNotAShortLine()
{
    m_proc->write(QStringLiteral("4711/stat"), "");
    StatRecord record;
    record.pid = 1;
    QCOMPARE(m_table->readStatFile(m_proc->path(QStringLiteral("4711/stat")), record), -1);
    QVERIFY(isReset(record));
    // A directory cannot be read either, and it is not a short line.
    QCOMPARE(m_table->readStatFile(m_proc->path(QStringLiteral("4711")), record), -1);
    QVERIFY(isReset(record));
}

void ProcessTableTest::shortStatFileIsFatal()
{
    m_proc->write(QStringLiteral("4711/stat"), "4711 (name) S 1 2 3 0 -1 0 5 6 7 8 101 102 103\n");
    const ChildResult result = runInChild([this] {
        StatRecord record;
        m_table->readStatFile(m_proc->path(QStringLiteral("4711/stat")), record);
    });
    QCOMPARE(result.signal, SIGABRT);
}

void ProcessTableTest::sampleWithoutThreads()
{
    m_proc->setCpuTotal(1000);
    m_proc->setProcess(somePid, "name", someTimes);
    m_proc->setThread(somePid, somePid, "name", someTimes);
    ProcessSample sample;
    QCOMPARE(m_table->readProcessSample(somePid, false, sample), 0);
    QCOMPARE(sample.name, QStringLiteral("name"));
    QCOMPARE(sample.pid, somePid);
    QVERIFY(holds(sample, someTimes));
    QCOMPARE(sample.cpuTotal, quint64(1000));
    QVERIFY(sample.threads.isEmpty());
}

void ProcessTableTest::sampleWithThreads()
{
    m_proc->setCpuTotal(1000);
    m_proc->setProcess(somePid, "name", someTimes);
    m_proc->setThread(somePid, somePid, "name", {1, 2, 3, 4});
    m_proc->setThread(somePid, 4712, "worker", {5, 6, 7, 8});
    // The id in the file counts, not the name of its directory.
    m_proc->write(QStringLiteral("4711/task/1/stat"),
                  PreparedProc::statLine(4800, "a (b) c", {9, 10, 11, 12}));
    m_proc->write(QStringLiteral("4711/task/readme"), "no thread");
    ProcessSample sample;
    QCOMPARE(m_table->readProcessSample(somePid, true, sample), 0);
    QVERIFY(holds(sample, someTimes));
    QCOMPARE(sample.threads.size(), 3);
    QVERIFY(holds(sample.threads[somePid], {1, 2, 3, 4}));
    QVERIFY(holds(sample.threads[4712], {5, 6, 7, 8}));
    QVERIFY(holds(sample.threads[4800], {9, 10, 11, 12}));
    QCOMPARE(sample.threads[4800].name, QStringLiteral("a (b) c"));
    QCOMPARE(sample.threads[4800].pid, 4800);
}

void ProcessTableTest::sampleWithoutCpuTotalIsLeftAsItIs()
{
    m_proc->setProcess(somePid, "name", someTimes);
    ProcessSample sample;
    sample.cpuTotal = untouched;
    QCOMPARE(m_table->readProcessSample(somePid, true, sample), -1);
    QVERIFY(isReset(sample));
    QVERIFY(sample.threads.isEmpty());
    QCOMPARE(sample.cpuTotal, untouched);
}

void ProcessTableTest::sampleOfAnEndedProcessHoldsTheCpuTotalOnly()
{
    m_proc->setCpuTotal(1000);
    ProcessSample sample;
    QCOMPARE(m_table->readProcessSample(somePid, true, sample), -1);
    QVERIFY(isReset(sample));
    QCOMPARE(sample.cpuTotal, quint64(1000));

    m_proc->write(QStringLiteral("4711/stat"), "");
    m_proc->setCpuTotal(1001);
    QCOMPARE(m_table->readProcessSample(somePid, true, sample), -1);
    QVERIFY(isReset(sample));
    QCOMPARE(sample.cpuTotal, quint64(1001));
}

void ProcessTableTest::sampleWhoseThreadEndedKeepsTheProcess_data()
{
    QTest::addColumn<bool>("fileThere");

    QTest::newRow("before its file was opened") << false;
    QTest::newRow("before its file was read") << true;
}

void ProcessTableTest::sampleWhoseThreadEndedKeepsTheProcess()
{
    QFETCH(bool, fileThere);
    m_proc->setCpuTotal(1000);
    m_proc->setProcess(somePid, "name", someTimes);
    for (int tid = 1; tid < 10; ++tid)
        m_proc->setThread(somePid, tid, "thread", {tid, 0, 0, 0});
    const QList<int> listed = listedPids(m_proc->path(QStringLiteral("4711/task")));
    constexpr int readBefore = 4;
    const QString ended = QStringLiteral("4711/task/%1/stat").arg(listed.at(readBefore));
    if (fileThere)
        m_proc->write(ended, "");
    else
        m_proc->remove(ended);

    ProcessSample sample;
    QCOMPARE(m_table->readProcessSample(somePid, true, sample), -1);
    QCOMPARE(sample.name, QStringLiteral("name"));
    QVERIFY(holds(sample, someTimes));
    QCOMPARE(sample.cpuTotal, quint64(1000));
    QCOMPARE(sample.threads.size(), readBefore);
    for (int i = 0; i < readBefore; ++i)
        QVERIFY(sample.threads.contains(listed.at(i)));
}

void ProcessTableTest::sampleWithoutTaskDirectoryFails()
{
    m_proc->setCpuTotal(1000);
    m_proc->setProcess(somePid, "name", someTimes);
    ProcessSample sample;
    QCOMPARE(m_table->readProcessSample(somePid, true, sample), -1);
    QVERIFY(holds(sample, someTimes));
    QVERIFY(sample.threads.isEmpty());
}

void ProcessTableTest::pidIfNameMatches_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("result");

    const auto row = [](const char *title, const QByteArray &name, const QString &wanted,
                        int result) {
        QTest::newRow(title) << PreparedProc::statLine(somePid, name, someTimes) << wanted
                             << result;
    };
    row("equal", "daemon", QStringLiteral("daemon"), somePid);
    row("other", "daemon", QStringLiteral("demon"), 0);
    row("case", "daemon", QStringLiteral("Daemon"), 0);
    row("blanks around the name in the file", " \tdaemon\n ", QStringLiteral("daemon"), somePid);
    row("blanks around the name wanted", "daemon", QStringLiteral(" daemon"), 0);
    row("blanks and parentheses inside", "a) (b c", QStringLiteral("a) (b c"), somePid);
    row("not ASCII", "\xc3\xa9t\xc3\xa9", QString::fromUtf8("été"), somePid);
    row("longer than the kernel keeps", "daemon-with-a-l",
        QStringLiteral("daemon-with-a-long-name"), 0);

    QTest::newRow("nothing else is needed of the line")
        << QByteArray("12 (daemon)") << QStringLiteral("daemon") << 12;
    QTest::newRow("no number") << QByteArray("x (daemon) S") << QStringLiteral("daemon") << 0;
    QTest::newRow("empty") << QByteArray() << QStringLiteral("daemon") << 0;
    QTest::newRow("empty, and no name wanted") << QByteArray() << QString() << 0;
}

void ProcessTableTest::pidIfNameMatches()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, name);
    m_proc->write(QStringLiteral("4711/stat"), content);
    QTEST(m_table->pidIfNameMatches(m_proc->path(QStringLiteral("4711/stat")), name), "result");
}

void ProcessTableTest::pidWithoutFile()
{
    const QString path = m_proc->path(QStringLiteral("4711/stat"));
    QCOMPARE(m_table->pidIfNameMatches(path, QStringLiteral("daemon")), -1);
}

void ProcessTableTest::argsMatch_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<bool>("result");

    const QByteArray content =
        commandLine({"/usr/bin/daemon", "--level", "3", "-v", "/etc/\xc3\xa9t\xc3\xa9"});
    const auto row = [&content](const char *title, const QStringList &args, bool result) {
        QTest::newRow(title) << content << args << result;
    };
    row("none", {}, true);
    row("all", {QStringLiteral("--level"), QStringLiteral("3"), QStringLiteral("-v")}, true);
    row("opposite order with others between", {QStringLiteral("-v"), QStringLiteral("--level")},
        true);
    row("twice though it is there once", {QStringLiteral("-v"), QStringLiteral("-v")}, true);
    row("program path", {QStringLiteral("/usr/bin/daemon")}, true);
    row("program without its path", {QStringLiteral("daemon")}, false);
    row("one of two missing", {QStringLiteral("-v"), QStringLiteral("-d")}, false);
    row("two arguments as one", {QStringLiteral("--level 3")}, false);
    row("not ASCII", {QString::fromUtf8("/etc/été")}, true);
    row("empty argument", {QString()}, true);
    row("empty argument and a missing one", {QString(), QStringLiteral("-d")}, false);

    QTest::newRow("no NUL at the end") << QByteArrayList({"daemon", "-v"}).join(char(0))
                                       << QStringList{QStringLiteral("-v")} << true;
    QTest::newRow("empty argument, no NUL at the end")
        << QByteArrayList({"daemon", "-v"}).join(char(0)) << QStringList{QString()} << false;
    QTest::newRow("carriage returns are kept")
        << commandLine({"daemon", "-v\r"}) << QStringList{QStringLiteral("-v")} << false;
    QTest::newRow("title of its own making")
        << QByteArray("daemon: waiting for work") << QStringList{QStringLiteral("-v")} << false;
    QTest::newRow("kernel thread") << QByteArray() << QStringList{QStringLiteral("-v")} << false;
    QTest::newRow("very long") << commandLine({"daemon"})
            + commandLine({"argument"}).repeated(20000) + commandLine({"-v"})
                               << QStringList{QStringLiteral("-v")} << true;
}

void ProcessTableTest::argsMatch()
{
    QFETCH(QByteArray, content);
    QFETCH(QStringList, args);
    m_proc->write(QStringLiteral("4711/cmdline"), content);
    QTEST(m_table->argsMatch(m_proc->path(QStringLiteral("4711/cmdline")), args), "result");
}

// It is better to watch the wrong process than none.
void ProcessTableTest::unreadableCommandLineMatches()
{
    const QString path = m_proc->path(QStringLiteral("4711/cmdline"));
    QVERIFY(m_table->argsMatch(path, {QStringLiteral("-v")}));
    m_proc->setProcess(somePid, "daemon", someTimes);
    QCOMPARE(m_table->findPidByNameAndArgs(QStringLiteral("daemon"), {QStringLiteral("-v")}),
             somePid);
}

void ProcessTableTest::firstListedProcessIsFound()
{
    for (const int pid : {30, 4, 500, 61})
        m_proc->setProcess(pid, "daemon", someTimes);
    const QList<int> listed = listedPids(m_proc->root());
    QCOMPARE(listed.size(), 4);
    QCOMPARE(m_table->findPidByNameAndArgs(QStringLiteral("daemon"), {}), listed.first());
    // The same holds among processes with the arguments.
    for (const int pid : listed)
        m_proc->write(QStringLiteral("%1/cmdline").arg(pid),
                      listed.indexOf(pid) < 2 ? commandLine({"daemon", "-d"})
                                              : commandLine({"daemon", "-v"}));
    QCOMPARE(m_table->findPidByNameAndArgs(QStringLiteral("daemon"), {QStringLiteral("-v")}),
             listed.at(2));
}

void ProcessTableTest::searchSkipsWhatDoesNotMatch()
{
    m_proc->setCpuTotal(1);
    m_proc->setProcess(1, "init", someTimes);
    m_proc->setProcess(2, "daemon", someTimes);
    m_proc->write(QStringLiteral("2/cmdline"), commandLine({"daemon", "-d"}));
    // A directory whose name is no number is no process, whatever is in it.
    m_proc->write(QStringLiteral("self/stat"), PreparedProc::statLine(3, "daemon", someTimes));
    m_proc->write(QStringLiteral("x5/stat"), PreparedProc::statLine(5, "daemon", someTimes));
    QCOMPARE(m_table->findPidByNameAndArgs(QStringLiteral("daemon"), {QStringLiteral("-v")}), 0);
    QCOMPARE(m_table->findPidByNameAndArgs(QStringLiteral("daemon"), {QStringLiteral("-d")}), 2);
    QCOMPARE(m_table->findPidByNameAndArgs(QStringLiteral("nobody"), {}), 0);
}

void ProcessTableTest::searchSkipsUnreadableEntries()
{
    m_proc->write(QStringLiteral("1/cmdline"), ""); // ended before its stat file was opened
    m_proc->write(QStringLiteral("2/stat"), "");    // ended before its stat file was read
    m_proc->write(QStringLiteral("3/stat"), "nonsense");
    m_proc->write(QStringLiteral("4"), "a file");
    m_proc->write(QStringLiteral("5/stat"), "x (daemon) S");
    m_proc->setProcess(6, "daemon", someTimes);
    QCOMPARE(m_table->findPidByNameAndArgs(QStringLiteral("daemon"), {}), 6);
}

void ProcessTableTest::searchTakesThePidFromTheStatFile()
{
    m_proc->write(QStringLiteral("10x/stat"), PreparedProc::statLine(77, "daemon", someTimes));
    QCOMPARE(m_table->findPidByNameAndArgs(QStringLiteral("daemon"), {}), 77);
    // A stat file without a usable process id is skipped.
    m_proc->write(QStringLiteral("10x/stat"), PreparedProc::statLine(-77, "daemon", someTimes));
    QCOMPARE(m_table->findPidByNameAndArgs(QStringLiteral("daemon"), {}), 0);
}

void ProcessTableTest::searchInNothing()
{
    QCOMPARE(m_table->findPidByNameAndArgs(QStringLiteral("daemon"), {}), 0);
    const ProcessTable nowhere(m_proc->path(QStringLiteral("missing")));
    QCOMPARE(nowhere.findPidByNameAndArgs(QStringLiteral("daemon"), {}), 0);
}

void ProcessTableTest::recordedMachine_data()
{
    QTest::addColumn<QString>("machine");
    QTest::addColumn<quint64>("cpuTotal");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("pid");
    QTest::addColumn<QList<qint64>>("times");
    QTest::addColumn<QStringList>("threads");

    const QString pc = QStringLiteral("proc-linux-6.18-x86-64");
    constexpr quint64 pcTotal = 797839;
    const QString board = QStringLiteral("proc-linux-6.1-arm64");
    constexpr quint64 boardTotal = 1297;
    QTest::newRow("board: name with blanks and parentheses, threads")
        << board << boardTotal << QStringLiteral("Qt bearer (ui)")
        << QStringList{QStringLiteral("4"), QStringLiteral("-v")} << 86
        << QList<qint64>{548, 22, 0, 0}
        << QStringList{QStringLiteral("86 Qt bearer (ui) 2"), QStringLiteral("91 burner-0 186"),
                       QStringLiteral("92 burner-1 191"), QStringLiteral("93 burner-2 194")};
    QTest::newRow("board: shell with children that ended")
        << board << boardTotal << QStringLiteral("sh") << QStringList{QStringLiteral("-c")} << 87
        << QList<qint64>{10, 105, 39, 360} << QStringList{QStringLiteral("87 sh 10")};
    QTest::newRow("board: kernel thread, without a command line")
        << board << boardTotal << QStringLiteral("kthreadd") << QStringList{QString()} << 2
        << QList<qint64>{0, 10, 0, 0} << QStringList{QStringLiteral("2 kthreadd 0")};
    QTest::newRow("PC: name with blanks and parentheses, threads")
        << pc << pcTotal << QStringLiteral("media (main) x")
        << QStringList{QStringLiteral("-v"), QStringLiteral("--stream")} << 16697
        << QList<qint64>{112, 0, 0, 0}
        << QStringList{QStringLiteral("16697 media (main) x 0"),
                       QStringLiteral("16699 burner-0 37"), QStringLiteral("16713 burner-1 36"),
                       QStringLiteral("16714 burner-2 37")};
    QTest::newRow("PC: shell with children that ended")
        << pc << pcTotal << QStringLiteral("sh") << QStringList{QStringLiteral("-c")} << 16698
        << QList<qint64>{1, 5, 63, 4} << QStringList{QStringLiteral("16698 sh 1")};
    QTest::newRow("PC: name of two lines that ends with a parenthesis")
        << pc << pcTotal << QStringLiteral("two\nlines)") << QStringList() << 16703
        << QList<qint64>{0, 0, 0, 0} << QStringList{QStringLiteral("16703 two\nlines) 0")};
    QTest::newRow("PC: kernel thread")
        << pc << pcTotal << QStringLiteral("kthreadd") << QStringList() << 2
        << QList<qint64>{0, 0, 0, 0} << QStringList{QStringLiteral("2 kthreadd 0")};
}

// Process tables as real kernels wrote them.
void ProcessTableTest::recordedMachine()
{
    QFETCH(QString, machine);
    QFETCH(QString, name);
    QFETCH(QStringList, args);
    QFETCH(int, pid);
    QFETCH(QList<qint64>, times);
    const ProcessTable table(QStringLiteral(TEST_FIXTURES "/") + machine);

    QCOMPARE(table.findPidByNameAndArgs(name, args), pid);
    ProcessSample sample;
    QCOMPARE(table.readProcessSample(pid, true, sample), 0);
    QTEST(sample.cpuTotal, "cpuTotal");
    QCOMPARE(sample.name, name);
    QCOMPARE(sample.pid, pid);
    QVERIFY(holds(sample, {times.at(0), times.at(1), times.at(2), times.at(3)}));
    QStringList threads;
    for (const StatRecord &thread : qAsConst(sample.threads))
        threads += QStringLiteral("%1 %2 %3").arg(thread.pid).arg(thread.name).arg(thread.utime);
    threads.sort();
    QTEST(threads, "threads");
}

void ProcessTableTest::descriptorsAreGivenBack()
{
    const int before = openDescriptors();
    ProcessSample sample;
    QCOMPARE(m_table->readProcessSample(somePid, true, sample), -1);
    m_proc->setCpuTotal(1);
    QCOMPARE(m_table->readProcessSample(somePid, true, sample), -1);
    m_proc->setProcess(somePid, "name", someTimes);
    QCOMPARE(m_table->readProcessSample(somePid, true, sample), -1);
    m_proc->write(QStringLiteral("4711/task/1/stat"), "");
    QCOMPARE(m_table->readProcessSample(somePid, true, sample), -1);
    m_proc->setThread(somePid, 1, "name", someTimes);
    QCOMPARE(m_table->readProcessSample(somePid, true, sample), 0);
    m_proc->write(QStringLiteral("4711/cmdline"), commandLine({"name"}));
    QCOMPARE(m_table->findPidByNameAndArgs(QStringLiteral("name"), {QString()}), somePid);
    QCOMPARE(m_table->findPidByNameAndArgs(QStringLiteral("other"), {}), 0);
    QCOMPARE(openDescriptors(), before);
}

QTEST_GUILESS_MAIN(ProcessTableTest)
#include "tst_processtable.moc"
