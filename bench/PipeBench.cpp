// The framework's pipe endpoints against bare Win32 overlapped pipe calls, measured in the same
// run, and PreciseSleep(1) against Sleep(1).
//
// Pipes: one process, the client on this thread and an echo server on a second thread. Each round
// the client writes one message and reads it back whole; the server reads the whole message and
// writes it back. For 1 KiB, 64 KiB and 1 MiB messages three variants run over their own pipe:
//   overlapped  TinyPipeClient opened overlapped, BeginWrite/BeginRead with their callbacks on the
//               thread pool; the server is a TinyPipeServer with its synchronous Read/Write.
//   synchronous TinyPipeClient opened synchronous and TinyPipeServer, both with Read/Write.
//   bare        both ends CreateNamedPipeW/CreateFileW with FILE_FLAG_OVERLAPPED,
//   ReadFile/WriteFile
//               and GetOverlappedResult waiting on the OVERLAPPED's event: the baseline.
// Both servers use the same 16 KiB pipe buffers. Printed per case: MB/s (10^6 bytes carried in
// both directions per second), the median and p99 of the round trip in microseconds, and the
// ratios of the two framework variants to the bare loop.
//
// Sleeps: 200 calls each of Sleep(1), PreciseSleep(1), and Sleep(1) again once PreciseSleep has
// asked for the finer timer resolution (which it keeps for the life of the process); min, p50,
// p90, p99 and max of the actual sleep in microseconds, timed with QueryPerformanceCounter.
#include "TinyFramework/Common/TinyCallback.h"
#include "TinyFramework/Common/TinyTimer.h"
#include "TinyFramework/IO/TinyPipe.h"

#include <windows.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

using TinyFramework::BindCallback;
using TinyFramework::IO::AsyncCallback;
using TinyFramework::IO::AsyncResult;
using TinyFramework::IO::TinyPipe;
using TinyFramework::IO::TinyPipeClient;
using TinyFramework::IO::TinyPipeServer;

// Each case stops at its round limit or after this much time, whichever comes first, so that the
// whole run stays well under half a minute even under Wine.
constexpr double kCaseBudgetSeconds = 1.0;
constexpr int kWarmupRounds = 10;
// A wait that lasts this long means the other end is stuck: the benchmark gives up.
constexpr DWORD kStuckMilliseconds = 30000;
constexpr int kSleepCalls = 200;
// The first byte of a message tells the server whether it is the last one.
constexpr BYTE kMoreRounds = 0;
constexpr BYTE kLastRound = 1;

struct MessageCase {
    const char* label;
    DWORD bytes;
    int maxRounds;
};

constexpr MessageCase kCases[] = {
    {"1 KiB", 1024, 4000},
    {"64 KiB", 64 * 1024, 1500},
    {"1 MiB", 1024 * 1024, 200},
};

double Seconds(const LARGE_INTEGER& from, const LARGE_INTEGER& to) {
    static const LONGLONG frequency = [] {
        LARGE_INTEGER value;
        QueryPerformanceFrequency(&value);
        return value.QuadPart;
    }();
    return static_cast<double>(to.QuadPart - from.QuadPart) / static_cast<double>(frequency);
}

LARGE_INTEGER Now() {
    LARGE_INTEGER value;
    QueryPerformanceCounter(&value);
    return value;
}

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "PipeBench: %s (last error %lu)\n", what, GetLastError());
    std::exit(1);
}

// Owns one kernel handle.
class UniqueHandle {
public:
    UniqueHandle() = default;
    explicit UniqueHandle(HANDLE handle) : m_handle(handle) {}
    ~UniqueHandle() { Reset(); }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;
    UniqueHandle(UniqueHandle&& other) noexcept : m_handle(other.m_handle) {
        other.m_handle = nullptr;
    }

    HANDLE Get() const { return m_handle; }
    bool IsValid() const { return m_handle != nullptr && m_handle != INVALID_HANDLE_VALUE; }
    void Reset() {
        if (IsValid()) {
            CloseHandle(m_handle);
        }
        m_handle = nullptr;
    }

private:
    HANDLE m_handle = nullptr;
};

UniqueHandle NewEvent(BOOL manualReset) {
    UniqueHandle event(CreateEventW(nullptr, manualReset, FALSE, nullptr));
    if (!event.IsValid()) {
        Fail("CreateEventW failed");
    }
    return event;
}

void WaitOrFail(HANDLE handle, const char* what) {
    if (WaitForSingleObject(handle, kStuckMilliseconds) != WAIT_OBJECT_0) {
        Fail(what);
    }
}

