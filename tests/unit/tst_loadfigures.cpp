// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "load/systemloadstat.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QPair>
#include <QProcess>
#include <QRegExp>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QVector>
#include <QtTest>

#include <algorithm>

namespace {

/** A process that runs for as long as the object lives. */
class Running
{
public:
    Running(const QString &program, const QStringList &arguments)
    {
        m_process.setStandardOutputFile(QProcess::nullDevice());
        m_process.start(program, arguments);
        m_process.waitForStarted();
    }
    ~Running()
    {
        m_process.kill();
        m_process.waitForFinished();
    }
    Running(const Running &) = delete;
    Running &operator=(const Running &) = delete;

    int pid() const { return static_cast<int>(m_process.processId()); }

private:
    QProcess m_process;
};

/** The independent reading; see the script. */
class Reference
{
public:
    explicit Reference(int pid)
    {
        m_script.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_script.start(QStringLiteral("python3"),
                       {QStringLiteral(PROCESS_TIMES), QString::number(pid)});
        nextLine();
    }
    ~Reference()
    {
        m_script.closeWriteChannel();
        m_script.waitForFinished();
    }
    Reference(const Reference &) = delete;
    Reference &operator=(const Reference &) = delete;

    QJsonObject read()
    {
        m_script.write("\n");
        return nextLine();
    }

private:
    QJsonObject nextLine()
    {
        while (!m_script.canReadLine() && m_script.waitForReadyRead()) { }
        return QJsonDocument::fromJson(m_script.readLine()).object();
    }

    QProcess m_script;
};

qint64 ticksOf(const SystemLoadStat &stat, int pid)
{
    ProcessSample sample;
    stat.readProcessSample(pid, false, sample);
    return sample.utime + sample.stime + sample.cutime + sample.cstime;
}

using NamedLoad = QPair<QString, double>;

// What a line says that ends like " NAME load:LOAD%"; the name may be of several words.
NamedLoad loadIn(const QString &line, const QString &before, const QString &between)
{
    QRegExp form(QStringLiteral(".{23} %1(.*)%2(.*)%").arg(before, between));
    return form.exactMatch(line) ? NamedLoad(form.cap(1), form.cap(2).toDouble()) : NamedLoad();
}

// A quarter, and a clock tick or so: far from a factor of two, and from a time left out.
bool isAbout(const NamedLoad &load, const NamedLoad &reference)
{
    return load.first == reference.first
        && qAbs(load.second - reference.second) <= 0.25 * reference.second + 0.5;
}

} // namespace

class LoadFiguresTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void figuresAgreeWithAnIndependentReading_data();
    void figuresAgreeWithAnIndependentReading();

private:
    QTemporaryDir m_directory;
};

void LoadFiguresTest::initTestCase()
{
    if (QStandardPaths::findExecutable(QStringLiteral("python3")).isEmpty())
        QSKIP("python3 is not installed");
}

void LoadFiguresTest::figuresAgreeWithAnIndependentReading_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("program");
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("threadCount");

    // Names that another run of this test on the same machine does not have.
    const QString ownId = QString::number(QCoreApplication::applicationPid());
    const auto sampleRow = [&ownId](const char *title, const QString &name, int threadCount,
                                    const QStringList &behaviour) {
        const QString ownName = name + ownId;
        QTest::newRow(title) << ownName << QStringLiteral(SAMPLE_APPLICATION)
                             << QStringList{QStringLiteral("name"), ownName} + behaviour
                             << threadCount;
    };
    sampleRow("user time in threads", QStringLiteral("burn-"), 4,
              {QStringLiteral("burn"), QStringLiteral("3"), QStringLiteral("25"),
               QStringLiteral("wait")});
    sampleRow("system time", QStringLiteral("flood-"), 1,
              {QStringLiteral("flood"), QStringLiteral("900000000000"), QStringLiteral("100")});
    const QString shell = m_directory.filePath(QStringLiteral("shell-") + ownId);
    QVERIFY(QFile::link(QStandardPaths::findExecutable(QStringLiteral("sh")), shell));
    QTest::newRow("children that ended")
        << QStringLiteral("shell-") + ownId << shell
        << QStringList{QStringLiteral("-c"), QStringLiteral("while :; do /bin/true; done")} << 1;
}

