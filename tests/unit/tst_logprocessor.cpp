// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "childrun.h"
#include "common/checkedconnect.h"
#include "localtimezone.h"
#include "logging/logprocessor.h"
#include "smallfilesystem.h"
#include "stoppedwallclock.h"
#include "testfiles.h"

#include <QtTest>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <utility>

#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr quint32 roomy = 1000000; // a limit that a test does not reach by accident
constexpr qint64 kiB = 1024;
constexpr qint64 fourGiB = 4294967296;
constexpr int generousMs = 30000;

// A Thursday in June, its day of one digit.
constexpr qint64 june4Ms = 1780531200000;
const QByteArray june4Line = QByteArrayLiteral("-- Time: Thu Jun 4 00:00:00 2026 GMT\n");
const QByteArray oneSecondLaterLine = QByteArrayLiteral("-- Time: Thu Jun 4 00:00:01 2026 GMT\n");

// Day and month names come in the language of the process's locale. It is fixed here, before
// main(), because Qt reads it from the environment only once.
const bool languageIsPlain = ::setenv("LC_ALL", "C", 1) == 0;

// An application that is silent until a test starts it; it can be read from all the same.
class SilentApplication : public QProcess
{
public:
    SilentApplication() { setOpenMode(QIODevice::ReadOnly); }
};

// A log processor with its application.
struct Log
{
    explicit Log(const QString &fileName, quint32 maxSize = roomy, bool logTime = false)
        : processor(&application, fileName, maxSize, logTime)
    { }

    // As if the flush timer had run out.
    void flush() { QVERIFY(QMetaObject::invokeMethod(&processor, "on_flushTimer_timeout")); }

    SilentApplication application;
    LogProcessor processor;
};

// An application that prints what the test wants, when the test wants it, one chunk each.
class Echo
{
public:
    explicit Echo(QProcess *process) : m_process(process)
    {
        m_process->start(QStringLiteral(SAMPLE_APPLICATION), {QStringLiteral("cat")});
    }

    ~Echo()
    {
        m_process->closeWriteChannel();
        m_process->waitForFinished();
    }

    Echo(const Echo &) = delete;
    Echo &operator=(const Echo &) = delete;

    // Returns when the chunk was taken in; false when it never came.
    bool print(const QByteArray &chunk)
    {
        QSignalSpy arrived(m_process, &QProcess::readyReadStandardOutput);
        m_process->write(chunk);
        return arrived.wait(generousMs);
    }

private:
    QProcess *m_process;
};

bool runToEnd(QProcess *process, const QStringList &behaviours)
{
    qRegisterMetaType<QProcess::ExitStatus>();
    QSignalSpy finished(process, QOverload<int, QProcess::ExitStatus>::of(&QProcess::finished));
    process->start(QStringLiteral(SAMPLE_APPLICATION), behaviours);
    return finished.count() == 1 || finished.wait(generousMs);
}

// The one timer of a log processor, which shows itself when it runs out.
class TimerWatch : public QObject
{
public:
    TimerWatch() { QCoreApplication::instance()->installEventFilter(this); }

    // Null until the timer has run out for the first time.
    QTimer *timer() const { return m_timer; }
    int timeouts() const { return m_timeouts; }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        auto *timer = qobject_cast<QTimer *>(watched);
        if (timer != nullptr && event->type() == QEvent::Timer) {
            m_timer = timer;
            ++m_timeouts;
        }
        return false;
    }

private:
    QTimer *m_timer = nullptr;
    int m_timeouts = 0;
};

// What the supervisor does with a report request, and what the log holds on disk by then.
class Requests : public QObject
{
    Q_OBJECT

public:
    Requests(LogProcessor *log, QString fileName) : m_log(log), m_fileName(std::move(fileName))
    {
        checkedConnect(log, &LogProcessor::reportString, this, &Requests::on_log_reportString);
    }

    QStringList texts;
    QByteArray logAtRequest;

private slots:
    void on_log_reportString(const QString &file, const QString &str)
    {
        texts << file + QLatin1Char('|') + str;
        m_log->flushOutput();
        logAtRequest = readFile(m_fileName);
    }

private:
    LogProcessor *m_log;
    QString m_fileName;
};

// The numbered lines of one channel, as the sample application floods them.
QList<int> lineNumbers(const QList<QByteArray> &lines, const QByteArray &channel)
{
    QList<int> numbers;
    for (const QByteArray &line : lines) {
        const QList<QByteArray> words = line.split(' ');
        if (words.size() == 3 && words.at(0) == channel)
            numbers << words.at(1).toInt();
    }
    return numbers;
}

QList<int> upTo(int end)
{
    QList<int> numbers;
    for (int i = 0; i < end; ++i)
        numbers << i;
    return numbers;
}

// What happens as soon as this process has renamed a file the next time.
std::function<void()> &afterRename()
{
    static std::function<void()> action;
    return action;
}

} // namespace

// The C library's function, in the test's own process.
extern "C" int renameat2(int oldfd, const char *old, int newfd, const char *_new,
                         unsigned int flags) noexcept
{
    const long result = ::syscall(SYS_renameat2, oldfd, old, newfd, _new, flags);
    if (result == 0 && afterRename())
        std::exchange(afterRename(), nullptr)();
    return static_cast<int>(result);
}

class LogProcessorTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void signalFirstThenThreeSlots();
    void hasNoParent();
    void connectionThatCannotBeMadeIsFatal();

    void withoutLogFileEverythingIsEchoed_data();
    void withoutLogFileEverythingIsEchoed();
    void withoutLogFileTheApplicationIsEchoed();
    void echoEndsAtNulByte();
    void echoIsNotFlushed();
    void echoCountsForTheStartOfALine();
    void flushWithoutLogFileIsSilent();

    void openMakesAnEmptyFile();
    void openContinuesAnExistingFile();
    void openFailureIsReported_data();
    void openFailureIsReported();
    void openFailureNamesTheFileInUtf8();
    void openNeverRotates();

    void bytesAreWrittenAsTheyAre();
    void textIsWrittenAsUtf8();
    void flushComes200MsAfterTheFirstWrite();
    void burstCostsOneFlush();
    void flushSlotFlushesAndNothingElse();

    void rotatesAtTheLimit_data();
    void rotatesAtTheLimit();
    void existingSizeCountsTowardsTheLimit();
    void chunkThatCrossesTheLimitStaysWhole();
    void countStartsAgainAfterRotation();
    void onlyOneGenerationIsKept();
    void rotationStopsTheFlushTimer();
    void rotationStartsWithAnEmptyFile();
    void sizeIsTakenModulo32Bits();
    void countWraps();
    void limitIsUnsigned();
    void failedRenameEndsLoggingToTheFile_data();
    void failedRenameEndsLoggingToTheFile();
    void failedReopenEndsLoggingToTheFile();
    void logRemovedFromOutsideEndsLoggingToTheFile();
    void logReplacedFromOutsideIsRotatedAway();
    void lostBytesCountTowardsTheLimit();
    void rotationFreesAFullFileSystem();

    void noTimeLineUnlessAskedFor();
    void timeLineIsUtcText();
    void oneTimeLineForAChunkOfManyLines();
    void oneTimeLineASecond();
    void timeLineOnlyAtTheStartOfALine();
    void emptyChunkIsNoEndOfALine();
    void timeLineWhenTheClockIsSetBack();
    void noTimeLineInTheFirstSecondOfTheEpoch();
    void timeLineCountsTowardsTheLimit();
    void timeLineCanRotateBeforeTheChunk();
    void chunkIsEchoedWhenItsTimeLineEndsLogging();

    void flushOutputTakesStandardOutputOnly();
    void flushOutputTakesStandardOutputTwice();
    void outputIsTakenInChunksOf64KiB();
    void aMarkerIsFoundInEachChunk();
    void anEchoedChunkEndsWhereTheNextBegins();
    void flushOutputLeavesTheReadChannelAsItWas();
    void flushOutputFlushesAndStopsTheTimer();
    void flushOutputCanBringATimeLine();
    void flushOutputPutsWhatFollowsAtTheStartOfALine();
    void flushOutputRotatesAFullLog();

    void bothChannelsGoIntoOneFile();
    void bigChunksStayAsTheyAre();

    void reportsAreOffUntilEnabled();
    void reportIsRequested_data();
    void reportIsRequested();
    void reportRequestComesAfterTheChunkWasWritten();
    void flushOutputFindsRequestsToo();
    void ownLinesAreNoRequests();
    void twoMarkersInOneChunkAreOneRequest();
    void splitMarkerIsNotRecognised();
    void requestInTheMiddleOfALineCanBringATimeLineThere();

private:
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

void LogProcessorTest::cleanup()
{
    m_directory.reset();
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
    QCOMPARE(meta.method(meta.methodOffset()).methodType(), QMetaMethod::Signal);
    QCOMPARE(meta.method(meta.methodOffset()).parameterNames(), QList<QByteArray>({"file", "str"}));
    QCOMPARE(meta.method(meta.methodOffset() + 1).methodType(), QMetaMethod::Slot);
}

void LogProcessorTest::hasNoParent()
{
    Log log(m_fileName);
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
    QTest::newRow("neither") << false << quint32(0);
}

void LogProcessorTest::withoutLogFileEverythingIsEchoed()
{
    QFETCH(bool, named);
    QFETCH(quint32, maxSize);
    const ChildResult result = runInChild([&] {
        QDir::setCurrent(m_directory->path());
        Log log(named ? m_fileName : QString(), maxSize, true);
        if (!log.processor.open())
            std::puts("open failed");
        log.processor.write(QByteArray("one\n"));
        log.processor.write(QStringLiteral("zw\u00f6lf"));
        log.processor.flushOutput();
        log.processor.write(QByteArray("\nthree\n"));
    });
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.standardOutput, QByteArray("one\nzw\xc3\xb6lf\nthree\n")); // no time lines
    QCOMPARE(result.standardError, QByteArray());
    QVERIFY(QDir(m_directory->path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries).isEmpty());
}

void LogProcessorTest::withoutLogFileTheApplicationIsEchoed()
{
    const ChildResult result = runInChild([] {
        Log log(QString(), 0);
        log.processor.open();
        if (!runToEnd(&log.application, {QStringLiteral("print"), QStringLiteral("said\\n")})
            || !runToEnd(&log.application, {QStringLiteral("error"), QStringLiteral("moaned\\n")}))
            std::puts("the application did not end");
    });
    QCOMPARE(result.standardOutput, QByteArray("said\nmoaned\n"));
}

void LogProcessorTest::echoEndsAtNulByte()
{
    const ChildResult result = runInChild([] {
        Log log(QString(), 0);
        log.processor.write(QByteArray("seen\0lost\n", 10));
        log.processor.write(QByteArray("|next"));
    });
    QCOMPARE(result.standardOutput, QByteArray("seen|next"));
}

void LogProcessorTest::echoIsNotFlushed()
{
    const ChildResult result = runInChild([] {
        Log log(QString(), 0);
        log.processor.write(QByteArray("still in the buffer\n"));
        log.processor.flushOutput();
        ::_exit(0);
    });
    QCOMPARE(result.standardOutput, QByteArray());
}

void LogProcessorTest::echoCountsForTheStartOfALine()
{
    StoppedWallClock clock(june4Ms);
    const ChildResult result = runInChild([this] {
        Log log(m_fileName, roomy, true);
        log.processor.write(QByteArray("before the file is open"));
        log.processor.open();
        log.processor.write(QByteArray("after\n"));
    });
    QCOMPARE(result.standardOutput, QByteArray("before the file is open"));
    QCOMPARE(readFile(m_fileName), QByteArray("after\n"));
}

