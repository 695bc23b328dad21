// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// The calls of the reporter to the process handler, their times, and what follows from the results.
// The process handler in this file starts nothing, and the test gives the results. tests/system
// runs the real handler and the real `tar`.
#include "platform/pynx_processhandler.h"
#include "report/reporter.h"
#include "standarderrorcapture.h"
#include "stoppedwallclock.h"
#include "testfiles.h"

#include <QDateTime>
#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include <ctime>
#include <utility>

#include <sys/stat.h>

namespace {

constexpr int noDelayMs = 0; // the event loop serves a request at its next turn

const QString a = QStringLiteral("a");
const QString b = QStringLiteral("b");
const QString c = QStringLiteral("c");

const QByteArray uploadPathMessage =
    QByteArrayLiteral("Upload path doesn't allow non ROOT user to remove the report\n");
const QByteArray failureMessage = QByteArrayLiteral("Failed to generate report\n");

struct Call
{
    QString program;
    QStringList arguments;
    int number = 0;
    PynxProcessHandler::CompletionCallback completed;
    bool hasOutput = false;
    bool flag = false;

    QString temporaryPath() const { return arguments.value(1); }
    QString temporaryName() const { return QFileInfo(temporaryPath()).fileName(); }
    QString archiveName() const { return temporaryName().mid(4) + QStringLiteral(".tar.gz"); }
    QStringList files() const
    {
        QStringList files = arguments.mid(2);
        files.sort(); // their order has no meaning and differs between runs
        return files;
    }
};

QVector<Call> &calls()
{
    static QVector<Call> all;
    return all;
}

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

int modeOf(const QString &path)
{
    struct stat status = {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0
        ? static_cast<int>(status.st_mode & 07777U)
        : -1;
}

bool setMode(const QString &path, int mode)
{
    return ::chmod(QFile::encodeName(path).constData(), static_cast<mode_t>(mode)) == 0;
}

ino_t inodeOf(const QString &path)
{
    struct stat status = {};
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_ino : 0;
}

} // namespace

void PynxProcessHandler::startAsync(const QString &program, const QStringList &arguments,
                                    int number, const CompletionCallback &completed,
                                    const OutputCallback &output, bool flag)
{
    calls().append({program, arguments, number, completed, static_cast<bool>(output), flag});
}

/** A request of a sequence, and its time on the clock of the test. */
struct Request
{
    qint64 atMs;
    QString name;
    bool accepted;
};
Q_DECLARE_METATYPE(QVector<Request>)

class ReporterTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void hasNoParentAndNoSignalsOrSlots();
    void handlerIsCalledWithTheArchiveAndItsFiles();
    void nameBecomesFileName_data();
    void nameBecomesFileName();
    void archivesBearTheirTimeEachItsOwn();
    void emptyUploadPathIsTheRoot();
    void eachFileThatExistsIsPackedOnce();
    void nothingIsPackedWhenNoFileExists();

    void rateLimit_data();
    void rateLimit();
    void clearedHistoryAllowsFiveMore();
    void productionClockIsMonotonic();

    void requestIsServedAfterItsDelay();
    void pendingRequestsFireIndependently();
    void destroyedReporterMakesNoReport();
    void extraFilesAreLookedForInEveryLaterReport();
    void droppedRequestLeavesNoFileBehind();

    void successRenamesTheArchive();
    void otherResultsAreFailures_data();
    void otherResultsAreFailures();
    void failedRenameIsIgnored();
    void resultsMayComeInAnyOrderAndAfterTheReporterIsGone();

    void uploadDirectoryIsCreated_data();
    void uploadDirectoryIsCreated();
    void whatIsInPlaceOfTheUploadDirectoryIsLeftUntouched_data();
    void whatIsInPlaceOfTheUploadDirectoryIsLeftUntouched();
    void uploadDirectoryThatCannotBeCreatedIsToldAtTheReport();
    void unremovableReportIsMentionedEachTime_data();
    void unremovableReportIsMentionedEachTime();

private:
    void makeReporter(const QStringList &files = QStringList());
    void request(const QStringList &extraFiles, const QString &name);
    void serveRequests() { QCoreApplication::processEvents(); }
    QString newFile(const QString &name);
    QString path(const QString &name) const { return m_directory->filePath(name); }
    QString uploadPath() const { return path(QStringLiteral("upload")); }
    QStringList uploads() const;

    QScopedPointer<QTemporaryDir> m_directory;
    QScopedPointer<Reporter> m_reporter;
    qint64 m_nowMs = 0;
};

