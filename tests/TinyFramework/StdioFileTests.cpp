#include "TinyFramework/IO/TinyFile.h"
#include "TinyFramework/IO/TinyIO.h"
#include "TinyFramework/IO/TinyStdioFile.h"
#include "tests/support/TemporaryFolder.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cstdio>
#include <string>

namespace {

using TestSupport::ReadWholeFile;
using TestSupport::TemporaryFolder;
using TestSupport::WriteWholeFile;
using TinyFramework::TinyObject;
using TinyFramework::IO::TinyFile;
using TinyFramework::IO::TinyIO;
using TinyFramework::IO::TinyStdioFile;

class TinyStdioFileTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_folder.IsReady()); }

    // The path of a new file holding the bytes.
    std::wstring FileWith(const std::wstring& name, const std::string& bytes) {
        const std::wstring path = m_folder.PathOf(name);
        EXPECT_TRUE(WriteWholeFile(path, bytes));
        return path;
    }

    TemporaryFolder m_folder;
};

TEST(TinyStdioFileClassTest, StdioFileIsKindOfTinyIOAndNotOfTinyFile) {
    const TinyStdioFile file(static_cast<FILE*>(nullptr));
    EXPECT_TRUE(file.IsKindOf(&TinyStdioFile::classTinyStdioFile));
    EXPECT_TRUE(file.IsKindOf(&TinyIO::classTinyIO));
    EXPECT_TRUE(file.IsKindOf(&TinyObject::classTinyObject));
    EXPECT_FALSE(file.IsKindOf(&TinyFile::classTinyFile));
    EXPECT_STREQ(TinyStdioFile::classTinyStdioFile.m_className, L"TinyStdioFile");
}

TEST_F(TinyStdioFileTest, SeekFromTheStartGoesToTheVeryStart) {
    TinyStdioFile file(FileWith(L"start.bin", "0123456789").c_str(), L"rb");
    ASSERT_NE(file.Stream(), nullptr);
    ASSERT_EQ(fseek(file.Stream(), 7, SEEK_SET), 0);
    EXPECT_EQ(file.Seek(100, SEEK_SET), 0);
    EXPECT_EQ(file.GetPosition(), 0);
}

TEST_F(TinyStdioFileTest, SeekFromThePositionMovesByTheOffset) {
    TinyStdioFile file(FileWith(L"relative.bin", "0123456789").c_str(), L"rb");
    ASSERT_NE(file.Stream(), nullptr);
    EXPECT_EQ(file.Seek(100, SEEK_SET), 0);
    EXPECT_EQ(file.Seek(5, SEEK_CUR), 5);
    EXPECT_EQ(file.Seek(-2, SEEK_CUR), 3);
    char letter = 0;
    EXPECT_EQ(file.Read(&letter, 1), 1);
    EXPECT_EQ(letter, '3');
}

TEST_F(TinyStdioFileTest, SeekFromTheEndGoesToTheVeryEnd) {
    TinyStdioFile file(FileWith(L"end.bin", "0123456789").c_str(), L"rb");
    ASSERT_NE(file.Stream(), nullptr);
    EXPECT_EQ(file.Seek(-4, SEEK_END), 10);
}

TEST_F(TinyStdioFileTest, SeekWithAnotherOriginStaysAndAnswersThePosition) {
    TinyStdioFile file(FileWith(L"origin.bin", "0123456789").c_str(), L"rb");
    ASSERT_NE(file.Stream(), nullptr);
    ASSERT_EQ(file.Seek(4, SEEK_CUR), 4);
    EXPECT_EQ(file.Seek(3, 7), 4);
}

TEST_F(TinyStdioFileTest, SeekByMoreThan32BitsGivesMinusOne) {
    TinyStdioFile file(FileWith(L"wide.bin", "0123456789").c_str(), L"rb");
    ASSERT_NE(file.Stream(), nullptr);
    ASSERT_EQ(file.Seek(2, SEEK_CUR), 2);
    EXPECT_EQ(file.Seek(0x80000000LL, SEEK_CUR), -1);
    EXPECT_EQ(file.Seek(-0x80000001LL, SEEK_CUR), -1);
    EXPECT_EQ(file.GetPosition(), 2);
}

TEST_F(TinyStdioFileTest, FailingSeekAnswersTheRuntimesResult) {
    TinyStdioFile file(FileWith(L"before.bin", "0123").c_str(), L"rb");
    ASSERT_NE(file.Stream(), nullptr);
    EXPECT_EQ(file.Seek(-5, SEEK_CUR), -1);
    EXPECT_EQ(file.GetPosition(), 0);
}

