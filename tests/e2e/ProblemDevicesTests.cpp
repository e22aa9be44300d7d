// The remembered list of devices that hung or crashed the server: the file, and the client and
// the tool that use it, against a virtual camera whose driver hangs.
#include "client/ProblemDevices.h"
#include "client/QueryClient.h"
#include "TinyFramework/Common/TinyTextConversion.h"
#include "tests/support/RawParent.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/e2e/CameraTest.h"
#include "tests/e2e/ToolRun.h"

#include <gtest/gtest.h>

#include <objbase.h>

namespace {

using QueryClient::Outcome;
using QueryClient::ProblemDevices;

using TestSupport::RunTool;
using TestSupport::TempFolder;
using TestSupport::ToolRun;

TEST(ProblemDevicesFile, MissingFileIsAnEmptyList) {
    ProblemDevices problems(TempFolder(L"missing") + L"\\none.txt");
    EXPECT_TRUE(problems.Load());
    EXPECT_TRUE(problems.Entries().empty());
}

TEST(ProblemDevicesFile, RememberSaveLoadAndForget) {
    const std::wstring path = TempFolder(L"roundtrip") + L"\\sub\\list.txt";
    {
        ProblemDevices problems(path);
        problems.Remember(L"\\\\?\\usb#caf\u00e9", Outcome::TimedOutReading);
        problems.Remember(L"crashy", Outcome::ServerDied);
        problems.Remember(L"crashy", Outcome::TimedOutWaitingForEvent);  // replaces, not adds
        ASSERT_TRUE(problems.Save());
    }
    ProblemDevices loaded(path);
    ASSERT_TRUE(loaded.Load());
    ASSERT_EQ(loaded.Entries().size(), 2u);
    EXPECT_EQ(loaded.Entries()[0].id, L"\\\\?\\usb#caf\u00e9");
    EXPECT_EQ(loaded.Entries()[0].outcome, "timed-out-reading");
    EXPECT_EQ(loaded.Entries()[1].outcome, "timed-out-waiting-for-event");
    EXPECT_TRUE(loaded.Contains(L"crashy"));
    EXPECT_TRUE(loaded.Forget(L"crashy"));
    EXPECT_FALSE(loaded.Forget(L"crashy"));
    EXPECT_FALSE(loaded.Contains(L"crashy"));
    loaded.ForgetAll();
    EXPECT_TRUE(loaded.Entries().empty());
}

TEST(ProblemDevicesFile, IdsWithLineEndsAreNotRemembered) {
    ProblemDevices problems(TempFolder(L"lines") + L"\\list.txt");
    problems.Remember(L"two\nlines", Outcome::ServerDied);
    EXPECT_TRUE(problems.Entries().empty());
}

TEST(ProblemDevicesFile, OnlyHangsAndCrashesAreProblems) {
    EXPECT_TRUE(ProblemDevices::IsProblem(Outcome::TimedOutWaitingForEvent));
    EXPECT_TRUE(ProblemDevices::IsProblem(Outcome::TimedOutReading));
    EXPECT_TRUE(ProblemDevices::IsProblem(Outcome::ServerDied));
    EXPECT_FALSE(ProblemDevices::IsProblem(Outcome::Ok));
    EXPECT_FALSE(ProblemDevices::IsProblem(Outcome::MalformedReply));
    EXPECT_FALSE(ProblemDevices::IsProblem(Outcome::ServerNotStarted));
}

// The names of the entries of `folder`, "." and ".." left out.
std::vector<std::wstring> EntriesOf(const std::wstring& folder) {
    std::vector<std::wstring> names;
    WIN32_FIND_DATAW found = {};
    HANDLE search = FindFirstFileW((folder + L"\\*").c_str(), &found);
    for (BOOL more = search != INVALID_HANDLE_VALUE; more; more = FindNextFileW(search, &found)) {
        const std::wstring name = found.cFileName;
        if (name != L"." && name != L"..") {
            names.push_back(name);
        }
    }
    if (search != INVALID_HANDLE_VALUE) {
        FindClose(search);
    }
    return names;
}

// A folder of this test's own, created empty.
std::wstring EmptyFolder(const wchar_t* purpose) {
    const std::wstring folder = TempFolder(purpose);
    CreateDirectoryW(folder.c_str(), nullptr);
    for (const std::wstring& name : EntriesOf(folder)) {
        const std::wstring path = folder + L"\\" + name;
        SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
        if (!DeleteFileW(path.c_str())) {
            RemoveDirectoryW(path.c_str());
        }
    }
    return folder;
}

void WriteBytes(const std::wstring& path, const std::string& bytes) {
    HANDLE file = CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    DWORD written = 0;
    WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &written, nullptr);
    CloseHandle(file);
}

