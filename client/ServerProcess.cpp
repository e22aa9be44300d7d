#include "client/ServerProcess.h"

#include "client/SystemErrorText.h"

namespace QueryClient {

namespace {

constexpr DWORD kTerminateWaitMs = 5000;

std::string DescribeLastError(const char* call) {
    return DescribeFailure(call, GetLastError());
}

UniqueHandle CreateKillOnCloseJob() {
    UniqueHandle job(CreateJobObjectW(nullptr, nullptr));
    if (!job.IsValid()) {
        return job;
    }
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (!SetInformationJobObject(job.Get(), JobObjectExtendedLimitInformation, &limits,
                                 sizeof(limits))) {
        job.Reset();
    }
    return job;
}

}  // namespace

std::wstring QuoteArgument(const std::wstring& argument) {
    if (!argument.empty() && argument.find_first_of(L" \t\n\v\"") == std::wstring::npos) {
        return argument;
    }
    std::wstring quoted = L"\"";
    size_t backslashes = 0;
    for (wchar_t unit : argument) {
        if (unit == L'\\') {
            ++backslashes;
            continue;
        }
        if (unit == L'"') {
            // Backslashes before a quote are doubled, and the quote itself escaped.
            quoted.append(backslashes * 2 + 1, L'\\');
        } else {
            quoted.append(backslashes, L'\\');
        }
        backslashes = 0;
        quoted.push_back(unit);
    }
    // Backslashes before the closing quote are doubled so that it stays a closing quote.
    quoted.append(backslashes * 2, L'\\');
    quoted.push_back(L'"');
    return quoted;
}

bool ServerProcess::Start(const std::wstring& executable,
                          const std::vector<std::wstring>& arguments, std::string* error) {
    m_job = CreateKillOnCloseJob();
    if (!m_job.IsValid()) {
        *error = DescribeLastError("CreateJobObject");
        return false;
    }
    std::wstring commandLine = QuoteArgument(executable);
    for (const std::wstring& argument : arguments) {
        commandLine += L" " + QuoteArgument(argument);
    }
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    // Suspended until it is in the job, so that nothing it does escapes the job.
    if (!CreateProcessW(executable.c_str(), &commandLine[0], nullptr, nullptr, FALSE,
                        CREATE_SUSPENDED | CREATE_NO_WINDOW, nullptr, nullptr, &startup,
                        &process)) {
        *error = DescribeLastError("CreateProcess");
        return false;
    }
    m_process.Reset(process.hProcess);
    m_processId = process.dwProcessId;
    UniqueHandle thread(process.hThread);
    if (!AssignProcessToJobObject(m_job.Get(), process.hProcess)) {
        *error = DescribeLastError("AssignProcessToJobObject");
        Terminate();
        return false;
    }
    if (ResumeThread(thread.Get()) == static_cast<DWORD>(-1)) {
        *error = DescribeLastError("ResumeThread");
        Terminate();
        return false;
    }
    return true;
}

bool ServerProcess::WaitForExit(DWORD milliseconds) const {
    return m_process.IsValid() &&
           WaitForSingleObject(m_process.Get(), milliseconds) == WAIT_OBJECT_0;
}

DWORD ServerProcess::ExitCode() const {
    DWORD code = STILL_ACTIVE;
    if (m_process.IsValid()) {
        GetExitCodeProcess(m_process.Get(), &code);
    }
    return code;
}

void ServerProcess::Terminate() {
    if (m_process.IsValid() && !WaitForExit(0)) {
        TerminateProcess(m_process.Get(), ERROR_TIMEOUT);
        // Bounded: the parent must never hang on a server that is hard to kill.
        WaitForSingleObject(m_process.Get(), kTerminateWaitMs);
    }
    // Closing the job ends whatever else is left in it.
    m_job.Reset();
}

}  // namespace QueryClient
