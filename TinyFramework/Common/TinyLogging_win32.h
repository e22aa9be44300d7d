#pragma once

#include <windows.h>

#include <cstdint>
#include <mutex>
#include <sstream>
#include <string>

namespace TinyFramework {

// Severities of a record. Anything above FATAL prints as "UNKNOWN"; a negative one prints no name.
enum LogSeverity : int32_t {
    LOG_INFO = 0,
    LOG_WARNING = 1,
    LOG_ERROR = 2,
    LOG_FATAL = 3,
};

// Receives every record that passed the flood guard. A non-zero result means the handler took
// the record and it goes no further. `text` is the whole record with its line feed.
typedef int (*LogMessageHandler)(int severity, const char* file, int line, const char* text);

void SetLogFloodGuard(int on);
int GetLogFloodGuard();
void SetLogMessageHandler(LogMessageHandler handler);
LogMessageHandler GetLogMessageHandler();

// The process's monotonic clock, in nanoseconds.
int64_t GetMonotonicNanos();

struct LogFloodSlot {
    std::string text;  // empty when the slot is free
    int32_t count = 0;
    int64_t lastTime = 0;
};

// Keeps a failing loop from flooding the log: within a burst of records (no silence of a second
// or more between any two), the fourth and later records of one text are dropped.
class LogFloodGuard {
public:
    static constexpr int kSlotCount = 10;
    static constexpr int64_t kWindowNanos = 1000000000;

    LogFloodGuard();
    LogFloodGuard(const LogFloodGuard&) = delete;
    LogFloodGuard& operator=(const LogFloodGuard&) = delete;

    // Whether a record with this message text (line feed included) may pass.
    bool Check(const std::string& text);
    // Same, at a given time; Check uses GetMonotonicNanos().
    bool CheckAt(const std::string& text, int64_t now);
    void Reset();
    // Prints the table to standard output, for a person at a debugger.
    void Dump() const;

    const LogFloodSlot& GetSlot(int index) const { return m_slots[index]; }
    int64_t GetLastTime() const { return m_lastTime; }
    int32_t GetLimit() const { return m_limit; }

private:
    bool CheckLocked(const std::string& text, int64_t now);

    LogFloodSlot m_slots[kSlotCount];
    int32_t m_reserved;  // kept zero; nothing reads it
    int64_t m_lastTime;
    std::mutex m_lock;
    int32_t m_limit;
};

// The header of a record: "[pid:tid:YYYY-MM-DD/hh:mm:ss.mmm:LEVEL] " and, with a source file,
// "path(line)] ".
void WriteLogHeader(std::ostream& out, DWORD processId, DWORD threadId, const SYSTEMTIME& time,
                    int severity, const char* file, int line);

// The process-wide flood guard that every LogMessage passes through.
LogFloodGuard& GetLogFloodGuardInstance();

// One log record, made on the caller's stack and written by its destructor:
//   LogMessage(__FILE__, __LINE__).stream() << "Failed to ...";
class LogMessage {
public:
    // Severity ERROR with the source path and line in the header.
    LogMessage(const char* file, int line);
    // A header without source path.
    explicit LogMessage(int severity);
    // Severity INFO and no header at all.
    LogMessage();
    virtual ~LogMessage();

    LogMessage(const LogMessage&) = delete;
    LogMessage& operator=(const LogMessage&) = delete;

    std::ostream& stream() { return m_message; }

private:
    void WriteHeader();

    int32_t m_severity;
    std::ostringstream m_header;
    std::ostringstream m_message;
    const char* m_file;
    int32_t m_line;
};

}  // namespace TinyFramework

// Failure reports: an ERROR record with the source position.
#define TINY_LOG_ERROR() ::TinyFramework::LogMessage(__FILE__, __LINE__).stream()
// Information without a source position.
#define TINY_LOG_INFO() ::TinyFramework::LogMessage(::TinyFramework::LOG_INFO).stream()
