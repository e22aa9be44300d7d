#include "TinyFramework/Common/TinyObject.h"
#include "TinyFramework/Common/TinyTime.h"
#include "TinyFramework/IO/TinyFile.h"
#include "TinyFramework/IO/TinyIO.h"
#include "TinyFramework/IO/TinyStdioFile.h"
#include "tests/TinyFramework/CalendarReference.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/HandleState.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <windows.h>
#include <psapi.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

using CalendarReference::UtcSeconds;
using TestSupport::IsOpenHandle;
using TestSupport::ReadWholeFile;
using TestSupport::TemporaryFolder;
using TestSupport::WriteWholeFile;
using TinyFramework::TinyObject;
using TinyFramework::TinyRuntimeClass;
using TinyFramework::TinyTime;
using TinyFramework::IO::TinyFile;
using TinyFramework::IO::TinyFileStatus;
using TinyFramework::IO::TinyIO;
using TinyFramework::IO::TinyStdioFile;

constexpr DWORD kShareReadWrite = FILE_SHARE_READ | FILE_SHARE_WRITE;
// A last error that no call of these tests sets by itself.
constexpr DWORD kSentinelError = 0x1234;

// A second, independent handle on a file, closed by the destructor.
class OtherHandle {
public:
    OtherHandle(const std::wstring& path, DWORD access, DWORD share)
        : m_handle(CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr)),
          m_error(GetLastError()) {}
    ~OtherHandle() {
        if (m_handle != INVALID_HANDLE_VALUE) {
            CloseHandle(m_handle);
        }
    }
    OtherHandle(const OtherHandle&) = delete;
    OtherHandle& operator=(const OtherHandle&) = delete;

    HANDLE Get() const { return m_handle; }
    bool IsOpen() const { return m_handle != INVALID_HANDLE_VALUE; }
    // The last error of the open.
    DWORD Error() const { return m_error; }

private:
    HANDLE m_handle;
    DWORD m_error;
};

FILETIME FileTimeOfUtcSeconds(int64_t seconds) {
    ULARGE_INTEGER value;
    value.QuadPart = static_cast<ULONGLONG>(seconds + 11644473600LL) * 10000000ULL;
    FILETIME fileTime;
    fileTime.dwLowDateTime = value.LowPart;
    fileTime.dwHighDateTime = value.HighPart;
    return fileTime;
}

// Whole seconds since 1970 of the present moment, less some: file times that the platform
// turns into local time with the same daylight saving as the present one.
int64_t RecentSeconds(int64_t secondsAgo) {
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    ULARGE_INTEGER value;
    value.LowPart = now.dwLowDateTime;
    value.HighPart = now.dwHighDateTime;
    return static_cast<int64_t>(value.QuadPart / 10000000ULL) - 11644473600LL - secondsAgo;
}

// What the call throws as a wide string, or a text saying that it threw nothing.
std::wstring ThrownText(const std::function<void()>& call) {
    try {
        call();
    } catch (const wchar_t* text) {
        return text;
    }
    return L"(nothing thrown)";
}

bool EndsWith(const std::wstring& text, const std::wstring& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

class TinyFileTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(m_folder.IsReady()); }

    std::wstring PathOf(const std::wstring& name) const { return m_folder.PathOf(name); }

    // A file holding the bytes, opened by Create's sharing but without truncating it.
    void OpenWith(TinyFile& file, const std::wstring& path, const std::string& bytes) {
        ASSERT_TRUE(WriteWholeFile(path, bytes));
        ASSERT_TRUE(
            file.OpenAppend(path.c_str(), GENERIC_READ | GENERIC_WRITE, kShareReadWrite, 0));
    }

    TemporaryFolder m_folder;
};

// --- class records ---

TEST(TinyFileClassTest, FileIsKindOfTinyIOAndTinyObject) {
    const TinyFile file;
    EXPECT_TRUE(file.IsKindOf(&TinyFile::classTinyFile));
    EXPECT_TRUE(file.IsKindOf(&TinyIO::classTinyIO));
    EXPECT_TRUE(file.IsKindOf(&TinyObject::classTinyObject));
    EXPECT_FALSE(file.IsKindOf(&TinyStdioFile::classTinyStdioFile));
}

TEST(TinyFileClassTest, RecordsNameTheirClassSizeAndBase) {
    EXPECT_STREQ(TinyFile::classTinyFile.m_className, L"TinyFile");
    EXPECT_EQ(TinyFile::classTinyFile.m_objectSize, sizeof(TinyFile));
    EXPECT_EQ(TinyFile::classTinyFile.m_factory, nullptr);
    EXPECT_EQ(TinyFile::classTinyFile.m_base, &TinyIO::classTinyIO);
    EXPECT_STREQ(TinyIO::classTinyIO.m_className, L"TinyIO");
    EXPECT_EQ(TinyIO::classTinyIO.m_base, &TinyObject::classTinyObject);
    EXPECT_EQ(TinyStdioFile::classTinyStdioFile.m_base, &TinyIO::classTinyIO);
}

