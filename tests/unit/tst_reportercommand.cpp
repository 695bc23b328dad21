// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// What the reporter asks of the process handler, when, and what it makes of the result. The process
// handler is this file's own: it starts nothing and leaves the result to the test.
#include "platform/pynx_processhandler.h"
#include "processresources.h"
#include "report/reporter.h"
#include "standarderrorcapture.h"

#include <QAbstractEventDispatcher>
#include <QDateTime>
#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <ctime>
#include <utility>

#include <sys/stat.h>

namespace {

constexpr int eventTimeoutMs = 60000;
constexpr int shortDelayMs = 1;

struct Call
{
    QString program;
    QStringList arguments;
    int number = 0;
    PynxProcessHandler::CompletionCallback completed;
    bool hasOutput = false;
    bool flag = false;

    QString temporaryPath() const { return arguments.value(1); }
    QStringList files() const
    {
        QStringList files = arguments.mid(2);
        files.sort(); // their order is of no account, and differs from run to run
        return files;
    }
};

QVector<Call> &calls()
{
    static QVector<Call> all;
    return all;
}

QByteArray uploadPathMessage()
{
    return QByteArrayLiteral("Upload path doesn't allow non ROOT user to remove the report\n");
}

QByteArray failureMessage()
{
    return QByteArrayLiteral("Failed to generate report\n");
}

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

mode_t modeOf(const QString &path)
{
    struct stat status = {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 07777U : 0;
}

} // namespace

void PynxProcessHandler::startAsync(const QString &program, const QStringList &arguments,
                                    int number, const CompletionCallback &completed,
                                    const OutputCallback &output, bool flag)
{
    calls().append({program, arguments, number, completed, static_cast<bool>(output), flag});
}

/** One request of a sequence, at a time of the controlled clock. */
struct Request
{
    qint64 atMs;
    QString name;
    bool accepted;
};
Q_DECLARE_METATYPE(QVector<Request>)

class ReporterCommandTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void hasNoParentAndNoSignalsOrSlots();
    void handlerIsCalledAsRequired();
    void archiveIsNamedByPrefixNameAndTime();
    void nameBecomesFileName_data();
    void nameBecomesFileName();
    void archivesOfOneMillisecondHaveNamesOfTheirOwn();
    void emptyUploadPathIsTheRoot();

    void onlyFilesThatExistArePacked();
    void everyFileIsPackedOnce();
    void pathsArePassedUnchanged();
    void nothingHappensWhenNoFileExists();
    void uploadPathIsCheckedEvenWhenNoFileExists();

    void rateLimit_data();
    void rateLimit();
    void clearedHistoryAllowsFiveMore();
    void clearedHistoryKeepsTheFirst30Seconds();
    void productionClockIsMonotonic();

    void delayIs5000MsOnACoarseTimer();
    void delayedRequestComesAfter5000Ms();
    void requestIsNotServedAtOnce();
    void pendingRequestsFireIndependently();
    void destroyedReporterMakesNoReport();

    void extraFileIsInEveryLaterReport();
    void missingExtraFileIsCheckedAgain();
    void emptyExtraFilesChangeNothing();
    void emptyFileNameChangesNothing();
    void droppedRequestLeavesNoFileBehind();
    void clearedHistoryKeepsTheFiles();

    void successRenamesTheArchive();
    void otherResultsAreFailures_data();
    void otherResultsAreFailures();
    void failedRenameIsIgnored();
    void existingArchiveIsNotReplaced();
    void resultsMayComeInAnyOrder();
    void resultMayComeAfterTheReporterIsGone();

    void uploadDirectoryIsCreated_data();
    void uploadDirectoryIsCreated();
    void existingUploadDirectoryIsLeftUntouched_data();
    void existingUploadDirectoryIsLeftUntouched();
    void fileInPlaceOfTheUploadDirectoryIsLeftUntouched();
    void unremovableReportIsMentionedEachTime_data();
    void unremovableReportIsMentionedEachTime();

private:
    void makeReporter(const QStringList &files = QStringList());
    void request(const QString &extraFile, const QString &name);
    QString writeFile(const QString &name);
    QString uploadPath() const { return m_directory->filePath(QStringLiteral("upload")); }
    QStringList uploads() const;

