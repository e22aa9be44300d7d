#include "TinyFramework/IO/TinyIO.h"
#include "TinyFramework/IO/TinyMemoryFile.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <string>

namespace {

using TinyFramework::IO::TinyIO;
using TinyFramework::IO::TinyMemoryFile;

// A block from the runtime heap, as the file takes it over, filled with `fill`.
void* HeapBlock(size_t size, unsigned char fill) {
    void* block = malloc(size);
    memset(block, fill, size);
    return block;
}

// A block holding the bytes of `text`, without a terminator.
void* HeapBlockWith(const std::string& text) {
    void* block = malloc(text.size());
    memcpy(block, text.data(), text.size());
    return block;
}

TEST(TinyMemoryFileTest, SeekBeyondTheEndOfAnEmptyFileGrowsToOneStep) {
    TinyMemoryFile file;
    EXPECT_EQ(file.Seek(10, FILE_BEGIN), 10);
    EXPECT_EQ(file.GetSize(), 1024);
    EXPECT_EQ(file.GetPosition(), 10);
    EXPECT_NE(file.Buffer(), nullptr);
}

TEST(TinyMemoryFileTest, SeekGrowsForTheTargetPlusTheOldPosition) {
    TinyMemoryFile file(HeapBlock(4096, 0), 4096);
    ASSERT_EQ(file.Seek(3000, FILE_BEGIN), 3000);
    ASSERT_EQ(file.GetSize(), 4096);
    // Growth for 5000 + 3000 = 8000, rounded up in steps of 1024.
    EXPECT_EQ(file.Seek(5000, FILE_BEGIN), 5000);
    EXPECT_EQ(file.GetSize(), 8192);
    EXPECT_EQ(file.GetPosition(), 5000);
}

TEST(TinyMemoryFileTest, SeekWithinTheFileDoesNotGrow) {
    TinyMemoryFile file(HeapBlockWith("0123456789"), 10);
    EXPECT_EQ(file.Seek(10, FILE_BEGIN), 10);
    EXPECT_EQ(file.Seek(-4, FILE_CURRENT), 6);
    EXPECT_EQ(file.Seek(-1, FILE_END), 9);
    EXPECT_EQ(file.GetSize(), 10);
}

TEST(TinyMemoryFileTest, SeekBeforeTheStartStopsAtZero) {
    TinyMemoryFile file(HeapBlockWith("0123456789"), 10);
    ASSERT_EQ(file.Seek(4, FILE_BEGIN), 4);
    EXPECT_EQ(file.Seek(-5, FILE_CURRENT), 0);
    EXPECT_EQ(file.GetPosition(), 0);
}

TEST(TinyMemoryFileTest, SeekWithAnUnknownOriginKeepsThePosition) {
    TinyMemoryFile file(HeapBlockWith("0123456789"), 10);
    ASSERT_EQ(file.Seek(3, FILE_BEGIN), 3);
    EXPECT_EQ(file.Seek(100, 7), 3);
    EXPECT_EQ(file.GetSize(), 10);
}

TEST(TinyMemoryFileTest, ReadAtTheExactEndReturnsZero) {
    TinyMemoryFile file(HeapBlockWith("0123456789"), 10);
    ASSERT_EQ(file.Seek(10, FILE_BEGIN), 10);
    char buffer[4] = {'x', 'x', 'x', 'x'};
    EXPECT_EQ(file.Read(buffer, 4), 0);
    EXPECT_EQ(file.GetPosition(), 10);
    EXPECT_EQ(std::string(buffer, 4), "xxxx");
}

TEST(TinyMemoryFileTest, ReadCutsTheCountToWhatIsLeft) {
    TinyMemoryFile file(HeapBlockWith("0123456789"), 10);
    ASSERT_EQ(file.Seek(6, FILE_BEGIN), 6);
    char buffer[8] = {};
    EXPECT_EQ(file.Read(buffer, 8), 4);
    EXPECT_EQ(std::string(buffer, 4), "6789");
    EXPECT_EQ(file.GetPosition(), 10);
}

TEST(TinyMemoryFileTest, ReadOfNothingOrIntoNothingReturnsZero) {
    TinyMemoryFile file(HeapBlockWith("0123456789"), 10);
    char buffer[4] = {};
    EXPECT_EQ(file.Read(buffer, 0), 0);
    EXPECT_EQ(file.Read(nullptr, 4), 0);
    EXPECT_EQ(file.GetPosition(), 0);
}

TEST(TinyMemoryFileTest, WriteCopiesWithinTheCallersBufferAndNotIntoTheFile) {
    TinyMemoryFile file(HeapBlock(64, 0xAA), 64);
    ASSERT_EQ(file.Seek(4, FILE_BEGIN), 4);
    // The caller's buffer spans position + count bytes, as Write needs.
    char caller[12] = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', '.', '.', '.', '.'};
    EXPECT_EQ(file.Write(caller, 8), 8);
    EXPECT_EQ(std::string(caller, 12), "abcdabcdefgh");
    EXPECT_EQ(file.GetPosition(), 12);
    EXPECT_EQ(file.GetSize(), 64);
    const unsigned char* block = static_cast<const unsigned char*>(file.Buffer());
    for (int i = 0; i < 64; ++i) {
        ASSERT_EQ(block[i], 0xAA) << "at " << i;
    }
}

TEST(TinyMemoryFileTest, WriteAtPositionZeroLeavesTheSourceAsItWas) {
    TinyMemoryFile file;
    static const char kText[] = "hello";
    EXPECT_EQ(file.Write(kText, 5), 5);
    EXPECT_STREQ(kText, "hello");
    EXPECT_EQ(file.GetPosition(), 5);
}

TEST(TinyMemoryFileTest, WritePastTheEndGrowsInStepsOf1024) {
    TinyMemoryFile file(HeapBlock(10, 0), 10);
    ASSERT_EQ(file.Seek(8, FILE_BEGIN), 8);
    char caller[8 + 5] = {'v', 'w', 'x', 'y', 'z'};
    EXPECT_EQ(file.Write(caller, 5), 5);
    EXPECT_EQ(file.GetSize(), 10 + 1024);
    EXPECT_EQ(file.GetPosition(), 13);
}

TEST(TinyMemoryFileTest, WriteOfNothingOrFromNothingReturnsZero) {
    TinyMemoryFile file;
    const char byte = 'x';
    EXPECT_EQ(file.Write(&byte, 0), 0);
    EXPECT_EQ(file.Write(nullptr, 1), 0);
    EXPECT_EQ(file.GetSize(), 0);
    EXPECT_EQ(file.Buffer(), nullptr);
}

TEST(TinyMemoryFileTest, SetSizeBelowThePositionMovesThePosition) {
    TinyMemoryFile file(HeapBlock(100, 0), 100);
    ASSERT_EQ(file.Seek(80, FILE_BEGIN), 80);
    EXPECT_EQ(file.SetSize(50), TRUE);
    EXPECT_EQ(file.GetPosition(), 50);
    EXPECT_EQ(file.GetSize(), 50);
}

TEST(TinyMemoryFileTest, SetSizeAboveThePositionKeepsIt) {
    TinyMemoryFile file(HeapBlock(100, 0), 100);
    ASSERT_EQ(file.Seek(20, FILE_BEGIN), 20);
    EXPECT_EQ(file.SetSize(3000), TRUE);
    EXPECT_EQ(file.GetSize(), 3000);
    EXPECT_EQ(file.GetPosition(), 20);
}

TEST(TinyMemoryFileTest, SetSizeAbove4GiBFails) {
    TinyMemoryFile file(HeapBlock(100, 0), 100);
    EXPECT_EQ(file.SetSize(0x100000000ull), FALSE);
    EXPECT_EQ(file.GetSize(), 100);
}

TEST(TinyMemoryFileTest, LocksAndFlushDoNothingAndSucceed) {
    TinyMemoryFile file;
    EXPECT_EQ(file.LockRange(0, 10), TRUE);
    EXPECT_EQ(file.UnlockRange(0, 10), TRUE);
    EXPECT_EQ(file.Flush(), TRUE);
}

TEST(TinyMemoryFileTest, CloseEmptiesTheFile) {
    TinyMemoryFile file(HeapBlockWith("0123456789"), 10);
    ASSERT_EQ(file.Seek(5, FILE_BEGIN), 5);
    EXPECT_EQ(file.Close(), TRUE);
    EXPECT_EQ(file.Buffer(), nullptr);
    EXPECT_EQ(file.GetSize(), 0);
    EXPECT_EQ(file.GetPosition(), -1);
    EXPECT_EQ(file.Close(), TRUE);
}

TEST(TinyMemoryFileTest, EmptyFileHasNoPosition) {
    TinyMemoryFile file;
    EXPECT_EQ(file.GetPosition(), -1);
    EXPECT_EQ(file.GetSize(), 0);
}

TEST(TinyMemoryFileTest, WorksThroughTheFileInterface) {
    TinyMemoryFile memoryFile(HeapBlockWith("0123456789"), 10);
    TinyIO& file = memoryFile;
    char buffer[3] = {};
    EXPECT_EQ(file.Seek(-3, FILE_END), 7);
    EXPECT_EQ(file.Read(buffer, 3), 3);
    EXPECT_EQ(std::string(buffer, 3), "789");
}

}  // namespace