TEST(TinyFileClassTest, FromNameFindsTheFileRecordByItsExactName) {
    EXPECT_EQ(TinyObject::FromName(L"TinyFile"), &TinyFile::classTinyFile);
    EXPECT_EQ(TinyObject::FromName(L"TinyIO"), &TinyIO::classTinyIO);
    EXPECT_EQ(TinyObject::FromName(L"TinyStdioFile"), &TinyStdioFile::classTinyStdioFile);
}

TEST(TinyFileClassTest, FromNameIsCaseSensitive) {
    EXPECT_EQ(TinyObject::FromName(L"tinyfile"), nullptr);
}

TEST(TinyFileClassTest, CreateObjectOfAFileGivesNull) {
    EXPECT_EQ(TinyObject::CreateObject(L"TinyFile"), nullptr);
}

// --- an unopened file ---

TEST(TinyFileUnopenedTest, ReadAndWriteOfNothingMakeNoSystemCall) {
    TinyFile file;
    char buffer[4] = {};
    SetLastError(kSentinelError);
    EXPECT_EQ(file.Read(buffer, 0), 0);
    EXPECT_EQ(file.Write(buffer, 0), 0);
    // A call on the invalid handle would have set ERROR_INVALID_HANDLE, as this one does.
    EXPECT_EQ(GetLastError(), kSentinelError);
    EXPECT_EQ(file.Read(buffer, 1), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST(TinyFileUnopenedTest, SizeIsZeroAndPositionMinusOne) {
    TinyFile file;
    EXPECT_EQ(file.GetSize(), 0);
    EXPECT_EQ(file.GetPosition(), -1);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
}

TEST(TinyFileUnopenedTest, OperationsThatTestTheHandleAnswerZero) {
    TinyFile file;
    BY_HANDLE_FILE_INFORMATION information;
    EXPECT_FALSE(file.Close());
    EXPECT_FALSE(file.Flush());
    EXPECT_FALSE(file.LockRange(0, 1));
    EXPECT_FALSE(file.UnlockRange(0, 1));
    EXPECT_FALSE(file.SetSize(1));
    EXPECT_EQ(file.GetType(), static_cast<DWORD>(FILE_TYPE_UNKNOWN));
    EXPECT_FALSE(file.GetInformation(&information));
    EXPECT_EQ(file.GetFileTitle(), nullptr);
    EXPECT_EQ(file.GetFullPath(), nullptr);
    EXPECT_EQ(file.Handle(), INVALID_HANDLE_VALUE);
}

TEST(TinyFileUnopenedTest, SeekFailsWithMinusOne) {
    TinyFile file;
    EXPECT_EQ(file.Seek(10, FILE_BEGIN), -1);
    EXPECT_EQ(file.SeekToEnd(), -1);
    EXPECT_EQ(file.SeekToBegin(), -1);
}

// --- open, create, close ---

TEST_F(TinyFileTest, CloseOfAClosedFileReturnsZero) {
    TinyFile file;
    ASSERT_TRUE(file.Create(PathOf(L"closed.bin").c_str(), 0));
    EXPECT_TRUE(file.Close());
    EXPECT_EQ(file.Handle(), INVALID_HANDLE_VALUE);
    EXPECT_FALSE(file.Close());
}

TEST_F(TinyFileTest, CreateMakesAnEmptyFileOpenForReadingAndWriting) {
    const std::wstring path = PathOf(L"created.bin");
    TinyFile file;
    ASSERT_TRUE(file.Create(path.c_str(), 0));
    EXPECT_NE(file.Handle(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(file.Write("abc", 3), 3);
    EXPECT_EQ(file.SeekToBegin(), 0);
    char buffer[4] = {};
    EXPECT_EQ(file.Read(buffer, 3), 3);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_TRUE(file.Flush());
    EXPECT_EQ(ReadWholeFile(path), "abc");
}

TEST_F(TinyFileTest, CreateTruncatesAnExistingFile) {
    const std::wstring path = PathOf(L"truncated.bin");
    ASSERT_TRUE(WriteWholeFile(path, "0123456789"));
    TinyFile file;
    ASSERT_TRUE(file.Create(path.c_str(), 0));
    EXPECT_EQ(file.GetSize(), 0);
}

TEST_F(TinyFileTest, CreateSharesReadingAndWriting) {
    const std::wstring path = PathOf(L"shared.bin");
    TinyFile file;
    ASSERT_TRUE(file.Create(path.c_str(), 0));
    const OtherHandle reader(path, GENERIC_READ | GENERIC_WRITE, kShareReadWrite);
    EXPECT_TRUE(reader.IsOpen());
    const OtherHandle exclusive(path, GENERIC_READ, FILE_SHARE_READ);
    EXPECT_FALSE(exclusive.IsOpen());
    EXPECT_EQ(exclusive.Error(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
}

TEST_F(TinyFileTest, CreateAddsTheGivenAttributes) {
    const std::wstring path = PathOf(L"hidden.bin");
    TinyFile file;
    ASSERT_TRUE(file.Create(path.c_str(), FILE_ATTRIBUTE_HIDDEN));
    EXPECT_EQ(GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_HIDDEN,
              static_cast<DWORD>(FILE_ATTRIBUTE_HIDDEN));
}

TEST_F(TinyFileTest, CreateInAMissingFolderFailsAndKeepsTheHandle) {
    TinyFile file;
    ASSERT_TRUE(file.Create(PathOf(L"first.bin").c_str(), 0));
    const HANDLE first = file.Handle();
    EXPECT_FALSE(file.Create(PathOf(L"missing\\second.bin").c_str(), 0));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
    EXPECT_EQ(file.Handle(), first);
}

TEST_F(TinyFileTest, CreateOverAnOpenFileForgetsTheFirstHandle) {
    TinyFile file;
    ASSERT_TRUE(file.Create(PathOf(L"first.bin").c_str(), 0));
    const HANDLE first = file.Handle();
    ASSERT_TRUE(file.Create(PathOf(L"second.bin").c_str(), 0));
    EXPECT_NE(file.Handle(), first);
    // Nobody closed it: the object no longer knows it.
    EXPECT_TRUE(IsOpenHandle(first));
    CloseHandle(first);
}

TEST_F(TinyFileTest, OpenAppendKeepsTheContentAndStartsAtTheBeginning) {
    const std::wstring path = PathOf(L"kept.bin");
    ASSERT_TRUE(WriteWholeFile(path, "abc"));
    TinyFile file;
    SetLastError(0);
    ASSERT_TRUE(file.OpenAppend(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, 0));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(file.GetPosition(), 0);
    EXPECT_EQ(file.GetSize(), 3);
}

TEST_F(TinyFileTest, OpenAppendCreatesAMissingFile) {
    const std::wstring path = PathOf(L"new.bin");
    TinyFile file;
    ASSERT_TRUE(file.OpenAppend(path.c_str(), GENERIC_WRITE, 0, 0));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_SUCCESS));
    EXPECT_TRUE(TinyFile::Exists(path.c_str()));
}

TEST_F(TinyFileTest, OpenAppendHonoursTheSharing) {
    const std::wstring path = PathOf(L"unshared.bin");
    TinyFile file;
    ASSERT_TRUE(file.OpenAppend(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, 0));
    const OtherHandle reader(path, GENERIC_READ, kShareReadWrite);
    EXPECT_TRUE(reader.IsOpen());
    const OtherHandle writer(path, GENERIC_WRITE, kShareReadWrite);
    EXPECT_FALSE(writer.IsOpen());
    EXPECT_EQ(writer.Error(), static_cast<DWORD>(ERROR_SHARING_VIOLATION));
}

TEST_F(TinyFileTest, OpenAppendWithAppendAccessWritesAtTheEnd) {
    const std::wstring path = PathOf(L"appended.bin");
    ASSERT_TRUE(WriteWholeFile(path, "abc"));
    TinyFile file;
    ASSERT_TRUE(file.OpenAppend(path.c_str(), FILE_APPEND_DATA, kShareReadWrite, 0));
    EXPECT_EQ(file.Write("def", 3), 3);
    EXPECT_EQ(ReadWholeFile(path), "abcdef");
}

// Each write of a file opened for appending lands at the file's end, whatever another handle has
// written since. (Whether two threads' appends stay whole when they race is the platform's
// promise: Windows keeps it, and Wine 8 can lose bytes of one write to the other, so the test
// alternates the writers rather than racing them.)
TEST_F(TinyFileTest, AppendsThroughTwoHandlesEachLandAtTheEnd) {
    constexpr int kRecordsPerWriter = 50;
    constexpr size_t kRecordLength = 64;
    const std::wstring path = PathOf(L"log.txt");
    TinyFile first;
    TinyFile second;
    ASSERT_TRUE(first.OpenAppend(path.c_str(), FILE_APPEND_DATA, kShareReadWrite, 0));
    ASSERT_TRUE(second.OpenAppend(path.c_str(), FILE_APPEND_DATA, kShareReadWrite, 0));
    const std::string recordA = std::string(kRecordLength - 1, 'A') + "\n";
    const std::string recordB = std::string(kRecordLength - 1, 'B') + "\n";
    std::string expected;
    for (int i = 0; i < kRecordsPerWriter; ++i) {
        ASSERT_EQ(first.Write(recordA.data(), static_cast<LONG>(kRecordLength)),
                  static_cast<int64_t>(kRecordLength));
        ASSERT_EQ(second.Write(recordB.data(), static_cast<LONG>(kRecordLength)),
                  static_cast<int64_t>(kRecordLength));
        expected += recordA + recordB;
    }
    EXPECT_EQ(ReadWholeFile(path), expected);
}

TEST_F(TinyFileTest, FileFromAHandleOwnsIt) {
    const std::wstring path = PathOf(L"owned.bin");
    ASSERT_TRUE(WriteWholeFile(path, "xyz"));
    const HANDLE handle = CreateFileW(path.c_str(), GENERIC_READ, kShareReadWrite, nullptr,
                                      OPEN_EXISTING, 0, nullptr);
    ASSERT_NE(handle, INVALID_HANDLE_VALUE);
    {
        TinyFile file(handle);
        EXPECT_EQ(file.Handle(), handle);
        EXPECT_EQ(file.GetSize(), 3);
    }
    EXPECT_FALSE(IsOpenHandle(handle));
}

// --- position, reading and writing ---

TEST_F(TinyFileTest, SeekFromEachOrigin) {
    TinyFile file;
    OpenWith(file, PathOf(L"seek.bin"), "0123456789");
    EXPECT_EQ(file.Seek(4, FILE_BEGIN), 4);
    EXPECT_EQ(file.Seek(2, FILE_CURRENT), 6);
    EXPECT_EQ(file.Seek(-3, FILE_END), 7);
    EXPECT_EQ(file.GetPosition(), 7);
    EXPECT_EQ(file.SeekToEnd(), 10);
    EXPECT_EQ(file.SeekToBegin(), 0);
}

TEST_F(TinyFileTest, SeekBeyond4GiBUsesBothHalves) {
    TinyFile file;
    OpenWith(file, PathOf(L"far.bin"), "x");
    EXPECT_EQ(file.Seek(0x100000005LL, FILE_BEGIN), 0x100000005LL);
    EXPECT_EQ(file.GetPosition(), 0x100000005LL);
    EXPECT_EQ(file.GetSize(), 1);
}

TEST_F(TinyFileTest, SeekBeforeTheStartFailsWithMinusOne) {
    TinyFile file;
    OpenWith(file, PathOf(L"negative.bin"), "0123");
    EXPECT_EQ(file.Seek(-1, FILE_BEGIN), -1);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NEGATIVE_SEEK));
}

TEST_F(TinyFileTest, ReadAtTheEndGivesAShortCount) {
    TinyFile file;
    OpenWith(file, PathOf(L"short.bin"), "0123456789");
    ASSERT_EQ(file.Seek(7, FILE_BEGIN), 7);
    char buffer[16] = {};
    EXPECT_EQ(file.Read(buffer, 10), 3);
    EXPECT_STREQ(buffer, "789");
    EXPECT_EQ(file.Read(buffer, 10), 0);
    EXPECT_EQ(file.GetPosition(), 10);
}

TEST_F(TinyFileTest, WriteMovesThePositionAndGrowsTheFile) {
    const std::wstring path = PathOf(L"grow.bin");
    TinyFile file;
    OpenWith(file, path, "0123");
    ASSERT_EQ(file.Seek(2, FILE_BEGIN), 2);
    EXPECT_EQ(file.Write("abcdef", 6), 6);
    EXPECT_EQ(file.GetPosition(), 8);
    EXPECT_EQ(file.GetSize(), 8);
    EXPECT_EQ(ReadWholeFile(path), "01abcdef");
}

TEST_F(TinyFileTest, WriteToAReadOnlyHandleGivesZero) {
    const std::wstring path = PathOf(L"readonly.bin");
    ASSERT_TRUE(WriteWholeFile(path, "abc"));
    TinyFile file;
    ASSERT_TRUE(file.OpenAppend(path.c_str(), GENERIC_READ, kShareReadWrite, 0));
    EXPECT_EQ(file.Write("x", 1), 0);
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
    EXPECT_EQ(ReadWholeFile(path), "abc");
}

// --- size ---

TEST_F(TinyFileTest, SetSizeAbove32BitsReturnsZero) {
    TinyFile file;
    OpenWith(file, PathOf(L"limit.bin"), "0123");
    EXPECT_FALSE(file.SetSize(0x100000000ULL));
    EXPECT_EQ(file.GetSize(), 4);
}

TEST_F(TinyFileTest, SetSizeGrowsAndLeavesThePositionAtTheEnd) {
    TinyFile file;
    OpenWith(file, PathOf(L"longer.bin"), "0123");
    EXPECT_TRUE(file.SetSize(100));
    EXPECT_EQ(file.GetSize(), 100);
    EXPECT_EQ(file.GetPosition(), 100);
}

TEST_F(TinyFileTest, SetSizeShrinks) {
    const std::wstring path = PathOf(L"shorter.bin");
    TinyFile file;
    OpenWith(file, path, "0123456789");
    EXPECT_TRUE(file.SetSize(3));
    EXPECT_EQ(file.GetPosition(), 3);
    EXPECT_EQ(ReadWholeFile(path), "012");
}

TEST_F(TinyFileTest, SizeAbove4GiBLosesItsUpperHalf) {
    TinyFile file;
    OpenWith(file, PathOf(L"big.bin"), "");
    LARGE_INTEGER end;
    end.QuadPart = 0x100000005LL;
    ASSERT_TRUE(SetFilePointerEx(file.Handle(), end, nullptr, FILE_BEGIN));
    ASSERT_TRUE(SetEndOfFile(file.Handle()));
    EXPECT_EQ(file.GetSize(), 5);
    LARGE_INTEGER size;
    ASSERT_TRUE(GetFileSizeEx(file.Handle(), &size));
    EXPECT_EQ(size.QuadPart, 0x100000005LL);
    ASSERT_TRUE(file.SetSize(0));
}

// --- locks and flushing ---

TEST_F(TinyFileTest, LockedRangeRefusesAnotherHandleUntilUnlocked) {
    // Asked through a lock of its own: Wine does not refuse the other handle's reads of a
    // locked range, as Windows does, but it does refuse its locks.
    const std::wstring path = PathOf(L"locked.bin");
    TinyFile file;
    OpenWith(file, path, "0123456789");
    const OtherHandle other(path, GENERIC_READ, kShareReadWrite);
    ASSERT_TRUE(other.IsOpen());
    EXPECT_TRUE(file.LockRange(2, 4));
    EXPECT_FALSE(LockFile(other.Get(), 5, 0, 1, 0));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_LOCK_VIOLATION));
    EXPECT_TRUE(LockFile(other.Get(), 6, 0, 1, 0));
    EXPECT_TRUE(UnlockFile(other.Get(), 6, 0, 1, 0));
    EXPECT_TRUE(file.UnlockRange(2, 4));
    EXPECT_TRUE(LockFile(other.Get(), 5, 0, 1, 0));
    EXPECT_TRUE(UnlockFile(other.Get(), 5, 0, 1, 0));
}