void LoadFiguresTest::figuresAgreeWithAnIndependentReading()
{
    QFETCH(QString, name);
    QFETCH(QString, program);
    QFETCH(QStringList, arguments);
    QFETCH(int, threadCount);
    constexpr qint64 enoughTicks = 150;

    const Running process(program, arguments);
    SystemLoadStat stat;
    QTRY_VERIFY(stat.findPidByNameAndArgs(name, arguments) == process.pid());
    const auto threads = [&] {
        ProcessSample sample;
        stat.readProcessSample(process.pid(), true, sample);
        return sample.threads.size();
    };
    QTRY_VERIFY(threads() >= threadCount); // a sanitizer may have one of its own

    int id = -1;
    QMetaObject::invokeMethod(&stat, "do_watchProcessLoad", Qt::DirectConnection,
                              Q_RETURN_ARG(int, id), Q_ARG(QString, name),
                              Q_ARG(QStringList, arguments), Q_ARG(int, 1), Q_ARG(int, 0),
                              Q_ARG(bool, true), Q_ARG(int, 0));
    QMetaObject::invokeMethod(&stat, "do_start", Qt::DirectConnection);
    QMetaObject::invokeMethod(&stat, "do_stop", Qt::DirectConnection); // no tick but the test's own
    QSignalSpy alarms(&stat, &SystemLoadStat::cpuLoadExceed);

    Reference reference(process.pid());
    QMetaObject::invokeMethod(&stat, "on_cpuLoadTimer_timeout", Qt::DirectConnection);
    const qint64 begin = ticksOf(stat, process.pid());
    QTRY_VERIFY_WITH_TIMEOUT(ticksOf(stat, process.pid()) >= begin + enoughTicks, 120000);
    QMetaObject::invokeMethod(&stat, "on_cpuLoadTimer_timeout", Qt::DirectConnection);
    const QJsonObject expected = reference.read();

    QCOMPARE(alarms.size(), 1);
    const QStringList lines = alarms.first().at(1).toStringList();
    const NamedLoad whole(name, expected.value(QStringLiteral("process")).toDouble());
    QVERIFY(whole.second > 2.0);
    QVERIFY2(isAbout(loadIn(lines.at(2), QString(), QStringLiteral(" cpu load:")), whole),
             qPrintable(QStringLiteral("%1, expected %2").arg(lines.at(2)).arg(whole.second)));

    QVector<NamedLoad> expectedThreads;
    NamedLoad expectedTotal(name, 0.0);
    const QJsonArray threadArray = expected.value(QStringLiteral("threads")).toArray();
    for (const QJsonValue &thread : threadArray) {
        const double load = thread.toObject().value(QStringLiteral("load")).toDouble();
        expectedTotal.second += load;
        expectedThreads.append({thread.toObject().value(QStringLiteral("name")).toString(), load});
    }
    QVERIFY(isAbout(loadIn(lines.at(3), QString(), QStringLiteral(" total thread load:")),
                    expectedTotal));
    QVector<NamedLoad> threadLoads;
    const QStringList threadLines = lines.mid(4);
    for (const QString &line : threadLines)
        threadLoads.append(loadIn(line, QStringLiteral(" thread name:"), QStringLiteral(" load:")));
    std::sort(expectedThreads.begin(), expectedThreads.end());
    std::sort(threadLoads.begin(), threadLoads.end());
    QVERIFY(threadLoads.size() >= threadCount);
    QCOMPARE(threadLoads.size(), expectedThreads.size());
    for (int i = 0; i < threadLoads.size(); ++i)
        QVERIFY2(isAbout(threadLoads.at(i), expectedThreads.at(i)), qPrintable(threadLines.at(i)));
}

QTEST_GUILESS_MAIN(LoadFiguresTest)
#include "tst_loadfigures.moc"