void ReporterTest::init()
{
    calls().clear();
    m_nowMs = 1000000;
    m_directory.reset(new QTemporaryDir);
    QVERIFY(m_directory->isValid());
}

void ReporterTest::cleanup()
{
    m_reporter.reset();
    serveRequests();
}

void ReporterTest::makeReporter(const QStringList &files)
{
    m_reporter.reset(new Reporter(
        files, uploadPath(), QStringLiteral("board"), [this] { return m_nowMs; }, noDelayMs));
}

void ReporterTest::request(const QStringList &extraFiles, const QString &name)
{
    m_reporter->requestReport(extraFiles, name);
    serveRequests();
}

QString ReporterTest::newFile(const QString &name)
{
    writeFile(path(name), "content of " + name.toUtf8());
    return path(name);
}

QStringList ReporterTest::uploads() const
{
    return QDir(uploadPath()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot, QDir::Name);
}

// ---- Calls to the process handler

void ReporterTest::hasNoParentAndNoSignalsOrSlots()
{
    makeReporter();
    QVERIFY(m_reporter->parent() == nullptr);
    const QMetaObject *meta = m_reporter->metaObject();
    QCOMPARE(meta->className(), "Reporter");
    QCOMPARE(meta->methodCount(), meta->methodOffset());
}

void ReporterTest::handlerIsCalledWithTheArchiveAndItsFiles()
{
    const QString file = newFile(a);
    makeReporter();
    const qint64 before = QDateTime::currentMSecsSinceEpoch();
    m_reporter->createReport({file}, QStringLiteral("main"));
    const qint64 after = QDateTime::currentMSecsSinceEpoch();

    QCOMPARE(calls().size(), 1);
    const Call &call = calls().first();
    const QString time = call.temporaryPath().section(QLatin1Char('-'), -1);
    QCOMPARE(call.program, QStringLiteral("tar"));
    QCOMPARE(call.arguments,
             QStringList({QStringLiteral("czhf"),
                          uploadPath() + QStringLiteral("/tmp_board-main-") + time, file}));
    QCOMPARE(time, QString::number(time.toLongLong()));
    QVERIFY2(time.toLongLong() >= before && time.toLongLong() <= after, qPrintable(time));
    QCOMPARE(call.number, 1000);
    QVERIFY(call.completed);
    QVERIFY(!call.hasOutput);
    QVERIFY(call.flag);
}

void ReporterTest::nameBecomesFileName_data()
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
    row("outside the basic plane a character is two code units", "a😀b", "a__b");
    QTest::newRow("a NUL character") << QString(QChar(0)) << QStringLiteral("_");
}

void ReporterTest::nameBecomesFileName()
{
    QFETCH(QString, name);
    QFETCH(QString, part);
    const QString file = newFile(a);
    makeReporter();
    m_reporter->createReport({file}, name);

    QCOMPARE(calls().size(), 1);
    const QString temporaryName = calls().first().temporaryName();
    const QString time = temporaryName.section(QLatin1Char('-'), -1);
    QCOMPARE(temporaryName, QStringLiteral("tmp_board-") + part + QLatin1Char('-') + time);
}

void ReporterTest::archivesBearTheirTimeEachItsOwn()
{
    const QString file = newFile(a);
    makeReporter();
    StoppedWallClock clock(1000000000000);
    for (const char *name : {"a b", "a_b", "a b"})
        m_reporter->createReport({file}, QLatin1String(name));
    clock.advance(-3600000); // the system's clock is set back by an hour
    m_reporter->createReport({file}, a);
    QStringList times;
    for (const Call &call : std::as_const(calls()))
        times.append(call.temporaryPath().section(QLatin1Char('-'), -1));
    QCOMPARE(times,
             QStringList({QStringLiteral("1000000000000"), QStringLiteral("1000000000001"),
                          QStringLiteral("1000000000002"), QStringLiteral("999996400000")}));
}

void ReporterTest::emptyUploadPathIsTheRoot()
{
    const StandardErrorCapture standardError;
    m_reporter.reset(new Reporter({}, QString(), QString()));
    m_reporter->createReport({newFile(a)}, QStringLiteral("x"));
    QCOMPARE(calls().size(), 1);
    QVERIFY(calls().first().temporaryPath().startsWith(QStringLiteral("/tmp_-x-")));
    QCOMPARE(standardError.text(), uploadPathMessage);
}