TEST_F(TinyFileTest, LockRangeBeyond4GiBUsesBothHalves) {
    const std::wstring path = PathOf(L"farlock.bin");
    TinyFile file;
    OpenWith(file, path, "x");
    const OtherHandle other(path, GENERIC_READ, kShareReadWrite);
    ASSERT_TRUE(other.IsOpen());
    ASSERT_TRUE(file.LockRange(0x100000000ULL, 0x100000010ULL));
    EXPECT_FALSE(LockFile(other.Get(), 0, 1, 1, 0));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_LOCK_VIOLATION));
    // The count's high half too: the lock reaches beyond 8 GiB.
    EXPECT_FALSE(LockFile(other.Get(), 0x8, 2, 1, 0));
    EXPECT_TRUE(LockFile(other.Get(), 0, 0, 1, 0));
    EXPECT_TRUE(UnlockFile(other.Get(), 0, 0, 1, 0));
    EXPECT_TRUE(file.UnlockRange(0x100000000ULL, 0x100000010ULL));
}

TEST_F(TinyFileTest, UnlockOfAnUnlockedRangeFails) {
    TinyFile file;
    OpenWith(file, PathOf(L"unlocked.bin"), "0123");
    // Windows sets ERROR_NOT_LOCKED here, Wine ERROR_LOCK_VIOLATION: only the result is the
    // class's own.
    EXPECT_FALSE(file.UnlockRange(0, 2));
}

