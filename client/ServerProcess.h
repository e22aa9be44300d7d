#pragma once

#include "client/UniqueHandle.h"

#include <windows.h>

#include <string>
#include <vector>

namespace QueryClient {

// One run of the query server, inside a job object that kills it when the job handle closes:
// no server outlives the query that started it, nor the parent.
class ServerProcess {
public:
    ServerProcess() = default;
    ~ServerProcess() { Terminate(); }
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    // Starts `executable` with the arguments, each quoted as a separate argv entry.
    bool Start(const std::wstring& executable, const std::vector<std::wstring>& arguments,
               std::string* error);
    HANDLE ProcessHandle() const { return m_process.Get(); }
    DWORD ProcessId() const { return m_processId; }
    // Waits up to `milliseconds` for the process to end.
    bool WaitForExit(DWORD milliseconds) const;
    // The exit code once the process has ended; STILL_ACTIVE before.
    DWORD ExitCode() const;
    // Ends the process (and anything it started) if it still runs.
    void Terminate();

private:
    UniqueHandle m_job;
    UniqueHandle m_process;
    DWORD m_processId = 0;
};

// Quotes one argument so that the C runtime's command-line parsing gives it back unchanged.
std::wstring QuoteArgument(const std::wstring& argument);

}  // namespace QueryClient
