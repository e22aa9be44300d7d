#include "TinyFramework/Common/TinyLogging_win32.h"
#include "TinyFramework/IO/TinyFile.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ProgramFolder.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

namespace {

using TestSupport::FileExists;
using TestSupport::ProgramDirectory;
using TestSupport::ReadWholeFile;
using TestSupport::TemporaryFolder;
using TestSupport::WriteWholeFile;
using TinyFramework::CloseLogFile;
using TinyFramework::ContinueLogFile;
using TinyFramework::g_logFile;
using TinyFramework::g_logFilePath;
using TinyFramework::LogMessage;
using TinyFramework::OpenLogFile;
using TinyFramework::RestartLogFile;

bool IsLogFileOpen() {
    const HANDLE handle = g_logFile.Handle();
    return handle != nullptr && handle != INVALID_HANDLE_VALUE;
}

std::string Narrow(const std::wstring& text) {
    return std::string(text.begin(), text.end());
}

std::string RegexEscape(const std::string& text) {
    return std::regex_replace(text, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
}

// "YYYYMMDD hh-mm-ss-<pid>.log" after the given directory.
std::regex LogPathPattern(const std::wstring& directory) {
    return std::regex(RegexEscape(Narrow(directory)) + R"(\d{8} \d{2}-\d{2}-\d{2}-)" +
                      std::to_string(GetCurrentProcessId()) + R"(\.log)");
}

// The log file and its path are one per process: each test starts without either and leaves
// none behind, and its records go to a capture whose handler lets them through to the file
// (result 0) unless the test says otherwise.
class LogFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(m_folder.IsReady());
        ASSERT_FALSE(IsLogFileOpen());
        ASSERT_TRUE(g_logFilePath.empty());
    }
    void TearDown() override {
        CloseLogFile();
        g_logFilePath.clear();
    }

    TemporaryFolder m_folder;
};

TEST_F(LogFileTest, OpeningAgainWithAnEmptyPathKeepsTheOpenFileAndItsPath) {
    const std::wstring path = m_folder.PathOf(L"first.log");
    ASSERT_TRUE(OpenLogFile(path.c_str()));
    const HANDLE handle = g_logFile.Handle();
    EXPECT_TRUE(OpenLogFile(L""));
    EXPECT_TRUE(OpenLogFile(nullptr));
    EXPECT_TRUE(OpenLogFile(m_folder.PathOf(L"other.log").c_str()));
    EXPECT_EQ(g_logFilePath, path);
    EXPECT_EQ(g_logFile.Handle(), handle);
    EXPECT_FALSE(FileExists(m_folder.PathOf(L"other.log")));
}

TEST_F(LogFileTest, RestartDeletesTheFileOfTheOldPathNotTheNewOne) {
    const std::wstring oldPath = m_folder.PathOf(L"old.log");
    const std::wstring newPath = m_folder.PathOf(L"new.log");
    ASSERT_TRUE(ContinueLogFile(oldPath.c_str()));
    ASSERT_TRUE(WriteWholeFile(newPath, "kept\n"));
    EXPECT_TRUE(RestartLogFile(newPath.c_str()));
    EXPECT_FALSE(FileExists(oldPath));
    EXPECT_EQ(g_logFilePath, newPath);
    {
        TestSupport::LogCapture capture(0);
        LogMessage().stream() << "after restart";
    }
    CloseLogFile();
    EXPECT_EQ(ReadWholeFile(newPath), "kept\n: after restart\n");
}

TEST_F(LogFileTest, ContinueAppendsToWhatTheFileHolds) {
    const std::wstring path = m_folder.PathOf(L"continued.log");
    ASSERT_TRUE(WriteWholeFile(path, "earlier\n"));
    EXPECT_TRUE(ContinueLogFile(path.c_str()));
    {
        TestSupport::LogCapture capture(0);
        LogMessage().stream() << "later";
    }
    CloseLogFile();
    EXPECT_EQ(ReadWholeFile(path), "earlier\n: later\n");
}