// The file's identity on its volume: a file rewritten in place keeps it, a new file has its own.
ULONGLONG FileIndex(const std::wstring& path) {
    HANDLE file = CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                              OPEN_EXISTING, 0, nullptr);
    BY_HANDLE_FILE_INFORMATION information = {};
    GetFileInformationByHandle(file, &information);
    CloseHandle(file);
    return (static_cast<ULONGLONG>(information.nFileIndexHigh) << 32) | information.nFileIndexLow;
}

TEST(ProblemDevicesFile, WindowsLineEndsAreReadLikePlainOnes) {
    const std::wstring path = EmptyFolder(L"crlf") + L"\\list.txt";
    WriteBytes(path, "server-died\tcrashy\r\ntimed-out-reading\tslow\r\n");
    ProblemDevices problems(path);
    ASSERT_TRUE(problems.Load());
    ASSERT_EQ(problems.Entries().size(), 2u);
    EXPECT_EQ(problems.Entries()[0].id, L"crashy");
    EXPECT_EQ(problems.Entries()[0].outcome, "server-died");
    EXPECT_EQ(problems.Entries()[1].id, L"slow");
    EXPECT_EQ(problems.Entries()[1].outcome, "timed-out-reading");
    EXPECT_TRUE(problems.Contains(L"crashy"));
}

TEST(ProblemDevicesFile, SaveReplacesTheListByAWholeNewFileAndLeavesNothingBeside) {
    const std::wstring folder = EmptyFolder(L"replace");
    const std::wstring path = folder + L"\\list.txt";
    ProblemDevices problems(path);
    problems.Remember(L"first", Outcome::ServerDied);
    problems.Remember(L"second", Outcome::TimedOutReading);
    ASSERT_TRUE(problems.Save());
    const ULONGLONG firstFile = FileIndex(path);

    problems.Forget(L"first");
    ASSERT_TRUE(problems.Save());
    EXPECT_NE(FileIndex(path), firstFile) << "the list was rewritten in place";
    EXPECT_EQ(TestSupport::ReadWholeFile(path), "timed-out-reading\tsecond\n");
    EXPECT_EQ(EntriesOf(folder), std::vector<std::wstring>{L"list.txt"});
}

TEST(ProblemDevicesFile, SaveThatCannotReplaceTheListLeavesNothingBeside) {
    const std::wstring folder = EmptyFolder(L"kept");
    // A folder stands where the list should be: the new list is written, but cannot take its place.
    const std::wstring path = folder + L"\\list.txt";
    ASSERT_TRUE(CreateDirectoryW(path.c_str(), nullptr));
    ProblemDevices problems(path);
    problems.Remember(L"first", Outcome::ServerDied);
    EXPECT_FALSE(problems.Save());
    EXPECT_EQ(EntriesOf(folder), std::vector<std::wstring>{L"list.txt"});
    EXPECT_EQ(GetFileAttributesW(path.c_str()) & FILE_ATTRIBUTE_DIRECTORY,
              static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY));
    RemoveDirectoryW(path.c_str());
}

// Long enough for a server to start; the device's driver hangs far longer than it and the
// margin together.
constexpr DWORD kHangDeadlineMs = 1000;

class ProblemDevicesWithCamera : public CameraTest {
protected:
    void SetUp() override {
        CameraTest::SetUp();
        AddDevices(
            L"[device hang]\nFriendlyName = Hang\nDevicePath = hang\n"
            L"mode = YUY2 videoinfo 640 480 333333\nfault = delay_caps:60000\n"
            L"[device fine]\nFriendlyName = Fine\nDevicePath = fine\n"
            L"mode = YUY2 videoinfo 640 480 333333\n");
        // The tool keeps its list under LOCALAPPDATA; give this test a folder of its own.
        m_appData = TempFolder(L"appdata");
        SetEnvironmentVariableW(L"LOCALAPPDATA", m_appData.c_str());
    }
    std::wstring m_appData;
};

