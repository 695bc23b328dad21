// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The log processor's reading, writing and report requests. tst_logfile.cpp tests its file.
#include "childrun.h"
#include "logging/logprocessor.h"
#include "testfiles.h"
#include "testlog.h"

#include <QTemporaryDir>
#include <QtTest>

#include <cstdio>

#include <unistd.h>

namespace {

constexpr int flushMs = 190; // the timer's 200 ms; a coarse timer may be early by a twentieth

// The behaviours of the sample application, from a text.
QStringList words(const char *text)
{
    return QString::fromUtf8(text).split(QLatin1Char(' '));
}

// The report requests of a log processor, each as "FILE|NAME".
struct Requests
{
    explicit Requests(LogProcessor *log)
    {
        log->enableReports();
        QObject::connect(log, &LogProcessor::reportString, log,
                         [this](const QString &file, const QString &str) {
                             texts << file + QLatin1Char('|') + str;
                         });
    }

    QStringList texts;
};

// The output of the sample application's behaviour "flood" with so many lines.
QByteArray flood(int lines)
{
    QByteArray text;
    for (int i = 0; i < lines; ++i)
        text += ("out " + QByteArray::number(i) + ' ').leftJustified(99, '.') + '\n';
    return text;
}

} // namespace

class LogProcessorTest : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void signalFirstThenThreeSlots();
    void connectionThatCannotBeMadeIsFatal();

    void withoutLogFileEverythingIsEchoed_data();
    void withoutLogFileEverythingIsEchoed();
    void echoEndsAtNulByte();
    void echoIsNotFlushed();
    void echoCountsForTheStartOfALine();

    void openMakesOrContinuesTheFile();
    void openFailureIsReported_data();
    void openFailureIsReported();

    void bytesAreWrittenAsTheyAre();
    void textIsWrittenAsUtf8();
    void flushComes200MsAfterTheFirstWrite();
    void theTimerRunsOutOnce();
    void whatFlushesStopsTheTimer_data();
    void whatFlushesStopsTheTimer();

    void bothChannelsAreTakenInAsTheyArrive();
    void flushOutputTakesStandardOutputOnly();
    void flushOutputTakesStandardOutputTwice();
    void flushOutputPutsWhatFollowsAtTheStartOfALine();
    void flushOutputRotatesAFullLog();
    void outputIsTakenInChunksOf64KiB();
    void anEchoedChunkEndsWhereTheNextBegins();

    void reportsAreRequested_data();
    void reportsAreRequested();
    void reportsAreOffUntilEnabled();
    void reportRequestComesAfterTheChunkWasWritten();
    void ownLinesAreNoRequests();

private:
    QScopedPointer<QTemporaryDir> m_directory;
    QString m_fileName;
    QString m_rotatedFileName;
};

void LogProcessorTest::init()
{
    m_directory.reset(new QTemporaryDir);
    QVERIFY(m_directory->isValid());
    m_fileName = m_directory->filePath(QStringLiteral("app.log"));
    m_rotatedFileName = m_fileName + QStringLiteral(".0");
}

// ---- The object itself

void LogProcessorTest::signalFirstThenThreeSlots()
{
    const QMetaObject &meta = LogProcessor::staticMetaObject;
    QList<QByteArray> methods;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i)
        methods << meta.method(i).methodSignature();
    const QList<QByteArray> expected = {"reportString(QString,QString)", "on_flushTimer_timeout()",
                                        "on_process_readyReadStandardOutput()",
                                        "on_process_readyReadStandardError()"};
    QCOMPARE(methods, expected);
    QCOMPARE(meta.method(meta.methodOffset()).parameterNames(), QList<QByteArray>({"file", "str"}));

    const Log log(m_fileName);
    QVERIFY(log.processor.parent() == nullptr);
    QVERIFY(log.processor.children().isEmpty());
}

void LogProcessorTest::connectionThatCannotBeMadeIsFatal()
{
    const ChildResult result =
        runInChild([this] { const LogProcessor log(nullptr, m_fileName, roomy, false); });
    QVERIFY(result.failedAssertion("connection"));
}

// ---- Without a log file

