// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "localtimezone.h"
#include "logging/logprocessor.h"
#include "smallfilesystem.h"
#include "testfiles.h"

#include <QTemporaryDir>
#include <QtTest>

#include <cstdio>
#include <cstdlib>

#include <unistd.h>

namespace {

constexpr quint32 roomy = 1000000; // a limit that a test does not reach by accident
constexpr qint64 kiB = 1024;
constexpr int generousMs = 30000;
constexpr qint64 fourGiB = 4294967296;

// A Thursday in June whose day has one digit.
constexpr qint64 june4Ms = 1780531200000;
const QByteArray june4Line = QByteArrayLiteral("-- Time: Thu Jun 4 00:00:00 2026 GMT\n");
const QByteArray oneSecondLaterLine = QByteArrayLiteral("-- Time: Thu Jun 4 00:00:01 2026 GMT\n");

// The names of days and months depend on the locale. It is set here, before main(), because Qt
// reads it from the environment only once.
const bool languageIsPlain = ::setenv("LC_ALL", "C", 1) == 0;

/**
 * An application that has ended and whose output was not yet read. Without behaviours it is an
 * application that was never started, whose output is empty.
 */
class SilentApplication : public QProcess
{
public:
    explicit SilentApplication(const QStringList &behaviours)
    {
        setOpenMode(QIODevice::ReadOnly);
        if (behaviours.isEmpty())
            return;
        start(QStringLiteral(SAMPLE_APPLICATION), behaviours);
        if (!waitForFinished(generousMs))
            qFatal("the application did not end");
    }
};

/** A log processor with its application and a clock that the test sets. */
struct Log
{
    /** @p printed has the behaviours of the sample application that have printed the output. */
    explicit Log(const QString &name, quint32 maxSize = roomy, bool logTime = false,
                 const QStringList &printed = QStringList())
        : fileName(name), application(printed),
          processor(&application, name, maxSize, logTime, [this] {
              const qint64 now = nowMs;
              nowMs += stepMs;
              return now;
          })
    { }

    void write(const QByteArray &chunk) { processor.write(chunk); }

    /** The content of the file after a flush, as if the flush timer had run out. */
    QByteArray text()
    {
        QMetaObject::invokeMethod(&processor, "on_flushTimer_timeout");
        return readFile(fileName);
    }

    QString fileName;
    SilentApplication application;
    qint64 nowMs = june4Ms;
    qint64 stepMs = 0; ///< added to the clock after each reading
    LogProcessor processor;
};

/** A log processor whose file is open. */
struct OpenLog : Log
{
    template <typename... Arguments>
    explicit OpenLog(const Arguments &...arguments) : Log(arguments...)
    {
        if (!processor.open())
            qFatal("cannot open the log");
    }
};

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

/** A chunk, and when it is written, in milliseconds after the beginning of June 4. */
struct Written
{
    qint64 atMs;
    QByteArray chunk;
};

} // namespace
Q_DECLARE_METATYPE(QVector<Written>)

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

    void rotatesAtTheLimit_data();
    void rotatesAtTheLimit();
    void countStartsAgainAfterRotation();
    void onlyOneGenerationIsKept();
    void failedRenameEndsLoggingToTheFile();
    void logRemovedFromOutsideEndsLoggingToTheFile();
    void logReplacedFromOutsideIsRotatedAway();
    void rotationFreesAFullFileSystem();

    void timeLines_data();
    void timeLines();
    void oneTimeLineForAChunkOfManyLines();
    void timeLineCountsTowardsTheLimit();
    void chunkIsEchoedWhenItsTimeLineEndsLogging();

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
    QByteArray rotationFailedLine() const;

    QScopedPointer<QTemporaryDir> m_directory;
    QString m_fileName;
    QString m_rotatedFileName;
};

void LogProcessorTest::init()
{
    QVERIFY(languageIsPlain);
    m_directory.reset(new QTemporaryDir);
    QVERIFY(m_directory->isValid());
    m_fileName = m_directory->filePath(QStringLiteral("app.log"));
    m_rotatedFileName = m_fileName + QStringLiteral(".0");
}

