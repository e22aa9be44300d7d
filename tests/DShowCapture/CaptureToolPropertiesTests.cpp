// CaptureTool --properties with a display: the tool opens the device's property frame, captures
// for as long as it stays open, and sums up once the person closes it.

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CaptureTestSupport.h"
#include "DisplaySupport.h"
#include "tests/support/ProgramFolder.h"
#include "tests/support/TemporaryFolder.h"

using namespace CaptureTests;

namespace {

// A child process with its output in a file; ended and closed with the object.
class ToolProcess {
public:
    ToolProcess(const std::wstring& commandLine, const std::wstring& outputPath) {
        SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
        m_output = CreateFileW(outputPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit,
                               CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY, nullptr);
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        startup.dwFlags = STARTF_USESTDHANDLES;
        startup.hStdInput = GetStdHandle(STD_INPUT_HANDLE);
        startup.hStdOutput = m_output;
        startup.hStdError = m_output;
        std::wstring text = commandLine;
        PROCESS_INFORMATION process = {};
        if (m_output != INVALID_HANDLE_VALUE &&
            CreateProcessW(nullptr, &text[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                           &process)) {
            CloseHandle(process.hThread);
            m_process = process.hProcess;
            m_processId = process.dwProcessId;
        }
    }
    ~ToolProcess() {
        if (m_process) {
            if (WaitForSingleObject(m_process, 0) == WAIT_TIMEOUT) {
                TerminateProcess(m_process, 1);
            }
            CloseHandle(m_process);
        }
        if (m_output != INVALID_HANDLE_VALUE) {
            CloseHandle(m_output);
        }
    }
    ToolProcess(const ToolProcess&) = delete;
    ToolProcess& operator=(const ToolProcess&) = delete;

    bool Started() const { return m_process != nullptr; }
    DWORD Id() const { return m_processId; }
    bool IsRunning() const { return WaitForSingleObject(m_process, 0) == WAIT_TIMEOUT; }
    // The exit code once the process ended; false at the deadline.
    bool WaitForExit(DWORD* exitCode) const {
        return WaitForSingleObject(m_process, DisplayTests::kStateDeadlineMs) == WAIT_OBJECT_0 &&
               GetExitCodeProcess(m_process, exitCode);
    }

private:
    HANDLE m_output = INVALID_HANDLE_VALUE;
    HANDLE m_process = nullptr;
    DWORD m_processId = 0;
};

struct WindowSearch {
    DWORD processId;
    HWND found;
};

BOOL CALLBACK MatchVisibleWindowOfProcess(HWND window, LPARAM search) {
    auto* wanted = reinterpret_cast<WindowSearch*>(search);
    DWORD processId = 0;
    GetWindowThreadProcessId(window, &processId);
    if (processId == wanted->processId && IsWindowVisible(window)) {
        wanted->found = window;
        return FALSE;
    }
    return TRUE;
}

using CaptureToolProperties = CaptureTest;

TEST_F(CaptureToolProperties, CapturesUntilThePersonClosesTheFrameThenSumsUp) {
    ASSERT_TRUE(DisplayTests::HasDisplay());
    const DShow::VideoDevice device = AddCamera(L"mode = YUY2 videoinfo 160 120 333333\n");
    wchar_t temporary[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, temporary);
    const std::wstring output =
        std::wstring(temporary) + L"captool-properties-" + std::to_wstring(GetCurrentProcessId());
    ToolProcess tool(L"\"" + TestSupport::ProgramBesideThisOne(L"CaptureTool.exe") + L"\" \"" +
                         device.GetId() + L"\" --properties",
                     output);
    ASSERT_TRUE(tool.Started());

    WindowSearch search = {tool.Id(), nullptr};
    ASSERT_TRUE(DisplayTests::WaitUntil([&] {
        EnumWindows(&MatchVisibleWindowOfProcess, reinterpret_cast<LPARAM>(&search));
        return search.found != nullptr;
    })) << "the tool showed no frame";
    // Its frame is open, so the tool is still capturing.
    EXPECT_TRUE(tool.IsRunning());

    ASSERT_TRUE(PostMessageW(search.found, WM_CLOSE, 0, 0));
    DWORD exitCode = 99;
    ASSERT_TRUE(tool.WaitForExit(&exitCode));
    EXPECT_EQ(exitCode, 0u);
    const std::string text = TestSupport::ReadWholeFile(output);
    DeleteFileW(output.c_str());
    EXPECT_NE(text.find("requested: YUY2 160x120 at 30.000 fps"), std::string::npos) << text;
    EXPECT_NE(text.find("device lost: no"), std::string::npos) << text;
    EXPECT_NE(text.find("frames:    "), std::string::npos) << text;
}

}  // namespace