// Qt would warn at every end of the application.
void LogProcessorTest::flushWithoutLogFileIsSilent()
{
    const ChildResult result = runInChild([] {
        Log log(QString(), 0);
        log.processor.open();
        log.flush();
        log.processor.flushOutput();
    });
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.standardError, QByteArray());
}

// ---- Opening

void LogProcessorTest::openMakesAnEmptyFile()
{
    Log log(m_fileName);
    QVERIFY(!QFile::exists(m_fileName));
    QVERIFY(log.processor.open());
    QVERIFY(QFile::exists(m_fileName));
    QCOMPARE(QFileInfo(m_fileName).size(), 0);
}

void LogProcessorTest::openContinuesAnExistingFile()
{
    writeFile(m_fileName, "from the last run\n");
    Log log(m_fileName);
    QVERIFY(log.processor.open());
    QCOMPARE(readFile(m_fileName), QByteArray("from the last run\n"));
    log.processor.write(QByteArray("from this one\n"));
    log.flush();
    QCOMPARE(readFile(m_fileName), QByteArray("from the last run\nfrom this one\n"));
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

void LogProcessorTest::openFailureNamesTheFileInUtf8()
{
    const ChildResult result = runInChild([] {
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
        Log log(QStringLiteral("/missing/gr\u00f6\u00dfe"));
        log.processor.open();
    });
    QCOMPARE(result.standardError,
             QByteArray("Can't open file : /missing/gr\xc3\xb6\xc3\x9f"
                        "e\n"));
}

void LogProcessorTest::openNeverRotates()
{
    writeFile(m_fileName, QByteArray(2000, 'x'));
    Log log(m_fileName, 1000);
    QVERIFY(log.processor.open());
    QCOMPARE(QFileInfo(m_fileName).size(), 2000);
    QVERIFY(!QFile::exists(m_rotatedFileName));

    log.processor.write(QByteArray("y"));
    QCOMPARE(QFileInfo(m_rotatedFileName).size(), 2001);
    QCOMPARE(QFileInfo(m_fileName).size(), 0);
}

// ---- Writing

void LogProcessorTest::bytesAreWrittenAsTheyAre()
{
    const QByteArray bytes("a\r\nb\rc\0d\xff\xfe\n", 11);
    Log log(m_fileName);
    QVERIFY(log.processor.open());
    log.processor.write(bytes);
    log.flush();
    QCOMPARE(readFile(m_fileName), bytes);
}

void LogProcessorTest::textIsWrittenAsUtf8()
{
    const ChildResult result = runInChild([this] {
        QTextCodec::setCodecForLocale(QTextCodec::codecForName("ISO-8859-1"));
        Log log(m_fileName);
        log.processor.open();
        log.processor.write(QStringLiteral("gr\u00f6\u00dfe \u20ac\n"));
    });
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(readFile(m_fileName),
             QByteArray("gr\xc3\xb6\xc3\x9f"
                        "e \xe2\x82\xac\n"));
}

void LogProcessorTest::flushComes200MsAfterTheFirstWrite()
{
    TimerWatch watch;
    Log log(m_fileName);
    QVERIFY(log.processor.open());
    QElapsedTimer elapsed;
    elapsed.start();
    log.processor.write(QByteArray("text"));
    QCOMPARE(readFile(m_fileName), QByteArray());
    QTRY_COMPARE_WITH_TIMEOUT(readFile(m_fileName), QByteArray("text"), generousMs);
    QVERIFY(elapsed.elapsed() >= 190); // a coarse timer may be early by a twentieth

    QVERIFY(watch.timer() != nullptr);
    QCOMPARE(watch.timer()->interval(), 200);
    QVERIFY(watch.timer()->isSingleShot());
    QVERIFY(!watch.timer()->isActive());
    log.processor.write(QByteArray("more"));
    QVERIFY(watch.timer()->isActive());
}

// A timer that each write started anew would never run out while the application prints.
void LogProcessorTest::burstCostsOneFlush()
{
    TimerWatch watch;
    Log log(m_fileName);
    QVERIFY(log.processor.open());
    int writes = 0;
    QElapsedTimer elapsed;
    elapsed.start();
    while (watch.timeouts() == 0 && elapsed.elapsed() < generousMs) {
        log.processor.write(QByteArray("."));
        ++writes;
        QTest::qWait(20);
    }
    QCOMPARE(watch.timeouts(), 1);
    QVERIFY(writes > 1);
    QVERIFY(!readFile(m_fileName).isEmpty());
}

void LogProcessorTest::flushSlotFlushesAndNothingElse()
{
    TimerWatch watch;
    Log log(m_fileName);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray("one"));
    QTRY_VERIFY_WITH_TIMEOUT(watch.timer() != nullptr, generousMs);

    log.processor.write(QByteArray(" two"));
    QCOMPARE(readFile(m_fileName), QByteArray("one"));
    log.flush();
    QCOMPARE(readFile(m_fileName), QByteArray("one two"));
    QVERIFY(watch.timer()->isActive());
}

// ---- Rotation

void LogProcessorTest::rotatesAtTheLimit_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("rotated");
    QTest::newRow("one byte below") << 999 << false;
    QTest::newRow("exactly") << 1000 << true;
    QTest::newRow("one byte above") << 1001 << true;
}

void LogProcessorTest::rotatesAtTheLimit()
{
    QFETCH(int, size);
    QFETCH(bool, rotated);
    Log log(m_fileName, 1000);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray(size, 'x'));
    QCOMPARE(QFile::exists(m_rotatedFileName), rotated);
    log.flush();
    QCOMPARE(QFileInfo(rotated ? m_rotatedFileName : m_fileName).size(), size);
    QVERIFY(QFile::exists(m_fileName));
}

void LogProcessorTest::existingSizeCountsTowardsTheLimit()
{
    writeFile(m_fileName, QByteArray(900, 'a'));
    Log log(m_fileName, 1000);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray(200, 'b'));
    QCOMPARE(readFile(m_rotatedFileName), QByteArray(900, 'a') + QByteArray(200, 'b'));
    QVERIFY(QFile::exists(m_fileName));
    QCOMPARE(QFileInfo(m_fileName).size(), 0);
}