TEST_F(TinyStdioFileTest, SizeAnswersZeroForAnyLengthAndLeavesThePositionAtTheEnd) {
    for (const size_t length : {0u, 10u, 5000u}) {
        TinyStdioFile file(FileWith(L"sized.bin", std::string(length, 's')).c_str(), L"rb");
        ASSERT_NE(file.Stream(), nullptr);
        EXPECT_EQ(file.GetSize(), 0) << length;
        EXPECT_EQ(file.GetPosition(), static_cast<int64_t>(length));
        char buffer[16];
        EXPECT_EQ(file.Read(buffer, sizeof(buffer)), 0) << length;
    }
}

TEST_F(TinyStdioFileTest, WriteThenReadBack) {
    const std::wstring path = m_folder.PathOf(L"written.bin");
    TinyStdioFile file(path.c_str(), L"w+b");
    ASSERT_NE(file.Stream(), nullptr);
    EXPECT_EQ(file.Write("line\r\nnext", 10), 10);
    EXPECT_EQ(file.GetPosition(), 10);
    EXPECT_EQ(file.Seek(0, SEEK_SET), 0);
    char buffer[16] = {};
    EXPECT_EQ(file.Read(buffer, sizeof(buffer)), 10);
    EXPECT_STREQ(buffer, "line\r\nnext");
    EXPECT_TRUE(file.Flush());
    EXPECT_EQ(ReadWholeFile(path), "line\r\nnext");
}

TEST_F(TinyStdioFileTest, ReadAndWriteOfNothingGiveZero) {
    TinyStdioFile file(m_folder.PathOf(L"nothing.bin").c_str(), L"w+b");
    ASSERT_NE(file.Stream(), nullptr);
    char buffer[4] = {};
    EXPECT_EQ(file.Write(buffer, 0), 0);
    EXPECT_EQ(file.Read(buffer, 0), 0);
    EXPECT_EQ(file.GetPosition(), 0);
}

TEST_F(TinyStdioFileTest, LocksAreNotSupported) {
    TinyStdioFile file(m_folder.PathOf(L"unlockable.bin").c_str(), L"w+b");
    ASSERT_NE(file.Stream(), nullptr);
    EXPECT_FALSE(file.LockRange(0, 1));
    EXPECT_FALSE(file.UnlockRange(0, 1));
}

TEST_F(TinyStdioFileTest, SecondCloseReportsFailure) {
    const std::wstring path = m_folder.PathOf(L"twice.bin");
    TinyStdioFile file(path.c_str(), L"wb");
    ASSERT_NE(file.Stream(), nullptr);
    ASSERT_EQ(file.Write("abc", 3), 3);
    EXPECT_TRUE(file.Close());
    EXPECT_EQ(ReadWholeFile(path), "abc");
    // The stream is kept after closing; closing it again is the runtime's EOF.
    EXPECT_NE(file.Stream(), nullptr);
    EXPECT_FALSE(file.Close());
}

TEST_F(TinyStdioFileTest, StreamIsTakenOver) {
    const std::wstring path = m_folder.PathOf(L"taken.bin");
    FILE* stream = nullptr;
    ASSERT_EQ(_wfopen_s(&stream, path.c_str(), L"wb"), 0);
    {
        TinyStdioFile file(stream);
        EXPECT_EQ(file.Stream(), stream);
        EXPECT_EQ(file.Write("xyz", 3), 3);
    }
    // The destructor closed the stream, which wrote its buffer out.
    EXPECT_EQ(ReadWholeFile(path), "xyz");
}

TEST_F(TinyStdioFileTest, MissingFileGivesAnEmptyObject) {
    TinyStdioFile file(m_folder.PathOf(L"absent.bin").c_str(), L"rb");
    char buffer[4];
    EXPECT_EQ(file.Stream(), nullptr);
    EXPECT_EQ(file.Read(buffer, 4), 0);
    EXPECT_EQ(file.Write(buffer, 4), 0);
    EXPECT_EQ(file.Seek(0, SEEK_SET), -1);
    EXPECT_EQ(file.GetPosition(), -1);
    EXPECT_EQ(file.GetSize(), -1);
    EXPECT_FALSE(file.Flush());
    EXPECT_FALSE(file.Close());
}

}  // namespace