    QScopedPointer<QTemporaryDir> m_directory;
    QScopedPointer<Reporter> m_reporter;
    qint64 m_nowMs = 0;
};

void ReporterCommandTest::init()
{
    calls().clear();
    m_nowMs = 1000000;
    m_directory.reset(new QTemporaryDir);
    QVERIFY(m_directory->isValid());
}

void ReporterCommandTest::cleanup()
{
    waitForTimersAndChildren();
    m_reporter.reset();
}

void ReporterCommandTest::makeReporter(const QStringList &files)
{
    m_reporter.reset(new Reporter(
        files, uploadPath(), QStringLiteral("board"), [this] { return m_nowMs; }, shortDelayMs));
}

// Requests a report and waits until its delay is over.
void ReporterCommandTest::request(const QString &extraFile, const QString &name)
{
    m_reporter->requestReport({extraFile}, name);
    waitForTimersAndChildren();
}

QString ReporterCommandTest::writeFile(const QString &name)
{
    QFile file(m_directory->filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write("content of " + name.toUtf8()) == -1)
        qFatal("cannot write a file");
    return file.fileName();
}

QStringList ReporterCommandTest::uploads() const
{
    return QDir(uploadPath()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::Name);
}

void ReporterCommandTest::hasNoParentAndNoSignalsOrSlots()
{
    makeReporter();
    QVERIFY(m_reporter->parent() == nullptr);
    const QMetaObject *meta = m_reporter->metaObject();
    QCOMPARE(meta->className(), "Reporter");
    QCOMPARE(meta->methodCount(), meta->methodOffset());
}

void ReporterCommandTest::handlerIsCalledAsRequired()
{
    const QString file = writeFile(QStringLiteral("a.log"));
    makeReporter();
    m_reporter->createReport({file}, QStringLiteral("main"));

    QCOMPARE(calls().size(), 1);
    const Call &call = calls().first();
    QCOMPARE(call.program, QStringLiteral("tar"));
    QCOMPARE(call.arguments.size(), 3);
    QCOMPARE(call.arguments.at(0), QStringLiteral("czhf"));
    QVERIFY(call.arguments.at(1).startsWith(uploadPath() + QStringLiteral("/tmp_board-main-")));
    QCOMPARE(call.arguments.at(2), file);
    QCOMPARE(call.number, 1000);
    QVERIFY(call.completed);
    QVERIFY(!call.hasOutput);
    QVERIFY(call.flag);
}

void ReporterCommandTest::archiveIsNamedByPrefixNameAndTime()
{
    const QString file = writeFile(QStringLiteral("a.log"));
    makeReporter();
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    m_reporter->createReport({file}, QStringLiteral("main"));
    const qint64 after = QDateTime::currentMSecsSinceEpoch();

    QCOMPARE(calls().size(), 1);
    const QString start = uploadPath() + QStringLiteral("/tmp_board-main-");
    const QString path = calls().first().temporaryPath();
    QVERIFY(path.startsWith(start));
    const QString time = path.mid(start.size());
    QCOMPARE(time, QString::number(time.toLongLong()));
    QVERIFY2(time.toLongLong() >= before && time.toLongLong() <= after, qPrintable(time));
}

void ReporterCommandTest::nameBecomesFileName_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("part");

    const auto row = [](const char *what, const char *name, const char *part) {
        QTest::newRow(what) << QString::fromUtf8(name) << QString::fromUtf8(part);
    };
    row("letters and digits", "Main42", "Main42");
    row("blank and exclamation mark", "disk full!", "disk_full_");
    row("each character becomes one underscore", "a  ?!b", "a____b");
    row("an empty name gives two hyphens in a row", "", "");
    row("underscore and hyphen survive", "_a-b_-", "_a-b_-");
    row("a slash makes no directory", "a/b", "a_b");
    row("the parent directory", "..", "__");
    row("a way out", "../../etc/x", "______etc_x");
    row("dot and extension", "x.tar.gz", "x_tar_gz");
    row("line ends and tabulator", "a\r\n\tb", "a___b");
    row("shell characters", "$(x);`y`|z&*?[]{}<>'\"\\", "__x___y__z____________");
    row("letters outside ASCII", "Größe", "Größe");
    row("letters without case", "日本", "日本");
    row("digits outside ASCII", "٣४", "٣४");
    row("numbers that are no digits", "½²Ⅷ", "½²Ⅷ");
    row("combining marks count as part of a word", "e\u0301a\u0308", "e\u0301a\u0308");
    row("a dash is no hyphen", "a–b", "a_b");
    row("a symbol", "5 €", "5__");
    row("outside the basic plane a character is two code units", "a😀b", "a__b");
    row("a carriage return at the end of the marker's line", "oops\r", "oops_");
    QTest::newRow("a NUL character") << QString(QChar(0)) << QStringLiteral("_");
}