std::wstring PipeName(const char* variant, DWORD bytes) {
    wchar_t name[128];
    std::swprintf(name, 128, L"\\\\.\\pipe\\PipeBench-%lu-%hs-%lu", GetCurrentProcessId(), variant,
                  bytes);
    return name;
}

// Moves `size` bytes with as many calls of `transfer` as it takes; false when one moves nothing.
bool TransferAll(const std::function<DWORD(BYTE*, DWORD)>& transfer, BYTE* buffer, DWORD size) {
    DWORD done = 0;
    while (done < size) {
        const DWORD count = transfer(buffer + done, size - done);
        if (count == 0) {
            return false;
        }
        done += count;
    }
    return true;
}

// The server's side of every variant: echoes whole messages until the one marked last.
void EchoMessages(const std::function<DWORD(BYTE*, DWORD)>& read,
                  const std::function<DWORD(BYTE*, DWORD)>& write, DWORD bytes) {
    std::vector<BYTE> message(bytes);
    for (;;) {
        if (!TransferAll(read, message.data(), bytes) ||
            !TransferAll(write, message.data(), bytes)) {
            Fail("the echo server lost its client");
        }
        if (message[0] == kLastRound) {
            return;
        }
    }
}

struct CaseResult {
    int rounds = 0;
    double megabytesPerSecond = 0;
    double medianMicroseconds = 0;
    double p99Microseconds = 0;
};

double Percentile(const std::vector<double>& sorted, double fraction) {
    const size_t rank =
        static_cast<size_t>(std::ceil(fraction * static_cast<double>(sorted.size())));
    return sorted[std::min(sorted.size() - 1, rank == 0 ? 0 : rank - 1)];
}

// The client's side of every variant: warm-up rounds, then timed rounds until the limit or the
// budget, the last one marked so that the server ends.
CaseResult MeasureRoundTrips(const std::function<bool(BYTE*, DWORD)>& roundTrip,
                             const MessageCase& messageCase) {
    std::vector<BYTE> message(messageCase.bytes);
    for (DWORD index = 0; index < messageCase.bytes; ++index) {
        message[index] = static_cast<BYTE>(index * 7 + 3);
    }
    message[0] = kMoreRounds;
    for (int round = 0; round < kWarmupRounds; ++round) {
        if (!roundTrip(message.data(), messageCase.bytes)) {
            Fail("a warm-up round trip failed");
        }
    }
    std::vector<double> microseconds;
    microseconds.reserve(messageCase.maxRounds);
    const LARGE_INTEGER start = Now();
    double total = 0;
    for (;;) {
        const bool last = static_cast<int>(microseconds.size()) + 1 >= messageCase.maxRounds ||
                          Seconds(start, Now()) >= kCaseBudgetSeconds;
        message[0] = last ? kLastRound : kMoreRounds;
        const LARGE_INTEGER before = Now();
        if (!roundTrip(message.data(), messageCase.bytes)) {
            Fail("a round trip failed");
        }
        const double seconds = Seconds(before, Now());
        total += seconds;
        microseconds.push_back(seconds * 1e6);
        if (last) {
            break;
        }
    }
    std::sort(microseconds.begin(), microseconds.end());
    CaseResult result;
    result.rounds = static_cast<int>(microseconds.size());
    result.megabytesPerSecond =
        2.0 * messageCase.bytes * static_cast<double>(result.rounds) / total / 1e6;
    result.medianMicroseconds = Percentile(microseconds, 0.5);
    result.p99Microseconds = Percentile(microseconds, 0.99);
    return result;
}

// --- The framework's endpoints
// --------------------------------------------------------------------

// The server end of the framework variants, on its own thread: a TinyPipeServer echoing with its
// synchronous Read/Write.
void RunFrameworkServer(const std::wstring& name, DWORD bytes, HANDLE created) {
    TinyPipeServer server;
    if (!server.Create(name.c_str())) {
        Fail("TinyPipeServer::Create failed");
    }
    SetEvent(created);
    // A client that opened the pipe in the instant between Create and Connect makes Connect fail
    // with ERROR_PIPE_CONNECTED although the pipe is connected; the client waits a little after
    // the event to make that rare, and a second ConnectNamedPipe tells the two apart.
    if (!server.Connect() && ConnectNamedPipe(server.Handle(), nullptr) == FALSE &&
        GetLastError() != ERROR_PIPE_CONNECTED) {
        Fail("the framework server found no client");
    }
    EchoMessages(
        [&](BYTE* data, DWORD size) { return static_cast<DWORD>(server.Read(data, size)); },
        [&](BYTE* data, DWORD size) { return static_cast<DWORD>(server.Write(data, size)); },
        bytes);
    server.Close();
}