void LogProcessorTest::chunkThatCrossesTheLimitStaysWhole()
{
    const QByteArray chunk = QByteArray("line\n").repeated(1000);
    Log log(m_fileName, 1000);
    QVERIFY(log.processor.open());
    log.processor.write(chunk);
    log.processor.write(QByteArray("next\n"));
    log.flush();
    QCOMPARE(readFile(m_rotatedFileName), chunk);
    QCOMPARE(readFile(m_fileName), QByteArray("next\n"));
}

void LogProcessorTest::countStartsAgainAfterRotation()
{
    Log log(m_fileName, 1000);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray(1500, 'a'));
    log.processor.write(QByteArray(999, 'b'));
    log.flush();
    QCOMPARE(readFile(m_rotatedFileName), QByteArray(1500, 'a'));
    QCOMPARE(readFile(m_fileName), QByteArray(999, 'b'));
    log.processor.write(QByteArray("c"));
    QCOMPARE(readFile(m_rotatedFileName), QByteArray(999, 'b') + 'c');
}

void LogProcessorTest::onlyOneGenerationIsKept()
{
    writeFile(m_rotatedFileName, "from the last run\n");
    Log log(m_fileName, 10);
    QVERIFY(log.processor.open());
    for (const char *text : {"first one\n", "second one\n", "third one\n"})
        log.processor.write(QByteArray(text));
    QCOMPARE(readFile(m_rotatedFileName), QByteArray("third one\n"));
    QCOMPARE(QDir(m_directory->path()).entryList(QDir::Files),
             QStringList({QStringLiteral("app.log"), QStringLiteral("app.log.0")}));
}

void LogProcessorTest::rotationStopsTheFlushTimer()
{
    TimerWatch watch;
    Log log(m_fileName, 10);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray("one"));
    QTRY_VERIFY_WITH_TIMEOUT(watch.timer() != nullptr, generousMs);

    log.processor.write(QByteArray("two"));
    QVERIFY(watch.timer()->isActive());
    log.processor.write(QByteArray("four"));
    QCOMPARE(readFile(m_rotatedFileName), QByteArray("onetwofour"));
    QVERIFY(!watch.timer()->isActive());
}

// Whatever another program may have put there after the rename goes.
void LogProcessorTest::rotationStartsWithAnEmptyFile()
{
    Log log(m_fileName, 10);
    QVERIFY(log.processor.open());
    afterRename() = [this] { writeFile(m_fileName, "of another program"); };
    log.processor.write(QByteArray("long enough\n"));
    QVERIFY(!afterRename());
    log.processor.write(QByteArray("new\n"));
    log.flush();
    QCOMPARE(readFile(m_rotatedFileName), QByteArray("long enough\n"));
    QCOMPARE(readFile(m_fileName), QByteArray("new\n"));
}

void LogProcessorTest::sizeIsTakenModulo32Bits()
{
    QVERIFY(QFile(m_fileName).open(QIODevice::WriteOnly));
    QVERIFY(QFile::resize(m_fileName, fourGiB + 900));
    Log log(m_fileName, 1000);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray(99, 'x'));
    QVERIFY(!QFile::exists(m_rotatedFileName));
    log.processor.write(QByteArray("x"));
    QCOMPARE(QFileInfo(m_rotatedFileName).size(), fourGiB + 1000);
}

void LogProcessorTest::countWraps()
{
    QVERIFY(QFile(m_fileName).open(QIODevice::WriteOnly));
    QVERIFY(QFile::resize(m_fileName, fourGiB - 10));
    Log log(m_fileName, 4294967295U);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray(20, 'x'));
    QVERIFY(!QFile::exists(m_rotatedFileName));
    log.flush();
    QCOMPARE(QFileInfo(m_fileName).size(), fourGiB + 10);
}

void LogProcessorTest::limitIsUnsigned()
{
    Log log(m_fileName, 3000000000U);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray("far from it"));
    QVERIFY(!QFile::exists(m_rotatedFileName));
}

void LogProcessorTest::failedRenameEndsLoggingToTheFile_data()
{
    QTest::addColumn<QString>("obstacle");
    QTest::newRow("a folder has the rotated name") << QStringLiteral("app.log.0/.keep");
    QTest::newRow("a folder with files has it") << QStringLiteral("app.log.0/file");
}

void LogProcessorTest::failedRenameEndsLoggingToTheFile()
{
    QFETCH(QString, obstacle);
    const QString path = m_directory->filePath(obstacle);
    writeFile(path, "in the way");
    if (path.endsWith(QLatin1String(".keep")))
        QFile::remove(path);

    const ChildResult result = runInChild([this] {
        Log log(m_fileName, 10);
        log.processor.open();
        log.processor.write(QByteArray("to the file\n"));
        log.processor.write(QByteArray("echoed\n"));
        log.processor.flushOutput();
        log.processor.write(QByteArray(2000, '.'));
        log.processor.flushOutput();
    });
    QCOMPARE(result.exitCode, 0);
    const QByteArray name = m_fileName.toUtf8();
    QCOMPARE(result.standardError, "Can't rename file from:" + name + " to:" + name + ".0\n");
    QCOMPARE(readFile(m_fileName), QByteArray("to the file\n"));
    QCOMPARE(result.standardOutput, "echoed\n" + QByteArray(2000, '.'));
}

void LogProcessorTest::failedReopenEndsLoggingToTheFile()
{
    const ChildResult result = runInChild([this] {
        Log log(m_fileName, 10);
        log.processor.open();
        rlimit usual = {};
        ::getrlimit(RLIMIT_NOFILE, &usual);
        const rlimit noMoreFiles = {0, usual.rlim_max};
        ::setrlimit(RLIMIT_NOFILE, &noMoreFiles);
        log.processor.write(QByteArray("to the file\n"));
        ::setrlimit(RLIMIT_NOFILE, &usual);
        log.processor.write(QByteArray("echoed\n"));
        log.processor.flushOutput();
        log.processor.write(QByteArray("echoed too\n"));
    });
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.standardError, "Can't open file : " + m_fileName.toUtf8() + '\n');
    QCOMPARE(readFile(m_rotatedFileName), QByteArray("to the file\n"));
    QVERIFY(!QFile::exists(m_fileName));
    QCOMPARE(result.standardOutput, QByteArray("echoed\nechoed too\n"));
}