void ReporterCommandTest::nameBecomesFileName()
{
    QFETCH(QString, name);
    QFETCH(QString, part);
    const QString file = writeFile(QStringLiteral("a.log"));
    makeReporter();
    m_reporter->createReport({file}, name);

    QCOMPARE(calls().size(), 1);
    const QString path = calls().first().temporaryPath();
    const QString time = path.section(QLatin1Char('-'), -1);
    QCOMPARE(path, uploadPath() + QStringLiteral("/tmp_board-") + part + QLatin1Char('-') + time);
    QVERIFY(time.toLongLong() > 0);
}

void ReporterCommandTest::archivesOfOneMillisecondHaveNamesOfTheirOwn()
{
    const QString file = writeFile(QStringLiteral("a.log"));
    makeReporter();
    QSet<QString> paths;
    for (int i = 0; i < 100; ++i) {
        m_reporter->createReport({file}, QStringLiteral("a b"));
        m_reporter->createReport({file}, QStringLiteral("a_b"));
    }
    for (const Call &call : std::as_const(calls()))
        paths.insert(call.temporaryPath());
    QCOMPARE(calls().size(), 200);
    QCOMPARE(paths.size(), 200);
}

void ReporterCommandTest::emptyUploadPathIsTheRoot()
{
    const QString file = writeFile(QStringLiteral("a.log"));
    const StandardErrorCapture standardError;
    m_reporter.reset(new Reporter({file}, QString(), QString()));
    m_reporter->createReport({file}, QStringLiteral("x"));
    QCOMPARE(calls().size(), 1);
    QVERIFY(calls().first().temporaryPath().startsWith(QStringLiteral("/tmp_-x-")));
    QCOMPARE(standardError.text(), uploadPathMessage());
}

void ReporterCommandTest::onlyFilesThatExistArePacked()
{
    const QString first = writeFile(QStringLiteral("a.log"));
    const QString second = writeFile(QStringLiteral("b.log"));
    const QString missing = m_directory->filePath(QStringLiteral("missing"));
    const QString link = m_directory->filePath(QStringLiteral("link"));
    const QString dangling = m_directory->filePath(QStringLiteral("dangling"));
    QVERIFY(QFile::link(first, link));
    QVERIFY(QFile::link(missing, dangling));
    makeReporter();
    m_reporter->createReport({first, missing, QString(), dangling, second, link},
                             QStringLiteral("x"));
    QCOMPARE(calls().size(), 1);
    QCOMPARE(calls().first().files(), sorted({first, second, link}));
}

void ReporterCommandTest::everyFileIsPackedOnce()
{
    const QString first = writeFile(QStringLiteral("a.log"));
    const QString second = writeFile(QStringLiteral("b.log"));
    makeReporter();
    m_reporter->createReport({first, second, first, first, second}, QStringLiteral("x"));
    QCOMPARE(calls().size(), 1);
    QCOMPARE(calls().first().files(), sorted({first, second}));
}

void ReporterCommandTest::pathsArePassedUnchanged()
{
    const QStringList files = {writeFile(QStringLiteral("two words")),
                               writeFile(QStringLiteral("-a")),
                               writeFile(QStringLiteral("quote'\"")),
                               writeFile(QStringLiteral("line\nend")),
                               writeFile(QStringLiteral("*")),
                               m_directory->path(),
                               m_directory->path() + QStringLiteral("/.//two words")};
    makeReporter();
    m_reporter->createReport(files, QStringLiteral("x"));
    QCOMPARE(calls().size(), 1);
    QCOMPARE(calls().first().files(), sorted(files));
}