void LogProcessorTest::withoutLogFileEverythingIsEchoed_data()
{
    QTest::addColumn<bool>("named");
    QTest::addColumn<quint32>("maxSize");
    QTest::newRow("no name") << false << roomy;
    QTest::newRow("no size") << true << quint32(0);
}

void LogProcessorTest::withoutLogFileEverythingIsEchoed()
{
    QFETCH(bool, named);
    QFETCH(quint32, maxSize);
    const ChildResult result = runInChild([&] {
        QDir::setCurrent(m_directory->path());
        Log log(named ? m_fileName : QString(), maxSize, true, words("print printed\\n"));
        if (!log.processor.open())
            std::puts("open failed");
        log.write("one\n");
        log.processor.write(QStringLiteral("zw\u00f6lf\n"));
        log.processor.flushOutput();
    });
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.standardOutput, QByteArray("one\nzw\xc3\xb6lf\nprinted\n")); // no time lines
    QCOMPARE(result.standardError, QByteArray()); // Qt would warn here if a closed file were used
    QVERIFY(QDir(m_directory->path()).isEmpty());
}

void LogProcessorTest::echoEndsAtNulByte()
{
    const ChildResult result = runInChild([] {
        Log log(QString(), 0);
        log.write(QByteArray("seen\0lost\n", 10));
        log.write("|next");
    });
    QCOMPARE(result.standardOutput, QByteArray("seen|next"));
}

void LogProcessorTest::echoIsNotFlushed()
{
    const ChildResult result = runInChild([] {
        Log log(QString(), 0);
        log.write("still in the buffer\n");
        log.processor.flushOutput();
        ::_exit(0);
    });
    QCOMPARE(result.standardOutput, QByteArray());
}

void LogProcessorTest::echoCountsForTheStartOfALine()
{
    const ChildResult result = runInChild([this] {
        Log log(m_fileName, roomy, true);
        log.write("before the file is open");
        log.processor.open();
        log.write("after\n");
    });
    QCOMPARE(result.standardOutput, QByteArray("before the file is open"));
    QCOMPARE(readFile(m_fileName), QByteArray("after\n"));
}

// ---- Opening

void LogProcessorTest::openMakesOrContinuesTheFile()
{
    Log first(m_fileName);
    QVERIFY(!QFile::exists(m_fileName));
    QVERIFY(first.processor.open());
    QVERIFY(QFile::exists(m_fileName));
    first.write("from the last run\n");
    first.processor.flushOutput();

    OpenLog log(m_fileName);
    log.write("from this one\n");
    QCOMPARE(log.text(), QByteArray("from the last run\nfrom this one\n"));
}

void LogProcessorTest::openFailureIsReported_data()
{
    QTest::addColumn<QString>("name");
    QTest::newRow("the folder is missing") << QStringLiteral("missing/app.log");
    QTest::newRow("it is a folder") << QStringLiteral(".");
}

void LogProcessorTest::openFailureIsReported()
{
    QFETCH(QString, name);
    const QString path = m_directory->filePath(name);
    const ChildResult result = runInChild([&] {
        Log log(path);
        std::puts(log.processor.open() ? "true" : "false");
    });
    QCOMPARE(result.standardOutput, QByteArray("false\n"));
    QCOMPARE(result.standardError, "Can't open file : " + path.toUtf8() + '\n');
}

// ---- Writing

void LogProcessorTest::bytesAreWrittenAsTheyAre()
{
    const QByteArray bytes("a\r\nb\rc\0d\xff\xfe\n", 11);
    OpenLog log(m_fileName);
    log.write(bytes);
    QCOMPARE(log.text(), bytes);
}

void LogProcessorTest::textIsWrittenAsUtf8()
{
    const ChildResult result = runInChild([this] {
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
        OpenLog log(m_fileName);
        log.processor.write(QStringLiteral("gr\u00fcn \u20ac\n"));
    });
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(readFile(m_fileName), QByteArray("gr\xc3\xbcn \xe2\x82\xac\n"));
}