void LogProcessorTest::logRemovedFromOutsideEndsLoggingToTheFile()
{
    writeFile(m_rotatedFileName, "older");
    const ChildResult result = runInChild([this] {
        Log log(m_fileName, 10);
        log.processor.open();
        QFile::remove(m_fileName);
        log.processor.write(QByteArray("gone with the file\n"));
        log.processor.write(QByteArray("echoed\n"));
    });
    const QByteArray name = m_fileName.toUtf8();
    QCOMPARE(result.standardError, "Can't rename file from:" + name + " to:" + name + ".0\n");
    QCOMPARE(result.standardOutput, QByteArray("echoed\n"));
    QVERIFY(!QFile::exists(m_fileName));
    QVERIFY(!QFile::exists(m_rotatedFileName)); // it was removed to make room
}

void LogProcessorTest::logReplacedFromOutsideIsRotatedAway()
{
    Log log(m_fileName, 10);
    QVERIFY(log.processor.open());
    QVERIFY(QFile::remove(m_fileName));
    writeFile(m_fileName, "not ours");
    log.processor.write(QByteArray("gone with the file\n"));
    log.processor.write(QByteArray("new\n"));
    log.flush();
    QCOMPARE(readFile(m_rotatedFileName), QByteArray("not ours"));
    QCOMPARE(readFile(m_fileName), QByteArray("new\n"));
}

// A file size limit makes writes fail in the same way as a full file system does, for any user.
void LogProcessorTest::lostBytesCountTowardsTheLimit()
{
    constexpr int chunkSize = 20 * kiB; // more than is ever buffered
    const ChildResult result = runInChild([this] {
        ::signal(SIGXFSZ, SIG_IGN);
        rlimit usual = {};
        ::getrlimit(RLIMIT_FSIZE, &usual);
        const rlimit smallFiles = {chunkSize, usual.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &smallFiles);
        Log log(m_fileName, 5 * chunkSize);
        log.processor.open();
        for (char text = 'a'; text <= 'e'; ++text) {
            log.processor.write(QByteArray(chunkSize, text));
            log.flush();
        }
        log.processor.write(QByteArray("room again\n"));
        ::setrlimit(RLIMIT_FSIZE, &usual);
    });
    QCOMPARE(result.exitCode, 0);
    QCOMPARE(result.standardError, QByteArray());
    QCOMPARE(result.standardOutput, QByteArray());
    QCOMPARE(readFile(m_rotatedFileName), QByteArray(chunkSize, 'a'));
    QCOMPARE(readFile(m_fileName), QByteArray("room again\n"));
}

void LogProcessorTest::rotationFreesAFullFileSystem()
{
    const SmallFileSystem fileSystem(m_directory->path());
    if (!fileSystem.isMounted())
        QSKIP("needs the right to mount a file system");
    writeFile(m_rotatedFileName, QByteArray(40 * kiB, 'o'));

    // Room for 24 KiB; the other 24 KiB wait in the buffer or are lost.
    Log log(m_fileName, 48 * kiB);
    QVERIFY(log.processor.open());
    for (int i = 0; i < 47; ++i)
        log.processor.write(QByteArray(kiB, 'n'));
    log.flush();
    QCOMPARE(QFileInfo(m_fileName).size(), 24 * kiB);
    QCOMPARE(QFileInfo(m_rotatedFileName).size(), 40 * kiB);

    log.processor.write(QByteArray(kiB, 'n'));
    const qint64 kept = QFileInfo(m_rotatedFileName).size();
    QVERIFY(kept > 24 * kiB); // what waited in the buffer found the older generation's room
    QVERIFY(kept < 48 * kiB);

    log.processor.write(QByteArray("room again\n"));
    log.flush();
    QCOMPARE(readFile(m_fileName), QByteArray("room again\n"));
}

// ---- Time lines

void LogProcessorTest::noTimeLineUnlessAskedFor()
{
    StoppedWallClock clock(june4Ms);
    Log log(m_fileName);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray("one\n"));
    clock.advance(5000);
    log.processor.write(QByteArray("two\n"));
    log.flush();
    QCOMPARE(readFile(m_fileName), QByteArray("one\ntwo\n"));
}

void LogProcessorTest::timeLineIsUtcText()
{
    const LocalTimeZone zone("<+05>-05");
    StoppedWallClock clock(june4Ms);
    Log log(m_fileName, roomy, true);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray("one\n"));
    clock.advance(13 * 86400 * 1000 + 47655 * 1000 + 999);
    log.processor.write(QStringLiteral("our own line\n"));
    log.flush();
    QCOMPARE(readFile(m_fileName),
             QByteArray("-- Time: Thu Jun 4 00:00:00 2026 GMT\none\n"
                        "-- Time: Wed Jun 17 13:14:15 2026 GMT\nour own line\n"));
}

void LogProcessorTest::oneTimeLineForAChunkOfManyLines()
{
    StoppedWallClock clock(june4Ms);
    clock.advanceAfterReading(1000);
    Log log(m_fileName, roomy, true);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray("one\ntwo\nthree\n"));
    log.flush();
    QCOMPARE(readFile(m_fileName), june4Line + "one\ntwo\nthree\n");
}

