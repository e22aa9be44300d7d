#include "client/ProblemDevices.h"

#include "TinyFramework/Common/TinyTextConversion.h"
#include "client/UniqueHandle.h"

#include <windows.h>

#include <algorithm>

namespace QueryClient {

namespace {

constexpr char kSeparator = '\t';

bool ReadWholeFile(const std::wstring& path, std::string* content, bool* missing) {
    // Sharing delete lets another process's save rename its new list over this one meanwhile;
    // this reader keeps the old file whole.
    UniqueHandle file(CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_DELETE,
                                  nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.IsValid()) {
        const DWORD error = GetLastError();
        *missing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
        return false;
    }
    char buffer[4096];
    DWORD read = 0;
    while (ReadFile(file.Get(), buffer, sizeof(buffer), &read, nullptr) && read > 0) {
        content->append(buffer, read);
    }
    return true;
}

bool WriteWholeFile(const std::wstring& path, const std::string& content) {
    UniqueHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                  FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file.IsValid()) {
        return false;
    }
    DWORD written = 0;
    // Flushed before it takes the list's place, so that a machine that stops right after the
    // rename finds the whole new list rather than an empty file.
    return WriteFile(file.Get(), content.data(), static_cast<DWORD>(content.size()), &written,
                     nullptr) &&
           written == content.size() && FlushFileBuffers(file.Get());
}

// Beside the list, so that the rename stays within one volume; named for the process and thread,
// so that two savers never share one.
std::wstring TemporaryPathBeside(const std::wstring& path) {
    return path + L"." + std::to_wstring(GetCurrentProcessId()) + L"-" +
           std::to_wstring(GetCurrentThreadId()) + L".tmp";
}

// A list edited by hand may have Windows line ends; the carriage return belongs to none of the
// entry's fields.
std::string WithoutCarriageReturn(std::string line) {
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
}

// Creates the folder of `path` and those above it, as far as they are missing.
void CreateParentFolders(const std::wstring& path) {
    for (size_t slash = path.find_first_of(L"\\/", 3); slash != std::wstring::npos;
         slash = path.find_first_of(L"\\/", slash + 1)) {
        CreateDirectoryW(path.substr(0, slash).c_str(), nullptr);
    }
}

}  // namespace

ProblemDevices::ProblemDevices(std::wstring path) : m_path(std::move(path)) {}

std::wstring ProblemDevices::DefaultPath() {
    wchar_t folder[MAX_PATH] = {};
    const DWORD length = GetEnvironmentVariableW(L"LOCALAPPDATA", folder, MAX_PATH);
    std::wstring base = length > 0 && length < MAX_PATH ? folder : L".";
    return base + L"\\VideoCaptureQuery\\problem-devices.txt";
}

bool ProblemDevices::IsProblem(Outcome outcome) {
    return outcome == Outcome::TimedOutWaitingForEvent || outcome == Outcome::TimedOutReading ||
           outcome == Outcome::ServerDied;
}

bool ProblemDevices::Load() {
    m_entries.clear();
    std::string content;
    bool missing = false;
    if (!ReadWholeFile(m_path, &content, &missing)) {
        return missing;
    }
    size_t start = 0;
    while (start < content.size()) {
        size_t end = content.find('\n', start);
        if (end == std::string::npos) {
            end = content.size();
        }
        const std::string line = WithoutCarriageReturn(content.substr(start, end - start));
        const size_t separator = line.find(kSeparator);
        if (separator != std::string::npos) {
            m_entries.push_back(Entry{TinyFramework::FromUtf8(line.substr(separator + 1)),
                                      line.substr(0, separator)});
        }
        start = end + 1;
    }
    return true;
}

std::string ProblemDevices::Text() const {
    std::string content;
    for (const Entry& entry : m_entries) {
        content += entry.outcome + kSeparator + TinyFramework::ToUtf8(entry.id) + "\n";
    }
    return content;
}

bool ProblemDevices::Save() const {
    CreateParentFolders(m_path);
    // The new list is written whole beside the old one and then takes its place in one rename:
    // a reader, or a save that fails half-way, never leaves a cut list behind.
    const std::wstring temporary = TemporaryPathBeside(m_path);
    if (!WriteWholeFile(temporary, Text()) ||
        !MoveFileExW(temporary.c_str(), m_path.c_str(),
                     MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH)) {
        DeleteFileW(temporary.c_str());
        return false;
    }
    return true;
}

bool ProblemDevices::Contains(const std::wstring& id) const {
    return std::any_of(m_entries.begin(), m_entries.end(),
                       [&id](const Entry& entry) { return entry.id == id; });
}

void ProblemDevices::Remember(const std::wstring& id, Outcome outcome) {
    // An id with a line end could not be read back as one entry.
    if (id.find_first_of(L"\r\n") != std::wstring::npos) {
        return;
    }
    for (Entry& entry : m_entries) {
        if (entry.id == id) {
            entry.outcome = OutcomeName(outcome);
            return;
        }
    }
    m_entries.push_back(Entry{id, OutcomeName(outcome)});
}

bool ProblemDevices::Forget(const std::wstring& id) {
    const auto removed = std::remove_if(m_entries.begin(), m_entries.end(),
                                        [&id](const Entry& entry) { return entry.id == id; });
    const bool found = removed != m_entries.end();
    m_entries.erase(removed, m_entries.end());
    return found;
}

void ProblemDevices::ForgetAll() {
    m_entries.clear();
}

}  // namespace QueryClient
