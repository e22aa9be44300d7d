#pragma once

#include <windows.h>

#include <cstdint>
#include <mutex>
#include <sstream>
#include <string>

namespace TinyFramework {

namespace IO {
class TinyFile;
}  // namespace IO

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

// The log file: one per process. A record reaches it once a path is named (OpenLogFile,
// RestartLogFile, ContinueLogFile); until then g_logFilePath is empty and records touch no file.
// The path is a plain variable, meant to be set before threads start; the file is written
// without a lock, its append mode keeping each record whole.
extern std::wstring g_logFilePath;
// Declared here without its class, which TinyFramework/IO/TinyFile.h gives, so that every user of
// LogMessage does not take in the file classes.
extern IO::TinyFile g_logFile;

// Opens the log file for appending, creating it if absent, unless it is open already: then the
// path is ignored and 1 returned. A null or empty path means GetDefaultLogPath(). 1 when open.
BOOL OpenLogFile(const wchar_t* path);
void CloseLogFile();
// Deletes the file at g_logFilePath.
BOOL DeleteLogFile();
// Closes the log file, deletes the file of the path used so far, and opens `path`.
BOOL RestartLogFile(const wchar_t* path);
// Closes the log file and opens `path`, appending to what it holds.
BOOL ContinueLogFile(const wchar_t* path);
// "<program directory>\YYYYMMDD hh-mm-ss-<pid>.log", in local time.
std::wstring GetDefaultLogPath();
// The same name in the temporary directory.
std::wstring GetTempLogPath();
// The directory part of a path with its trailing backslash; the path as it is without one.
std::wstring DirectoryWithSeparator(const std::wstring& path);
// The directory of the running program with its trailing backslash.
std::wstring GetProgramDirectory();

// An INFO line with physical memory and this process's working set; 0 (and no line) when the
// figures cannot be read.
BOOL LogMemoryReport();
// An INFO line with the free and total space of drive C; 0 when it cannot be read.
BOOL LogDiskReport();

}  // namespace TinyFramework

// Failure reports: an ERROR record with the source position.
#define TINY_LOG_ERROR() ::TinyFramework::LogMessage(__FILE__, __LINE__).stream()
// Information without a source position.
#define TINY_LOG_INFO() ::TinyFramework::LogMessage(::TinyFramework::LOG_INFO).stream()