void LogProcessorTest::oneTimeLineASecond()
{
    StoppedWallClock clock(june4Ms);
    Log log(m_fileName, roomy, true);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray("at 0 ms\n"));
    clock.advance(999);
    log.processor.write(QByteArray("at 999 ms\n"));
    clock.advance(1);
    log.processor.write(QByteArray("at 1000 ms\n"));
    log.flush();
    QCOMPARE(readFile(m_fileName),
             june4Line + "at 0 ms\nat 999 ms\n" + oneSecondLaterLine + "at 1000 ms\n");
}

void LogProcessorTest::timeLineOnlyAtTheStartOfALine()
{
    StoppedWallClock clock(june4Ms);
    Log log(m_fileName, roomy, true);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray("whole\nbegun, "));
    clock.advance(1000);
    log.processor.write(QByteArray("ended\n"));
    log.processor.write(QByteArray("next\n"));
    log.processor.write(QByteArray("same second\n"));
    log.flush();
    QCOMPARE(readFile(m_fileName),
             june4Line + "whole\nbegun, ended\n" + oneSecondLaterLine + "next\nsame second\n");
}

void LogProcessorTest::emptyChunkIsNoEndOfALine()
{
    StoppedWallClock clock(june4Ms);
    Log log(m_fileName, roomy, true);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray("one\n"));
    log.processor.write(QByteArray());
    clock.advance(1000);
    log.processor.write(QByteArray("two\n"));
    log.flush();
    QCOMPARE(readFile(m_fileName), june4Line + "one\ntwo\n");
}

void LogProcessorTest::timeLineWhenTheClockIsSetBack()
{
    StoppedWallClock clock(june4Ms + 1000);
    Log log(m_fileName, roomy, true);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray("one\n"));
    clock.advance(-1000);
    log.processor.write(QByteArray("two\n"));
    log.flush();
    QCOMPARE(readFile(m_fileName), oneSecondLaterLine + "one\n" + june4Line + "two\n");
}

// A board without a clock of its own starts in 1970; second 0 counts as already stamped.
void LogProcessorTest::noTimeLineInTheFirstSecondOfTheEpoch()
{
    StoppedWallClock clock(999);
    Log log(m_fileName, roomy, true);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray("one\n"));
    clock.advance(1);
    log.processor.write(QByteArray("two\n"));
    log.flush();
    QCOMPARE(readFile(m_fileName), QByteArray("one\n-- Time: Thu Jan 1 00:00:01 1970 GMT\ntwo\n"));
}

void LogProcessorTest::timeLineCountsTowardsTheLimit()
{
    StoppedWallClock clock(june4Ms);
    Log log(m_fileName, static_cast<quint32>(june4Line.size()) + 4, true);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray("one\n"));
    QCOMPARE(readFile(m_rotatedFileName), june4Line + "one\n");
}

void LogProcessorTest::timeLineCanRotateBeforeTheChunk()
{
    StoppedWallClock clock(june4Ms);
    Log log(m_fileName, static_cast<quint32>(june4Line.size()), true);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray("one\n"));
    log.flush();
    QCOMPARE(readFile(m_rotatedFileName), june4Line);
    QCOMPARE(readFile(m_fileName), QByteArray("one\n"));
}

void LogProcessorTest::chunkIsEchoedWhenItsTimeLineEndsLogging()
{
    writeFile(m_rotatedFileName + QStringLiteral("/file"), "in the way");
    StoppedWallClock clock(june4Ms);
    const ChildResult result = runInChild([this] {
        Log log(m_fileName, 10, true);
        log.processor.open();
        log.processor.write(QByteArray("longer than the limit\n"));
        log.processor.write(QByteArray("next\n"));
    });
    const QByteArray name = m_fileName.toUtf8();
    QCOMPARE(result.standardError, "Can't rename file from:" + name + " to:" + name + ".0\n");
    QCOMPARE(result.standardOutput, QByteArray("longer than the limit\nnext\n"));
    QCOMPARE(readFile(m_fileName), june4Line);
}

// ---- Taking in the rest

// The rest of standard error comes with a signal of its own.
void LogProcessorTest::flushOutputTakesStandardOutputOnly()
{
    QProcess application;
    application.start(QStringLiteral(SAMPLE_APPLICATION),
                      {QStringLiteral("print"), QStringLiteral("out\\n"), QStringLiteral("error"),
                       QStringLiteral("err\\n")});
    QVERIFY(application.waitForFinished());

    LogProcessor log(&application, m_fileName, roomy, false);
    QVERIFY(log.open());
    log.flushOutput();
    QCOMPARE(readFile(m_fileName), QByteArray("out\n"));
    QCOMPARE(application.readAllStandardError(), QByteArray("err\n"));
}

// The second time there is nothing left, and that nothing is a chunk like any other.
void LogProcessorTest::flushOutputTakesStandardOutputTwice()
{
    QProcess application;
    application.start(QStringLiteral(SAMPLE_APPLICATION),
                      {QStringLiteral("print"), QStringLiteral("out\\n")});
    QVERIFY(application.waitForFinished());

    StoppedWallClock clock(june4Ms);
    clock.advanceAfterReading(1000);
    LogProcessor log(&application, m_fileName, roomy, true);
    QVERIFY(log.open());
    log.flushOutput();
    QCOMPARE(readFile(m_fileName), june4Line + "out\n" + oneSecondLaterLine);
}

// The pipe holds more; but a chunk is what the rotated file may exceed its limit by.
void LogProcessorTest::outputIsTakenInChunksOf64KiB()
{
    constexpr int chunk = 64 * kiB;
    constexpr int bytes = 300000;
    QProcess application;
    application.start(QStringLiteral(SAMPLE_APPLICATION),
                      {QStringLiteral("flood"), QString::number(bytes), QStringLiteral("10000")});
    QVERIFY(application.waitForFinished());

    LogProcessor log(&application, m_fileName, chunk + 1, false);
    QVERIFY(log.open());
    log.flushOutput();
    const QByteArray rotated = readFile(m_rotatedFileName);
    QCOMPARE(rotated.size(), 2 * chunk);
    const QByteArray rest = readFile(m_fileName);
    QCOMPARE(rest.size(), bytes % (2 * chunk));
    const QList<int> kept = lineNumbers((rotated + rest).split('\n'), "out");
    QCOMPARE(kept.last(), bytes / 100 - 1);
    QVERIFY(kept == upTo(bytes / 100).mid(kept.first()));
}