// If each write restarted the timer, it would never run out while the application prints.
void LogProcessorTest::flushComes200MsAfterTheFirstWrite()
{
    OpenLog log(m_fileName);
    QByteArray later; // timers run out in their order, however late all of them are noticed
    QTimer::singleShot(2 * flushMs, Qt::PreciseTimer, &log.processor,
                       [&] { later = readFile(m_fileName); });
    QElapsedTimer elapsed;
    elapsed.start();
    do {
        log.write(".");
        QTest::qWait(20);
    } while (readFile(m_fileName).isEmpty() && elapsed.elapsed() < generousMs);
    QVERIFY(elapsed.elapsed() >= flushMs);
    QTRY_VERIFY_WITH_TIMEOUT(!later.isEmpty(), generousMs);
}

void LogProcessorTest::theTimerRunsOutOnce()
{
    OpenLog log(m_fileName);
    log.write("one");
    QTRY_VERIFY_WITH_TIMEOUT(!readFile(m_fileName).isEmpty(), generousMs);
    QTest::qWait(100);
    QElapsedTimer elapsed;
    elapsed.start();
    log.write("two");
    QTRY_COMPARE_WITH_TIMEOUT(readFile(m_fileName), QByteArray("onetwo"), generousMs);
    QVERIFY(elapsed.elapsed() >= flushMs);
}

void LogProcessorTest::whatFlushesStopsTheTimer_data()
{
    QTest::addColumn<bool>("rotates");
    QTest::addColumn<QByteArray>("text");
    QTest::newRow("a rotation") << true << QByteArray("new");
    QTest::newRow("flushOutput()") << false << QByteArray("onenew");
}

// The next chunk waits the whole 200 ms.
void LogProcessorTest::whatFlushesStopsTheTimer()
{
    QFETCH(bool, rotates);
    QFETCH(QByteArray, text);
    OpenLog log(m_fileName, 10);
    log.write("one");
    QTest::qWait(100);
    if (rotates)
        log.write("two four");
    else
        log.processor.flushOutput();
    QElapsedTimer elapsed;
    elapsed.start();
    log.write("new");
    QTRY_COMPARE_WITH_TIMEOUT(readFile(m_fileName), text, generousMs);
    QVERIFY(elapsed.elapsed() >= flushMs);
}

// ---- Taking output in

void LogProcessorTest::bothChannelsAreTakenInAsTheyArrive()
{
    OpenLog log(m_fileName);
    const Requests requests(&log.processor);
    for (const char *channel : {"print", "error"}) {
        log.application.start(QStringLiteral(SAMPLE_APPLICATION),
                              {QLatin1String(channel),
                               QStringLiteral("==Report==%1\\n").arg(QLatin1String(channel))});
        QTRY_COMPARE_WITH_TIMEOUT(log.application.state(), QProcess::NotRunning, generousMs);
    }
    QCOMPARE(log.text(), QByteArray("==Report==print\n==Report==error\n"));
    QCOMPARE(requests.texts, QStringList({QStringLiteral("|print"), QStringLiteral("|error")}));
}

// Standard error comes with a signal of its own. The read channel is restored, as Qt's functions
// for all output of a channel do.
void LogProcessorTest::flushOutputTakesStandardOutputOnly()
{
    OpenLog log(m_fileName, roomy, false, words("print out\\n error err\\n"));
    log.application.setReadChannel(QProcess::StandardError);
    log.processor.flushOutput();
    QCOMPARE(readFile(m_fileName), QByteArray("out\n"));
    QCOMPARE(log.application.readAllStandardError(), QByteArray("err\n"));
    QCOMPARE(log.application.readChannel(), QProcess::StandardError);
}

// The second read finds nothing. It gives an empty chunk, which is treated like any other.
void LogProcessorTest::flushOutputTakesStandardOutputTwice()
{
    OpenLog log(m_fileName, roomy, true, words("print out\\n"));
    log.stepMs = 1000;
    log.processor.flushOutput();
    QCOMPARE(readFile(m_fileName), june4Line + "out\n" + oneSecondLaterLine);
}

void LogProcessorTest::flushOutputPutsWhatFollowsAtTheStartOfALine()
{
    OpenLog log(m_fileName, roomy, true);
    log.write("cut off");
    log.nowMs += 1000;
    log.processor.flushOutput();
    QCOMPARE(readFile(m_fileName), june4Line + "cut off");
    log.write("next\n");
    QCOMPARE(log.text(), june4Line + "cut off" + oneSecondLaterLine + "next\n");
}