void ReporterCommandTest::nothingHappensWhenNoFileExists()
{
    makeReporter();
    const StandardErrorCapture standardError;
    m_reporter->createReport(QStringList(), QStringLiteral("x"));
    m_reporter->createReport({QString(), m_directory->filePath(QStringLiteral("missing"))},
                             QStringLiteral("x"));
    QCOMPARE(calls().size(), 0);
    QCOMPARE(uploads(), QStringList());
    QCOMPARE(standardError.text(), QByteArray());
}

void ReporterCommandTest::uploadPathIsCheckedEvenWhenNoFileExists()
{
    QVERIFY(QDir().mkpath(uploadPath()));
    makeReporter();
    const StandardErrorCapture standardError;
    m_reporter->createReport(QStringList(), QStringLiteral("x"));
    QCOMPARE(calls().size(), 0);
    QCOMPARE(standardError.text(), uploadPathMessage());
}

void ReporterCommandTest::rateLimit_data()
{
    QTest::addColumn<QVector<Request>>("requests");

    const QString a = QStringLiteral("a");
    const QString b = QStringLiteral("b");
    QTest::newRow("six of one name, each 31 s apart: the sixth is dropped")
        << QVector<Request>{{31000, a, true},  {62000, a, true},  {93000, a, true},
                            {124000, a, true}, {155000, a, true}, {186000, a, false}};
    QTest::newRow("the sixth is dropped however late it comes") << QVector<Request>{
        {30000, a, true},  {60000, a, true},  {90000, a, true},
        {120000, a, true}, {150000, a, true}, {Q_INT64_C(1000) * 86400 * 365, a, false}};
    QTest::newRow("two of one name, 10 s apart: only the first")
        << QVector<Request>{{50000, a, true}, {60000, a, false}};
    QTest::newRow("29999 ms apart is too close")
        << QVector<Request>{{50000, a, true}, {79999, a, false}};
    QTest::newRow("30000 ms apart is enough")
        << QVector<Request>{{50000, a, true}, {80000, a, true}};
    QTest::newRow("the interval counts from the last that was accepted")
        << QVector<Request>{{50000, a, true}, {70000, a, false}, {80000, a, true}};
    QTest::newRow("what is dropped is not counted") << QVector<Request>{
        {30000, a, true},  {30001, a, false}, {60000, a, true},  {60001, a, false},
        {90000, a, true},  {90001, a, false}, {120000, a, true}, {120001, a, false},
        {150000, a, true}, {180000, a, false}};
    QTest::newRow("the first 30 s of the clock are dropped")
        << QVector<Request>{{0, a, false}, {10000, a, false}, {29999, a, false}, {30000, a, true}};
    QTest::newRow("every name has its own limit")
        << QVector<Request>{{40000, a, true},  {40000, b, true}, {50000, a, false},
                            {50000, b, false}, {70000, b, true}, {70000, a, true}};
    QTest::newRow("names that share a file name are different names")
        << QVector<Request>{{40000, QStringLiteral("x y"), true},
                            {40000, QStringLiteral("x_y"), true},
                            {40000, QStringLiteral("X_Y"), true}};
    QTest::newRow("an empty name is never limited") << QVector<Request>(20, {0, QString(), true});
    QTest::newRow("an empty text is an empty name too")
        << QVector<Request>(7, {40000, QLatin1String(""), true});
    QTest::newRow("a blank is a name") << QVector<Request>{{40000, QStringLiteral(" "), true},
                                                           {40000, QStringLiteral(" "), false}};
}

void ReporterCommandTest::rateLimit()
{
    QFETCH(QVector<Request>, requests);
    makeReporter({writeFile(QStringLiteral("a.log"))});
    QVector<bool> accepted;
    QVector<bool> expected;
    const StandardErrorCapture standardError;
    for (const Request &request : std::as_const(requests)) {
        calls().clear();
        m_nowMs = request.atMs;
        m_reporter->requestReport(QStringList(), request.name);
        waitForTimersAndChildren();
        accepted.append(calls().size() == 1);
        expected.append(request.accepted);
    }
    QCOMPARE(accepted, expected);
    QCOMPARE(standardError.text(), QByteArray());
}