TEST_F(TinyFileTest, FlushOfAnOpenFileSucceeds) {
    TinyFile file;
    OpenWith(file, PathOf(L"flushed.bin"), "0123");
    EXPECT_EQ(file.Write("x", 1), 1);
    EXPECT_TRUE(file.Flush());
}

// --- names, type and information ---

TEST_F(TinyFileTest, FileTitleIsTheNameOfThePath) {
    TinyFile file;
    ASSERT_TRUE(file.Create(PathOf(L"titlefile").c_str(), 0));
    ASSERT_NE(file.GetFileTitle(), nullptr);
    EXPECT_STREQ(file.GetFileTitle(), L"titlefile");
}

TEST_F(TinyFileTest, FullPathOfARelativePath) {
    wchar_t previous[MAX_PATH] = {};
    ASSERT_NE(GetCurrentDirectoryW(MAX_PATH, previous), 0u);
    ASSERT_TRUE(SetCurrentDirectoryW(m_folder.Path().c_str()));
    TinyFile file;
    const BOOL created = file.Create(L"relative.bin", 0);
    const LPCWSTR fullPath = file.GetFullPath();
    const std::wstring fullPathText = fullPath != nullptr ? fullPath : L"(null)";
    file.Close();
    ASSERT_TRUE(SetCurrentDirectoryW(previous));
    ASSERT_TRUE(created);
    EXPECT_EQ(fullPathText, PathOf(L"relative.bin"));
}

