#include "client/QueryClient.h"

#include "TinyFramework/Common/TinyCore.h"
#include "client/ServerProcess.h"
#include "client/SystemErrorText.h"
#include "client/UniqueHandle.h"
#include "protocol/QueryProtocol.h"

#include <bcrypt.h>

#include <algorithm>

namespace QueryClient {

namespace {

constexpr DWORD kReadChunk = 64 * 1024;
constexpr DWORD kOpenRetryPauseMs = 1;
constexpr size_t kIdBytes = 8;

// Milliseconds left of one deadline.
class Deadline {
public:
    explicit Deadline(DWORD milliseconds) : m_end(GetTickCount64() + milliseconds) {}
    DWORD Remaining() const {
        const ULONGLONG now = GetTickCount64();
        return now >= m_end ? 0
                            : static_cast<DWORD>(std::min<ULONGLONG>(m_end - now, INFINITE - 1));
    }
    bool Expired() const { return Remaining() == 0; }

private:
    ULONGLONG m_end;
};

RawReply Fail(RawReply reply, Outcome outcome, std::string detail) {
    reply.outcome = outcome;
    reply.detail = std::move(detail);
    return reply;
}

bool IsEndOfStream(DWORD error) {
    // A server that only closes gives a broken pipe; one that flushes and disconnects first gives
    // "not connected". Both are the end of the reply.
    return error == ERROR_BROKEN_PIPE || error == ERROR_PIPE_NOT_CONNECTED;
}

enum class ReadEnd { EndOfStream, TimedOut, Failed };

// Reads until the server ends the stream, never past the deadline.
ReadEnd ReadToEnd(HANDLE pipe, const Deadline& deadline, std::vector<uint8_t>& bytes,
                  DWORD* error) {
    UniqueHandle readDone(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!readDone.IsValid()) {
        *error = GetLastError();
        return ReadEnd::Failed;
    }
    std::vector<uint8_t> chunk(kReadChunk);
    for (;;) {
        OVERLAPPED overlapped = {};
        overlapped.hEvent = readDone.Get();
        DWORD count = 0;
        if (!ReadFile(pipe, chunk.data(), kReadChunk, nullptr, &overlapped)) {
            const DWORD readError = GetLastError();
            if (readError != ERROR_IO_PENDING) {
                *error = readError;
                return IsEndOfStream(readError) ? ReadEnd::EndOfStream : ReadEnd::Failed;
            }
            if (WaitForSingleObject(readDone.Get(), deadline.Remaining()) != WAIT_OBJECT_0) {
                CancelIoEx(pipe, &overlapped);
                GetOverlappedResult(pipe, &overlapped, &count, TRUE);
                return ReadEnd::TimedOut;
            }
        }
        if (!GetOverlappedResult(pipe, &overlapped, &count, FALSE)) {
            const DWORD readError = GetLastError();
            if (readError != ERROR_MORE_DATA) {
                *error = readError;
                return IsEndOfStream(readError) ? ReadEnd::EndOfStream : ReadEnd::Failed;
            }
        }
        bytes.insert(bytes.end(), chunk.begin(), chunk.begin() + count);
    }
}

// Opens the pipe of a server that has set its event. Gives up when the server has ended or the
// deadline passed.
UniqueHandle OpenPipe(const std::wstring& name, const ServerProcess& server,
                      const Deadline& deadline, DWORD* error) {
    for (;;) {
        UniqueHandle pipe(CreateFileW(name.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                                      FILE_FLAG_OVERLAPPED, nullptr));
        if (pipe.IsValid()) {
            return pipe;
        }
        *error = GetLastError();
        if (server.WaitForExit(0) || deadline.Expired()) {
            return UniqueHandle();
        }
        Sleep(kOpenRetryPauseMs);
    }
}

std::wstring DirectoryOfThisProgram() {
    std::wstring path(MAX_PATH, L'\0');
    for (;;) {
        const DWORD length = GetModuleFileNameW(nullptr, &path[0], static_cast<DWORD>(path.size()));
        if (length < path.size()) {
            path.resize(length);
            break;
        }
        path.resize(path.size() * 2);
    }
    const size_t slash = path.find_last_of(L"\\/");
    return slash == std::wstring::npos ? std::wstring() : path.substr(0, slash + 1);
}

// A process that an unhandled exception ended exits with the exception's code, an NTSTATUS of
// error severity (an access violation is EXCEPTION_ACCESS_VIOLATION, 0xC0000005).
bool EndedByAnException(DWORD exitCode) {
    return (exitCode & ERROR_SEVERITY_ERROR) == ERROR_SEVERITY_ERROR;
}

bool CanBePassed(const std::wstring& value) {
    // The server cuts each argument at '=' and trims spaces: such a value would arrive changed or
    // not at all.
    return value.find(QueryProtocol::kKeyValueSeparator) == std::wstring::npos &&
           (value.empty() || (value.front() != L' ' && value.back() != L' '));
}

std::wstring KeyValue(const wchar_t* key, const std::wstring& value) {
    return key + std::wstring(1, QueryProtocol::kKeyValueSeparator) + value;
}

// One attempt of a query, with `deadline` shared by all attempts.
RawReply RunAttempt(const QueryOptions& options, const std::vector<std::wstring>& arguments,
                    const std::wstring& id, const Deadline& deadline) {
    RawReply reply;
    reply.id = id;
    reply.attempts = 1;
    const std::wstring eventName = QueryProtocol::kEventNamePrefix + id;
    const std::wstring pipeName = QueryProtocol::kPipeNamePrefix + id;

    // Auto-reset: a server that has to drop its reply sets the event a second time, and that
    // second signal is what tells the lost reply from an empty one.
    UniqueHandle readyEvent(CreateEventW(nullptr, FALSE, FALSE, eventName.c_str()));
    if (!readyEvent.IsValid()) {
        return Fail(reply, Outcome::ServerNotStarted,
                    "the query's event could not be created: " +
                        DescribeFailure("CreateEvent", GetLastError()));
    }
    // Whoever made the event first could wake this parent at a moment of its choosing, or stand
    // in for the server: the query is not started on an event that is not its own.
    if (GetLastError() == ERROR_ALREADY_EXISTS) {
        return Fail(reply, Outcome::ServerNotStarted,
                    "an event of the query's name exists already; the query was not started");
    }
    const std::wstring server =
        options.serverPath.empty() ? DefaultServerPath() : options.serverPath;
    ServerProcess process;
    std::string error;
    if (!process.Start(server, arguments, &error)) {
        return Fail(reply, Outcome::ServerNotStarted, error);
    }

    const HANDLE wakeups[] = {readyEvent.Get(), process.ProcessHandle()};
    const DWORD woken = WaitForMultipleObjects(2, wakeups, FALSE, deadline.Remaining());
    if (woken == WAIT_OBJECT_0 + 1) {
        reply.serverExitCode = process.ExitCode();
        if (EndedByAnException(reply.serverExitCode)) {
            return Fail(
                reply, Outcome::ServerDied,
                TinyFramework::StringPrintf("the server died (code 0x%lX) before it replied",
                                            reply.serverExitCode));
        }
        return Fail(
            reply, Outcome::ServerExitedBeforeEvent,
            TinyFramework::StringPrintf("the server exited (code 0x%lX) before it was ready",
                                        reply.serverExitCode));
    }
    if (woken != WAIT_OBJECT_0) {
        return Fail(reply, Outcome::TimedOutWaitingForEvent,
                    "the server did not get ready before the deadline");
    }

    if (options.connectPauseMs > 0) {
        Sleep(std::min(options.connectPauseMs, deadline.Remaining()));
    }
    DWORD openError = 0;
    UniqueHandle pipe = OpenPipe(pipeName, process, deadline, &openError);
    if (!pipe.IsValid()) {
        return Fail(reply, Outcome::PipeNotOpened,
                    TinyFramework::StringPrintf("the server's pipe could not be opened (error %lu)",
                                                openError));
    }
    ULONG pipeServer = 0;
    if (!GetNamedPipeServerProcessId(pipe.Get(), &pipeServer) ||
        pipeServer != process.ProcessId()) {
        return Fail(reply, Outcome::ServerNotVerified,
                    "the pipe's server end does not belong to the server that was started");
    }

    DWORD readError = 0;
    const ReadEnd end = ReadToEnd(pipe.Get(), deadline, reply.bytes, &readError);
    if (end == ReadEnd::TimedOut) {
        return Fail(reply, Outcome::TimedOutReading, "the reply did not end before the deadline");
    }
    if (end == ReadEnd::Failed) {
        return Fail(reply, Outcome::ServerDied,
                    TinyFramework::StringPrintf("reading the reply failed (error %lu)", readError));
    }
    if (process.WaitForExit(deadline.Remaining())) {
        reply.serverExitCode = process.ExitCode();
        if (reply.serverExitCode != 0) {
            return Fail(reply, Outcome::ServerDied,
                        TinyFramework::StringPrintf("the server died (code 0x%lX) while replying",
                                                    reply.serverExitCode));
        }
    }
    if (WaitForSingleObject(readyEvent.Get(), 0) == WAIT_OBJECT_0) {
        return Fail(reply, Outcome::ReplyLost,
                    "the server could not accept the pipe's client and dropped its reply");
    }
    return reply;
}

}  // namespace

LONG SystemRandom(uint8_t* buffer, ULONG size) {
    return BCryptGenRandom(nullptr, buffer, size, BCRYPT_USE_SYSTEM_PREFERRED_RNG);
}

RandomId MakeRandomId(RandomSource source) {
    uint8_t random[kIdBytes] = {};
    RandomId id;
    id.status = source(random, sizeof(random));
    if (!BCRYPT_SUCCESS(id.status)) {
        return id;
    }
    static const wchar_t kHex[] = L"0123456789ABCDEF";
    for (uint8_t byte : random) {
        id.text.push_back(kHex[byte >> 4]);
        id.text.push_back(kHex[byte & 0xF]);
    }
    return id;
}

std::wstring DefaultServerPath() {
    return DirectoryOfThisProgram() + L"QueryServer.exe";
}

Client::Client(QueryOptions options) : m_options(std::move(options)) {}

RawReply Client::QueryRaw(const std::vector<std::wstring>& arguments, const std::wstring& id) {
    return RunAttempt(m_options, arguments, id, Deadline(m_options.timeoutMs));
}

RawReply Client::Query(const std::wstring& method, const std::wstring& deviceId,
                       const std::wstring& deviceName) {
    return QueryWithin(m_options.timeoutMs, method, deviceId, deviceName);
}

RawReply Client::QueryWithin(DWORD timeoutMs, const std::wstring& method,
                             const std::wstring& deviceId, const std::wstring& deviceName) {
    RawReply reply;
    for (const std::wstring* value : {&deviceId, &deviceName}) {
        if (!CanBePassed(*value)) {
            return Fail(reply, Outcome::InvalidArgument,
                        "a device value with '=' or outer spaces cannot be passed to the server");
        }
    }
    const Deadline deadline(timeoutMs);
    const int maxAttempts = m_options.retryLostReply ? 2 : 1;
    for (int attempt = 1; attempt <= maxAttempts; ++attempt) {
        const RandomId id = MakeRandomId(m_options.randomSource);
        if (id.text.empty()) {
            // Without an id nobody else can guess, the names could be taken over in advance.
            return Fail(reply, Outcome::ServerNotStarted,
                        TinyFramework::StringPrintf(
                            "no random id for the query's names: the random source failed "
                            "(status 0x%08lX)",
                            static_cast<unsigned long>(id.status)));
        }
        std::vector<std::wstring> arguments = {KeyValue(QueryProtocol::kKeyMethod, method)};
        if (!deviceId.empty()) {
            arguments.push_back(KeyValue(QueryProtocol::kKeyDeviceId, deviceId));
        }
        if (!deviceName.empty()) {
            arguments.push_back(KeyValue(QueryProtocol::kKeyDeviceName, deviceName));
        }
        arguments.push_back(KeyValue(QueryProtocol::kKeyId, id.text));
        reply = RunAttempt(m_options, arguments, id.text, deadline);
        reply.attempts = attempt;
        if (reply.outcome != Outcome::ReplyLost) {
            break;
        }
    }
    return reply;
}

DeviceListReply Client::GetDevices(const wchar_t* method) {
    return ToDeviceListReply(Query(method));
}

DeviceListReply ToDeviceListReply(const RawReply& raw) {
    DeviceListReply reply;
    reply.outcome = raw.outcome;
    reply.detail = raw.detail;
    DeviceListDecoding decoding = DecodeDeviceList(raw.bytes);
    reply.devices = std::move(decoding.devices);
    if (reply.outcome == Outcome::Ok && !decoding.complete) {
        reply.outcome = Outcome::MalformedReply;
        reply.detail = decoding.problem;
    }
    return reply;
}

DeviceListReply Client::GetVideoDevices() {
    return GetDevices(QueryProtocol::kMethodVideoDevices);
}

DeviceListReply Client::GetAnalogDevices() {
    return GetDevices(QueryProtocol::kMethodAnalogDevices);
}

}  // namespace QueryClient