void ReporterCommandTest::clearedHistoryAllowsFiveMore()
{
    makeReporter({writeFile(QStringLiteral("a.log"))});
    const auto requestSix = [this] {
        for (int i = 0; i < 6; ++i) {
            m_reporter->requestReport(QStringList(), QStringLiteral("a"));
            m_nowMs += 30000;
        }
        waitForTimersAndChildren();
    };
    requestSix();
    QCOMPARE(calls().size(), 5);
    m_reporter->clearHistory();
    requestSix();
    QCOMPARE(calls().size(), 10);

    // Neither the count nor the time of the last one survives.
    m_reporter->clearHistory();
    request(QString(), QStringLiteral("a"));
    m_reporter->clearHistory();
    request(QString(), QStringLiteral("a"));
    QCOMPARE(calls().size(), 12);
}

void ReporterCommandTest::clearedHistoryKeepsTheFirst30Seconds()
{
    makeReporter({writeFile(QStringLiteral("a.log"))});
    m_nowMs = 29999;
    m_reporter->clearHistory();
    request(QString(), QStringLiteral("a"));
    QCOMPARE(calls().size(), 0);
}

void ReporterCommandTest::productionClockIsMonotonic()
{
    const auto systemMs = [] {
        timespec now = {};
        ::clock_gettime(CLOCK_MONOTONIC, &now);
        return static_cast<qint64>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
    };
    const qint64 before = systemMs();
    const qint64 ms = Reporter::monotonicMs();
    QVERIFY(ms >= before);
    QVERIFY(ms <= systemMs());
}

void ReporterCommandTest::delayIs5000MsOnACoarseTimer()
{
    m_reporter.reset(new Reporter({}, uploadPath(), QStringLiteral("board")));
    m_reporter->requestReport(QStringList(), QString());

    QAbstractEventDispatcher *dispatcher = QAbstractEventDispatcher::instance();
    QObject *timer = nullptr;
    for (QObject *object : dispatcher->children()) {
        if (object->inherits("QSingleShotTimer"))
            timer = object;
    }
    QVERIFY(timer != nullptr);
    const auto registered = dispatcher->registeredTimers(timer);
    delete timer; // the request itself is of no further use
    QCOMPARE(registered.size(), 1);
    QCOMPARE(registered.first().interval, 5000);
    QCOMPARE(registered.first().timerType, Qt::CoarseTimer);
}

void ReporterCommandTest::delayedRequestComesAfter5000Ms()
{
    const QString file = writeFile(QStringLiteral("a.log"));
    m_reporter.reset(new Reporter({file}, uploadPath(), QStringLiteral("board")));
    QElapsedTimer timer;
    timer.start();
    m_reporter->requestReport(QStringList(), QString());
    QTRY_COMPARE_WITH_TIMEOUT(calls().size(), 1, eventTimeoutMs);
    // A coarse timer may come 5 % early.
    QVERIFY2(timer.elapsed() >= 4750, qPrintable(QString::number(timer.elapsed())));
}

void ReporterCommandTest::requestIsNotServedAtOnce()
{
    makeReporter({writeFile(QStringLiteral("a.log"))});
    m_reporter->requestReport(QStringList(), QStringLiteral("a"));
    QCOMPARE(calls().size(), 0);
    waitForTimersAndChildren();
    QCOMPARE(calls().size(), 1);
}

void ReporterCommandTest::pendingRequestsFireIndependently()
{
    const QString first = writeFile(QStringLiteral("first"));
    const QString second = writeFile(QStringLiteral("second"));
    const QString third = writeFile(QStringLiteral("third"));
    makeReporter();
    m_reporter->requestReport({first}, QStringLiteral("a"));
    m_reporter->requestReport({second}, QStringLiteral("b"));
    m_reporter->requestReport({third}, QStringLiteral("c"));
    QCOMPARE(pendingSingleShots(), 3);
    waitForTimersAndChildren();

    // A file belongs to the reporter from when its request's delay is over, not earlier.
    QCOMPARE(calls().size(), 3);
    QCOMPARE(calls().at(0).files(), sorted({first}));
    QCOMPARE(calls().at(1).files(), sorted({first, second}));
    QCOMPARE(calls().at(2).files(), sorted({first, second, third}));
    QVERIFY(calls().at(0).temporaryPath().contains(QStringLiteral("/tmp_board-a-")));
    QVERIFY(calls().at(1).temporaryPath().contains(QStringLiteral("/tmp_board-b-")));
    QVERIFY(calls().at(2).temporaryPath().contains(QStringLiteral("/tmp_board-c-")));
}