TEST_F(TinyFileTest, TypeOfADiskFileAndOfAPipe) {
    TinyFile file;
    ASSERT_TRUE(file.Create(PathOf(L"typed.bin").c_str(), 0));
    EXPECT_EQ(file.GetType(), static_cast<DWORD>(FILE_TYPE_DISK));
    HANDLE readEnd = nullptr;
    HANDLE writeEnd = nullptr;
    ASSERT_TRUE(CreatePipe(&readEnd, &writeEnd, nullptr, 0));
    TinyFile reader(readEnd);
    TinyFile writer(writeEnd);
    EXPECT_EQ(reader.GetType(), static_cast<DWORD>(FILE_TYPE_PIPE));
}

TEST_F(TinyFileTest, InformationOfAnOpenFile) {
    TinyFile file;
    OpenWith(file, PathOf(L"information.bin"), "0123456");
    BY_HANDLE_FILE_INFORMATION information = {};
    ASSERT_TRUE(file.GetInformation(&information));
    EXPECT_EQ(information.nFileSizeLow, 7u);
    EXPECT_EQ(information.nFileSizeHigh, 0u);
    EXPECT_EQ(information.nNumberOfLinks, 1u);
    EXPECT_EQ(information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY, 0u);
}

// --- Exists ---

TEST_F(TinyFileTest, ExistsForAFolder) {
    EXPECT_TRUE(TinyFile::Exists(m_folder.Path().c_str()));
}

