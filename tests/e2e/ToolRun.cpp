#include "tests/e2e/ToolRun.h"

#include "client/QueryClient.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestDeadlines.h"

namespace TestSupport {

namespace {

// Long enough for a whole device list with modes on a slow machine; only a hang reaches it.
constexpr DWORD kToolDeadlineMs = 60000;
constexpr DWORD kToolNotStarted = 9999;

std::wstring ProgramPath(const wchar_t* exeName) {
    const std::wstring server = QueryClient::DefaultServerPath();
    return server.substr(0, server.size() - wcslen(L"QueryServer.exe")) + exeName;
}

}  // namespace

std::wstring TempFolder(const wchar_t* purpose) {
    wchar_t base[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, base);
    return std::wstring(base) + L"query-client-" + purpose + L"-" +
           std::to_wstring(GetCurrentProcessId());
}

ToolRun RunTool(const std::wstring& arguments) {
    // The tool's own default deadline is a user's; a test's --timeout or --format-timeout comes
    // later on the line and wins.
    return RunProgram(L"QueryTool.exe",
                      L"--timeout " + std::to_wstring(kGenerousDeadlineMs) + L" " + arguments);
}

ToolRun RunProgram(const wchar_t* exeName, const std::wstring& arguments) {
    const std::wstring tool = ProgramPath(exeName);
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
        WaitForSingleObject(process.hProcess, kToolDeadlineMs);
        GetExitCodeProcess(process.hProcess, &run.exitCode);
        CloseHandle(process.hProcess);
        CloseHandle(process.hThread);
    } else {
        run.exitCode = kToolNotStarted;
    }
    CloseHandle(out);
    CloseHandle(err);
    run.out = ReadWholeFile(outPath);
    run.err = ReadWholeFile(errPath);
    return run;
}

}  // namespace TestSupport
