// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
//
// What a request leaves in the upload directory, with the real `tar` and with stand-ins for it.
#include "processresources.h"
#include "report/reporter.h"
#include "smallfilesystem.h"
#include "standarderrorcapture.h"
#include "standintools.h"

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTextCodec>
#include <QtTest>

#include <array>

#include <sys/inotify.h>
#include <unistd.h>

namespace {

constexpr int eventTimeoutMs = 60000;
constexpr int shortDelayMs = 1;

QByteArray uploadPathMessage()
{
    return QByteArrayLiteral("Upload path doesn't allow non ROOT user to remove the report\n");
}

QByteArray failureMessage()
{
    return QByteArrayLiteral("Failed to generate report\n");
}

// The output of the real `tar`, run with `arguments`; null when it fails.
QByteArray realTar(const QStringList &arguments)
{
    QProcess tar;
    tar.start(QStringLiteral("tar"), arguments);
    const bool ended = tar.waitForFinished(eventTimeoutMs);
    if (!ended || tar.exitStatus() != QProcess::NormalExit || tar.exitCode() != 0)
        return QByteArray();
    return tar.readAllStandardOutput();
}

// The paths in an archive, sorted; tar takes the leading slash away. None for what is no archive.
QStringList membersOf(const QString &archive)
{
    QStringList members;
    const QByteArray listing =
        realTar({QStringLiteral("tzf"), archive, QStringLiteral("--quoting-style=literal")});
    const QList<QByteArray> lines = listing.split('\n');
    for (const QByteArray &line : lines) {
        if (!line.isEmpty())
            members.append(QLatin1Char('/') + QString::fromUtf8(line));
    }
    members.sort();
    return members;
}

// What unpacking an archive gives for `path`; null when it gives no such file.
QByteArray contentIn(const QString &archive, const QString &path)
{
    const QTemporaryDir directory;
    realTar({QStringLiteral("xzf"), archive, QStringLiteral("-C"), directory.path()});
    const QString unpacked = directory.path() + path;
    QFile file(unpacked);
    if (QFileInfo(unpacked).isSymLink() || !file.open(QIODevice::ReadOnly))
        return QByteArray();
    return file.readAll();
}

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

} // namespace

class ReporterTest : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void archiveHoldsTheFiles();
    void directoryIsPackedWithWhatItHolds();
    void everyFileIsPackedOnce();
    void symbolicLinksAreFollowed();
    void missingExtraFileLeavesTheConfiguredOnes();
    void extraFileStaysInLaterArchives();
    void archiveHasTheNameOnAnyDevice_data();
    void archiveHasTheNameOnAnyDevice();
    void warningsOfTarStayOutOfStandardError();

    void tarIsCalledWithTheFiles();
    void onlyTheTemporaryFileIsThereWhileTarRuns();
    void archiveComesIntoBeingByRename();
    void archivesAreMadeSideBySide();
    void tarRunsOnWhenTheReporterIsGone();

    void nothingIsThereWhenNoFileExists();
    void failingTarLeavesTheTemporaryFile_data();
    void failingTarLeavesTheTemporaryFile();
    void missingTarIsAFailure();
    void fileThatGrowsWhileItIsReadIsAFailure();
    void tooLongNameIsAFailure();
    void missingUploadDirectoryIsAFailure();
    void reportIsMadeInADirectoryOthersCannotWriteTo();
    void fullUploadDirectoryIsAFailure();
    void readOnlyUploadDirectoryIsAFailure();
    void uploadDirectoryThatCannotBeCreatedIsAFailure();

    void nothingIsLeftBehind_data();
    void nothingIsLeftBehind();

private:
    void makeReporter(const QStringList &files = QStringList());
    void request(const QStringList &extraFiles, const QString &name);
    QString writeFile(const QString &name, const QByteArray &content);
    void addTar(const QString &script);
    QString filePath(const QString &name) const { return m_directory->filePath(name); }
    QString uploadPath() const { return filePath(QStringLiteral("upload")); }
    QStringList uploads() const;
    QString archive(int index) const;

    QScopedPointer<QTemporaryDir> m_directory;
    QScopedPointer<StandInTools> m_tools;
    QScopedPointer<Reporter> m_reporter;
    qint64 m_nowMs = 0;
};