TEST_F(TinyFileTest, ExistsForAFile) {
    const std::wstring path = PathOf(L"present.bin");
    ASSERT_TRUE(WriteWholeFile(path, "x"));
    EXPECT_TRUE(TinyFile::Exists(path.c_str()));
}

TEST_F(TinyFileTest, ExistsIsFalseForAMissingPath) {
    EXPECT_FALSE(TinyFile::Exists(PathOf(L"absent.bin").c_str()));
    EXPECT_FALSE(TinyFile::Exists(PathOf(L"absent\\deeper.bin").c_str()));
}

TEST(TinyFileExistsTest, NullOrUnreadablePathIsFalse) {
    EXPECT_FALSE(TinyFile::Exists(nullptr));
    EXPECT_FALSE(TinyFile::Exists(reinterpret_cast<LPCWSTR>(static_cast<uintptr_t>(1))));
}

TEST(TinyFileExistsTest, ErrorModeIsRestored) {
    const UINT original = SetErrorMode(SEM_NOOPENFILEERRORBOX);
    EXPECT_FALSE(TinyFile::Exists(L"C:\\no such folder\\no such file"));
    const UINT after = SetErrorMode(original);
    EXPECT_EQ(after, static_cast<UINT>(SEM_NOOPENFILEERRORBOX));
}

// --- status ---

TEST_F(TinyFileTest, StatusOfAnUnopenedFileFillsOnlyThePath) {
    const std::wstring path = PathOf(L"status.bin");
    TinyFile file;
    ASSERT_TRUE(file.Create(path.c_str(), 0));
    ASSERT_EQ(file.Write("0123", 4), 4);
    ASSERT_TRUE(file.Close());
    TinyFileStatus status;
    memset(static_cast<void*>(&status), 0x5A, sizeof(status));
    EXPECT_TRUE(file.GetStatus(status));
    EXPECT_EQ(std::wstring(status.m_path), path);
    EXPECT_EQ(status.m_size, 0u);
    EXPECT_EQ(status.m_attribute, 0);
    EXPECT_EQ(status.m_ctime.GetTime(), 0);
    EXPECT_EQ(status.m_mtime.GetTime(), 0);
    EXPECT_EQ(status.m_atime.GetTime(), 0);
}

TEST_F(TinyFileTest, StatusOfAnOpenFileMatchesThePlatform) {
    const std::wstring path = PathOf(L"measured.bin");
    TinyFile file;
    ASSERT_TRUE(file.Create(path.c_str(), FILE_ATTRIBUTE_HIDDEN));
    ASSERT_EQ(file.Write("0123456", 7), 7);
    TinyFileStatus status;
    ASSERT_TRUE(file.GetStatus(status));
    FILETIME creation;
    FILETIME lastAccess;
    FILETIME lastWrite;
    ASSERT_TRUE(GetFileTime(file.Handle(), &creation, &lastAccess, &lastWrite));
    EXPECT_EQ(std::wstring(status.m_path), path);
    EXPECT_EQ(status.m_size, 7u);
    EXPECT_EQ(status.m_attribute, static_cast<uint8_t>(GetFileAttributesW(path.c_str()) & 0xFF));
    EXPECT_EQ(status.m_attribute & FILE_ATTRIBUTE_HIDDEN, FILE_ATTRIBUTE_HIDDEN);
    EXPECT_EQ(status.m_ctime, TinyTime(creation));
    EXPECT_EQ(status.m_mtime, TinyTime(lastWrite));
    EXPECT_EQ(status.m_atime, TinyTime(lastAccess));
}

