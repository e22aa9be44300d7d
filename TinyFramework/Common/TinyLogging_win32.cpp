#include "TinyFramework/Common/TinyLogging_win32.h"

#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/IO/TinyFile.h"

#include <psapi.h>

#include <atomic>
#include <cstdio>
#include <iomanip>

namespace TinyFramework {

// Constructed ahead of ordinary statics, so that a record written from another file's static
// initialisation finds them ready.
__attribute__((init_priority(200))) std::wstring g_logFilePath;
__attribute__((init_priority(200))) IO::TinyFile g_logFile;

namespace {

// FILE_APPEND_DATA, and a creation mode of OPEN_ALWAYS inside OpenAppend.
constexpr DWORD kLogFileAccess = 4;
// The first attempt asks for a sharing value that no flag stands for; the second, with read and
// write sharing, is the one that normally opens the file. Programs in the field open their logs
// this way, so both attempts stay, in this order.
constexpr DWORD kFirstLogFileShare = 0x80;
constexpr DWORD kLogFileShare = FILE_SHARE_READ | FILE_SHARE_WRITE;
constexpr DWORD kLogFileAttributes = FILE_ATTRIBUTE_NORMAL;
constexpr int kMegabyteShift = 20;

// Read by every thread that logs while any thread may switch them: atomic.
std::atomic<int32_t> g_logFloodGuardOn{1};
std::atomic<LogMessageHandler> g_logHandler{nullptr};

const char* const kSeverityNames[] = {"INFO", "WARNING", "ERROR", "FATAL"};
constexpr int32_t kFloodLimit = 3;

const char* SeverityName(int32_t severity) {
    if (severity < 0) {
        return "";
    }
    if (severity > LOG_FATAL) {
        return "UNKNOWN";
    }
    return kSeverityNames[severity];
}

// Asked of the system once; the first caller initialises it, and threads that come at the same
// time wait for that, as for any function-local static.
int64_t GetPerformanceFrequency() {
    static const int64_t frequency = [] {
        LARGE_INTEGER value;
        QueryPerformanceFrequency(&value);
        return static_cast<int64_t>(value.QuadPart);
    }();
    return frequency;
}

// The last stop of a record that no handler took. Without a log path it ends here: the query
// server names no file on purpose, as it has no console and no file of its own and its parent
// judges a run by the bytes on the pipe alone. A record that cannot be written is lost, and the
// next one tries to open the file again. The file is not flushed: the system writes it behind.
void OfferToLogFile(const std::string& record) {
    if (g_logFilePath.empty()) {
        return;
    }
    if (!OpenLogFile(g_logFilePath.c_str())) {
        return;
    }
    g_logFile.Write(record.data(), static_cast<LONG>(static_cast<uint32_t>(record.size())));
}

// "YYYYMMDD hh-mm-ss-<pid>.log" in local time.
std::wstring LogFileName() {
    SYSTEMTIME now;
    GetLocalTime(&now);
    wchar_t name[64] = {};
    _snwprintf(name, 63, L"%d%02d%02d %02d-%02d-%02d-%d.log", now.wYear, now.wMonth, now.wDay,
               now.wHour, now.wMinute, now.wSecond, static_cast<int>(GetCurrentProcessId()));
    return name;
}

}  // namespace

void SetLogFloodGuard(int on) {
    g_logFloodGuardOn = on;
}

int GetLogFloodGuard() {
    return g_logFloodGuardOn;
}

void SetLogMessageHandler(LogMessageHandler handler) {
    g_logHandler = handler;
}

LogMessageHandler GetLogMessageHandler() {
    return g_logHandler;
}

int64_t GetMonotonicNanos() {
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    return static_cast<int64_t>(static_cast<double>(counter.QuadPart) * 1e9 /
                                static_cast<double>(GetPerformanceFrequency()));
}

LogFloodGuard& GetLogFloodGuardInstance() {
    // Made on first use, so that a record written by another file's static initialisation
    // never meets a guard that is not yet constructed.
    static LogFloodGuard guard;
    return guard;
}

LogFloodGuard::LogFloodGuard() : m_reserved(0), m_lastTime(0), m_limit(kFloodLimit) {}

bool LogFloodGuard::Check(const std::string& text) {
    std::lock_guard<std::mutex> hold(m_lock);
    return CheckLocked(text, GetMonotonicNanos());
}

bool LogFloodGuard::CheckAt(const std::string& text, int64_t now) {
    std::lock_guard<std::mutex> hold(m_lock);
    return CheckLocked(text, now);
}

bool LogFloodGuard::CheckLocked(const std::string& text, int64_t now) {
    const bool withinBurst = m_lastTime != 0 && now - m_lastTime < kWindowNanos;
    if (!withinBurst) {
        if (m_lastTime != 0) {
            Reset();
        }
        m_lastTime = now;
        m_slots[0].text = text;
        m_slots[0].count = 1;
        m_slots[0].lastTime = now;
        return true;
    }
    // The window slides: any record, of any text, keeps the burst going.
    m_lastTime = now;
    int freeSlot = -1;
    int oldestSlot = 0;
    for (int index = 0; index < kSlotCount; ++index) {
        LogFloodSlot& slot = m_slots[index];
        if (slot.text == text) {
            slot.count += 1;
            slot.lastTime = now;
            return slot.count <= m_limit;
        }
        if (freeSlot < 0 && slot.text.empty()) {
            freeSlot = index;
        }
        if (slot.lastTime < m_slots[oldestSlot].lastTime) {
            oldestSlot = index;
        }
    }
    LogFloodSlot& slot = m_slots[freeSlot >= 0 ? freeSlot : oldestSlot];
    slot.text = text;
    slot.count = 1;
    slot.lastTime = now;
    return true;
}

void LogFloodGuard::Reset() {
    for (LogFloodSlot& slot : m_slots) {
        slot.text.clear();
        slot.count = 0;
        slot.lastTime = 0;
    }
    m_reserved = 0;
    m_lastTime = 0;
}

void LogFloodGuard::Dump() const {
    for (int index = 0; index < kSlotCount; ++index) {
        const LogFloodSlot& slot = m_slots[index];
        if (slot.text.empty()) {
            continue;
        }
        printf("index:\t%d\r\n", index);
        printf("str:\t%s\r\n", slot.text.c_str());
        printf("cnt:\t%d\r\n", slot.count);
        printf("last_time:\t%lld\r\n", static_cast<long long>(slot.lastTime));
    }
}

LogMessage::LogMessage(const char* file, int line)
    : m_severity(LOG_ERROR), m_file(file), m_line(line) {
    WriteHeader();
}

LogMessage::LogMessage(int severity) : m_severity(severity), m_file(nullptr), m_line(0) {
    WriteHeader();
}

LogMessage::LogMessage() : m_severity(LOG_INFO), m_file(nullptr), m_line(0) {}

void WriteLogHeader(std::ostream& out, DWORD processId, DWORD threadId, const SYSTEMTIME& time,
                    int severity, const char* file, int line) {
    out << std::setfill('0');
    out << "[" << processId << ":" << threadId << ":";
    // A width of 2 on the year still prints it whole.
    out << std::setw(2) << time.wYear << "-" << std::setw(2) << time.wMonth << "-" << std::setw(2)
        << time.wDay << "/" << std::setw(2) << time.wHour << ":" << std::setw(2) << time.wMinute
        << ":" << std::setw(2) << time.wSecond << "." << std::setw(3) << time.wMilliseconds << ":";
    out << SeverityName(severity) << "] ";
    if (file != nullptr) {
        out << file << "(" << line << ")] ";
    }
}

void LogMessage::WriteHeader() {
    // With the guard on, the header stands apart so that the guard compares the message alone,
    // without its time and thread.
    std::ostream& out = g_logFloodGuardOn != 0 ? m_header : m_message;
    SYSTEMTIME now;
    GetLocalTime(&now);
    WriteLogHeader(out, GetCurrentProcessId(), GetCurrentThreadId(), now, m_severity, m_file,
                   m_line);
}

LogMessage::~LogMessage() {
    m_message << "\n";
    m_message.flush();
    const std::string text = m_message.str();
    if (g_logFloodGuardOn != 0 && !GetLogFloodGuardInstance().Check(text)) {
        return;
    }
    m_header << ": " << text;
    const std::string record = m_header.str();
    // One read of the handler, so that a handler set to null meanwhile is never called.
    const LogMessageHandler handler = g_logHandler;
    if (handler != nullptr && handler(m_severity, m_file, m_line, record.c_str()) != 0) {
        return;
    }
    OfferToLogFile(record);
}

std::wstring DirectoryWithSeparator(const std::wstring& path) {
    const size_t separator = path.rfind(L'\\');
    if (separator == std::wstring::npos) {
        return path;
    }
    return path.substr(0, separator + 1);
}

std::wstring GetProgramDirectory() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return DirectoryWithSeparator(path);
}

