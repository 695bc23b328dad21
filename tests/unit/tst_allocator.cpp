// SPDX-FileCopyrightText: 2026 The watchdog developers
// SPDX-License-Identifier: MIT
#include "app/allocator.h"

#include <QtTest>

#include <cstdint>
#include <memory>
#include <vector>

#include <malloc.h>
#include <unistd.h>

namespace {

constexpr std::size_t kiB = 1024;
constexpr std::size_t chunkBytes = 256 * kiB; // the size of an output pipe
constexpr std::size_t smallChunkBytes = 64 * kiB;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(M_TRIM_THRESHOLD)
constexpr bool heapIsTheOneMeant = false;
#else
constexpr bool heapIsTheOneMeant = true;
#endif

// By how many bytes the heap has shrunk after so many chunks were allocated and freed.
std::size_t bytesGivenBack(std::size_t chunkCount, std::size_t bytes = chunkBytes)
{
    std::vector<std::unique_ptr<char[]>> chunks(chunkCount);
    for (std::unique_ptr<char[]> &chunk : chunks)
        chunk = std::make_unique<char[]>(bytes);
    const char *end = static_cast<char *>(::sbrk(0));
    for (std::unique_ptr<char[]> &chunk : chunks)
        chunk.reset();
    return static_cast<std::size_t>(end - static_cast<char *>(::sbrk(0)));
}

// Whether the chunk is part of the heap. A chunk with a mapping of its own is unmapped when freed.
bool liesInTheHeap(const std::unique_ptr<char[]> &chunk)
{
    const auto address = reinterpret_cast<std::uintptr_t>(chunk.get());
    const auto end = reinterpret_cast<std::uintptr_t>(::sbrk(0));
    return address < end && end - address < 64 * chunkBytes;
}

} // namespace

class AllocatorTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void chunkOfOutputLiesInTheHeap();
    void chunksOfOutputAreKept_data();
    void chunksOfOutputAreKept();
    void muchMemoryIsGivenBack();
};

void AllocatorTest::initTestCase()
{
    if (!heapIsTheOneMeant)
        QSKIP("another heap stands in for the C library's");
    // Otherwise the tests of the function would show nothing.
    QVERIFY(bytesGivenBack(8, smallChunkBytes) > 0);
    QVERIFY(!liesInTheHeap(std::make_unique<char[]>(chunkBytes)));
    keepFreedHeap();
}

void AllocatorTest::chunkOfOutputLiesInTheHeap()
{
    QVERIFY(liesInTheHeap(std::make_unique<char[]>(chunkBytes)));
}

void AllocatorTest::chunksOfOutputAreKept_data()
{
    QTest::addColumn<int>("count");
    QTest::newRow("one channel, copied once") << 2;
    QTest::newRow("both channels") << 4;
}

void AllocatorTest::chunksOfOutputAreKept()
{
    QFETCH(int, count);
    QCOMPARE(bytesGivenBack(static_cast<std::size_t>(count)), std::size_t(0));
}

void AllocatorTest::muchMemoryIsGivenBack()
{
    QVERIFY(bytesGivenBack(32) > 16 * chunkBytes);
}

QTEST_GUILESS_MAIN(AllocatorTest)
#include "tst_allocator.moc"