void ReporterTest::init()
{
    m_nowMs = 1000000;
    m_directory.reset(new QTemporaryDir);
    QVERIFY(m_directory->isValid());
}

void ReporterTest::cleanup()
{
    waitForTimersAndChildren();
    m_reporter.reset();
    m_tools.reset();
}

void ReporterTest::makeReporter(const QStringList &files)
{
    m_reporter.reset(new Reporter(
        files, uploadPath(), QStringLiteral("board"), [this] { return m_nowMs; }, shortDelayMs));
}

// Requests a report and waits until it is made.
void ReporterTest::request(const QStringList &extraFiles, const QString &name)
{
    m_reporter->requestReport(extraFiles, name);
    waitForTimersAndChildren();
}

QString ReporterTest::writeFile(const QString &name, const QByteArray &content)
{
    QFile file(filePath(name));
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        qFatal("cannot write a file");
    return file.fileName();
}

// A stand-in for `tar`; its script calls the real one as "real_tar".
void ReporterTest::addTar(const QString &script)
{
    const QString path = QString::fromLocal8Bit(qgetenv("PATH"));
    m_tools.reset(new StandInTools);
    m_tools->add(QStringLiteral("tar"),
                 QStringLiteral("PATH='%1'\nreal_tar() { command tar \"$@\"; }\n").arg(path)
                     + script);
}

QStringList ReporterTest::uploads() const
{
    return QDir(uploadPath())
        .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name);
}

QString ReporterTest::archive(int index) const
{
    const QString name = uploads().value(index);
    return name.endsWith(QStringLiteral(".tar.gz")) ? uploadPath() + QLatin1Char('/') + name
                                                    : QString();
}

void ReporterTest::archiveHoldsTheFiles()
{
    QByteArray numbers;
    for (int i = 0; i < 100000; ++i)
        numbers += QByteArray::number(i) + '\n';
    const QString big = writeFile(QStringLiteral("big.log"), numbers);
    const QString empty = writeFile(QStringLiteral("empty.log"), QByteArray());
    const QString spaced = writeFile(QStringLiteral("with blank.log"), "text");
    makeReporter({big});
    const StandardErrorCapture standardError;
    request({empty, spaced}, QStringLiteral("disk full!"));

    QCOMPARE(uploads().size(), 1);
    QVERIFY2(
        QRegExp(QStringLiteral("board-disk_full_-[0-9]+\\.tar\\.gz")).exactMatch(uploads().at(0)),
        qPrintable(uploads().at(0)));
    QCOMPARE(membersOf(archive(0)), sorted({big, empty, spaced}));
    QVERIFY(contentIn(archive(0), big) == numbers);
    QCOMPARE(contentIn(archive(0), spaced), QByteArray("text"));
    QCOMPARE(standardError.text(), QByteArray());
}

void ReporterTest::directoryIsPackedWithWhatItHolds()
{
    QVERIFY(QDir().mkpath(filePath(QStringLiteral("logs/old"))));
    const QString file = writeFile(QStringLiteral("logs/old/a.log"), "old");
    makeReporter({filePath(QStringLiteral("logs"))});
    request(QStringList(), QStringLiteral("a"));
    QCOMPARE(uploads().size(), 1);
    QCOMPARE(contentIn(archive(0), file), QByteArray("old"));
}

void ReporterTest::everyFileIsPackedOnce()
{
    const QString first = writeFile(QStringLiteral("first"), "1");
    const QString second = writeFile(QStringLiteral("second"), "2");
    makeReporter({first, second, first});
    request({second, first}, QStringLiteral("a"));
    request({second}, QStringLiteral("b"));
    QCOMPARE(uploads().size(), 2);
    QCOMPARE(membersOf(archive(0)), sorted({first, second}));
    QCOMPARE(membersOf(archive(1)), sorted({first, second}));
}

