#include "TinyFramework/Common/TinyLogging_win32.h"

#include <atomic>
#include <cstdio>
#include <iomanip>

namespace TinyFramework {

namespace {

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

// The log file joins here once a program can name one; until then a record that no handler took
// ends at this point. The query server sets neither a handler nor a file on purpose: it has no
// console and no file of its own, and its parent judges a run by the bytes on the pipe alone, so
// its records are formatted and go nowhere.
void OfferToLogFile(int32_t /*severity*/, const std::string& /*record*/) {}

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
    OfferToLogFile(m_severity, record);
}

}  // namespace TinyFramework