void ReporterCommandTest::destroyedReporterMakesNoReport()
{
    makeReporter({writeFile(QStringLiteral("a.log"))});
    m_reporter->requestReport({writeFile(QStringLiteral("b.log"))}, QStringLiteral("a"));
    m_reporter.reset();
    waitForTimersAndChildren();
    QCOMPARE(calls().size(), 0);
}

void ReporterCommandTest::extraFileIsInEveryLaterReport()
{
    const QString configured = writeFile(QStringLiteral("configured"));
    const QString extra = writeFile(QStringLiteral("extra"));
    makeReporter({configured});
    request(extra, QStringLiteral("a"));
    request(QString(), QStringLiteral("b"));
    QVERIFY(QFile::remove(extra));
    request(QString(), QStringLiteral("c"));

    QCOMPARE(calls().size(), 3);
    QCOMPARE(calls().at(0).files(), sorted({configured, extra}));
    QCOMPARE(calls().at(1).files(), sorted({configured, extra}));
    QCOMPARE(calls().at(2).files(), sorted({configured}));
}

void ReporterCommandTest::missingExtraFileIsCheckedAgain()
{
    const QString configured = writeFile(QStringLiteral("configured"));
    const QString late = m_directory->filePath(QStringLiteral("late"));
    makeReporter({configured});
    request(late, QStringLiteral("a"));
    request(QString(), QStringLiteral("b"));
    writeFile(QStringLiteral("late"));
    request(QString(), QStringLiteral("c"));

    QCOMPARE(calls().size(), 3);
    QCOMPARE(calls().at(0).files(), sorted({configured}));
    QCOMPARE(calls().at(1).files(), sorted({configured}));
    QCOMPARE(calls().at(2).files(), sorted({configured, late}));
}

void ReporterCommandTest::emptyExtraFilesChangeNothing()
{
    makeReporter();
    m_reporter->requestReport(QStringList(), QStringLiteral("a"));
    waitForTimersAndChildren();
    QCOMPARE(calls().size(), 0);

    // Without a configured file the first request's files are all there is.
    const QStringList extraFiles = {writeFile(QStringLiteral("x")), writeFile(QStringLiteral("y"))};
    m_reporter->requestReport(extraFiles, QStringLiteral("b"));
    waitForTimersAndChildren();
    m_reporter->requestReport(QStringList(), QStringLiteral("c"));
    waitForTimersAndChildren();
    QCOMPARE(calls().size(), 2);
    QCOMPARE(calls().at(0).files(), sorted(extraFiles));
    QCOMPARE(calls().at(1).files(), sorted(extraFiles));
}

// What a report marker without a file asks for.
void ReporterCommandTest::emptyFileNameChangesNothing()
{
    const QString configured = writeFile(QStringLiteral("configured"));
    makeReporter({configured});
    request(QString(), QStringLiteral("a"));
    QCOMPARE(calls().size(), 1);
    QCOMPARE(calls().first().files(), sorted({configured}));
}

void ReporterCommandTest::droppedRequestLeavesNoFileBehind()
{
    const QString configured = writeFile(QStringLiteral("configured"));
    makeReporter({configured});
    request(QString(), QStringLiteral("a"));
    request(writeFile(QStringLiteral("dropped")), QStringLiteral("a"));
    request(QString(), QStringLiteral("b"));
    QCOMPARE(calls().size(), 2);
    QCOMPARE(calls().at(1).files(), sorted({configured}));
}

void ReporterCommandTest::clearedHistoryKeepsTheFiles()
{
    const QString extra = writeFile(QStringLiteral("extra"));
    makeReporter();
    request(extra, QStringLiteral("a"));
    m_reporter->clearHistory();
    request(QString(), QStringLiteral("a"));
    QCOMPARE(calls().size(), 2);
    QCOMPARE(calls().at(1).files(), sorted({extra}));
}

void ReporterCommandTest::successRenamesTheArchive()
{
    const QString file = writeFile(QStringLiteral("a.log"));
    makeReporter();
    const StandardErrorCapture standardError;
    m_reporter->createReport({file}, QStringLiteral("a"));
    QCOMPARE(calls().size(), 1);
    QVERIFY(QFile::copy(file, calls().first().temporaryPath()));
    const QString temporary = QFileInfo(calls().first().temporaryPath()).fileName();
    QCOMPARE(uploads(), QStringList{temporary});

    calls().first().completed({0});
    QCOMPARE(uploads(), QStringList{temporary.mid(4) + QStringLiteral(".tar.gz")});
    QCOMPARE(standardError.text(), QByteArray());
}