// Only the first marker of a chunk counts, so requests that are far apart are not to share one.
void LogProcessorTest::aMarkerIsFoundInEachChunk()
{
    const QString far = QString(100000, QLatin1Char('.')) + QStringLiteral("\\n");
    QProcess application;
    application.start(QStringLiteral(SAMPLE_APPLICATION),
                      {QStringLiteral("print"), QStringLiteral("==Report==one\\n"),
                       QStringLiteral("print"), far, QStringLiteral("print"),
                       QStringLiteral("==Report==two\\n")});
    QVERIFY(application.waitForFinished());

    LogProcessor log(&application, m_fileName, roomy, false);
    QVERIFY(log.open());
    log.enableReports();
    const Requests requests(&log, m_fileName);
    log.flushOutput();
    QCOMPARE(requests.texts, (QStringList{QStringLiteral("|one"), QStringLiteral("|two")}));
}

void LogProcessorTest::anEchoedChunkEndsWhereTheNextBegins()
{
    const ChildResult result = runInChild([] {
        QProcess application;
        application.start(
            QStringLiteral(SAMPLE_APPLICATION),
            {QStringLiteral("flood"), QStringLiteral("200000"), QStringLiteral("10000")});
        application.waitForFinished();
        LogProcessor log(&application, QString(), 0, false);
        log.flushOutput();
    });
    QCOMPARE(result.standardOutput.size(), 200000);
    QVERIFY(lineNumbers(result.standardOutput.split('\n'), "out") == upTo(2000));
}

// As Qt's own functions for all output of a channel do.
void LogProcessorTest::flushOutputLeavesTheReadChannelAsItWas()
{
    QProcess application;
    application.start(QStringLiteral(SAMPLE_APPLICATION),
                      {QStringLiteral("print"), QStringLiteral("out\\n"), QStringLiteral("error"),
                       QStringLiteral("err\\n")});
    QVERIFY(application.waitForFinished());
    application.setReadChannel(QProcess::StandardError);

    LogProcessor log(&application, m_fileName, roomy, false);
    QVERIFY(log.open());
    log.flushOutput();
    QCOMPARE(readFile(m_fileName), QByteArray("out\n"));
    QCOMPARE(application.readChannel(), QProcess::StandardError);
}

void LogProcessorTest::flushOutputFlushesAndStopsTheTimer()
{
    TimerWatch watch;
    Log log(m_fileName);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray("one"));
    QTRY_VERIFY_WITH_TIMEOUT(watch.timer() != nullptr, generousMs);

    log.processor.write(QByteArray(" two"));
    QVERIFY(watch.timer()->isActive());
    log.processor.flushOutput();
    QCOMPARE(readFile(m_fileName), QByteArray("one two"));
    QVERIFY(!watch.timer()->isActive());
}

// The two chunks of flushOutput() go the whole way, even when they are empty.
void LogProcessorTest::flushOutputCanBringATimeLine()
{
    StoppedWallClock clock(june4Ms);
    Log log(m_fileName, roomy, true);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray("last words\n"));
    clock.advance(1000);
    log.processor.flushOutput();
    QCOMPARE(readFile(m_fileName), june4Line + "last words\n" + oneSecondLaterLine);

    clock.advance(1000);
    log.processor.write(QByteArray("started again\n"));
    log.flush();
    QCOMPARE(readFile(m_fileName),
             june4Line + "last words\n" + oneSecondLaterLine
                 + "-- Time: Thu Jun 4 00:00:02 2026 GMT\nstarted again\n");
}

void LogProcessorTest::flushOutputPutsWhatFollowsAtTheStartOfALine()
{
    StoppedWallClock clock(june4Ms);
    Log log(m_fileName, roomy, true);
    QVERIFY(log.processor.open());
    log.processor.write(QByteArray("cut off"));
    clock.advance(1000);
    log.processor.flushOutput();
    QCOMPARE(readFile(m_fileName), june4Line + "cut off");
    log.processor.write(QByteArray("next\n"));
    log.flush();
    QCOMPARE(readFile(m_fileName), june4Line + "cut off" + oneSecondLaterLine + "next\n");
}

void LogProcessorTest::flushOutputRotatesAFullLog()
{
    writeFile(m_fileName, QByteArray(2000, 'x'));
    Log log(m_fileName, 1000);
    QVERIFY(log.processor.open());
    log.processor.flushOutput();
    QCOMPARE(QFileInfo(m_rotatedFileName).size(), 2000);
    QCOMPARE(QFileInfo(m_fileName).size(), 0);
}

// ---- The application's output

void LogProcessorTest::bothChannelsGoIntoOneFile()
{
    // Lines of 100 bytes, each written at once: a pipe never splits so little, so that the lines of
    // the two channels cannot end up inside one another.
    constexpr int lines = 100000;
    Log log(m_fileName, 100 * roomy);
    QVERIFY(log.processor.open());
    QVERIFY(runToEnd(
        &log.application,
        {QStringLiteral("flood-both"), QString::number(lines * 100), QStringLiteral("100")}));
    log.processor.flushOutput();

    const QList<QByteArray> written = readFile(m_fileName).split('\n');
    QCOMPARE(written.size(), 2 * lines + 1);
    QVERIFY(lineNumbers(written, "out") == upTo(lines));
    QVERIFY(lineNumbers(written, "err") == upTo(lines));
}

void LogProcessorTest::bigChunksStayAsTheyAre()
{
    constexpr int lines = 100000;
    Log log(m_fileName, 100 * roomy);
    QVERIFY(log.processor.open());
    QVERIFY(runToEnd(
        &log.application,
        {QStringLiteral("flood"), QString::number(lines * 100), QStringLiteral("1000000")}));
    log.processor.flushOutput();
    const QByteArray written = readFile(m_fileName);
    QCOMPARE(written.size(), lines * 100);
    QVERIFY(lineNumbers(written.split('\n'), "out") == upTo(lines));
}