// The log files named after this process in a folder: "<stamp>-<pid>.log", whatever second
// the stamp holds.
std::vector<std::wstring> LogFilesOfThisProcess(const std::wstring& folder) {
    std::vector<std::wstring> names;
    const std::wstring pattern = folder + L"*-" + std::to_wstring(GetCurrentProcessId()) + L".log";
    WIN32_FIND_DATAW found = {};
    HANDLE search = FindFirstFileW(pattern.c_str(), &found);
    if (search == INVALID_HANDLE_VALUE) {
        return names;
    }
    do {
        names.push_back(found.cFileName);
    } while (FindNextFileW(search, &found));
    FindClose(search);
    return names;
}

std::wstring TempFolder() {
    wchar_t path[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, path);
    return path;
}

TEST_F(LogFileTest, ARecordWithNoPathNamedTouchesNoFile) {
    const std::vector<std::wstring> besideBefore =
        LogFilesOfThisProcess(TinyFramework::GetProgramDirectory());
    const std::vector<std::wstring> tempBefore = LogFilesOfThisProcess(TempFolder());
    {
        TestSupport::LogCapture capture(0);
        LogMessage(0).stream() << "nowhere to go";
        EXPECT_EQ(capture.Records().size(), 1u);
    }
    EXPECT_FALSE(IsLogFileOpen());
    EXPECT_TRUE(g_logFilePath.empty());
    EXPECT_EQ(LogFilesOfThisProcess(TinyFramework::GetProgramDirectory()), besideBefore);
    EXPECT_EQ(LogFilesOfThisProcess(TempFolder()), tempBefore);
}

TEST_F(LogFileTest, ARecordThatTheHandlerDeclinesReachesTheFile) {
    const std::wstring path = m_folder.PathOf(L"declined.log");
    ASSERT_TRUE(ContinueLogFile(path.c_str()));
    std::vector<std::string> records;
    {
        TestSupport::LogCapture capture(0);
        LogMessage(__FILE__, __LINE__).stream() << "first record";
        LogMessage(0).stream() << "second record";
        records = capture.Records();
    }
    ASSERT_EQ(records.size(), 2u);
    CloseLogFile();
    EXPECT_EQ(ReadWholeFile(path), records[0] + records[1]);
}

TEST_F(LogFileTest, ARecordThatTheHandlerTakesStaysOutOfTheFile) {
    const std::wstring path = m_folder.PathOf(L"taken.log");
    ASSERT_TRUE(ContinueLogFile(path.c_str()));
    {
        TestSupport::LogCapture capture(1);
        LogMessage(0).stream() << "taken by the handler";
        EXPECT_EQ(capture.Records().size(), 1u);
    }
    CloseLogFile();
    EXPECT_EQ(ReadWholeFile(path), "");
}

TEST_F(LogFileTest, ARecordOpensTheFileOfTheNamedPathAgainAfterAClose) {
    const std::wstring path = m_folder.PathOf(L"reopened.log");
    ASSERT_TRUE(ContinueLogFile(path.c_str()));
    CloseLogFile();
    {
        TestSupport::LogCapture capture(0);
        LogMessage().stream() << "reopens";
    }
    EXPECT_TRUE(IsLogFileOpen());
    CloseLogFile();
    EXPECT_EQ(ReadWholeFile(path), ": reopens\n");
}

TEST_F(LogFileTest, AFileThatCannotBeOpenedLosesTheRecord) {
    const std::wstring path = m_folder.PathOf(L"missing folder\\lost.log");
    EXPECT_FALSE(ContinueLogFile(path.c_str()));
    EXPECT_EQ(g_logFilePath, path);
    {
        TestSupport::LogCapture capture(0);
        LogMessage().stream() << "lost";
        EXPECT_EQ(capture.Records().size(), 1u);
    }
    EXPECT_FALSE(IsLogFileOpen());
    EXPECT_FALSE(FileExists(path));
}