namespace QueryClient {

FormatListReply Client::GetDeviceFormats(const std::wstring& deviceId,
                                         const std::wstring& deviceName) {
    ProblemDevices* problems = m_options.problemDevices;
    if (problems != nullptr && problems->Contains(deviceId)) {
        FormatListReply skipped;
        skipped.outcome = Outcome::SkippedProblemDevice;
        skipped.detail = "the device hung or crashed the server before; forget it to ask again";
        return skipped;
    }
    const DWORD timeoutMs =
        m_options.formatTimeoutMs != 0 ? m_options.formatTimeoutMs : m_options.timeoutMs;
    const RawReply raw =
        QueryWithin(timeoutMs, QueryProtocol::kMethodDeviceFormats, deviceId, deviceName);
    if (problems != nullptr && ProblemDevices::IsProblem(raw.outcome)) {
        problems->Remember(deviceId, raw.outcome);
        problems->Save();
    }
    return ToFormatListReply(raw);
}

FormatListReply ToFormatListReply(const RawReply& raw) {
    FormatListReply reply;
    reply.outcome = raw.outcome;
    reply.detail = raw.detail;
    reply.json.assign(raw.bytes.begin(), raw.bytes.end());
    if (reply.outcome != Outcome::Ok) {
        return reply;
    }
    FormatListDecoding decoding = DecodeFormatList(reply.json);
    if (!decoding.complete) {
        reply.outcome = Outcome::MalformedReply;
        reply.detail = decoding.problem;
        return reply;
    }
    reply.modes = std::move(decoding.modes);
    return reply;
}

}  // namespace QueryClient
