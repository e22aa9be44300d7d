// The remembered list of devices that hung or crashed the server: the file, and the client and
// the tool that use it, against a virtual camera whose driver hangs.
#include "client/ProblemDevices.h"
#include "client/QueryClient.h"
#include "client/TextConversion.h"
#include "tests/support/RawParent.h"
#include "tests/client/CameraTest.h"

#include <gtest/gtest.h>

#include <objbase.h>

namespace {

using QueryClient::Outcome;
using QueryClient::ProblemDevices;

std::wstring TempFolder(const wchar_t* purpose) {
    wchar_t base[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, base);
    return std::wstring(base) + L"problem-devices-" + purpose + L"-" +
           std::to_wstring(GetCurrentProcessId());
}

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

// Runs QueryTool.exe with the arguments; its standard output and error go to files.
struct ToolRun {
    DWORD exitCode = 0;
    std::string out;
    std::string err;
};

std::string ReadFileText(const std::wstring& path) {
    std::string text;
    HANDLE file = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                              nullptr, OPEN_EXISTING, 0, nullptr);
    char buffer[4096];
    DWORD read = 0;
    while (file != INVALID_HANDLE_VALUE && ReadFile(file, buffer, sizeof(buffer), &read, nullptr) &&
           read > 0) {
        text.append(buffer, read);
    }
    CloseHandle(file);
    return text;
}

ToolRun RunTool(const std::wstring& arguments) {
    const std::wstring server = QueryClient::DefaultServerPath();
    const std::wstring tool = server.substr(0, server.size() - 15) + L"QueryTool.exe";
    const std::wstring outPath = TempFolder(L"tool-out");
    const std::wstring errPath = TempFolder(L"tool-err");
    SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
    HANDLE out = CreateFileW(outPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit,
                             CREATE_ALWAYS, 0, nullptr);
    HANDLE err = CreateFileW(errPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit,
                             CREATE_ALWAYS, 0, nullptr);
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = out;
    startup.hStdError = err;
    PROCESS_INFORMATION process = {};
    std::wstring commandLine = L"\"" + tool + L"\" " + arguments;
    ToolRun run;
    if (CreateProcessW(tool.c_str(), &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                       &startup, &process)) {
        WaitForSingleObject(process.hProcess, 60000);
        GetExitCodeProcess(process.hProcess, &run.exitCode);
        CloseHandle(process.hProcess);
        CloseHandle(process.hThread);
    } else {
        run.exitCode = 9999;
    }
    CloseHandle(out);
    CloseHandle(err);
    run.out = ReadFileText(outPath);
    run.err = ReadFileText(errPath);
    return run;
}

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
    QueryClient::QueryOptions options;
    options.formatTimeoutMs = 1000;
    options.problemDevices = &problems;
    QueryClient::Client client(options);

    const ULONGLONG start = GetTickCount64();
    EXPECT_EQ(client.GetDeviceFormats(L"hang").outcome, Outcome::TimedOutWaitingForEvent);
    EXPECT_LT(GetTickCount64() - start, 1000u + 2000u) << "the per-device deadline held";
    EXPECT_TRUE(problems.Contains(L"hang"));

    ProblemDevices saved(m_appData + L"\\client-list.txt");
    ASSERT_TRUE(saved.Load());
    EXPECT_TRUE(saved.Contains(L"hang"));

    const ULONGLONG skipStart = GetTickCount64();
    EXPECT_EQ(client.GetDeviceFormats(L"hang").outcome, Outcome::SkippedProblemDevice);
    EXPECT_LT(GetTickCount64() - skipStart, 100u) << "a skipped device starts no server";
    EXPECT_EQ(client.GetDeviceFormats(L"fine").outcome, Outcome::Ok);
    EXPECT_FALSE(problems.Contains(L"fine"));

    problems.Forget(L"hang");
    EXPECT_EQ(client.GetDeviceFormats(L"hang").outcome, Outcome::TimedOutWaitingForEvent);
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