TEST_F(LogFileTest, AnEmptyPathOpensTheDefaultFileBesideTheProgram) {
    ASSERT_TRUE(OpenLogFile(nullptr));
    const std::wstring path = g_logFilePath;
    CloseLogFile();
    const bool existed = FileExists(path);
    DeleteFileW(path.c_str());
    EXPECT_TRUE(existed);
    EXPECT_TRUE(std::regex_match(Narrow(path), LogPathPattern(ProgramDirectory()))) << Narrow(path);
}

TEST_F(LogFileTest, DeleteLogFileRemovesTheFileOfThePath) {
    const std::wstring path = m_folder.PathOf(L"deleted.log");
    ASSERT_TRUE(ContinueLogFile(path.c_str()));
    CloseLogFile();
    EXPECT_TRUE(TinyFramework::DeleteLogFile());
    EXPECT_FALSE(FileExists(path));
}

TEST(LogPaths, TheDefaultPathIsTheTimeStampAndProcessIdBesideTheProgram) {
    const std::string path = Narrow(TinyFramework::GetDefaultLogPath());
    EXPECT_TRUE(std::regex_match(path, LogPathPattern(ProgramDirectory()))) << path;
}

TEST(LogPaths, TheTemporaryPathIsTheSameNameInTheTemporaryDirectory) {
    wchar_t temp[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, temp);
    const std::string path = Narrow(TinyFramework::GetTempLogPath());
    EXPECT_TRUE(std::regex_match(path, LogPathPattern(temp))) << path;
}

TEST(LogPaths, ADirectoryKeepsItsSeparatorAndAPathWithoutOneStaysAsItIs) {
    EXPECT_EQ(TinyFramework::DirectoryWithSeparator(L"C:\\x\\a.exe"), L"C:\\x\\");
    EXPECT_EQ(TinyFramework::DirectoryWithSeparator(L"a.exe"), L"a.exe");
    EXPECT_EQ(TinyFramework::GetProgramDirectory(), ProgramDirectory());
}

TEST(LogReports, TheMemoryReportIsOneInfoLineInMegabytes) {
    TestSupport::LogCapture capture;
    EXPECT_TRUE(TinyFramework::LogMemoryReport());
    const std::vector<std::string> records = capture.Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_TRUE(std::regex_match(
        records[0], std::regex(R"(\[\d+:\d+:[-/:.\d]+:INFO\] : Physical Memory: (\d+)MB Total, )"
                               R"((\d+)MB Free, (\d+)MB WorkingSetSize\n)")))
        << records[0];
    MEMORYSTATUSEX memory = {};
    memory.dwLength = sizeof(memory);
    ASSERT_TRUE(GlobalMemoryStatusEx(&memory));
    EXPECT_NE(records[0].find("Physical Memory: " + std::to_string(memory.ullTotalPhys >> 20) +
                              "MB Total, "),
              std::string::npos)
        << records[0];
}

TEST(LogReports, TheDiskReportShowsTheCallersFreeSpaceAsTotalAndTheSizeAsFree) {
    TestSupport::LogCapture capture;
    EXPECT_TRUE(TinyFramework::LogDiskReport());
    const std::vector<std::string> records = capture.Records();
    ASSERT_EQ(records.size(), 1u);
    std::smatch match;
    ASSERT_TRUE(std::regex_match(
        records[0], match,
        std::regex(R"(\[\d+:\d+:[-/:.\d]+:INFO\] : Disk\(C\) Free Space: (\d+)MB Total, )"
                   R"((\d+)MB Free\n)")))
        << records[0];
    ULARGE_INTEGER freeToCaller = {};
    ULARGE_INTEGER total = {};
    ASSERT_TRUE(GetDiskFreeSpaceExW(L"C:\\", &freeToCaller, &total, nullptr));
    // The size of the volume does not move; the free space may, between the two calls.
    EXPECT_EQ(match[2].str(), std::to_string(total.QuadPart >> 20));
    EXPECT_LE(std::stoull(match[1].str()), total.QuadPart >> 20);
}

}  // namespace
