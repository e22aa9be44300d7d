#include "TinyFramework/Common/TinyCallback.h"
#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/IO/TinyPipe.h"
#include "tests/TinyFramework/SyncTestSupport.h"
#include "tests/support/ProgramFolder.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

using QueryClient::UniqueHandle;
using SyncTests::kDeadlineMs;
using SyncTests::ManualEvent;
using SyncTests::TestThread;
using SyncTests::UniqueName;
using TinyFramework::BindCallback;
using TinyFramework::GetErrorText;
using TinyFramework::IO::AsyncCallback;
using TinyFramework::IO::AsyncResult;
using TinyFramework::IO::PER_IO_CONTEXT;
using TinyFramework::IO::PipeAsyncResult;
using TinyFramework::IO::TinyPipe;
using TinyFramework::IO::TinyPipeClient;
using TinyFramework::IO::TinyPipeServer;

constexpr DWORD kPipeBuffer = TinyPipeServer::kBufferSize;

std::wstring UniquePipeName(const wchar_t* purpose) {
    return L"\\\\.\\pipe\\" + UniqueName(purpose);
}

std::string FailureText(const char* call, DWORD error) {
    return std::string("Failed to ") + call + "(" + GetErrorText(error) + ")";
}

// Byte i of every test stream, as PipePeer.exe writes it.
unsigned char PatternByte(size_t index) {
    return static_cast<unsigned char>(index % 251);
}

std::vector<unsigned char> Pattern(size_t size) {
    std::vector<unsigned char> bytes(size);
    for (size_t index = 0; index < size; ++index) {
        bytes[index] = PatternByte(index);
    }
    return bytes;
}

// Waits until every result record made since `baseline` was read has been destroyed. Destroying
// its record is the completion routine's last touch of the pipe's record, so only then may a test
// let its pipe go; and a record still alive after the deadline is one left behind.
bool RecordsBackTo(int32_t baseline) {
    const DWORD start = GetTickCount();
    while (AsyncResult::LiveCount() != baseline) {
        if (GetTickCount() - start > kDeadlineMs) {
            return false;
        }
        SwitchToThread();
    }
    return true;
}

// What one completion's callback saw, copied out of the result record, which dies when the
// callback returns.
struct Completion {
    int error = -1;
    DWORD bytes = 0;
    DWORD threadId = 0;
    LPVOID state = nullptr;
    HANDLE waitHandle = INVALID_HANDLE_VALUE;
    bool serverConnected = false;
};

// Receives the completions of one pipe's operations.
class CompletionRecorder {
public:
    explicit CompletionRecorder(TinyPipe& pipe)
        : m_pipe(pipe), m_server(dynamic_cast<TinyPipeServer*>(&pipe)) {
        m_changed.Reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    }

    AsyncCallback Bind() {
        return BindCallback<void(int, AsyncResult*)>(&CompletionRecorder::OnCompleted, this);
    }

    void OnCompleted(int error, AsyncResult* result) {
        Completion completion;
        completion.error = error;
        completion.bytes = m_pipe.EndRead(result);
        completion.threadId = GetCurrentThreadId();
        completion.state = result->m_asyncState;
        completion.waitHandle = result->m_waitHandle;
        completion.serverConnected = m_server != nullptr && m_server->IsConnected();
        {
            std::lock_guard<std::mutex> hold(m_lock);
            m_completions.push_back(completion);
        }
        SetEvent(m_changed.Get());
    }

    // True when at least `count` completions came within the deadline.
    bool WaitForCalls(size_t count) {
        const DWORD start = GetTickCount();
        while (Calls() < count) {
            const DWORD spent = GetTickCount() - start;
            if (spent > kDeadlineMs) {
                return false;
            }
            WaitForSingleObject(m_changed.Get(), kDeadlineMs - spent);
        }
        return true;
    }

    size_t Calls() {
        std::lock_guard<std::mutex> hold(m_lock);
        return m_completions.size();
    }

    Completion At(size_t index) {
        std::lock_guard<std::mutex> hold(m_lock);
        return index < m_completions.size() ? m_completions[index] : Completion();
    }

private:
    TinyPipe& m_pipe;
    TinyPipeServer* m_server;
    UniqueHandle m_changed;
    std::mutex m_lock;
    std::vector<Completion> m_completions;
};

// A server made by the class's own Create (a synchronous handle) and a client opened on it. The
// client's open completes the connection: both ends transfer without a Connect.
struct PipePair {
    PipePair(const wchar_t* purpose, BOOL overlappedClient) : name(UniquePipeName(purpose)) {
        EXPECT_TRUE(server.Create(name.c_str()));
        EXPECT_TRUE(client.Open(name.c_str(), TRUE, overlappedClient));
    }