QByteArray LogProcessorTest::rotationFailedLine() const
{
    const QByteArray name = m_fileName.toUtf8();
    return "Can't rename file from:" + name + " to:" + name + ".0\n";
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

// ---- Rotation

void LogProcessorTest::rotatesAtTheLimit_data()
{
    QTest::addColumn<qint64>("existing");
    QTest::addColumn<quint32>("limit");
    QTest::addColumn<int>("written");
    QTest::addColumn<bool>("rotated");
    const auto row = [](const char *what, qint64 existing, quint32 limit, int written,
                        bool rotated) {
        QTest::newRow(what) << existing << limit << written << rotated;
    };
    row("one byte below", 0, 1000, 999, false);
    row("exactly", 0, 1000, 1000, true);
    row("what crosses the limit stays whole", 0, 1000, 5000, true);
    row("what is there counts: one byte below", 900, 1000, 99, false);
    row("what is there counts: above", 900, 1000, 200, true);
    row("what is there already exceeds the limit", 2000, 1000, 1, true);
    row("the size is taken modulo 32 bits: below", fourGiB + 900, 1000, 99, false);
    row("the size is taken modulo 32 bits: exactly", fourGiB + 900, 1000, 100, true);
    row("the count wraps, and the limit is unsigned", fourGiB - 10, 4294967295U, 20, false);
}

void LogProcessorTest::rotatesAtTheLimit()
{
    QFETCH(qint64, existing);
    QFETCH(quint32, limit);
    QFETCH(int, written);
    QFETCH(bool, rotated);
    writeFile(m_fileName, QByteArray());
    QVERIFY(QFile::resize(m_fileName, existing));
    OpenLog log(m_fileName, limit);
    QVERIFY(!QFile::exists(m_rotatedFileName));
    log.write(QByteArray(written, 'x'));
    QCOMPARE(QFile::exists(m_rotatedFileName), rotated);
    log.processor.flushOutput();
    QVERIFY(QFile::exists(m_fileName));
    QCOMPARE(QFileInfo(m_fileName).size(), rotated ? 0 : existing + written);
    if (rotated)
        QCOMPARE(QFileInfo(m_rotatedFileName).size(), existing + written);
}

void LogProcessorTest::countStartsAgainAfterRotation()
{
    OpenLog log(m_fileName, 1000);
    log.write(QByteArray(1500, 'a'));
    log.write(QByteArray(999, 'b'));
    QCOMPARE(readFile(m_rotatedFileName), QByteArray(1500, 'a'));
    QCOMPARE(log.text(), QByteArray(999, 'b'));
    log.write("c");
    QCOMPARE(readFile(m_rotatedFileName), QByteArray(999, 'b') + 'c');
}

void LogProcessorTest::onlyOneGenerationIsKept()
{
    writeFile(m_rotatedFileName, "from the last run\n");
    OpenLog log(m_fileName, 10);
    for (const char *text : {"first one\n", "second one\n", "third one\n"})
        log.write(text);
    QCOMPARE(readFile(m_rotatedFileName), QByteArray("third one\n"));
    QCOMPARE(QDir(m_directory->path()).entryList(QDir::Files),
             QStringList({QStringLiteral("app.log"), QStringLiteral("app.log.0")}));
}

void LogProcessorTest::failedRenameEndsLoggingToTheFile()
{
    QVERIFY(QDir().mkdir(m_rotatedFileName)); // a directory is in the way
    const ChildResult result = runInChild([this] {
        OpenLog log(m_fileName, 10);
        log.write("to the file\n");
        log.write("echoed\n");
        log.processor.flushOutput();
        log.write(QByteArray(2000, '.'));
        log.processor.flushOutput();
    });
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.standardError, rotationFailedLine());
    QCOMPARE(readFile(m_fileName), QByteArray("to the file\n"));
    QCOMPARE(result.standardOutput, "echoed\n" + QByteArray(2000, '.'));
}

void LogProcessorTest::logRemovedFromOutsideEndsLoggingToTheFile()
{
    writeFile(m_rotatedFileName, "older");
    const ChildResult result = runInChild([this] {
        OpenLog log(m_fileName, 10);
        QFile::remove(m_fileName);
        log.write("gone with the file\n");
        log.write("echoed\n");
    });
    QCOMPARE(result.standardError, rotationFailedLine());
    QCOMPARE(result.standardOutput, QByteArray("echoed\n"));
    QVERIFY(!QFile::exists(m_fileName));
    QVERIFY(!QFile::exists(m_rotatedFileName)); // the rotation removed it
}

void LogProcessorTest::logReplacedFromOutsideIsRotatedAway()
{
    OpenLog log(m_fileName, 10);
    QVERIFY(QFile::remove(m_fileName));
    writeFile(m_fileName, "not ours");
    log.write("gone with the file\n");
    log.write("new\n");
    QCOMPARE(readFile(m_rotatedFileName), QByteArray("not ours"));
    QCOMPARE(log.text(), QByteArray("new\n"));
}