void ReporterCommandTest::otherResultsAreFailures_data()
{
    QTest::addColumn<int>("resultCode");

    QTest::newRow("a file changed as it was read") << 1;
    QTest::newRow("tar's fatal error") << 2;
    QTest::newRow("largest") << 255;
    QTest::newRow("could not start, or crashed") << -1;
}

void ReporterCommandTest::otherResultsAreFailures()
{
    QFETCH(int, resultCode);
    const QString file = writeFile(QStringLiteral("a.log"));
    makeReporter();
    const StandardErrorCapture standardError;
    m_reporter->createReport({file}, QStringLiteral("a"));
    QCOMPARE(calls().size(), 1);
    QVERIFY(QFile::copy(file, calls().first().temporaryPath()));

    calls().first().completed({resultCode});
    QCOMPARE(uploads(), QStringList{QFileInfo(calls().first().temporaryPath()).fileName()});
    QCOMPARE(standardError.text(), failureMessage());
}

void ReporterCommandTest::failedRenameIsIgnored()
{
    makeReporter();
    const StandardErrorCapture standardError;
    m_reporter->createReport({writeFile(QStringLiteral("a.log"))}, QStringLiteral("a"));
    QCOMPARE(calls().size(), 1);
    calls().first().completed({0}); // without a temporary file
    QCOMPARE(uploads(), QStringList());
    QCOMPARE(standardError.text(), QByteArray());
}

void ReporterCommandTest::existingArchiveIsNotReplaced()
{
    const QString file = writeFile(QStringLiteral("a.log"));
    makeReporter();
    const StandardErrorCapture standardError;
    m_reporter->createReport({file}, QStringLiteral("a"));
    QCOMPARE(calls().size(), 1);
    const QString temporaryPath = calls().first().temporaryPath();
    QVERIFY(QFile::copy(file, temporaryPath));
    const QString temporary = QFileInfo(temporaryPath).fileName();
    const QString final = temporary.mid(4) + QStringLiteral(".tar.gz");
    QFile existing(uploadPath() + QLatin1Char('/') + final);
    QVERIFY(existing.open(QIODevice::WriteOnly));
    existing.close();

    calls().first().completed({0});
    QCOMPARE(uploads(), (QStringList{final, temporary}));
    QCOMPARE(existing.size(), Q_INT64_C(0));
    QCOMPARE(standardError.text(), QByteArray());
}

void ReporterCommandTest::resultsMayComeInAnyOrder()
{
    const QString file = writeFile(QStringLiteral("a.log"));
    makeReporter();
    const StandardErrorCapture standardError;
    for (const char *name : {"first", "second", "third"})
        m_reporter->createReport({file}, QLatin1String(name));
    QCOMPARE(calls().size(), 3);
    QStringList names;
    for (const Call &call : std::as_const(calls())) {
        QVERIFY(QFile::copy(file, call.temporaryPath()));
        names.append(QFileInfo(call.temporaryPath()).fileName());
    }

    calls().at(2).completed({0});
    calls().at(0).completed({2});
    calls().at(1).completed({0});
    QCOMPARE(uploads(),
             sorted({names.at(0), names.at(1).mid(4) + QStringLiteral(".tar.gz"),
                     names.at(2).mid(4) + QStringLiteral(".tar.gz")}));
    QCOMPARE(standardError.text(), failureMessage());
}

void ReporterCommandTest::resultMayComeAfterTheReporterIsGone()
{
    const QString file = writeFile(QStringLiteral("a.log"));
    makeReporter();
    m_reporter->createReport({file}, QStringLiteral("a"));
    QCOMPARE(calls().size(), 1);
    QVERIFY(QFile::copy(file, calls().first().temporaryPath()));
    m_reporter.reset();
    calls().first().completed({0});
    QCOMPARE(uploads().size(), 1);
    QVERIFY(uploads().at(0).endsWith(QStringLiteral(".tar.gz")));
}

