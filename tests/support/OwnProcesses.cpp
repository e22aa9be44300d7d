#include "tests/support/OwnProcesses.h"

#include <tlhelp32.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace TestSupport {

namespace {

constexpr DWORD kPollPauseMs = 20;
// Far more than a test program ever runs at once.
constexpr size_t kMaxListedProcesses = 1024;

HANDLE OwnJob() {
    // Never closed: the job must live as long as the program that is in it.
    static const HANDLE job = [] {
        const HANDLE created = CreateJobObjectW(nullptr, nullptr);
        if (created != nullptr && !AssignProcessToJobObject(created, GetCurrentProcess())) {
            CloseHandle(created);
            return static_cast<HANDLE>(nullptr);
        }
        return created;
    }();
    return job;
}

std::vector<DWORD> OwnProcessIds() {
    // The list's header is followed by the ids; the buffer is ULONG_PTRs so that they align.
    std::vector<ULONG_PTR> buffer(kMaxListedProcesses + 2);
    auto* list = reinterpret_cast<JOBOBJECT_BASIC_PROCESS_ID_LIST*>(buffer.data());
    std::vector<DWORD> ids;
    if (OwnJob() == nullptr ||
        !QueryInformationJobObject(OwnJob(), JobObjectBasicProcessIdList, list,
                                   static_cast<DWORD>(buffer.size() * sizeof(ULONG_PTR)),
                                   nullptr)) {
        return ids;
    }
    const auto* listed = reinterpret_cast<const ULONG_PTR*>(
        reinterpret_cast<const BYTE*>(list) +
        offsetof(JOBOBJECT_BASIC_PROCESS_ID_LIST, ProcessIdList));
    for (ULONG index = 0; index < list->NumberOfProcessIdsInList; ++index) {
        ids.push_back(static_cast<DWORD>(listed[index]));
    }
    return ids;
}

}  // namespace

bool JoinOwnProcessJob() {
    return OwnJob() != nullptr;
}

int CountOwnProcesses(const wchar_t* executableName) {
    if (OwnJob() == nullptr) {
        return -1;
    }
    const std::vector<DWORD> own = OwnProcessIds();
    const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPPROCESS, 0);
    if (snapshot == INVALID_HANDLE_VALUE) {
        return -1;
    }
    int count = 0;
    PROCESSENTRY32W entry = {};
    entry.dwSize = sizeof(entry);
    for (BOOL more = Process32FirstW(snapshot, &entry); more;
         more = Process32NextW(snapshot, &entry)) {
        if (_wcsicmp(entry.szExeFile, executableName) == 0 &&
            std::find(own.begin(), own.end(), entry.th32ProcessID) != own.end()) {
            ++count;
        }
    }
    CloseHandle(snapshot);
    return count;
}

int OwnProcessesLeftAfter(const wchar_t* executableName, DWORD milliseconds) {
    const ULONGLONG end = GetTickCount64() + milliseconds;
    for (;;) {
        const int count = CountOwnProcesses(executableName);
        if (count <= 0 || GetTickCount64() >= end) {
            return count;
        }
        Sleep(kPollPauseMs);
    }
}

DWORD OwnProcessesStarted() {
    JOBOBJECT_BASIC_ACCOUNTING_INFORMATION accounting = {};
    if (OwnJob() == nullptr ||
        !QueryInformationJobObject(OwnJob(), JobObjectBasicAccountingInformation, &accounting,
                                   sizeof(accounting), nullptr)) {
        return 0;
    }
    return accounting.TotalProcesses;
}

}  // namespace TestSupport