std::wstring GetDefaultLogPath() {
    return GetProgramDirectory() + LogFileName();
}

std::wstring GetTempLogPath() {
    wchar_t path[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, path);
    return DirectoryWithSeparator(path) + LogFileName();
}

BOOL OpenLogFile(const wchar_t* path) {
    const HANDLE handle = g_logFile.Handle();
    if (handle != nullptr && handle != INVALID_HANDLE_VALUE) {
        return TRUE;
    }
    // A copy first: the path may be g_logFilePath itself.
    const std::wstring chosen =
        path == nullptr || path[0] == L'\0' ? GetDefaultLogPath() : std::wstring(path);
    g_logFilePath = chosen;
    if (g_logFile.OpenAppend(chosen.c_str(), kLogFileAccess, kFirstLogFileShare,
                             kLogFileAttributes)) {
        return TRUE;
    }
    return g_logFile.OpenAppend(chosen.c_str(), kLogFileAccess, kLogFileShare, kLogFileAttributes);
}

void CloseLogFile() {
    g_logFile.Close();
}

BOOL DeleteLogFile() {
    return DeleteFileW(g_logFilePath.c_str());
}

BOOL RestartLogFile(const wchar_t* path) {
    CloseLogFile();
    // The file of the path used so far goes, not the one about to be opened.
    DeleteLogFile();
    return OpenLogFile(path);
}