void ReporterTest::eachFileThatExistsIsPackedOnce()
{
    QStringList files = {newFile(QStringLiteral("two words")), newFile(QStringLiteral("-a")),
                         newFile(QStringLiteral("quote'\"")),  newFile(QStringLiteral("line\nend")),
                         newFile(QStringLiteral("*")),         m_directory->path()};
    const QString link = path(QStringLiteral("link"));
    const QString dangling = path(QStringLiteral("dangling"));
    const QString missing = path(QStringLiteral("missing"));
    QVERIFY(QFile::link(files.first(), link));
    QVERIFY(QFile::link(missing, dangling));
    files += {link, m_directory->path() + QStringLiteral("/.//two words")};
    makeReporter();
    m_reporter->createReport(files + QStringList{missing, QString(), dangling} + files, a);
    QCOMPARE(calls().size(), 1);
    QCOMPARE(calls().first().files(), sorted(files));
}

void ReporterTest::nothingIsPackedWhenNoFileExists()
{
    makeReporter();
    const StandardErrorCapture standardError;
    m_reporter->createReport(QStringList(), a);
    m_reporter->createReport({QString(), path(QStringLiteral("missing"))}, a);
    QCOMPARE(calls().size(), 0);
    QCOMPARE(uploads(), QStringList());
    QCOMPARE(standardError.text(), QByteArray());

    QVERIFY(setMode(uploadPath(), 0755)); // the directory is checked before the files
    m_reporter->createReport(QStringList(), a);
    QCOMPARE(calls().size(), 0);
    QCOMPARE(standardError.text(), uploadPathMessage);
}

// ---- The rate limit