    std::wstring name;
    TinyPipeServer server;
    TinyPipeClient client;
};

// The class's own Create makes a synchronous handle, on which every overlapped call blocks its
// caller until it is done. A server operation that stays pending needs a handle made with
// FILE_FLAG_OVERLAPPED: a real pipe of the same constants otherwise, attached to the server.
HANDLE CreateOverlappedServerPipe(const std::wstring& name, DWORD pipeMode) {
    return CreateNamedPipeW(name.c_str(), TinyPipeServer::kOpenMode | FILE_FLAG_OVERLAPPED,
                            pipeMode, TinyPipeServer::kInstances, kPipeBuffer, kPipeBuffer,
                            TinyPipeServer::kDefaultTimeout, nullptr);
}

// PipePeer.exe, beside this program: the client end in a process of its own, which opens the
// pipe, writes `bytes` bytes of the pattern and vanishes when released.
class PipePeerProcess {
public:
    PipePeerProcess(const std::wstring& pipeName, DWORD bytes) {
        const std::wstring openedName = UniqueName(L"peer-opened");
        const std::wstring releaseName = UniqueName(L"peer-release");
        m_opened.event.CreateEx(nullptr, openedName.c_str(), CREATE_EVENT_MANUAL_RESET,
                                EVENT_ALL_ACCESS);
        m_release.event.CreateEx(nullptr, releaseName.c_str(), CREATE_EVENT_MANUAL_RESET,
                                 EVENT_ALL_ACCESS);
        std::wstring commandLine = L"PipePeer.exe " + pipeName + L" " + openedName + L" " +
                                   releaseName + L" " + std::to_wstring(bytes);
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION process = {};
        if (!CreateProcessW(PeerPath().c_str(), &commandLine[0], nullptr, nullptr, FALSE, 0,
                            nullptr, nullptr, &startup, &process)) {
            ADD_FAILURE() << "PipePeer.exe not started: " << GetLastError();
            return;
        }
        m_process.Reset(process.hProcess);
        CloseHandle(process.hThread);
    }
    ~PipePeerProcess() {
        m_release.Set();
        if (m_process.IsValid() && WaitForSingleObject(m_process.Get(), kDeadlineMs) != 0) {
            TerminateProcess(m_process.Get(), 1);
        }
    }

    // True once the peer has opened the pipe; false if it ended first or took too long.
    bool WaitOpened() {
        const HANDLE either[] = {m_opened.Handle(), m_process.Get()};
        return WaitForMultipleObjects(2, either, FALSE, kDeadlineMs) == WAIT_OBJECT_0;
    }

    // Lets the peer end, and returns its exit code once it has.
    DWORD ReleaseAndWait() { return SyncTests::ReleaseAndWaitForExit(m_release, m_process.Get()); }

private:
    static std::wstring PeerPath() { return TestSupport::ProgramBesideThisOne(L"PipePeer.exe"); }

    ManualEvent m_opened;
    ManualEvent m_release;
    UniqueHandle m_process;
};

constexpr DWORD kPeerReleased = 0;

// The value of the next new handle, which stands in for the count of open handles (Wine answers
// GetProcessHandleCount with 0): a handle that leaks keeps its slot and pushes it up.
uintptr_t NextHandleSlot() {
    const HANDLE probe = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    CloseHandle(probe);
    return reinterpret_cast<uintptr_t>(probe);
}

TEST(PipeAsyncRecordTest, NewContextHoldsAnInvalidEventAndNoOperation) {
    PER_IO_CONTEXT context;
    EXPECT_EQ(context.hEvent, INVALID_HANDLE_VALUE);
    EXPECT_EQ(context.Internal, 0u);
    EXPECT_EQ(context.InternalHigh, 0u);
    EXPECT_EQ(context.m_complete.load(), 0);
    EXPECT_EQ(context.m_pending.load(), 0);
    EXPECT_EQ(context.m_result.load(), nullptr);
    EXPECT_TRUE(context.m_callback.IsNull());
}

TEST(PipeAsyncRecordTest, NewResultRecordHasNoWaitAndNoBytes) {
    const int32_t before = AsyncResult::LiveCount();
    auto* result = new PipeAsyncResult();
    EXPECT_EQ(AsyncResult::LiveCount(), before + 1);
    EXPECT_EQ(result->m_waitHandle, INVALID_HANDLE_VALUE);
    EXPECT_EQ(result->m_asyncState, nullptr);
    EXPECT_EQ(result->m_bytesTransferred, 0u);
    // Destroyed through the base, as the completion routine does.
    delete static_cast<AsyncResult*>(result);
    EXPECT_EQ(AsyncResult::LiveCount(), before);
}