// What one overlapped operation hands back from its pool thread to the waiting client.
struct Completion {
    TinyPipe* pipe = nullptr;
    bool read = false;
    DWORD bytes = 0;
    UniqueHandle done = NewEvent(FALSE);
};

void OnCompleted(Completion* completion, int /*error*/, AsyncResult* result) {
    // The byte count is the verdict; the error code is whatever the completion left behind.
    completion->bytes =
        completion->read ? completion->pipe->EndRead(result) : completion->pipe->EndWrite(result);
    SetEvent(completion->done.Get());
}

DWORD OverlappedTransfer(TinyPipe& pipe, Completion& completion, bool read, BYTE* data,
                         DWORD size) {
    completion.read = read;
    completion.bytes = 0;
    AsyncCallback callback = BindCallback<void(int, AsyncResult*)>(&OnCompleted, &completion);
    const BOOL started = read ? pipe.BeginRead(data, size, std::move(callback), nullptr)
                              : pipe.BeginWrite(data, size, std::move(callback), nullptr);
    if (!started) {
        return 0;
    }
    WaitOrFail(completion.done.Get(), "an overlapped TinyPipe operation never completed");
    return completion.bytes;
}

CaseResult MeasureFramework(const MessageCase& messageCase, bool overlapped) {
    const std::wstring name =
        PipeName(overlapped ? "overlapped" : "synchronous", messageCase.bytes);
    UniqueHandle created = NewEvent(TRUE);
    std::thread server(RunFrameworkServer, name, messageCase.bytes, created.Get());
    WaitOrFail(created.Get(), "the framework server did not create its pipe");
    Sleep(20);  // lets the server reach Connect first (see RunFrameworkServer)

    TinyPipeClient client;
    if (!client.Open(name.c_str(), TRUE, overlapped ? TRUE : FALSE)) {
        Fail("TinyPipeClient::Open failed");
    }
    std::vector<BYTE> echo(messageCase.bytes);
    Completion writeCompletion;
    writeCompletion.pipe = &client;
    Completion readCompletion;
    readCompletion.pipe = &client;

    std::function<DWORD(BYTE*, DWORD)> write;
    std::function<DWORD(BYTE*, DWORD)> read;
    if (overlapped) {
        write = [&](BYTE* data, DWORD size) {
            return OverlappedTransfer(client, writeCompletion, false, data, size);
        };
        read = [&](BYTE* data, DWORD size) {
            return OverlappedTransfer(client, readCompletion, true, data, size);
        };
    } else {
        write = [&](BYTE* data, DWORD size) {
            return static_cast<DWORD>(client.Write(data, size));
        };
        read = [&](BYTE* data, DWORD size) { return static_cast<DWORD>(client.Read(data, size)); };
    }
    const CaseResult result = MeasureRoundTrips(
        [&](BYTE* data, DWORD size) {
            return TransferAll(write, data, size) && TransferAll(read, echo.data(), size);
        },
        messageCase);
    server.join();
    return result;
}

// --- The bare Win32 baseline
// -----------------------------------------------------------------------

// One overlapped ReadFile or WriteFile, waited for through GetOverlappedResult on the event.
DWORD BareTransfer(HANDLE pipe, OVERLAPPED& overlapped, bool read, BYTE* data, DWORD size) {
    const BOOL done = read ? ReadFile(pipe, data, size, nullptr, &overlapped)
                           : WriteFile(pipe, data, size, nullptr, &overlapped);
    if (!done && GetLastError() != ERROR_IO_PENDING) {
        return 0;
    }
    DWORD count = 0;
    if (!GetOverlappedResult(pipe, &overlapped, &count, TRUE)) {
        return 0;
    }
    return count;
}

void RunBareServer(const std::wstring& name, DWORD bytes, HANDLE created) {
    UniqueHandle pipe(CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX | FILE_FLAG_OVERLAPPED,
                                       PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT, 1,
                                       TinyPipeServer::kBufferSize, TinyPipeServer::kBufferSize,
                                       TinyPipeServer::kDefaultTimeout, nullptr));
    if (!pipe.IsValid()) {
        Fail("CreateNamedPipeW failed");
    }
    UniqueHandle event = NewEvent(TRUE);
    OVERLAPPED overlapped = {};
    overlapped.hEvent = event.Get();
    SetEvent(created);
    if (!ConnectNamedPipe(pipe.Get(), &overlapped)) {
        const DWORD error = GetLastError();
        DWORD unused = 0;
        if (error == ERROR_IO_PENDING) {
            if (!GetOverlappedResult(pipe.Get(), &overlapped, &unused, TRUE)) {
                Fail("the bare server's connect failed");
            }
        } else if (error != ERROR_PIPE_CONNECTED) {
            Fail("ConnectNamedPipe failed");
        }
    }
    EchoMessages([&](BYTE* data,
                     DWORD size) { return BareTransfer(pipe.Get(), overlapped, true, data, size); },
                 [&](BYTE* data, DWORD size) {
                     return BareTransfer(pipe.Get(), overlapped, false, data, size);
                 },
                 bytes);
    FlushFileBuffers(pipe.Get());
    DisconnectNamedPipe(pipe.Get());
}