void LogProcessorTest::flushOutputRotatesAFullLog()
{
    writeFile(m_fileName, QByteArray(2000, 'x'));
    OpenLog log(m_fileName, 1000);
    log.processor.flushOutput();
    QCOMPARE(QFileInfo(m_rotatedFileName).size(), 2000);
    QCOMPARE(QFileInfo(m_fileName).size(), 0);
}

// The pipe holds more. The chunk is smaller because the file may exceed its limit by one chunk.
void LogProcessorTest::outputIsTakenInChunksOf64KiB()
{
    constexpr int chunk = 64 * kiB;
    constexpr int lines = 3000;
    OpenLog log(m_fileName, chunk + 1, false, words("flood 300000 10000"));
    log.processor.flushOutput();
    const QByteArray rotated = readFile(m_rotatedFileName);
    QCOMPARE(rotated.size(), 2 * chunk);
    const QByteArray rest = readFile(m_fileName);
    QCOMPARE(rest.size(), lines * 100 % (2 * chunk));
    QVERIFY(flood(lines).endsWith(rotated + rest));
}

// In memory the next chunk follows directly, without a NUL byte.
void LogProcessorTest::anEchoedChunkEndsWhereTheNextBegins()
{
    const ChildResult result = runInChild([] {
        Log log(QString(), 0, false, words("flood 200000 10000"));
        log.processor.flushOutput();
    });
    QVERIFY(result.standardOutput == flood(2000));
}

// ---- Report requests

void LogProcessorTest::reportsAreRequested_data()
{
    QTest::addColumn<QString>("printed");
    QTest::addColumn<QStringList>("requests");

    const QString marker = QStringLiteral("==Report==name\\n");
    const QString request = QStringLiteral("|name");
    const QString far = QString(100000, QLatin1Char('.'));
    QTest::newRow("file and name") << QStringLiteral("==Report file:/tmp/x.log==name\\n")
                                   << QStringList(QStringLiteral("/tmp/x.log|name"));
    QTest::newRow("a file without a name asks for nothing")
        << QStringLiteral("==Report file:/tmp/x.log\\n") << QStringList();
    QTest::newRow("two in one chunk are one") << marker + marker << QStringList(request);
    QTest::newRow("one in each chunk") << marker + far + marker << QStringList({request, request});
    QTest::newRow("one that is split over two chunks is none")
        << QString(64 * kiB - 5, QLatin1Char('.')) + marker << QStringList();
}

void LogProcessorTest::reportsAreRequested()
{
    QFETCH(QString, printed);
    QFETCH(QStringList, requests);
    OpenLog log(m_fileName, roomy, false, QStringList{QStringLiteral("print"), printed});
    const Requests made(&log.processor);
    log.processor.flushOutput();
    QCOMPARE(made.texts, requests);
}

void LogProcessorTest::reportsAreOffUntilEnabled()
{
    OpenLog log(m_fileName, roomy, false, words("print ==Report==unheard\\n"));
    const QSignalSpy requested(&log.processor, &LogProcessor::reportString);
    log.processor.flushOutput();
    QCOMPARE(requested.count(), 0);
    QCOMPARE(readFile(m_fileName), QByteArray("==Report==unheard\n"));
}

// The supervisor flushes the log at this signal, so the chunk with the marker is in the archive.
void LogProcessorTest::reportRequestComesAfterTheChunkWasWritten()
{
    OpenLog log(m_fileName, roomy, false, words("print before\\n==Report==oops\\nafter\\n"));
    log.processor.enableReports();
    QByteArray logAtRequest;
    connect(&log.processor, &LogProcessor::reportString, this, [&] {
        log.processor.flushOutput();
        logAtRequest = readFile(m_fileName);
    });
    log.processor.flushOutput();
    QCOMPARE(logAtRequest, QByteArray("before\n==Report==oops\nafter\n"));
}

void LogProcessorTest::ownLinesAreNoRequests()
{
    OpenLog log(m_fileName);
    const Requests requests(&log.processor);
    log.write("==Report==oops\n");
    log.processor.write(QStringLiteral("==Report==oops\n"));
    QCOMPARE(requests.texts, QStringList());
}

QTEST_GUILESS_MAIN(LogProcessorTest)
#include "tst_logprocessor.moc"