TEST(PipeAsyncRecordTest, CancelWithoutAHandleIsFalseAndSilent) {
    PER_IO_CONTEXT context;
    TestSupport::LogCapture capture;
    EXPECT_FALSE(context.Cancel(nullptr));
    EXPECT_TRUE(capture.Records().empty());
}

TEST(PipeAsyncRecordTest, CancelWithAHandleLogsAtInfoAndAsksTheSystem) {
    PipePair pair(L"cancel-record", TRUE);
    PER_IO_CONTEXT context;
    TestSupport::LogCapture capture;
    // Nothing of this record is under way, so the system finds nothing to cancel.
    EXPECT_FALSE(context.Cancel(pair.client.Handle()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_FOUND));
    const auto records = capture.RecordsContaining("[PER_IO_CONTEXT] CancelIoEx");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_NE(records[0].find(":INFO] : [PER_IO_CONTEXT] CancelIoEx\n"), std::string::npos)
        << records[0];
}

TEST(PipeAsyncTest, BeginReadOnAnEmptyPipeIsFalseWithoutRecordOrLog) {
    TinyPipeClient client;
    CompletionRecorder recorder(client);
    const int32_t before = AsyncResult::LiveCount();
    TestSupport::LogCapture capture;
    AsyncCallback callback = recorder.Bind();
    char buffer[4];
    EXPECT_FALSE(client.BeginRead(buffer, sizeof(buffer), std::move(callback), nullptr));
    EXPECT_FALSE(callback.IsNull());  // the start ended before it took the callback
    EXPECT_EQ(AsyncResult::LiveCount(), before);
    EXPECT_TRUE(capture.Records().empty());
    EXPECT_EQ(recorder.Calls(), 0u);
}

TEST(PipeAsyncTest, BeginWriteOnAnEmptyPipeIsFalseWithoutRecordOrLog) {
    TinyPipeServer server;
    CompletionRecorder recorder(server);
    const int32_t before = AsyncResult::LiveCount();
    TestSupport::LogCapture capture;
    AsyncCallback callback = recorder.Bind();
    EXPECT_FALSE(server.BeginWrite("abc", 3, std::move(callback), nullptr));
    EXPECT_FALSE(callback.IsNull());
    EXPECT_EQ(AsyncResult::LiveCount(), before);
    EXPECT_TRUE(capture.Records().empty());
}

TEST(PipeAsyncTest, ReadFinishedAtOnceStillCompletesOnAPoolThread) {
    PipePair pair(L"read-at-once", FALSE);
    CompletionRecorder recorder(pair.server);
    const int32_t before = AsyncResult::LiveCount();
    ASSERT_EQ(pair.client.Write("hello", 5), 5);
    char buffer[16] = {};
    int marker = 0;
    // The server's handle is synchronous: the read is done before BeginRead returns.
    EXPECT_TRUE(pair.server.BeginRead(buffer, sizeof(buffer), recorder.Bind(), &marker));
    ASSERT_TRUE(recorder.WaitForCalls(1));
    EXPECT_TRUE(RecordsBackTo(before));
    EXPECT_EQ(recorder.Calls(), 1u);
    const Completion completion = recorder.At(0);
    EXPECT_NE(completion.threadId, GetCurrentThreadId());
    EXPECT_EQ(completion.bytes, 5u);
    EXPECT_STREQ(buffer, "hello");
    EXPECT_EQ(completion.state, &marker);
    EXPECT_EQ(completion.waitHandle, nullptr);  // unregistered before the callback
    // A success hands on the routine's last error: that of unregistering the wait from inside
    // its own routine.
    EXPECT_EQ(completion.error, ERROR_IO_PENDING);
}

TEST(PipeAsyncTest, PendingReadCompletesWhenDataArrives) {
    PipePair pair(L"read-pending", TRUE);
    CompletionRecorder recorder(pair.client);
    const int32_t before = AsyncResult::LiveCount();
    char buffer[16] = {};
    EXPECT_TRUE(pair.client.BeginRead(buffer, sizeof(buffer), recorder.Bind(), nullptr));
    EXPECT_EQ(pair.server.Write("later", 5), 5);
    ASSERT_TRUE(recorder.WaitForCalls(1));
    EXPECT_TRUE(RecordsBackTo(before));
    EXPECT_EQ(recorder.Calls(), 1u);
    EXPECT_EQ(recorder.At(0).bytes, 5u);
    EXPECT_STREQ(buffer, "later");
    EXPECT_NE(recorder.At(0).threadId, GetCurrentThreadId());
}

