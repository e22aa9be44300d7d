#include "tests/TinyFramework/CrashTestSupport.h"

#include "client/UniqueHandle.h"
#include "tests/support/ProgramFolder.h"
#include "tests/support/TestDeadlines.h"

namespace CrashTests {

namespace {

using QueryClient::UniqueHandle;

// Ending a process by force and seeing it gone takes a moment on a loaded machine.
constexpr DWORD kTerminateWaitMs = TestSupport::kDeadlineMarginMs;

}  // namespace

std::wstring Quote(const std::wstring& argument) {
    return L"\"" + argument + L"\"";
}

ChildRun RunChild(const std::wstring& program, const std::wstring& arguments,
                  const std::wstring& outputPath) {
    ChildRun run;
    SECURITY_ATTRIBUTES inherit = {sizeof(inherit), nullptr, TRUE};
    UniqueHandle output(CreateFileW(outputPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    UniqueHandle input(CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                   &inherit, OPEN_EXISTING, 0, nullptr));
    if (!output.IsValid()) {
        return run;
    }
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdInput = input.Get();
    startup.hStdOutput = output.Get();
    startup.hStdError = output.Get();
    std::wstring commandLine = Quote(program) + L" " + arguments;
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(nullptr, &commandLine[0], nullptr, nullptr, TRUE, 0, nullptr, nullptr,
                        &startup, &process)) {
        return run;
    }
    run.started = true;
    UniqueHandle processHandle(process.hProcess);
    UniqueHandle threadHandle(process.hThread);
    run.ended =
        WaitForSingleObject(processHandle.Get(), TestSupport::kGenerousDeadlineMs) == WAIT_OBJECT_0;
    if (!run.ended) {
        TerminateProcess(processHandle.Get(), 1);
        WaitForSingleObject(processHandle.Get(), kTerminateWaitMs);
    }
    GetExitCodeProcess(processHandle.Get(), &run.exitCode);
    output.Reset();
    run.output = TestSupport::ReadWholeFile(outputPath);
    return run;
}

CrashHelperRun::CrashHelperRun() {
    m_ready = m_folder.IsReady() &&
              CopyFileW(TestSupport::ProgramBesideThisOne(L"CrashHelper.exe").c_str(),
                        ProgramPath().c_str(), TRUE) != FALSE;
}

ChildRun CrashHelperRun::Crash(const std::wstring& kind, const std::wstring& options) {
    const std::wstring outputPath = PathOf(L"output-" + std::to_wstring(m_runs++) + L".txt");
    return RunChild(ProgramPath(), kind + L" " + Quote(LogPath()) + L" " + options, outputPath);
}

std::string CrashHelperRun::Log() const {
    return TestSupport::ReadWholeFile(LogPath());
}

}  // namespace CrashTests
