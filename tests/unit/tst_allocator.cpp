// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/allocator.h"

#include <QtTest>

#include <malloc.h>
#include <unistd.h>

#include <memory>
#include <vector>

namespace {

constexpr std::size_t chunkBytes = 65536; // what a pipe holds

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(M_TRIM_THRESHOLD)
constexpr bool heapIsTheOneMeant = false;
#else
constexpr bool heapIsTheOneMeant = true;
#endif

// How much smaller the heap has become by the time that this many chunks were allocated and freed.
std::size_t bytesGivenBack(std::size_t chunkCount)
{
    std::vector<std::unique_ptr<char[]>> chunks(chunkCount);
    for (std::unique_ptr<char[]> &chunk : chunks)
        chunk = std::make_unique<char[]>(chunkBytes);
    const char *end = static_cast<char *>(::sbrk(0));
    for (std::unique_ptr<char[]> &chunk : chunks)
        chunk.reset();
    return static_cast<std::size_t>(end - static_cast<char *>(::sbrk(0)));
}

} // namespace

class AllocatorTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void chunksOfOutputAreKept_data();
    void chunksOfOutputAreKept();
    void muchMemoryIsGivenBack();
};

void AllocatorTest::initTestCase()
{
    if (!heapIsTheOneMeant)
        QSKIP("another heap stands in for the C library's");
    // Without this the test of the function would show nothing.
    QVERIFY(bytesGivenBack(8) > 0);
    keepFreedHeap();
}

void AllocatorTest::chunksOfOutputAreKept_data()
{
    QTest::addColumn<int>("count");
    QTest::newRow("one channel, copied once") << 2;
    QTest::newRow("both channels") << 4;
    QTest::newRow("with room to spare") << 8;
}

void AllocatorTest::chunksOfOutputAreKept()
{
    QFETCH(int, count);
    QCOMPARE(bytesGivenBack(static_cast<std::size_t>(count)), std::size_t(0));
}

void AllocatorTest::muchMemoryIsGivenBack()
{
    QVERIFY(bytesGivenBack(128) > 64 * chunkBytes);
}

QTEST_GUILESS_MAIN(AllocatorTest)
#include "tst_allocator.moc"