TEST(PipeAsyncTest, MessageLongerThanTheBufferCountsAsUnderWay) {
    const std::wstring name = UniquePipeName(L"long-message");
    const UniqueHandle server(CreateNamedPipeW(
        name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT, 1,
        kPipeBuffer, kPipeBuffer, TinyPipeServer::kDefaultTimeout, nullptr));
    ASSERT_TRUE(server.IsValid());
    TinyPipeClient client;
    ASSERT_TRUE(client.Open(name.c_str(), FALSE, TRUE));  // message read mode, overlapped
    const std::vector<unsigned char> message = Pattern(100);
    DWORD written = 0;
    ASSERT_TRUE(WriteFile(server.Get(), message.data(), 100, &written, nullptr));
    CompletionRecorder recorder(client);
    const int32_t before = AsyncResult::LiveCount();
    unsigned char head[40] = {};
    EXPECT_TRUE(client.BeginRead(head, sizeof(head), recorder.Bind(), nullptr));
    ASSERT_TRUE(recorder.WaitForCalls(1));
    EXPECT_EQ(recorder.At(0).error, ERROR_MORE_DATA);
    // The first 40 bytes are in the buffer, but GetOverlappedResult reports the rest with a
    // failure, and a failure counts no bytes.
    EXPECT_EQ(recorder.At(0).bytes, 0u);
    EXPECT_EQ(std::memcmp(head, message.data(), 40), 0);
    // The rest of the message waits for the next read.
    unsigned char rest[100] = {};
    EXPECT_TRUE(client.BeginRead(rest, sizeof(rest), recorder.Bind(), nullptr));
    ASSERT_TRUE(recorder.WaitForCalls(2));
    EXPECT_TRUE(RecordsBackTo(before));
    EXPECT_EQ(recorder.At(1).bytes, 60u);
    EXPECT_EQ(std::memcmp(rest, message.data() + 40, 60), 0);
    EXPECT_EQ(recorder.Calls(), 2u);
}

TEST(PipeAsyncTest, BeginConnectWhenTheClientCameFirstCompletesConnected) {
    const std::wstring name = UniquePipeName(L"connect-client-first");
    TinyPipeServer server;
    ASSERT_TRUE(server.Create(name.c_str()));
    TinyPipeClient client;
    ASSERT_TRUE(client.Open(name.c_str(), TRUE, FALSE));
    CompletionRecorder recorder(server);
    const int32_t before = AsyncResult::LiveCount();
    TestSupport::LogCapture capture;
    EXPECT_TRUE(server.BeginConnect(recorder.Bind(), nullptr));
    ASSERT_TRUE(recorder.WaitForCalls(1));
    EXPECT_TRUE(RecordsBackTo(before));
    EXPECT_EQ(recorder.Calls(), 1u);
    EXPECT_EQ(recorder.At(0).error, 0);
    EXPECT_TRUE(recorder.At(0).serverConnected);
    EXPECT_NE(recorder.At(0).threadId, GetCurrentThreadId());
    EXPECT_TRUE(server.IsConnected());
    EXPECT_TRUE(capture.Records().empty());
}

TEST(PipeAsyncTest, BeginConnectOnTheOwnHandleReturnsOnceTheClientIsThere) {
    const std::wstring name = UniquePipeName(L"connect-blocking");
    TinyPipeServer server;
    ASSERT_TRUE(server.Create(name.c_str()));
    CompletionRecorder recorder(server);
    const int32_t before = AsyncResult::LiveCount();
    std::atomic<BOOL> started{FALSE};
    TestThread connector([&] { started = server.BeginConnect(recorder.Bind(), nullptr); });
    TinyPipeClient client;
    ASSERT_TRUE(client.Open(name.c_str(), TRUE, FALSE));
    ASSERT_TRUE(connector.WaitFor(kDeadlineMs));
    EXPECT_TRUE(started.load());
    ASSERT_TRUE(recorder.WaitForCalls(1));
    EXPECT_TRUE(RecordsBackTo(before));
    EXPECT_EQ(recorder.Calls(), 1u);
    EXPECT_EQ(recorder.At(0).error, 0);
    EXPECT_TRUE(recorder.At(0).serverConnected);
    EXPECT_NE(recorder.At(0).threadId, connector.Id());
    EXPECT_NE(recorder.At(0).threadId, GetCurrentThreadId());
    EXPECT_TRUE(server.IsConnected());
}