CaseResult MeasureBare(const MessageCase& messageCase) {
    const std::wstring name = PipeName("bare", messageCase.bytes);
    UniqueHandle created = NewEvent(TRUE);
    std::thread server(RunBareServer, name, messageCase.bytes, created.Get());
    WaitOrFail(created.Get(), "the bare server did not create its pipe");

    UniqueHandle pipe(CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                  OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr));
    if (!pipe.IsValid()) {
        Fail("CreateFileW of the bare pipe failed");
    }
    UniqueHandle event = NewEvent(TRUE);
    OVERLAPPED overlapped = {};
    overlapped.hEvent = event.Get();
    std::vector<BYTE> echo(messageCase.bytes);
    const std::function<DWORD(BYTE*, DWORD)> write = [&](BYTE* data, DWORD size) {
        return BareTransfer(pipe.Get(), overlapped, false, data, size);
    };
    const std::function<DWORD(BYTE*, DWORD)> read = [&](BYTE* data, DWORD size) {
        return BareTransfer(pipe.Get(), overlapped, true, data, size);
    };
    const CaseResult result = MeasureRoundTrips(
        [&](BYTE* data, DWORD size) {
            return TransferAll(write, data, size) && TransferAll(read, echo.data(), size);
        },
        messageCase);
    server.join();
    return result;
}

void PrintRow(const char* size, const char* variant, const CaseResult& result,
              const CaseResult& bare) {
    std::printf("%-7s %-12s %7d %10.1f %11.1f %11.1f %12.2f %14.2f\n", size, variant, result.rounds,
                result.megabytesPerSecond, result.medianMicroseconds, result.p99Microseconds,
                result.megabytesPerSecond / bare.megabytesPerSecond,
                result.medianMicroseconds / bare.medianMicroseconds);
}

void BenchPipes() {
    std::printf("Pipe round trips (echo server on a second thread, 16 KiB pipe buffers)\n");
    std::printf("%-7s %-12s %7s %10s %11s %11s %12s %14s\n", "size", "variant", "rounds", "MB/s",
                "median us", "p99 us", "MB/s / bare", "median / bare");
    for (const MessageCase& messageCase : kCases) {
        const CaseResult bare = MeasureBare(messageCase);
        const CaseResult overlapped = MeasureFramework(messageCase, true);
        const CaseResult synchronous = MeasureFramework(messageCase, false);
        PrintRow(messageCase.label, "overlapped", overlapped, bare);
        PrintRow(messageCase.label, "synchronous", synchronous, bare);
        PrintRow(messageCase.label, "bare", bare, bare);
    }
}

// --- Sleeps
// ---------------------------------------------------------------------------------------

void BenchSleep(const char* label, void (*sleep)(DWORD)) {
    std::vector<double> microseconds;
    microseconds.reserve(kSleepCalls);
    for (int call = 0; call < kSleepCalls; ++call) {
        const LARGE_INTEGER before = Now();
        sleep(1);
        microseconds.push_back(Seconds(before, Now()) * 1e6);
    }
    std::sort(microseconds.begin(), microseconds.end());
    std::printf("%-30s %8.0f %8.0f %8.0f %8.0f %8.0f\n", label, microseconds.front(),
                Percentile(microseconds, 0.5), Percentile(microseconds, 0.9),
                Percentile(microseconds, 0.99), microseconds.back());
}

void PlainSleep(DWORD milliseconds) {
    Sleep(milliseconds);
}

void BenchSleeps() {
    std::printf("\nSleeps of 1 ms, %d calls each, actual microseconds\n", kSleepCalls);
    std::printf("%-30s %8s %8s %8s %8s %8s\n", "call", "min", "p50", "p90", "p99", "max");
    // Sleep first: PreciseSleep's first call raises the timer resolution for good, which may
    // sharpen every later Sleep too; the third row shows whether it does.
    BenchSleep("Sleep(1)", &PlainSleep);
    BenchSleep("PreciseSleep(1)", &TinyFramework::PreciseSleep);
    BenchSleep("Sleep(1) after PreciseSleep", &PlainSleep);
}

}  // namespace

int wmain() {
    const LARGE_INTEGER start = Now();
    BenchPipes();
    BenchSleeps();
    std::printf("\nwhole run: %.1f s\n", Seconds(start, Now()));
    return 0;
}