// ---- Report requests

void LogProcessorTest::reportsAreOffUntilEnabled()
{
    Log log(m_fileName);
    QVERIFY(log.processor.open());
    QSignalSpy requested(&log.processor, &LogProcessor::reportString);
    Echo echo(&log.application);
    QVERIFY(echo.print("==Report==unheard\n"));
    QCOMPARE(requested.count(), 0);
    log.flush();
    QCOMPARE(readFile(m_fileName), QByteArray("==Report==unheard\n"));

    log.processor.enableReports();
    QCOMPARE(requested.count(), 0);
    QVERIFY(echo.print("==Report==heard\n"));
    QCOMPARE(requested.count(), 1);
    QCOMPARE(requested.at(0), QVariantList({QString(), QStringLiteral("heard")}));
}

void LogProcessorTest::reportIsRequested_data()
{
    QTest::addColumn<QString>("channel");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("request");
    const QString nothing;
    for (const QString &channel : {QStringLiteral("print"), QStringLiteral("error")}) {
        const auto newRow = [&channel](const char *what) -> QTestData & {
            return QTest::newRow(qPrintable(channel + QLatin1String(": ") + QLatin1String(what)))
                << channel;
        };
        newRow("file and name") << QStringLiteral("==Report file:/tmp/x.log==crash\\n")
                                << QStringLiteral("/tmp/x.log|crash");
        newRow("name") << QStringLiteral("==Report==oops\\n") << QStringLiteral("|oops");
        newRow("file alone") << QStringLiteral("==Report file:/tmp/x.log\\n") << nothing;
        newRow("no marker") << QStringLiteral("hello\\n") << nothing;
    }
}

void LogProcessorTest::reportIsRequested()
{
    QFETCH(QString, channel);
    QFETCH(QString, text);
    QFETCH(QString, request);
    Log log(m_fileName);
    QVERIFY(log.processor.open());
    log.processor.enableReports();
    Requests requests(&log.processor, m_fileName);
    QVERIFY(runToEnd(&log.application, {channel, text}));
    QCOMPARE(requests.texts, request.isEmpty() ? QStringList() : QStringList(request));
}

void LogProcessorTest::reportRequestComesAfterTheChunkWasWritten()
{
    Log log(m_fileName);
    QVERIFY(log.processor.open());
    log.processor.enableReports();
    Requests requests(&log.processor, m_fileName);
    Echo echo(&log.application);
    QVERIFY(echo.print("before\n==Report==oops\nafter\n"));
    QCOMPARE(requests.texts, QStringList(QStringLiteral("|oops")));
    QCOMPARE(requests.logAtRequest, QByteArray("before\n==Report==oops\nafter\n"));
}

void LogProcessorTest::flushOutputFindsRequestsToo()
{
    QProcess application;
    application.start(QStringLiteral(SAMPLE_APPLICATION),
                      {QStringLiteral("print"), QStringLiteral("==Report==last wish\\n")});
    QVERIFY(application.waitForFinished());

    LogProcessor log(&application, m_fileName, roomy, false);
    QVERIFY(log.open());
    log.enableReports();
    Requests requests(&log, m_fileName);
    log.flushOutput();
    QCOMPARE(requests.texts, QStringList(QStringLiteral("|last wish")));
    QCOMPARE(readFile(m_fileName), QByteArray("==Report==last wish\n"));
}

void LogProcessorTest::ownLinesAreNoRequests()
{
    Log log(m_fileName);
    QVERIFY(log.processor.open());
    log.processor.enableReports();
    QSignalSpy requested(&log.processor, &LogProcessor::reportString);
    log.processor.write(QByteArray("==Report==oops\n"));
    log.processor.write(QStringLiteral("==Report==oops\n"));
    QCOMPARE(requested.count(), 0);
}

void LogProcessorTest::twoMarkersInOneChunkAreOneRequest()
{
    Log log(m_fileName);
    QVERIFY(log.processor.open());
    log.processor.enableReports();
    Requests requests(&log.processor, m_fileName);
    Echo echo(&log.application);
    QVERIFY(echo.print("==Report==first\n==Report==second\n"));
    QVERIFY(echo.print("==Report file:/tmp/x.log==third\n==Report==fourth\n"));
    QCOMPARE(requests.texts,
             QStringList({QStringLiteral("|first"), QStringLiteral("/tmp/x.log|fourth")}));
}

void LogProcessorTest::splitMarkerIsNotRecognised()
{
    Log log(m_fileName);
    QVERIFY(log.processor.open());
    log.processor.enableReports();
    Requests requests(&log.processor, m_fileName);
    Echo echo(&log.application);
    QVERIFY(echo.print("==Rep"));
    QVERIFY(echo.print("ort==oops\n"));
    QVERIFY(echo.print("==Report==oops\n"));
    QCOMPARE(requests.texts, QStringList(QStringLiteral("|oops")));
}

// The flush that a request brings makes the log take what follows for the start of a line.
void LogProcessorTest::requestInTheMiddleOfALineCanBringATimeLineThere()
{
    StoppedWallClock clock(june4Ms);
    Log log(m_fileName, roomy, true);
    QVERIFY(log.processor.open());
    log.processor.enableReports();
    Requests requests(&log.processor, m_fileName);
    Echo echo(&log.application);
    QVERIFY(echo.print("state: ==Report==oops"));
    clock.advance(1000);
    QVERIFY(echo.print(" and on\n"));
    QCOMPARE(requests.texts, QStringList(QStringLiteral("|oops")));
    log.flush();
    QCOMPARE(readFile(m_fileName),
             june4Line + "state: ==Report==oops" + oneSecondLaterLine + " and on\n");
}

QTEST_GUILESS_MAIN(LogProcessorTest)
#include "tst_logprocessor.moc"