TEST(PipeAsyncTest, PendingConnectEndsWithTheRoutinesLastErrorAndNotConnected) {
    const std::wstring name = UniquePipeName(L"connect-pending");
    TinyPipeServer server;
    server.Attach(CreateOverlappedServerPipe(name, TinyPipeServer::kPipeMode));
    ASSERT_FALSE(server.IsEmpty());
    CompletionRecorder recorder(server);
    const int32_t before = AsyncResult::LiveCount();
    // Returns at once: the overlapped handle leaves the connect pending until the peer comes.
    EXPECT_TRUE(server.BeginConnect(recorder.Bind(), nullptr));
    EXPECT_EQ(recorder.Calls(), 0u);
    PipePeerProcess peer(name, 0);
    ASSERT_TRUE(peer.WaitOpened());
    ASSERT_TRUE(recorder.WaitForCalls(1));
    EXPECT_TRUE(RecordsBackTo(before));
    EXPECT_EQ(recorder.Calls(), 1u);
    // The connect succeeded, yet the code after the pending path's GetOverlappedResult is the
    // routine's last error, ERROR_IO_PENDING from unregistering its wait; a non-zero code leaves
    // the server's flag false.
    EXPECT_EQ(recorder.At(0).error, ERROR_IO_PENDING);
    EXPECT_FALSE(recorder.At(0).serverConnected);
    EXPECT_FALSE(server.IsConnected());
    // The peer is attached all the same.
    EXPECT_EQ(server.Write("x", 1), 1);
    EXPECT_EQ(peer.ReleaseAndWait(), kPeerReleased);
}

TEST(PipeAsyncTest, FailedReadLogsCancelsClosesAndSkipsTheCallback) {
    PipePair pair(L"read-broken", FALSE);
    pair.server.TinyPipe::Close();  // only the handle: the client's read fails with a broken pipe
    CompletionRecorder recorder(pair.client);
    const int32_t before = AsyncResult::LiveCount();
    TestSupport::LogCapture capture;
    AsyncCallback callback = recorder.Bind();
    char buffer[4];
    EXPECT_FALSE(pair.client.BeginRead(buffer, sizeof(buffer), std::move(callback), nullptr));
    EXPECT_TRUE(callback.IsNull());  // taken before the read failed, so never run
    EXPECT_TRUE(pair.client.IsEmpty());
    const auto messages = capture.Messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0], "Failed to ReadFileEx(109," + std::string(GetErrorText(109)) + ")");
    EXPECT_EQ(messages[1], "[PER_IO_CONTEXT] CancelIoEx");
    const auto records = capture.Records();
    EXPECT_NE(records[0].find(":ERROR] "), std::string::npos) << records[0];
    EXPECT_NE(records[0].find("TinyPipe.cpp("), std::string::npos) << records[0];
    EXPECT_NE(records[1].find(":INFO] : "), std::string::npos) << records[1];
    EXPECT_EQ(recorder.Calls(), 0u);
    // The record of a failed start is never freed.
    EXPECT_EQ(AsyncResult::LiveCount(), before + 1);
}

TEST(PipeAsyncTest, FailedWriteLogsTheSystemTextAndClosesThePipe) {
    PipePair pair(L"write-broken", FALSE);
    pair.server.TinyPipe::Close();
    CompletionRecorder recorder(pair.client);
    const int32_t before = AsyncResult::LiveCount();
    TestSupport::LogCapture capture;
    EXPECT_FALSE(pair.client.BeginWrite("abc", 3, recorder.Bind(), nullptr));
    EXPECT_TRUE(pair.client.IsEmpty());
    const auto messages = capture.Messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0], FailureText("WriteFile", ERROR_NO_DATA));
    EXPECT_EQ(messages[1], "[PER_IO_CONTEXT] CancelIoEx");
    EXPECT_EQ(recorder.Calls(), 0u);
    EXPECT_EQ(AsyncResult::LiveCount(), before + 1);
}

TEST(PipeAsyncTest, FailedConnectLogsAndLeavesTheServerClosed) {
    TinyPipeServer server;  // never created: the connect is refused at once
    CompletionRecorder recorder(server);
    const int32_t before = AsyncResult::LiveCount();
    TestSupport::LogCapture capture;
    EXPECT_FALSE(server.BeginConnect(recorder.Bind(), nullptr));
    const auto messages = capture.Messages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_EQ(messages[0].rfind("Failed to ConnectNamedPipe(", 0), 0u) << messages[0];
    EXPECT_EQ(messages[1], "[PER_IO_CONTEXT] CancelIoEx");
    EXPECT_EQ(server.Handle(), INVALID_HANDLE_VALUE);
    EXPECT_FALSE(server.IsConnected());
    EXPECT_EQ(recorder.Calls(), 0u);
    EXPECT_EQ(AsyncResult::LiveCount(), before + 1);
}