void ReporterTest::symbolicLinksAreFollowed()
{
    const QString file = writeFile(QStringLiteral("file"), "behind the link");
    const QString link = filePath(QStringLiteral("link"));
    const QString chain = filePath(QStringLiteral("chain"));
    QVERIFY(QFile::link(file, link));
    QVERIFY(QFile::link(link, chain));
    makeReporter({chain, link});
    request(QStringList(), QStringLiteral("a"));
    QCOMPARE(uploads().size(), 1);
    QCOMPARE(membersOf(archive(0)), sorted({chain, link}));
    QCOMPARE(contentIn(archive(0), chain), QByteArray("behind the link"));
    QCOMPARE(contentIn(archive(0), link), QByteArray("behind the link"));
}

void ReporterTest::missingExtraFileLeavesTheConfiguredOnes()
{
    const QString configured = writeFile(QStringLiteral("configured"), "x");
    const QString late = filePath(QStringLiteral("late"));
    makeReporter({configured});
    request({late}, QStringLiteral("a"));
    writeFile(QStringLiteral("late"), "y");
    request(QStringList(), QStringLiteral("b"));
    QCOMPARE(uploads().size(), 2);
    QCOMPARE(membersOf(archive(0)), sorted({configured}));
    QCOMPARE(membersOf(archive(1)), sorted({configured, late}));
}

void ReporterTest::extraFileStaysInLaterArchives()
{
    const QString extra = writeFile(QStringLiteral("extra"), "x");
    const QString other = writeFile(QStringLiteral("other"), "y");
    makeReporter();
    request({extra}, QStringLiteral("a"));
    request({other}, QStringLiteral("b"));
    QVERIFY(QFile::remove(extra));
    request(QStringList(), QStringLiteral("c"));
    QCOMPARE(uploads().size(), 3);
    QCOMPARE(membersOf(archive(0)), sorted({extra}));
    QCOMPARE(membersOf(archive(1)), sorted({extra, other}));
    QCOMPARE(membersOf(archive(2)), sorted({other}));
}

void ReporterTest::archiveHasTheNameOnAnyDevice_data()
{
    QTest::addColumn<QByteArray>("codec");
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("part"); // as the device's encoding can say it

    const QString latin = QStringLiteral("Größe");
    const QString kanji = QStringLiteral("日本");
    QTest::newRow("UTF-8, Latin letters") << QByteArray("UTF-8") << latin << latin;
    QTest::newRow("UTF-8, other letters") << QByteArray("UTF-8") << kanji << kanji;
    QTest::newRow("ASCII letters in an ASCII locale")
        << QByteArray("US-ASCII") << QStringLiteral("main") << QStringLiteral("main");
    QTest::newRow("Latin letters in a Latin locale") << QByteArray("ISO-8859-1") << latin << latin;
    QTest::newRow("other letters in a Latin locale")
        << QByteArray("ISO-8859-1") << kanji << QStringLiteral("??");
}

void ReporterTest::archiveHasTheNameOnAnyDevice()
{
    QFETCH(QByteArray, codec);
    QFETCH(QString, name);
    QFETCH(QString, part);
    const QString file = writeFile(QStringLiteral("a.log"), "text");
    makeReporter({file});
    const StandardErrorCapture standardError;
    QTextCodec *const previous = QTextCodec::codecForLocale();
    QTextCodec *const locale = QTextCodec::codecForName(codec);
    QVERIFY(locale != nullptr);
    QTextCodec::setCodecForLocale(locale);
    request(QStringList(), name);
    const QStringList names = uploads();
    const QStringList members = membersOf(archive(0));
    // Only in the encoding it was made in can the file be found again and removed.
    const bool removed = QDir(uploadPath()).removeRecursively();
    QTextCodec::setCodecForLocale(previous);

    QVERIFY(removed);
    QCOMPARE(standardError.text(), QByteArray());
    QCOMPARE(names.size(), 1);
    QVERIFY2(names.first().startsWith(QStringLiteral("board-") + part + QLatin1Char('-')),
             qPrintable(names.first()));
    QCOMPARE(members, sorted({file}));
}