// Lost bytes count too, so a full file is rotated. The rotation first removes the older generation.
void LogProcessorTest::rotationFreesAFullFileSystem()
{
    const SmallFileSystem fileSystem(m_directory->path());
    if (!fileSystem.isMounted())
        QSKIP("needs the right to mount a file system");
    writeFile(m_rotatedFileName, QByteArray(40 * kiB, 'o'));

    // There is room for 24 KiB. The other 24 KiB wait in the buffer or are lost.
    OpenLog log(m_fileName, 48 * kiB);
    for (int i = 0; i < 47; ++i)
        log.write(QByteArray(kiB, 'n'));
    QCOMPARE(log.text().size(), static_cast<int>(24 * kiB));
    QCOMPARE(QFileInfo(m_rotatedFileName).size(), 40 * kiB);

    log.write(QByteArray(kiB, 'n'));
    const qint64 kept = QFileInfo(m_rotatedFileName).size();
    QVERIFY(kept > 24 * kiB); // the buffer took the older generation's place
    QVERIFY(kept < 48 * kiB);

    log.write("room again\n");
    QCOMPARE(log.text(), QByteArray("room again\n"));
}

// ---- Time lines

void LogProcessorTest::timeLines_data()
{
    QTest::addColumn<QVector<Written>>("chunks");
    QTest::addColumn<QByteArray>("log");

    QTest::newRow("once a second")
        << QVector<Written>{{0, "at 0 ms\n"}, {999, "at 999 ms\n"}, {1000, "at 1000 ms\n"}}
        << june4Line + "at 0 ms\nat 999 ms\n" + oneSecondLaterLine + "at 1000 ms\n";
    QTest::newRow("only at the start of a line")
        << QVector<Written>{{0, "whole\nbegun, "}, {1000, "ended\n"}, {1000, "next\n"}}
        << june4Line + "whole\nbegun, ended\n" + oneSecondLaterLine + "next\n";
    QTest::newRow("an empty chunk is no end of a line")
        << QVector<Written>{{0, "one\n"}, {0, ""}, {1000, "two\n"}} << june4Line + "one\ntwo\n";
    QTest::newRow("also when the clock is set back")
        << QVector<Written>{{1000, "one\n"}, {0, "two\n"}}
        << oneSecondLaterLine + "one\n" + june4Line + "two\n";
    QTest::newRow("a day of two digits")
        << QVector<Written>{{(13 * 86400 + 47655) * 1000LL, "one\n"}}
        << QByteArray("-- Time: Wed Jun 17 13:14:15 2026 GMT\none\n");
    // A board without a real-time clock starts in 1970.
    QTest::newRow("none in the first second of the epoch")
        << QVector<Written>{{999 - june4Ms, "one\n"}, {1000 - june4Ms, "two\n"}}
        << QByteArray("one\n-- Time: Thu Jan 1 00:00:01 1970 GMT\ntwo\n");
}

void LogProcessorTest::timeLines()
{
    QFETCH(QVector<Written>, chunks);
    QFETCH(QByteArray, log);
    const LocalTimeZone zone("<+05>-05");
    OpenLog written(m_fileName, roomy, true);
    for (const Written &each : chunks) {
        written.nowMs = june4Ms + each.atMs;
        written.write(each.chunk);
    }
    QCOMPARE(written.text(), log);
}

void LogProcessorTest::oneTimeLineForAChunkOfManyLines()
{
    OpenLog log(m_fileName, roomy, true);
    log.stepMs = 1000;
    log.write("one\ntwo\nthree\n");
    QCOMPARE(log.text(), june4Line + "one\ntwo\nthree\n");
}

void LogProcessorTest::timeLineCountsTowardsTheLimit()
{
    OpenLog log(m_fileName, static_cast<quint32>(june4Line.size()) + 4, true);
    log.write("one\n");
    QCOMPARE(readFile(m_rotatedFileName), june4Line + "one\n");

    // A time line can cause the rotation by itself, before its chunk.
    log.nowMs += 1000;
    log.write("two");
    log.nowMs += 1000;
    log.processor.flushOutput();
    log.write("three\n");
    QCOMPARE(readFile(m_rotatedFileName).left(june4Line.size() + 3), oneSecondLaterLine + "two");
    QCOMPARE(log.text(), QByteArray("three\n"));
}

void LogProcessorTest::chunkIsEchoedWhenItsTimeLineEndsLogging()
{
    QVERIFY(QDir().mkdir(m_rotatedFileName)); // a directory is in the way
    const ChildResult result = runInChild([this] {
        OpenLog log(m_fileName, 10, true);
        log.write("longer than the limit\n");
        log.write("next\n");
    });
    QCOMPARE(result.standardError, rotationFailedLine());
    QCOMPARE(result.standardOutput, QByteArray("longer than the limit\nnext\n"));
    QCOMPARE(readFile(m_fileName), june4Line);
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