void ReporterCommandTest::uploadDirectoryIsCreated_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<int>("mask");
    QTest::addColumn<int>("mode");

    const QString one = QStringLiteral("upload");
    QTest::newRow("usual mask") << one << 0022 << 0777;
    QTest::newRow("private mask") << one << 0077 << 0722;
    QTest::newRow("group's mask") << one << 0027 << 0772;
    QTest::newRow("no mask") << one << 0000 << 0777;
    QTest::newRow("with its parents") << QStringLiteral("a/b/c/upload") << 0022 << 0777;
    QTest::newRow("with a slash at the end") << QStringLiteral("a/upload/") << 0022 << 0777;
}

void ReporterCommandTest::uploadDirectoryIsCreated()
{
    QFETCH(QString, path);
    QFETCH(int, mask);
    QFETCH(int, mode);
    const QString uploadPath = m_directory->filePath(path);
    const StandardErrorCapture standardError;
    const mode_t previous = ::umask(static_cast<mode_t>(mask));
    m_reporter.reset(new Reporter({}, uploadPath, QStringLiteral("board")));
    ::umask(previous);

    QVERIFY(QFileInfo(uploadPath).isDir());
    QCOMPARE(static_cast<int>(modeOf(uploadPath)), mode);
    // The parents keep what they were created with.
    if (path.contains(QStringLiteral("a/")))
        QCOMPARE(static_cast<int>(modeOf(m_directory->filePath(QStringLiteral("a")))), 0755);
    QCOMPARE(standardError.text(), QByteArray());
}

void ReporterCommandTest::existingUploadDirectoryIsLeftUntouched_data()
{
    QTest::addColumn<int>("mode");

    QTest::newRow("private") << 0700;
    QTest::newRow("usual") << 0755;
    QTest::newRow("sticky and open to all") << 01777;
    QTest::newRow("nothing allowed") << 0000;
}

void ReporterCommandTest::existingUploadDirectoryIsLeftUntouched()
{
    QFETCH(int, mode);
    QVERIFY(QDir().mkpath(uploadPath()));
    QCOMPARE(::chmod(QFile::encodeName(uploadPath()).constData(), static_cast<mode_t>(mode)), 0);
    makeReporter();
    QCOMPARE(static_cast<int>(modeOf(uploadPath())), mode);
}

void ReporterCommandTest::fileInPlaceOfTheUploadDirectoryIsLeftUntouched()
{
    const QString file = writeFile(QStringLiteral("upload"));
    QCOMPARE(file, uploadPath());
    const mode_t before = modeOf(file);
    const StandardErrorCapture standardError;
    makeReporter();
    QCOMPARE(modeOf(file), before);
    QVERIFY(QFileInfo(file).isFile());
    QCOMPARE(standardError.text(), QByteArray());
}

void ReporterCommandTest::unremovableReportIsMentionedEachTime_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("mentioned");

    QTest::newRow("open to all") << 0777 << false;
    QTest::newRow("open to others alone") << 0702 << false;
    QTest::newRow("sticky and open to all") << 01777 << false;
    QTest::newRow("usual") << 0755 << true;
    QTest::newRow("open to the group") << 0775 << true;
    QTest::newRow("private") << 0700 << true;
    QTest::newRow("gone") << -1 << true;
}

void ReporterCommandTest::unremovableReportIsMentionedEachTime()
{
    QFETCH(int, mode);
    QFETCH(bool, mentioned);
    const QString file = writeFile(QStringLiteral("a.log"));
    makeReporter();
    if (mode == -1)
        QVERIFY(QDir().rmdir(uploadPath()));
    else
        QCOMPARE(::chmod(QFile::encodeName(uploadPath()).constData(), static_cast<mode_t>(mode)),
                 0);
    const StandardErrorCapture standardError;
    m_reporter->createReport({file}, QStringLiteral("a"));
    QCOMPARE(standardError.text(), mentioned ? uploadPathMessage() : QByteArray());
    m_reporter->createReport({file}, QStringLiteral("b"));
    QCOMPARE(standardError.text(),
             mentioned ? uploadPathMessage() + uploadPathMessage() : QByteArray());
    QCOMPARE(calls().size(), 2); // the reports are made all the same
}

QTEST_GUILESS_MAIN(ReporterCommandTest)
#include "tst_reportercommand.moc"