// The real one says "Removing leading `/' from member names".
void ReporterTest::warningsOfTarStayOutOfStandardError()
{
    makeReporter({writeFile(QStringLiteral("a.log"), "text")});
    addTar(QStringLiteral("echo 'tar: something to say' >&2\necho output\nreal_tar \"$@\""));
    const StandardErrorCapture standardError;
    request(QStringList(), QStringLiteral("a"));
    QCOMPARE(uploads().size(), 1);
    QVERIFY(!archive(0).isEmpty());
    QCOMPARE(standardError.text(), QByteArray());
}

void ReporterTest::tarIsCalledWithTheFiles()
{
    const QString first = writeFile(QStringLiteral("first"), "1");
    const QString second = writeFile(QStringLiteral("second"), "2");
    makeReporter({first, filePath(QStringLiteral("missing"))});
    addTar(QString());
    request({second, first}, QStringLiteral("a b"));
    QCOMPARE(m_tools->calls().size(), 1);
    QStringList words = m_tools->calls().first().split(QLatin1Char('|'));
    QCOMPARE(words.size(), 5);
    QCOMPARE(words.at(0), QStringLiteral("tar"));
    QCOMPARE(words.at(1), QStringLiteral("czhf"));
    QVERIFY2(QRegExp(QRegExp::escape(uploadPath()) + QStringLiteral("/tmp_board-a_b-[0-9]+"))
                 .exactMatch(words.at(2)),
             qPrintable(words.at(2)));
    QCOMPARE(sorted(words.mid(3)), sorted({first, second}));
}

void ReporterTest::onlyTheTemporaryFileIsThereWhileTarRuns()
{
    const QString packed = filePath(QStringLiteral("packed"));
    const QString proceed = filePath(QStringLiteral("proceed"));
    QCOMPARE(QProcess::execute(QStringLiteral("mkfifo"), {proceed}), 0);
    const QString file = writeFile(QStringLiteral("a.log"), "text");
    makeReporter({file});
    // The archive is complete, but tar has not ended until somebody opens the pipe.
    addTar(
        QStringLiteral("real_tar \"$@\"\n: > '%1'\nread line < '%2'\nexit 0").arg(packed, proceed));
    m_reporter->requestReport(QStringList(), QStringLiteral("a"));
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(packed), eventTimeoutMs);
    const QStringList meanwhile = uploads();

    QFile pipe(proceed);
    QVERIFY(pipe.open(QIODevice::WriteOnly));
    pipe.write("go\n");
    pipe.close();
    waitForTimersAndChildren();
    m_tools.reset();

    QCOMPARE(meanwhile.size(), 1);
    QVERIFY2(QRegExp(QStringLiteral("tmp_board-a-[0-9]+")).exactMatch(meanwhile.first()),
             qPrintable(meanwhile.first()));
    QCOMPARE(uploads(), QStringList{meanwhile.first().mid(4) + QStringLiteral(".tar.gz")});
    QCOMPARE(membersOf(archive(0)), sorted({file}));
}