TEST(PipeAsyncTest, CancelIoEndsAPendingReadThroughItsCallback) {
    PipePair pair(L"cancel-pending", TRUE);
    CompletionRecorder recorder(pair.client);
    const int32_t before = AsyncResult::LiveCount();
    char buffer[8] = {};
    ASSERT_TRUE(pair.client.BeginRead(buffer, sizeof(buffer), recorder.Bind(), nullptr));
    EXPECT_TRUE(pair.client.CancelIo());  // this thread started the read
    ASSERT_TRUE(recorder.WaitForCalls(1));
    EXPECT_TRUE(RecordsBackTo(before));
    EXPECT_EQ(recorder.At(0).error, ERROR_OPERATION_ABORTED);
    EXPECT_EQ(recorder.At(0).bytes, 0u);
    // The pipe stays open and the record serves the next read.
    ASSERT_TRUE(pair.client.BeginRead(buffer, sizeof(buffer), recorder.Bind(), nullptr));
    EXPECT_EQ(pair.server.Write("next", 4), 4);
    ASSERT_TRUE(recorder.WaitForCalls(2));
    EXPECT_TRUE(RecordsBackTo(before));
    EXPECT_EQ(recorder.At(1).bytes, 4u);
    EXPECT_STREQ(buffer, "next");
    EXPECT_EQ(recorder.Calls(), 2u);
}

TEST(PipeAsyncTest, PeerVanishingMidReadEndsTheReadWithBrokenPipe) {
    const std::wstring name = UniquePipeName(L"peer-vanishes");
    TinyPipeServer server;
    server.Attach(CreateOverlappedServerPipe(name, TinyPipeServer::kPipeMode));
    ASSERT_FALSE(server.IsEmpty());
    PipePeerProcess peer(name, 0);
    ASSERT_TRUE(peer.WaitOpened());
    CompletionRecorder recorder(server);
    const int32_t before = AsyncResult::LiveCount();
    char buffer[8] = {};
    ASSERT_TRUE(server.BeginRead(buffer, sizeof(buffer), recorder.Bind(), nullptr));
    EXPECT_EQ(recorder.Calls(), 0u);  // nothing written: the read is pending
    EXPECT_EQ(peer.ReleaseAndWait(), kPeerReleased);
    ASSERT_TRUE(recorder.WaitForCalls(1));
    EXPECT_TRUE(RecordsBackTo(before));
    EXPECT_EQ(recorder.Calls(), 1u);
    EXPECT_EQ(recorder.At(0).error, ERROR_BROKEN_PIPE);
    EXPECT_EQ(recorder.At(0).bytes, 0u);
}

// Reads a stream to its end, each next read started from inside the previous one's callback, on
// the pool thread, while the routine that runs it is still to finish with the record.
class ChainedReader {
public:
    ChainedReader(TinyPipe& pipe, DWORD chunk, size_t expected)
        : m_pipe(pipe),
          m_chunk(chunk),
          m_expected(expected),
          m_buffer(chunk),
          m_mainThread(GetCurrentThreadId()) {}

    bool Start() { return Next(); }
    bool WaitDone() { return m_done.WaitFor(kDeadlineMs); }

    void OnCompleted(int error, AsyncResult* result) {
        m_calls.fetch_add(1);
        if (GetCurrentThreadId() == m_mainThread) {
            m_callsOnMainThread.fetch_add(1);
        }
        const DWORD bytes = m_pipe.EndRead(result);
        m_received.insert(m_received.end(), m_buffer.begin(), m_buffer.begin() + bytes);
        if (bytes == 0) {
            m_lastError = error;
        }
        if (bytes == 0 || m_received.size() >= m_expected || !Next()) {
            m_done.Set();
        }
    }

    std::vector<unsigned char> m_received;
    std::atomic<int> m_calls{0};
    std::atomic<int> m_callsOnMainThread{0};
    int m_lastError = -1;

private:
    bool Next() {
        return m_pipe.BeginRead(
                   m_buffer.data(), m_chunk,
                   BindCallback<void(int, AsyncResult*)>(&ChainedReader::OnCompleted, this),
                   nullptr) != FALSE;
    }

    TinyPipe& m_pipe;
    DWORD m_chunk;
    size_t m_expected;
    std::vector<unsigned char> m_buffer;
    DWORD m_mainThread;
    ManualEvent m_done;
};

class PipeAsyncChunkTest : public ::testing::TestWithParam<DWORD> {};