TEST_F(ProblemDevicesWithCamera, HungDeviceIsRememberedSkippedAndForgotten) {
    ProblemDevices problems(m_appData + L"\\client-list.txt");
    // Two clients share the list: one with a short per-device deadline for the device that
    // hangs, one with the generous deadline for everything a loaded machine must still finish.
    QueryClient::QueryOptions shortOptions = TestSupport::GenerousOptions();
    shortOptions.formatTimeoutMs = kHangDeadlineMs;
    shortOptions.problemDevices = &problems;
    QueryClient::Client hangClient(shortOptions);
    QueryClient::QueryOptions options = TestSupport::GenerousOptions();
    options.problemDevices = &problems;
    QueryClient::Client client(options);

    const ULONGLONG start = GetTickCount64();
    EXPECT_EQ(hangClient.GetDeviceFormats(L"hang").outcome, Outcome::TimedOutWaitingForEvent);
    EXPECT_LT(GetTickCount64() - start, kHangDeadlineMs + TestSupport::kDeadlineMarginMs)
        << "the per-device deadline held";
    EXPECT_TRUE(problems.Contains(L"hang"));

    ProblemDevices saved(m_appData + L"\\client-list.txt");
    ASSERT_TRUE(saved.Load());
    EXPECT_TRUE(saved.Contains(L"hang"));

    const DWORD startedBeforeSkip = TestSupport::OwnProcessesStarted();
    EXPECT_EQ(client.GetDeviceFormats(L"hang").outcome, Outcome::SkippedProblemDevice);
    EXPECT_EQ(TestSupport::OwnProcessesStarted(), startedBeforeSkip)
        << "a skipped device starts no server";
    EXPECT_EQ(client.GetDeviceFormats(L"fine").outcome, Outcome::Ok);
    EXPECT_FALSE(problems.Contains(L"fine"));

    problems.Forget(L"hang");
    EXPECT_EQ(hangClient.GetDeviceFormats(L"hang").outcome, Outcome::TimedOutWaitingForEvent);
}

TEST_F(ProblemDevicesWithCamera, ToolShowsSkipsAndForgets) {
    ToolRun first = RunTool(L"--format-timeout 1000 formats hang");
    EXPECT_EQ(first.exitCode, 1u);
    EXPECT_EQ(first.err.rfind("QueryTool: timed-out-waiting-for-event: ", 0), 0u) << first.err;

    ToolRun listed = RunTool(L"problems");
    EXPECT_EQ(listed.exitCode, 0u);
    EXPECT_NE(listed.out.find("timed-out-waiting-for-event"), std::string::npos) << listed.out;
    EXPECT_NE(listed.out.find("hang"), std::string::npos);

    ToolRun skipped = RunTool(L"formats hang");
    EXPECT_EQ(skipped.exitCode, 1u);
    EXPECT_EQ(skipped.err.rfind("QueryTool: skipped-problem-device: ", 0), 0u) << skipped.err;

    ToolRun whole = RunTool(L"list");
    EXPECT_EQ(whole.exitCode, 1u) << "one device could not be listed";
    EXPECT_NE(whole.out.find("Fine  (fine)"), std::string::npos) << whole.out;
    EXPECT_NE(whole.err.find("skipped-problem-device: Hang"), std::string::npos) << whole.err;

    EXPECT_EQ(RunTool(L"--forget").exitCode, 0u);
    EXPECT_NE(RunTool(L"problems").out.find("No problem devices"), std::string::npos);
}

TEST_F(ProblemDevicesWithCamera, ToolPrintsTablesJsonAndRefusesBadUse) {
    ToolRun devices = RunTool(L"--no-remember devices");
    EXPECT_EQ(devices.exitCode, 0u);
    EXPECT_NE(devices.out.find("NAME"), std::string::npos) << devices.out;
    EXPECT_NE(devices.out.find("Fine"), std::string::npos);

    ToolRun json = RunTool(L"--json devices");
    EXPECT_EQ(json.exitCode, 0u);
    EXPECT_NE(json.out.find("{\"id\": \"fine\", \"name\": \"Fine\"}"), std::string::npos)
        << json.out;

    ToolRun modes = RunTool(L"formats fine");
    EXPECT_EQ(modes.exitCode, 0u);
    EXPECT_NE(modes.out.find("YUY2     640x480     30.000"), std::string::npos) << modes.out;

    ToolRun raw = RunTool(L"--json formats fine");
    EXPECT_EQ(raw.out.rfind("[{\"flip\": 0, \"format\": 6,", 0), 0u) << raw.out;

    ToolRun bad = RunTool(L"--timeout zero devices");
    EXPECT_EQ(bad.exitCode, 1u);
    EXPECT_NE(bad.err.find("--timeout takes a positive number"), std::string::npos) << bad.err;
    EXPECT_EQ(RunTool(L"frobnicate").exitCode, 1u);
}

}  // namespace