TEST_F(TinyFileTest, StatusTimesAreTheFilesTimes) {
    TinyFile file;
    ASSERT_TRUE(file.Create(PathOf(L"dated.bin").c_str(), 0));
    const int64_t accessed = RecentSeconds(120);
    const int64_t written = RecentSeconds(60);
    const FILETIME accessTime = FileTimeOfUtcSeconds(accessed);
    const FILETIME writeTime = FileTimeOfUtcSeconds(written);
    ASSERT_TRUE(SetFileTime(file.Handle(), nullptr, &accessTime, &writeTime));
    TinyFileStatus status;
    ASSERT_TRUE(file.GetStatus(status));
    EXPECT_EQ(status.m_mtime.GetTime(), written);
    EXPECT_EQ(status.m_atime.GetTime(), accessed);
}

TEST_F(TinyFileTest, StatusOfAFileWrittenBefore1970Throws) {
    TinyFile file;
    ASSERT_TRUE(file.Create(PathOf(L"old.bin").c_str(), 0));
    const FILETIME old = FileTimeOfUtcSeconds(UtcSeconds(1950, 6, 15, 12, 0, 0));
    ASSERT_TRUE(SetFileTime(file.Handle(), nullptr, &old, &old));
    TinyFileStatus status;
    EXPECT_EQ(ThrownText([&] { file.GetStatus(status); }), L"Invalid args");
}

TEST_F(TinyFileTest, StatusByPathMatchesThePlatform) {
    const std::wstring path = PathOf(L"bypath.bin");
    ASSERT_TRUE(WriteWholeFile(path, "0123456789"));
    const int64_t written = RecentSeconds(60);
    {
        TinyFile file;
        ASSERT_TRUE(file.OpenAppend(path.c_str(), GENERIC_WRITE, kShareReadWrite, 0));
        const FILETIME writeTime = FileTimeOfUtcSeconds(written);
        ASSERT_TRUE(SetFileTime(file.Handle(), nullptr, nullptr, &writeTime));
    }
    WIN32_FILE_ATTRIBUTE_DATA data;
    ASSERT_TRUE(GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data));
    TinyFileStatus status;
    ASSERT_TRUE(TinyFile::GetStatus(path.c_str(), status));
    EXPECT_EQ(status.m_size, 10u);
    EXPECT_EQ(status.m_attribute, static_cast<uint8_t>(data.dwFileAttributes & 0x7F));
    EXPECT_EQ(status.m_mtime.GetTime(), written);
    EXPECT_EQ(status.m_ctime, TinyTime(data.ftCreationTime));
    EXPECT_EQ(status.m_atime, TinyTime(data.ftLastAccessTime));
}

TEST_F(TinyFileTest, StatusByPathLeavesThePathAlone) {
    const std::wstring path = PathOf(L"pathless.bin");
    ASSERT_TRUE(WriteWholeFile(path, "x"));
    TinyFileStatus status;
    wcscpy_s(status.m_path, MAX_PATH, L"untouched");
    ASSERT_TRUE(TinyFile::GetStatus(path.c_str(), status));
    EXPECT_STREQ(status.m_path, L"untouched");
}

TEST_F(TinyFileTest, StatusByPathOfAFolder) {
    TinyFileStatus status;
    ASSERT_TRUE(TinyFile::GetStatus(m_folder.Path().c_str(), status));
    EXPECT_EQ(status.m_attribute & FILE_ATTRIBUTE_DIRECTORY, FILE_ATTRIBUTE_DIRECTORY);
}