void ReporterTest::rateLimit_data()
{
    QTest::addColumn<QVector<Request>>("requests");

    QTest::newRow("six of one name, each 31 s apart: the sixth is dropped")
        << QVector<Request>{{31000, a, true},  {62000, a, true},  {93000, a, true},
                            {124000, a, true}, {155000, a, true}, {186000, a, false}};
    QTest::newRow("the sixth is dropped however late it comes") << QVector<Request>{
        {30000, a, true},  {60000, a, true},  {90000, a, true},
        {120000, a, true}, {150000, a, true}, {Q_INT64_C(1000) * 86400 * 365, a, false}};
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
        << QVector<Request>{{0, a, false}, {29999, a, false}, {30000, a, true}};
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

void ReporterTest::rateLimit()
{
    QFETCH(QVector<Request>, requests);
    makeReporter({newFile(a)});
    QVector<bool> accepted;
    QVector<bool> expected;
    const StandardErrorCapture standardError;
    for (const Request &each : std::as_const(requests)) {
        calls().clear();
        m_nowMs = each.atMs;
        request({}, each.name);
        accepted.append(calls().size() == 1);
        expected.append(each.accepted);
    }
    QCOMPARE(accepted, expected);
    QCOMPARE(standardError.text(), QByteArray());
}

void ReporterTest::clearedHistoryAllowsFiveMore()
{
    makeReporter({newFile(a)});
    const auto requestSix = [this] {
        for (int i = 0; i < 6; ++i) {
            request({}, a);
            m_nowMs += 30000;
        }
    };
    requestSix();
    QCOMPARE(calls().size(), 5);
    m_reporter->clearHistory();
    requestSix();
    QCOMPARE(calls().size(), 10);

    // Neither the count nor the time of the last report is kept.
    m_reporter->clearHistory();
    request({}, a);
    m_reporter->clearHistory();
    request({}, a);
    QCOMPARE(calls().size(), 12);
}

void ReporterTest::productionClockIsMonotonic()
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

// ---- Requests and their files

void ReporterTest::requestIsServedAfterItsDelay()
{
    makeReporter({newFile(a)});
    m_reporter->requestReport({}, a);
    QCOMPARE(calls().size(), 0);
    serveRequests();
    QCOMPARE(calls().size(), 1);
}

void ReporterTest::pendingRequestsFireIndependently()
{
    const QStringList files = {newFile(a), newFile(b), newFile(c)};
    makeReporter();
    for (const QString &name : {a, b, c})
        m_reporter->requestReport({path(name)}, name);
    serveRequests();

    // The reporter takes over a file when the delay of its request is over, not earlier.
    QCOMPARE(calls().size(), 3);
    for (int i = 0; i < 3; ++i) {
        QCOMPARE(calls().at(i).files(), files.mid(0, i + 1));
        QCOMPARE(calls().at(i).temporaryName().section(QLatin1Char('-'), 1, 1),
                 QFileInfo(files.at(i)).fileName());
    }
}

void ReporterTest::destroyedReporterMakesNoReport()
{
    makeReporter({newFile(a)});
    m_reporter->requestReport({newFile(b)}, a);
    m_reporter.reset();
    serveRequests();
    QCOMPARE(calls().size(), 0);
}

void ReporterTest::extraFilesAreLookedForInEveryLaterReport()
{
    const QString configured = newFile(QStringLiteral("configured"));
    const QString extra = newFile(QStringLiteral("extra"));
    const QString late = path(QStringLiteral("late"));
    makeReporter({configured});
    request({extra, late}, a);
    newFile(QStringLiteral("late"));
    request({}, b);
    QVERIFY(QFile::remove(extra));
    m_reporter->clearHistory(); // this history is not that of the files
    request({QString()}, c);    // the request of a marker without a file

    QCOMPARE(calls().size(), 3);
    QCOMPARE(calls().at(0).files(), sorted({configured, extra}));
    QCOMPARE(calls().at(1).files(), sorted({configured, extra, late}));
    QCOMPARE(calls().at(2).files(), sorted({configured, late}));
}

void ReporterTest::droppedRequestLeavesNoFileBehind()
{
    const QString configured = newFile(QStringLiteral("configured"));
    makeReporter({configured});
    request({}, a);
    request({newFile(QStringLiteral("dropped"))}, a);
    request({}, b);
    QCOMPARE(calls().size(), 2);
    QCOMPARE(calls().at(1).files(), QStringList(configured));
}

// ---- Results

void ReporterTest::successRenamesTheArchive()
{
    const QString file = newFile(a);
    makeReporter();
    const StandardErrorCapture standardError;
    m_reporter->createReport({file}, a);
    QCOMPARE(calls().size(), 1);
    const Call call = calls().first();
    QVERIFY(QFile::copy(file, call.temporaryPath()));
    const ino_t inode = inodeOf(call.temporaryPath());

    call.completed({0});
    QCOMPARE(uploads(), QStringList{call.archiveName()});
    // It is the same file, renamed, so that the final name never shows a part of an archive.
    QCOMPARE(inodeOf(uploadPath() + QLatin1Char('/') + call.archiveName()), inode);
    QCOMPARE(standardError.text(), QByteArray());
}

void ReporterTest::otherResultsAreFailures_data()
{
    QTest::addColumn<int>("resultCode");

    QTest::newRow("a file changed as it was read") << 1;
    QTest::newRow("tar's fatal error") << 2;
    QTest::newRow("could not start, or crashed") << -1;
}

void ReporterTest::otherResultsAreFailures()
{
    QFETCH(int, resultCode);
    const QString file = newFile(a);
    makeReporter();
    const StandardErrorCapture standardError;
    m_reporter->createReport({file}, a);
    QCOMPARE(calls().size(), 1);
    QVERIFY(QFile::copy(file, calls().first().temporaryPath()));

    calls().first().completed({resultCode});
    QCOMPARE(uploads(), QStringList{calls().first().temporaryName()});
    QCOMPARE(standardError.text(), failureMessage);
}

void ReporterTest::failedRenameIsIgnored()
{
    const QString file = newFile(a);
    makeReporter();
    const StandardErrorCapture standardError;
    m_reporter->createReport({file}, a);
    QCOMPARE(calls().size(), 1);
    const Call call = calls().first();
    call.completed({0}); // without a temporary file
    QCOMPARE(uploads(), QStringList());

    // An archive that exists already is not replaced.
    QVERIFY(QFile::copy(file, call.temporaryPath()));
    writeFile(uploadPath() + QLatin1Char('/') + call.archiveName(), "earlier");
    call.completed({0});
    QCOMPARE(uploads(), QStringList({call.archiveName(), call.temporaryName()}));
    QCOMPARE(readFile(uploadPath() + QLatin1Char('/') + call.archiveName()), QByteArray("earlier"));
    QCOMPARE(standardError.text(), QByteArray());
}

void ReporterTest::resultsMayComeInAnyOrderAndAfterTheReporterIsGone()
{
    const QString file = newFile(a);
    makeReporter();
    const StandardErrorCapture standardError;
    for (const QString &name : {a, b, c})
        m_reporter->createReport({file}, name);
    m_reporter.reset();
    QCOMPARE(calls().size(), 3);
    for (const Call &call : std::as_const(calls()))
        QVERIFY(QFile::copy(file, call.temporaryPath()));

    calls().at(2).completed({0});
    calls().at(0).completed({2});
    calls().at(1).completed({0});
    QCOMPARE(uploads(),
             QStringList({calls().at(1).archiveName(), calls().at(2).archiveName(),
                          calls().at(0).temporaryName()}));
    QCOMPARE(standardError.text(), failureMessage);
}

// ---- The upload directory

void ReporterTest::uploadDirectoryIsCreated_data()
{
    QTest::addColumn<QString>("directory");
    QTest::addColumn<int>("mask");
    QTest::addColumn<int>("mode");

    const QString one = QStringLiteral("upload");
    QTest::newRow("usual mask") << one << 0022 << 0777;
    QTest::newRow("private mask") << one << 0077 << 0722;
    QTest::newRow("no mask") << one << 0000 << 0777;
    QTest::newRow("with its parents") << QStringLiteral("a/b/c/upload") << 0022 << 0777;
    QTest::newRow("with a slash at the end") << QStringLiteral("a/upload/") << 0022 << 0777;
}

void ReporterTest::uploadDirectoryIsCreated()
{
    QFETCH(QString, directory);
    QFETCH(int, mask);
    QFETCH(int, mode);
    const StandardErrorCapture standardError;
    const mode_t previous = ::umask(static_cast<mode_t>(mask));
    m_reporter.reset(new Reporter({}, path(directory), QStringLiteral("board")));
    ::umask(previous);

    QVERIFY(QFileInfo(path(directory)).isDir());
    QCOMPARE(modeOf(path(directory)), mode);
    // The parent directories keep the mode of their creation.
    if (directory.startsWith(QStringLiteral("a/")))
        QCOMPARE(modeOf(path(a)), 0755);
    QCOMPARE(standardError.text(), QByteArray());
}

void ReporterTest::whatIsInPlaceOfTheUploadDirectoryIsLeftUntouched_data()
{
    QTest::addColumn<bool>("isDirectory");
    QTest::addColumn<int>("mode");

    QTest::newRow("a private directory") << true << 0700;
    QTest::newRow("a usual directory") << true << 0755;
    QTest::newRow("a directory that allows nothing") << true << 0000;
    QTest::newRow("a file") << false << 0644;
}

void ReporterTest::whatIsInPlaceOfTheUploadDirectoryIsLeftUntouched()
{
    QFETCH(bool, isDirectory);
    QFETCH(int, mode);
    if (isDirectory)
        QVERIFY(QDir().mkpath(uploadPath()));
    else
        writeFile(uploadPath(), "no directory");
    QVERIFY(setMode(uploadPath(), mode));
    const StandardErrorCapture standardError;
    makeReporter();
    QCOMPARE(modeOf(uploadPath()), mode);
    QCOMPARE(QFileInfo(uploadPath()).isDir(), isDirectory);
    QCOMPARE(standardError.text(), QByteArray());
}

void ReporterTest::uploadDirectoryThatCannotBeCreatedIsToldAtTheReport()
{
    const QString file = newFile(a);
    const StandardErrorCapture standardError;
    m_reporter.reset(new Reporter({}, file + QStringLiteral("/deep"), QString()));
    QCOMPARE(standardError.text(), QByteArray());
    m_reporter->createReport({file}, a);
    QCOMPARE(standardError.text(), uploadPathMessage);
    QCOMPARE(calls().size(), 1);
}

void ReporterTest::unremovableReportIsMentionedEachTime_data()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<bool>("mentioned");

    QTest::newRow("open to others alone") << 0702 << false;
    QTest::newRow("sticky and open to all") << 01777 << false;
    QTest::newRow("open to the group") << 0775 << true;
    QTest::newRow("gone") << -1 << true;
}

void ReporterTest::unremovableReportIsMentionedEachTime()
{
    QFETCH(int, mode);
    QFETCH(bool, mentioned);
    const QString file = newFile(a);
    makeReporter();
    QVERIFY(mode == -1 ? QDir().rmdir(uploadPath()) : setMode(uploadPath(), mode));
    const StandardErrorCapture standardError;
    const QByteArray message = mentioned ? uploadPathMessage : QByteArray();
    m_reporter->createReport({file}, a);
    QCOMPARE(standardError.text(), message);
    m_reporter->createReport({file}, b);
    QCOMPARE(standardError.text(), message + message);
    QCOMPARE(calls().size(), 2); // the reports are made in any case
}

QTEST_GUILESS_MAIN(ReporterTest)
#include "tst_reporter.moc"