TEST_P(PipeAsyncChunkTest, ChainedReadsCollectAWriteLargerThanTheBuffer) {
    const DWORD chunk = GetParam();
    const size_t total = 3 * kPipeBuffer + 123;
    const std::wstring name = UniquePipeName(L"large-write");
    TinyPipeServer server;
    server.Attach(CreateOverlappedServerPipe(name, TinyPipeServer::kPipeMode));
    ASSERT_FALSE(server.IsEmpty());
    PipePeerProcess peer(name, static_cast<DWORD>(total));
    ASSERT_TRUE(peer.WaitOpened());
    const int32_t before = AsyncResult::LiveCount();
    ChainedReader reader(server, chunk, total);
    ASSERT_TRUE(reader.Start());
    ASSERT_TRUE(reader.WaitDone());
    EXPECT_TRUE(RecordsBackTo(before));
    EXPECT_EQ(reader.m_received, Pattern(total));
    EXPECT_EQ(reader.m_callsOnMainThread.load(), 0);
    const int calls = reader.m_calls.load();
    EXPECT_GE(static_cast<size_t>(calls) * chunk, total);
    // Then the peer vanishes. The next read fails at once with a broken pipe: a failed start,
    // reported by the false result alone.
    EXPECT_EQ(peer.ReleaseAndWait(), kPeerReleased);
    TestSupport::LogCapture capture;
    ChainedReader last(server, chunk, 1);
    EXPECT_FALSE(last.Start());
    EXPECT_TRUE(
        capture.Contains("Failed to ReadFileEx(109," + std::string(GetErrorText(109)) + ")"));
    EXPECT_TRUE(server.IsEmpty());
    EXPECT_EQ(last.m_calls.load(), 0);
    EXPECT_EQ(AsyncResult::LiveCount(), before + 1);
    EXPECT_EQ(reader.m_calls.load(), calls);  // no late or doubled completion
}

INSTANTIATE_TEST_SUITE_P(AroundTheBufferSize, PipeAsyncChunkTest,
                         ::testing::Values(4096u, kPipeBuffer - 1, kPipeBuffer, kPipeBuffer + 1,
                                           4 * kPipeBuffer));

class PipeAsyncWriteSizeTest : public ::testing::TestWithParam<DWORD> {};

TEST_P(PipeAsyncWriteSizeTest, OverlappedWriteArrivesWholeAndReportsItsSize) {
    const DWORD size = GetParam();
    PipePair pair(L"write-size", TRUE);
    CompletionRecorder recorder(pair.client);
    const int32_t before = AsyncResult::LiveCount();
    const std::vector<unsigned char> data = Pattern(size);
    std::vector<unsigned char> received;
    // The server drains on a thread of its own: a write larger than the buffer completes only
    // once the reader has taken what does not fit.
    TestThread reader([&] {
        std::vector<unsigned char> buffer(size);
        while (received.size() < size) {
            const int32_t count = pair.server.Read(buffer.data(), size);
            if (count <= 0) {
                return;
            }
            received.insert(received.end(), buffer.begin(), buffer.begin() + count);
        }
    });
    EXPECT_TRUE(pair.client.BeginWrite(data.data(), size, recorder.Bind(), nullptr));
    ASSERT_TRUE(recorder.WaitForCalls(1));
    ASSERT_TRUE(reader.WaitFor(kDeadlineMs));
    EXPECT_TRUE(RecordsBackTo(before));
    EXPECT_EQ(recorder.Calls(), 1u);
    EXPECT_EQ(recorder.At(0).bytes, size);
    EXPECT_NE(recorder.At(0).threadId, GetCurrentThreadId());
    EXPECT_EQ(received, data);
}

INSTANTIATE_TEST_SUITE_P(AroundTheBufferSize, PipeAsyncWriteSizeTest,
                         ::testing::Values(1u, kPipeBuffer - 1, kPipeBuffer, kPipeBuffer + 1,
                                           40000u));

// Counts the completions of each operation of a long run by its index.
class StressCounter {
public:
    explicit StressCounter(size_t operations) : m_calls(operations) {
        m_completed.Reset(CreateEventW(nullptr, FALSE, FALSE, nullptr));
    }

    AsyncCallback Bind(size_t index) {
        return BindCallback<void(int, AsyncResult*)>(&StressCounter::OnCompleted, this, index);
    }

    void OnCompleted(size_t index, int /*error*/, AsyncResult* result) {
        m_calls[index].fetch_add(1);
        m_bytes.fetch_add(static_cast<PipeAsyncResult*>(result)->m_bytesTransferred);
        if (GetCurrentThreadId() == m_mainThread) {
            m_onMainThread.fetch_add(1);
        }
        SetEvent(m_completed.Get());
    }

    bool WaitOne() { return WaitForSingleObject(m_completed.Get(), kDeadlineMs) == WAIT_OBJECT_0; }