TEST_F(TinyFileTest, StatusByPathFailsForAMissingFile) {
    TinyFileStatus status;
    EXPECT_FALSE(TinyFile::GetStatus(PathOf(L"absent.bin").c_str(), status));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST(TinyFileStatusTest, StatusByPathFailsForANullOrOverlongPath) {
    TinyFileStatus status;
    EXPECT_FALSE(TinyFile::GetStatus(nullptr, status));
    const std::wstring overlong = L"C:\\" + std::wstring(MAX_PATH - 3, L'a');
    ASSERT_EQ(overlong.size(), static_cast<size_t>(MAX_PATH));
    SetLastError(kSentinelError);
    EXPECT_FALSE(TinyFile::GetStatus(overlong.c_str(), status));
    // Refused before the platform is asked.
    EXPECT_EQ(GetLastError(), kSentinelError);
}

// --- the name behind a handle ---

TEST_F(TinyFileTest, NameFromHandleEndsWithTheFileName) {
    TinyFile file;
    OpenWith(file, PathOf(L"named.bin"), std::string(300, 'n'));
    wchar_t name[MAX_PATH] = {};
    ASSERT_TRUE(TinyFile::GetFileNameFromHandle(file.Handle(), name));
    EXPECT_TRUE(EndsWith(name, L"\\named.bin")) << std::string(name, name + wcslen(name));
}

TEST_F(TinyFileTest, NameFromHandleOfAnEmptyFileFails) {
    TinyFile file;
    ASSERT_TRUE(file.Create(PathOf(L"empty.bin").c_str(), 0));
    wchar_t name[MAX_PATH] = {};
    EXPECT_FALSE(TinyFile::GetFileNameFromHandle(file.Handle(), name));
}

TEST_F(TinyFileTest, NameFromHandleOfAFileShorterThanTheMappingFails) {
    // A read-only mapping cannot be larger than its file.
    TinyFile file;
    OpenWith(file, PathOf(L"small.bin"), "0123456789");
    wchar_t name[MAX_PATH] = {};
    EXPECT_FALSE(TinyFile::GetFileNameFromHandle(file.Handle(), name));
}

TEST(TinyFileNameTest, NameFromANullHandleOrBufferFails) {
    wchar_t name[MAX_PATH] = {};
    EXPECT_FALSE(TinyFile::GetFileNameFromHandle(nullptr, name));
    EXPECT_FALSE(TinyFile::GetFileNameFromHandle(GetCurrentProcess(), nullptr));
}

// Defines a drive letter for the test's own device path and removes it again.
class ScopedDriveLetter {
public:
    ScopedDriveLetter(const wchar_t* drive, const std::wstring& target)
        : m_drive(drive),
          m_target(target),
          m_defined(DefineDosDeviceW(DDD_RAW_TARGET_PATH, drive, target.c_str()) != FALSE) {}
    ~ScopedDriveLetter() {
        if (m_defined) {
            DefineDosDeviceW(
                DDD_RAW_TARGET_PATH | DDD_REMOVE_DEFINITION | DDD_EXACT_MATCH_ON_REMOVE,
                m_drive.c_str(), m_target.c_str());
        }
    }
    ScopedDriveLetter(const ScopedDriveLetter&) = delete;
    ScopedDriveLetter& operator=(const ScopedDriveLetter&) = delete;
    bool IsDefined() const { return m_defined; }

private:
    std::wstring m_drive;
    std::wstring m_target;
    bool m_defined;
};

// The platform's device path of a mapped file, as the look-up reads it.
std::wstring MappedName(HANDLE file) {
    const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
    if (mapping == nullptr) {
        return L"";
    }
    void* view = MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 1);
    wchar_t name[MAX_PATH] = {};
    if (view != nullptr) {
        K32GetMappedFileNameW(GetCurrentProcess(), view, name, MAX_PATH);
        UnmapViewOfFile(view);
    }
    CloseHandle(mapping);
    return name;
}

// B: comes before every drive that the system assigns, so a device given to it is the first
// to be compared.
constexpr const wchar_t* kTestDrive = L"B:";

TEST_F(TinyFileTest, NameFromHandleTakesTheDriveWhoseDeviceIsThePrefix) {
    wchar_t existing[MAX_PATH];
    ASSERT_EQ(QueryDosDeviceW(kTestDrive, existing, MAX_PATH), 0u) << "B: is in use";
    TinyFile file;
    OpenWith(file, PathOf(L"lettered.bin"), std::string(300, 'l'));
    const std::wstring mapped = MappedName(file.Handle());
    ASSERT_TRUE(EndsWith(mapped, L"\\lettered.bin"));
    const std::wstring folderDevice = mapped.substr(0, mapped.size() - wcslen(L"\\lettered.bin"));
    const ScopedDriveLetter drive(kTestDrive, folderDevice);
    ASSERT_TRUE(drive.IsDefined());
    wchar_t name[MAX_PATH] = {};
    ASSERT_TRUE(TinyFile::GetFileNameFromHandle(file.Handle(), name));
    EXPECT_STREQ(name, L"B:\\lettered.bin");
}

TEST_F(TinyFileTest, NameFromHandleMatchesADevicePrefixInsideAName) {
    wchar_t existing[MAX_PATH];
    ASSERT_EQ(QueryDosDeviceW(kTestDrive, existing, MAX_PATH), 0u) << "B: is in use";
    TinyFile file;
    OpenWith(file, PathOf(L"prefixed.bin"), std::string(300, 'p'));
    const std::wstring mapped = MappedName(file.Handle());
    ASSERT_TRUE(EndsWith(mapped, L"\\prefixed.bin"));
    // A device that ends inside the file's name still counts as its prefix.
    const std::wstring partialDevice = mapped.substr(0, mapped.size() - wcslen(L"fixed.bin"));
    const ScopedDriveLetter drive(kTestDrive, partialDevice);
    ASSERT_TRUE(drive.IsDefined());
    wchar_t name[MAX_PATH] = {};
    ASSERT_TRUE(TinyFile::GetFileNameFromHandle(file.Handle(), name));
    EXPECT_STREQ(name, L"B:fixed.bin");
}

// --- nothing is logged ---

TEST_F(TinyFileTest, FailuresLogNothing) {
    TestSupport::LogCapture capture;
    TinyFile file;
    TinyFileStatus status;
    EXPECT_FALSE(file.Create(PathOf(L"missing\\file.bin").c_str(), 0));
    EXPECT_FALSE(TinyFile::GetStatus(PathOf(L"absent.bin").c_str(), status));
    EXPECT_FALSE(file.Flush());
    EXPECT_EQ(file.Seek(1, FILE_BEGIN), -1);
    EXPECT_TRUE(capture.Records().empty());
}

}  // namespace