void ReporterTest::archiveComesIntoBeingByRename()
{
    makeReporter({writeFile(QStringLiteral("a.log"), QByteArray(1000000, 'x'))});
    const int watcher = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    QVERIFY(watcher != -1);
    QVERIFY(::inotify_add_watch(watcher, QFile::encodeName(uploadPath()).constData(),
                                IN_CREATE | IN_MOVED_TO | IN_MODIFY | IN_DELETE)
            != -1);
    request(QStringList(), QStringLiteral("a"));

    alignas(inotify_event) std::array<char, 65536> buffer = {};
    const ssize_t size = ::read(watcher, buffer.data(), buffer.size());
    ::close(watcher);
    QVector<quint32> archiveEvents;
    ssize_t offset = 0;
    while (offset < size) {
        const auto *event = reinterpret_cast<const inotify_event *>(&buffer.at(offset));
        if (QByteArray(event->name).endsWith(".tar.gz"))
            archiveEvents.append(event->mask);
        offset += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
    QCOMPARE(archiveEvents, QVector<quint32>{IN_MOVED_TO});
}

void ReporterTest::archivesAreMadeSideBySide()
{
    constexpr int count = 5;
    const QString started = filePath(QStringLiteral("started"));
    const QString file = writeFile(QStringLiteral("a.log"), QByteArray(100000, 'x'));
    makeReporter({file});
    // None goes on before all have been started.
    addTar(QStringLiteral("echo x >> '%1'\n"
                          "while [ $(wc -l < '%1') -lt %2 ]; do sleep 0.01; done\n"
                          "real_tar \"$@\"")
               .arg(started)
               .arg(count));
    const StandardErrorCapture standardError;
    for (int i = 0; i < count; ++i)
        m_reporter->requestReport(QStringList(), QStringLiteral("name%1").arg(i));
    waitForTimersAndChildren();
    m_tools.reset();
    QCOMPARE(uploads().size(), count);
    for (int i = 0; i < count; ++i)
        QCOMPARE(membersOf(archive(i)), sorted({file}));
    QCOMPARE(standardError.text(), QByteArray());
}

void ReporterTest::tarRunsOnWhenTheReporterIsGone()
{
    const QString file = writeFile(QStringLiteral("a.log"), "text");
    makeReporter();
    m_reporter->createReport({file}, QStringLiteral("a"));
    m_reporter.reset();
    waitForTimersAndChildren();
    QCOMPARE(uploads().size(), 1);
    QCOMPARE(membersOf(archive(0)), sorted({file}));
}

void ReporterTest::nothingIsThereWhenNoFileExists()
{
    makeReporter({filePath(QStringLiteral("missing"))});
    addTar(QString());
    const StandardErrorCapture standardError;
    request({QString()}, QStringLiteral("a"));
    QCOMPARE(m_tools->calls(), QStringList());
    QCOMPARE(uploads(), QStringList());
    QCOMPARE(standardError.text(), QByteArray());
}

void ReporterTest::failingTarLeavesTheTemporaryFile_data()
{
    QTest::addColumn<QString>("end");

    QTest::newRow("a file changed as it was read") << QStringLiteral("exit 1");
    QTest::newRow("fatal error") << QStringLiteral("exit 2");
    QTest::newRow("compressor not found") << QStringLiteral("exit 127");
    QTest::newRow("largest exit code") << QStringLiteral("exit 255");
    QTest::newRow("killed") << QStringLiteral("kill -KILL $$");
    QTest::newRow("crashed") << QStringLiteral("kill -SEGV $$");
}

void ReporterTest::failingTarLeavesTheTemporaryFile()
{
    QFETCH(QString, end);
    makeReporter({writeFile(QStringLiteral("a.log"), "text")});
    addTar(QStringLiteral("echo half > \"$2\"\necho 'tar: no more' >&2\n") + end);
    const StandardErrorCapture standardError;
    request(QStringList(), QStringLiteral("a"));
    QCOMPARE(standardError.text(), failureMessage());
    QCOMPARE(uploads().size(), 1);
    QVERIFY2(QRegExp(QStringLiteral("tmp_board-a-[0-9]+")).exactMatch(uploads().at(0)),
             qPrintable(uploads().at(0)));
    QFile temporary(uploadPath() + QLatin1Char('/') + uploads().at(0));
    QVERIFY(temporary.open(QIODevice::ReadOnly));
    QCOMPARE(temporary.readAll(), QByteArray("half\n"));
}

void ReporterTest::missingTarIsAFailure()
{
    makeReporter({writeFile(QStringLiteral("a.log"), "text")});
    m_tools.reset(new StandInTools);
    const StandardErrorCapture standardError;
    request(QStringList(), QStringLiteral("a"));
    QCOMPARE(standardError.text(), failureMessage());
    QCOMPARE(uploads(), QStringList());
}

// Tar then exits with 1, though its archive is whole: a warning for others, a failure here.
void ReporterTest::fileThatGrowsWhileItIsReadIsAFailure()
{
    const QString file = writeFile(QStringLiteral("a.log"), QByteArray(16 * 1024 * 1024, 'x'));
    makeReporter({file});
    // Fed by a writer that starts before tar does and goes on until it has ended.
    addTar(QStringLiteral("(while :; do echo x >> '%1'; done) &\n"
                          "writer=$!\n"
                          "real_tar \"$@\"\n"
                          "code=$?\n"
                          "kill $writer\n"
                          "exit $code")
               .arg(file));
    const StandardErrorCapture standardError;
    request(QStringList(), QStringLiteral("a"));
    QCOMPARE(standardError.text(), failureMessage());
    QCOMPARE(uploads().size(), 1);
    QVERIFY(uploads().at(0).startsWith(QStringLiteral("tmp_board-a-")));
}

void ReporterTest::tooLongNameIsAFailure()
{
    makeReporter({writeFile(QStringLiteral("a.log"), "text")});
    const StandardErrorCapture standardError;
    request(QStringList(), QString(300, QLatin1Char('n')));
    QCOMPARE(standardError.text(), failureMessage());
    QCOMPARE(uploads(), QStringList());
}

void ReporterTest::missingUploadDirectoryIsAFailure()
{
    const QString file = writeFile(QStringLiteral("a.log"), "text");
    makeReporter({file});
    QVERIFY(QDir().rmdir(uploadPath()));
    const StandardErrorCapture standardError;
    request(QStringList(), QStringLiteral("a"));
    QCOMPARE(standardError.text(), uploadPathMessage() + failureMessage());
    QVERIFY(!QFile::exists(uploadPath()));
}

void ReporterTest::reportIsMadeInADirectoryOthersCannotWriteTo()
{
    const QString file = writeFile(QStringLiteral("a.log"), "text");
    QVERIFY(QDir().mkpath(uploadPath()));
    QVERIFY(QFile::setPermissions(
        uploadPath(), QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner));
    makeReporter({file});
    const StandardErrorCapture standardError;
    request(QStringList(), QStringLiteral("a"));
    request(QStringList(), QStringLiteral("b"));
    QCOMPARE(standardError.text(), uploadPathMessage() + uploadPathMessage());
    QCOMPARE(uploads().size(), 2);
    QCOMPARE(membersOf(archive(0)), sorted({file}));
    QCOMPARE(membersOf(archive(1)), sorted({file}));
}

void ReporterTest::fullUploadDirectoryIsAFailure()
{
    // More than the file system holds, and no compressor makes it smaller.
    QFile random(QStringLiteral("/dev/urandom"));
    QVERIFY(random.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
    const QString big = writeFile(QStringLiteral("big"), random.read(1000000));
    const QString small = writeFile(QStringLiteral("small"), "text");
    makeReporter();
    const SmallFileSystem fileSystem(uploadPath());
    if (!fileSystem.isMounted())
        QSKIP("needs the right to mount a file system");
    const StandardErrorCapture standardError;
    m_reporter->createReport({big, small}, QStringLiteral("a"));
    waitForTimersAndChildren();
    m_reporter->createReport({small}, QStringLiteral("b"));
    waitForTimersAndChildren();
    QCOMPARE(standardError.text(), failureMessage() + failureMessage());
    QCOMPARE(uploads().size(), 2);
    QVERIFY(uploads().at(0).startsWith(QStringLiteral("tmp_board-a-")));
    QVERIFY(uploads().at(1).startsWith(QStringLiteral("tmp_board-b-")));

    // With space again the next report is whole.
    QVERIFY(QFile::remove(uploadPath() + QLatin1Char('/') + uploads().at(0)));
    m_reporter->createReport({small}, QStringLiteral("c"));
    waitForTimersAndChildren();
    QCOMPARE(standardError.text(), failureMessage() + failureMessage());
    QCOMPARE(membersOf(archive(0)), sorted({small}));
}

void ReporterTest::readOnlyUploadDirectoryIsAFailure()
{
    const QString file = writeFile(QStringLiteral("a.log"), "text");
    makeReporter({file});
    SmallFileSystem fileSystem(uploadPath());
    if (!fileSystem.isMounted())
        QSKIP("needs the right to mount a file system");
    fileSystem.makeReadOnly();
    const StandardErrorCapture standardError;
    request(QStringList(), QStringLiteral("a"));
    QCOMPARE(standardError.text(), failureMessage());
    QCOMPARE(uploads(), QStringList());
}

void ReporterTest::uploadDirectoryThatCannotBeCreatedIsAFailure()
{
    const QString file = writeFile(QStringLiteral("a.log"), "text");
    const QString inTheWay = writeFile(QStringLiteral("upload"), "no directory");
    const StandardErrorCapture standardError;
    m_reporter.reset(new Reporter(
        {file}, inTheWay + QStringLiteral("/deep"), QStringLiteral("board"),
        [this] { return m_nowMs; }, shortDelayMs));
    QCOMPARE(standardError.text(), QByteArray());
    request(QStringList(), QStringLiteral("a"));
    QCOMPARE(standardError.text(), uploadPathMessage() + failureMessage());
}

void ReporterTest::nothingIsLeftBehind_data()
{
    QTest::addColumn<QString>("tool");
    QTest::addColumn<int>("requests");

    QTest::newRow("tar") << QStringLiteral("tar") << 100;
    QTest::newRow("a tar that does nothing, for the number") << QStringLiteral("true") << 2000;
    QTest::newRow("a tar that fails") << QStringLiteral("false") << 100;
    QTest::newRow("no tar") << QString() << 500;
}

void ReporterTest::nothingIsLeftBehind()
{
    QFETCH(QString, tool);
    QFETCH(int, requests);
    constexpr int batch = 20;
    const QString file = writeFile(QStringLiteral("a.log"), "text");
    const bool real = tool == QStringLiteral("tar");
    if (!real) {
        const QString path = QStandardPaths::findExecutable(tool);
        m_tools.reset(new StandInTools);
        const QString directory = QString::fromLocal8Bit(qgetenv("PATH"));
        if (!tool.isEmpty())
            QVERIFY(QFile::link(path, directory + QStringLiteral("/tar")));
    }
    makeReporter({file});
    const StandardErrorCapture standardError;
    int made = 0;
    const auto make = [this, &made, file](int count) {
        for (int i = 0; i < count; ++i) {
            if (i % (5 * batch) == 0)
                m_reporter->clearHistory();
            m_nowMs += 30000;
            m_reporter->requestReport({file}, QStringLiteral("name%1").arg(i % batch));
            if ((i + 1) % batch == 0)
                waitForTimersAndChildren();
        }
        made += count;
    };
    make(5 * batch); // what is allocated once is there
    const int descriptors = openDescriptors();
    const qint64 heap = heapInUse();
    make(requests);
    const qint64 growth = heapInUse() - heap;

    QCOMPARE(openDescriptors(), descriptors);
    QVERIFY(!hasChildren());
    QCOMPARE(pendingSingleShots(), 0);
    // The list of files grows by a reference each time; anything left behind would be far larger.
    QVERIFY2(growth < 50000 + 100 * requests, qPrintable(QString::number(growth)));

    if (real) {
        QCOMPARE(uploads().filter(QRegExp(QStringLiteral("^board-.*\\.tar\\.gz$"))).size(), made);
        QCOMPARE(uploads().size(), made);
    } else {
        QCOMPARE(uploads(), QStringList());
    }
    const bool fails = tool.isEmpty() || tool == QStringLiteral("false");
    QCOMPARE(standardError.text(), fails ? failureMessage().repeated(made) : QByteArray());
}

QTEST_GUILESS_MAIN(ReporterTest)
#include "tst_reporter.moc"