    std::vector<std::atomic<int>> m_calls;
    std::atomic<uint64_t> m_bytes{0};
    std::atomic<int> m_onMainThread{0};
    DWORD m_mainThread = GetCurrentThreadId();

private:
    UniqueHandle m_completed;
};

// How many times the stress run repeats in one test: once in the test command, as many as
// PIPE_STRESS_REPEATS says in the long stress command (scripts/stress.sh).
int StressRepeats() {
    char text[16] = {};
    const DWORD length = GetEnvironmentVariableA("PIPE_STRESS_REPEATS", text, sizeof(text));
    const int repeats = length > 0 && length < sizeof(text) ? atoi(text) : 0;
    return repeats > 0 ? repeats : 1;
}

// Echo rounds on one pipe pair: the client writes a number and reads it back, both overlapped,
// while the server answers synchronously. Each completion must come exactly once, on a pool
// thread, and no record or handle may outlive the run.
void RunEchoRounds(const wchar_t* purpose, size_t rounds) {
    PipePair pair(purpose, TRUE);
    StressCounter counter(2 * rounds);
    // The first rounds make the pool's threads, which then stay.
    const size_t warmUp = rounds < 10 ? rounds : 10;
    const int32_t before = AsyncResult::LiveCount();
    uintptr_t slotAfterWarmUp = 0;
    for (size_t round = 0; round < rounds; ++round) {
        if (round == warmUp) {
            ASSERT_TRUE(RecordsBackTo(before));
            slotAfterWarmUp = NextHandleSlot();
        }
        const uint32_t sent = static_cast<uint32_t>(round);
        ASSERT_TRUE(pair.client.BeginWrite(&sent, 4, counter.Bind(2 * round), nullptr));
        ASSERT_TRUE(counter.WaitOne()) << "write " << round;
        uint32_t echoed = 0;
        ASSERT_EQ(pair.server.Read(&echoed, 4), 4);
        ASSERT_EQ(echoed, sent);
        ASSERT_EQ(pair.server.Write(&echoed, 4), 4);
        uint32_t back = 0;
        ASSERT_TRUE(pair.client.BeginRead(&back, 4, counter.Bind(2 * round + 1), nullptr));
        ASSERT_TRUE(counter.WaitOne()) << "read " << round;
        ASSERT_EQ(back, sent);
    }
    ASSERT_TRUE(RecordsBackTo(before));
    EXPECT_EQ(NextHandleSlot(), slotAfterWarmUp);
    size_t once = 0;
    for (const auto& calls : counter.m_calls) {
        once += calls.load() == 1 ? 1 : 0;
    }
    EXPECT_EQ(once, 2 * rounds);
    EXPECT_EQ(counter.m_bytes.load(), 8u * rounds);
    EXPECT_EQ(counter.m_onMainThread.load(), 0);
}

// Keeps every processor busy with a spinning thread until it is destroyed, so that the pool's
// threads must compete for time as on a loaded machine.
class BusyThreadPerCore {
public:
    BusyThreadPerCore() {
        const DWORD cores = GetActiveProcessorCount(ALL_PROCESSOR_GROUPS);
        for (DWORD core = 0; core < cores; ++core) {
            m_threads.emplace_back([this] {
                while (!m_stop.load(std::memory_order_relaxed)) {
                    m_spins.fetch_add(1, std::memory_order_relaxed);
                }
            });
        }
    }
    ~BusyThreadPerCore() {
        m_stop.store(true);
        for (auto& thread : m_threads) {
            thread.join();
        }
    }
    size_t Count() const { return m_threads.size(); }
    uint64_t Spins() const { return m_spins.load(); }

private:
    std::atomic<bool> m_stop{false};
    std::atomic<uint64_t> m_spins{0};
    std::vector<std::thread> m_threads;
};

TEST(PipeAsyncStressTest, ThousandsOfOperationsCompleteEachExactlyOnce) {
    const int repeats = StressRepeats();
    for (int repeat = 0; repeat < repeats; ++repeat) {
        SCOPED_TRACE("repeat " + std::to_string(repeat + 1) + " of " + std::to_string(repeats));
        ASSERT_NO_FATAL_FAILURE(RunEchoRounds(L"stress", 1500));
    }
}

TEST(PipeAsyncStressTest, OperationsCompleteWhileEveryCoreIsBusy) {
    BusyThreadPerCore load;
    ASSERT_GE(load.Count(), 1u);
    ASSERT_NO_FATAL_FAILURE(RunEchoRounds(L"loaded", 500));
    // The spinning threads really ran beside the pipe's work.
    EXPECT_GT(load.Spins(), 0u);
}

}  // namespace