BOOL ContinueLogFile(const wchar_t* path) {
    CloseLogFile();
    return OpenLogFile(path);
}

BOOL LogMemoryReport() {
    MEMORYSTATUSEX memory = {};
    memory.dwLength = sizeof(memory);
    if (!GlobalMemoryStatusEx(&memory)) {
        return FALSE;
    }
    PROCESS_MEMORY_COUNTERS counters = {};
    counters.cb = sizeof(counters);
    if (!K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof(counters))) {
        return FALSE;
    }
    LogMessage(LOG_INFO).stream() << StringPrintf(
        "Physical Memory: %luMB Total, %luMB Free, %luMB WorkingSetSize",
        static_cast<unsigned long>(memory.ullTotalPhys >> kMegabyteShift),
        static_cast<unsigned long>(memory.ullAvailPhys >> kMegabyteShift),
        static_cast<unsigned long>(counters.WorkingSetSize >> kMegabyteShift));
    return TRUE;
}

BOOL LogDiskReport() {
    ULARGE_INTEGER freeToCaller = {};
    ULARGE_INTEGER total = {};
    ULARGE_INTEGER totalFree = {};
    if (!GetDiskFreeSpaceExW(L"C:\\", &freeToCaller, &total, &totalFree)) {
        return FALSE;
    }
    // The labels stand crosswise to their values: "Total" shows the space free to this caller
    // and "Free" the size of the volume. Readers of these reports compare them with older ones,
    // so the order stays.
    LogMessage(LOG_INFO).stream() << StringPrintf(
        "Disk(C) Free Space: %luMB Total, %luMB Free",
        static_cast<unsigned long>(freeToCaller.QuadPart >> kMegabyteShift),
        static_cast<unsigned long>(total.QuadPart >> kMegabyteShift));
    return TRUE;
}

}  // namespace TinyFramework
