#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/IO/TinyPipe.h"
#include "tests/support/HandleState.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

namespace {

using TestSupport::IsOpenHandle;
using TinyFramework::GetErrorText;
using TinyFramework::TinyEvent;
using TinyFramework::IO::TinyPipeClient;
using TinyFramework::IO::TinyPipeServer;

std::wstring UniquePipeName(const wchar_t* purpose) {
    static std::atomic<int> counter{0};
    return L"\\\\.\\pipe\\TinyPipeTest-" + std::to_wstring(GetCurrentProcessId()) + L"-" + purpose +
           L"-" + std::to_wstring(counter++);
}

std::string FailureText(const char* call, DWORD error) {
    return std::string("Failed to ") + call + "(" + GetErrorText(error) + ")";
}

// A server with a client attached, the client connected while the server waits in its connect,
// as a parent connects after the event.
struct ConnectedPair {
    // A client that comes before the server's thread reaches its connect makes the connect fail,
    // and nothing shows from outside that the thread has reached it. So a pair whose client came
    // too early is made again with a longer pause, as long as a slow machine needs.
    static constexpr DWORD kFirstPauseMs = 20;
    static constexpr DWORD kLastPauseMs = 10240;

    explicit ConnectedPair(const wchar_t* purpose) {
        for (DWORD pauseMs = kFirstPauseMs; pauseMs <= kLastPauseMs; pauseMs *= 2) {
            if (Connect(UniquePipeName(purpose), pauseMs)) {
                return;
            }
            server.Close();
            client.Close();
        }
        ADD_FAILURE() << "the client came before the server's connect at every pause";
    }

    bool Connect(const std::wstring& pipeName, DWORD pauseMs) {
        name = pipeName;
        EXPECT_TRUE(server.Create(name.c_str()));
        std::thread connector([this] { connected = server.Connect(); });
        Sleep(pauseMs);
        EXPECT_TRUE(client.Open(name.c_str(), TRUE, FALSE));
        connector.join();
        return connected != FALSE;
    }

    std::wstring name;
    TinyPipeServer server;
    TinyPipeClient client;
    BOOL connected = FALSE;
};

TEST(TinyPipeTest, ServerWritesAndClientReads) {
    ConnectedPair pair(L"conversation");
    ASSERT_TRUE(pair.connected);
    EXPECT_TRUE(pair.server.IsConnected());
    EXPECT_EQ(pair.server.Write("hello", 5), 5);
    EXPECT_EQ(pair.client.GetAvailable(), 5u);
    char buffer[16] = {};
    EXPECT_EQ(pair.client.Read(buffer, sizeof(buffer)), 5);
    EXPECT_STREQ(buffer, "hello");
    EXPECT_TRUE(pair.client.IsByteMode());
    EXPECT_TRUE(pair.server.IsByteMode());
    EXPECT_STREQ(pair.client.GetName(), pair.name.c_str());
    EXPECT_STREQ(pair.server.GetName(), pair.name.c_str());
}

TEST(TinyPipeTest, ProcessAndSessionIdsAreCrossedOnTheClient) {
    ConnectedPair pair(L"ids");
    DWORD session = 0;
    ASSERT_TRUE(ProcessIdToSessionId(GetCurrentProcessId(), &session));
    EXPECT_EQ(pair.server.GetPipeProcessId(), GetCurrentProcessId());
    EXPECT_EQ(pair.server.GetPipeSessionId(), session);
    // Through the client, the "process id" is the session id and the other way round.
    EXPECT_EQ(pair.client.GetPipeProcessId(), session);
    EXPECT_EQ(pair.client.GetPipeSessionId(), GetCurrentProcessId());
}

TEST(TinyPipeTest, CloseTwiceLeavesThePipeEmpty) {
    ConnectedPair pair(L"close-twice");
    pair.client.Close();
    EXPECT_EQ(pair.client.Handle(), INVALID_HANDLE_VALUE);
    pair.client.Close();  // passes INVALID_HANDLE_VALUE to CloseHandle
    EXPECT_EQ(pair.client.Handle(), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(pair.client.IsEmpty());
}

TEST(TinyPipeTest, DetachLeavesANullHandleThatCloseDoesNotTouch) {
    ConnectedPair pair(L"detach");
    const HANDLE detached = pair.client.Detach();
    EXPECT_EQ(pair.client.Handle(), nullptr);
    EXPECT_TRUE(pair.client.IsEmpty());
    pair.client.Close();
    EXPECT_EQ(pair.client.Handle(), INVALID_HANDLE_VALUE);
    EXPECT_TRUE(IsOpenHandle(detached));
    CloseHandle(detached);
}

TEST(TinyPipeTest, AttachStoresTheHandleWithoutClosingTheOldOne) {
    ConnectedPair pair(L"attach");
    const HANDLE old = pair.client.Handle();
    const HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    EXPECT_TRUE(pair.client.Attach(event));
    EXPECT_EQ(pair.client.Handle(), event);
    EXPECT_TRUE(IsOpenHandle(old));
    CloseHandle(old);
}

TEST(TinyPipeTest, WriteOfANullBufferReachesWriteFileAndFails) {
    ConnectedPair pair(L"null-write");
    TestSupport::LogCapture capture;
    EXPECT_EQ(pair.server.Write(nullptr, 2), 0);
    const DWORD error = GetLastError();
    EXPECT_NE(error, 0u);
    const auto records = capture.RecordsContaining("Failed to WriteFile(");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_NE(records[0].find(FailureText("WriteFile", error)), std::string::npos) << records[0];
}

TEST(TinyPipeTest, EmptyPipeOperationsDoNothing) {
    TinyPipeClient client;
    TestSupport::LogCapture capture;
    char buffer[4];
    SetLastError(12345);
    EXPECT_EQ(client.Read(buffer, 4), 0);
    EXPECT_EQ(client.Write("x", 1), 0);
    EXPECT_EQ(client.GetAvailable(), 0u);
    EXPECT_FALSE(client.Flush());
    EXPECT_FALSE(client.CancelIo());
    EXPECT_EQ(GetLastError(), 12345u);
    EXPECT_TRUE(capture.Records().empty());
}

TEST(TinyPipeTest, CancelIoLogsAtInfo) {
    ConnectedPair pair(L"cancel");
    TestSupport::LogCapture capture;
    EXPECT_TRUE(pair.client.CancelIo());
    const auto records = capture.RecordsContaining("[TinyPipe] CancelIo");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_NE(records[0].find(":INFO] : [TinyPipe] CancelIo\n"), std::string::npos) << records[0];
}

TEST(TinyPipeTest, ReadAfterTheServerClosedLogsTheNumericError) {
    ConnectedPair pair(L"read-closed");
    pair.server.TinyPipe::Close();  // only the handle: the client sees a broken pipe
    TestSupport::LogCapture capture;
    char buffer[4];
    EXPECT_EQ(pair.client.Read(buffer, sizeof(buffer)), 0);
    EXPECT_EQ(capture.RecordsContaining("Failed to ReadFile(109)").size(), 1u);
}

TEST(TinyPipeServerTest, ConnectWhenTheClientCameFirstFailsWith535) {
    const std::wstring name = UniquePipeName(L"client-first");
    TinyPipeServer server;
    ASSERT_TRUE(server.Create(name.c_str()));
    TinyPipeClient client;
    ASSERT_TRUE(client.Open(name.c_str(), TRUE, FALSE));
    TestSupport::LogCapture capture;
    EXPECT_FALSE(server.Connect());
    EXPECT_FALSE(server.IsConnected());
    const auto records = capture.RecordsContaining("Failed to ConnectNamedPipe(");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_NE(records[0].find(FailureText("ConnectNamedPipe", ERROR_PIPE_CONNECTED)),
              std::string::npos)
        << records[0];
}

TEST(TinyPipeServerTest, DisconnectOnAnEmptyServerIsFalseAndSilent) {
    TinyPipeServer server;
    TestSupport::LogCapture capture;
    EXPECT_FALSE(server.Disconnect());
    EXPECT_FALSE(server.IsConnected());
    EXPECT_TRUE(capture.Records().empty());
}

TEST(TinyPipeServerTest, DisconnectDetachesTheClientAndClearsTheFlag) {
    ConnectedPair pair(L"disconnect");
    ASSERT_TRUE(pair.server.IsConnected());
    EXPECT_TRUE(pair.server.Disconnect());
    EXPECT_FALSE(pair.server.IsConnected());
    char buffer[4];
    DWORD read = 0;
    EXPECT_FALSE(ReadFile(pair.client.Handle(), buffer, sizeof(buffer), &read, nullptr));
}

TEST(TinyPipeServerTest, CloseFlushesDisconnectsAndEmpties) {
    ConnectedPair pair(L"server-close");
    EXPECT_EQ(pair.server.Write("abc", 3), 3);
    std::thread reader([&pair] {
        char buffer[8] = {};
        EXPECT_EQ(pair.client.Read(buffer, sizeof(buffer)), 3);
    });
    pair.server.Close();  // the flush returns once the client has read everything
    reader.join();
    EXPECT_TRUE(pair.server.IsEmpty());
    EXPECT_FALSE(pair.server.IsConnected());
}

TEST(TinyPipeServerTest, CreateFailureLogsAndLeavesTheServerClosed) {
    TinyPipeServer server;
    TestSupport::LogCapture capture;
    EXPECT_FALSE(server.Create(L"C:\\not-a-pipe-name"));
    EXPECT_EQ(server.Handle(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(capture.RecordsContaining("Failed to CreateNamedPipe(").size(), 1u);
    // The failed Create went through Disconnect, which found the handle empty: no further record.
    EXPECT_EQ(capture.Records().size(), 1u);
}

TEST(TinyPipeServerTest, SecondServerOfOneNameFails) {
    const std::wstring name = UniquePipeName(L"single-instance");
    TinyPipeServer first;
    ASSERT_TRUE(first.Create(name.c_str()));
    TinyPipeServer second;
    TestSupport::LogCapture capture;
    EXPECT_FALSE(second.Create(name.c_str()));
    EXPECT_EQ(capture.RecordsContaining("Failed to CreateNamedPipe(").size(), 1u);
}

TEST(TinyPipeServerTest, FailedCreateClosesThePipeItHeldAndLeavesTheServerUsable) {
    const std::wstring name = UniquePipeName(L"recreate");
    TinyPipeServer server;
    ASSERT_TRUE(server.Create(name.c_str()));
    TestSupport::LogCapture capture;
    // The one instance of the name is this server's own, so a second one is refused.
    EXPECT_FALSE(server.Create(name.c_str()));
    EXPECT_TRUE(server.IsEmpty());
    EXPECT_EQ(server.Handle(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(capture.RecordsContaining("Failed to CreateNamedPipe(").size(), 1u);
    // The pipe it held was closed, not lost: the name is free for the same server again.
    EXPECT_TRUE(server.Create(name.c_str()));
}

TEST(TinyPipeServerTest, PipeIsOpenToEverybodyAndInheritable) {
    const std::wstring name = UniquePipeName(L"security");
    TinyPipeServer server;
    ASSERT_TRUE(server.Create(name.c_str()));
    DWORD flags = 0;
    ASSERT_TRUE(GetHandleInformation(server.Handle(), &flags));
    EXPECT_TRUE(flags & HANDLE_FLAG_INHERIT);
    DWORD pipeFlags = 0, outSize = 0, inSize = 0, maxInstances = 0;
    ASSERT_TRUE(GetNamedPipeInfo(server.Handle(), &pipeFlags, &outSize, &inSize, &maxInstances));
    EXPECT_EQ(pipeFlags & PIPE_TYPE_MESSAGE, 0u);
    EXPECT_EQ(maxInstances, 1u);
    EXPECT_EQ(outSize, 16384u);
    EXPECT_EQ(inSize, 16384u);
}

TEST(TinyPipeClientTest, OpenWaitsUntilThePipeIsCreated) {
    const std::wstring name = UniquePipeName(L"late");
    std::atomic<bool> created{false};
    std::atomic<bool> openedBeforeCreation{false};
    TinyPipeClient client;
    std::thread opener([&] {
        const BOOL opened = client.Open(name.c_str(), TRUE, FALSE);
        EXPECT_TRUE(opened);
        openedBeforeCreation = !created.load();
    });
    Sleep(300);
    TinyPipeServer server;
    created = true;
    ASSERT_TRUE(server.Create(name.c_str()));
    opener.join();
    EXPECT_FALSE(openedBeforeCreation);
    EXPECT_FALSE(client.IsEmpty());
}

TEST(TinyPipeClientTest, OpenRetriesABusyPipeUntilItIsFree) {
    ConnectedPair pair(L"busy");
    std::atomic<bool> released{false};
    std::atomic<bool> openedWhileBusy{false};
    TinyPipeClient second;
    std::thread opener([&] {
        EXPECT_TRUE(second.Open(pair.name.c_str(), TRUE, FALSE));
        openedWhileBusy = !released.load();
    });
    Sleep(300);
    released = true;
    // Disconnecting and listening again frees the one instance for the waiting client.
    ASSERT_TRUE(pair.server.Disconnect());
    EXPECT_TRUE(pair.server.Connect());
    opener.join();
    EXPECT_FALSE(openedWhileBusy);
    EXPECT_FALSE(second.IsEmpty());
}

TEST(TinyPipeClientTest, OpenWaitsOutABusyPipeBeyondOneWaitForIt) {
    ConnectedPair pair(L"long-busy");
    TestSupport::LogCapture capture;
    std::atomic<bool> opening{false};
    std::atomic<bool> released{false};
    std::atomic<bool> openedWhileBusy{false};
    BOOL opened = FALSE;
    TinyPipeClient second;
    std::thread opener([&] {
        opening = true;
        opened = second.Open(pair.name.c_str(), TRUE, FALSE);
        openedWhileBusy = !released.load();
    });
    while (!opening) {
        Sleep(1);
    }
    // Busy for two of Open's waits: WaitNamedPipeW gives up (ERROR_SEM_TIMEOUT), CreateFileW
    // then fails with ERROR_PIPE_BUSY, and Open must take that for "wait again".
    Sleep(2 * TinyPipeClient::kWaitTimeout);
    released = true;
    ASSERT_TRUE(pair.server.Disconnect());
    BOOL connected = FALSE;
    std::thread connector([&] { connected = pair.server.Connect(); });
    opener.join();
    if (!opened) {
        // Ends the waiting Connect, so that a failed Open shows as a failure and not as a hang.
        TinyPipeClient rescue;
        rescue.Open(pair.name.c_str(), TRUE, FALSE);
    }
    connector.join();
    EXPECT_TRUE(opened);
    EXPECT_TRUE(connected);
    EXPECT_FALSE(openedWhileBusy);
    EXPECT_TRUE(capture.RecordsContaining("Failed to CreateFile(").empty());
}

TEST(TinyPipeClientTest, FailedOpenClosesThePipeItHeldAndLeavesTheClientUsable) {
    ConnectedPair pair(L"reopen");
    TestSupport::LogCapture capture;
    // A path outside the pipe namespace: WaitNamedPipeW fails with ERROR_PATH_NOT_FOUND (as seen
    // under Wine), so Open goes on to CreateFileW, which fails the same way.
    EXPECT_FALSE(pair.client.Open(L"C:\\no-such-directory\\pipe", TRUE, FALSE));
    EXPECT_TRUE(pair.client.IsEmpty());
    EXPECT_EQ(pair.client.Handle(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(capture.RecordsContaining("Failed to CreateFile(").size(), 1u);
    // The pipe it held was closed, not lost: the server's end sees its client gone.
    DWORD available = 0;
    EXPECT_FALSE(PeekNamedPipe(pair.server.Handle(), nullptr, 0, nullptr, &available, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BROKEN_PIPE));
    // And the same client opens another pipe.
    const std::wstring otherName = UniquePipeName(L"reopen-other");
    TinyPipeServer other;
    ASSERT_TRUE(other.Create(otherName.c_str()));
    EXPECT_TRUE(pair.client.Open(otherName.c_str(), TRUE, FALSE));
    EXPECT_STREQ(pair.client.GetName(), otherName.c_str());
}

TEST(TinyPipeClientTest, MessageReadModeOnAByteTypePipeIsRefused) {
    const std::wstring name = UniquePipeName(L"message");
    TinyPipeServer server;
    ASSERT_TRUE(server.Create(name.c_str()));
    TinyPipeClient client;
    TestSupport::LogCapture capture;
    EXPECT_FALSE(client.Open(name.c_str(), FALSE, FALSE));
    EXPECT_EQ(client.Handle(), INVALID_HANDLE_VALUE);
    EXPECT_EQ(capture.RecordsContaining("Failed to SetNamedPipeHandleState(").size(), 1u);
}

TEST(TinyEventTest, SetAndWaitOnAnEmptyEventMakeNoSystemCall) {
    TinyEvent event;
    SetLastError(4242);
    EXPECT_FALSE(event.SetEvent());
    EXPECT_FALSE(event.Wait());
    EXPECT_EQ(GetLastError(), 4242u);
    EXPECT_TRUE(event.IsEmpty());
}

TEST(TinyEventTest, CreateGivesAnAutoResetEventThatWaitSees) {
    TinyEvent event;
    ASSERT_TRUE(event.Create());
    EXPECT_EQ(WaitForSingleObject(event.Handle(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
    EXPECT_TRUE(event.SetEvent());
    EXPECT_TRUE(event.Wait());
    EXPECT_EQ(WaitForSingleObject(event.Handle(), 0), static_cast<DWORD>(WAIT_TIMEOUT));
}

TEST(TinyEventTest, SecondCreateKeepsTheNewHandleAndLeaksTheFirst) {
    TinyEvent event;
    ASSERT_TRUE(event.Create());
    const HANDLE first = event.Handle();
    ASSERT_TRUE(event.Create());
    EXPECT_NE(event.Handle(), first);
    EXPECT_TRUE(IsOpenHandle(first));
    CloseHandle(first);
}

TEST(TinyEventTest, OpenIgnoresAccessAndInheritance) {
    const std::wstring name = L"TinyEventTest-open-" + std::to_wstring(GetCurrentProcessId());
    const HANDLE owner = CreateEventW(nullptr, FALSE, FALSE, name.c_str());
    ASSERT_NE(owner, nullptr);
    for (const auto& arguments :
         {std::make_pair(DWORD(0), BOOL(0)), std::make_pair(DWORD(9), BOOL(1))}) {
        TinyEvent event;
        ASSERT_TRUE(event.Open(arguments.first, arguments.second, name.c_str()));
        DWORD flags = 0;
        ASSERT_TRUE(GetHandleInformation(event.Handle(), &flags));
        EXPECT_EQ(flags & HANDLE_FLAG_INHERIT, 0u);
        // Modify access only: it can be set, not waited on.
        EXPECT_TRUE(event.SetEvent());
        EXPECT_EQ(WaitForSingleObject(owner, 0), WAIT_OBJECT_0);
        EXPECT_FALSE(event.Wait());
    }
    CloseHandle(owner);
}

TEST(TinyEventTest, OpenOfAMissingEventFails) {
    TinyEvent event;
    EXPECT_FALSE(event.Open(0, 0, L"TinyEventTest-no-such-event"));
    EXPECT_TRUE(event.IsEmpty());
}

TEST(TinyEventTest, CloseEmptiesAndIsSafeTwice) {
    TinyEvent event;
    ASSERT_TRUE(event.CreateEx(nullptr, nullptr, CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS));
    event.Close();
    EXPECT_TRUE(event.IsEmpty());
    event.Close();
    EXPECT_TRUE(event.IsEmpty());
}

TEST(ErrorTextTest, SystemTextsInTwoSeparateBuffers) {
    const char* fileNotFound = GetErrorText(ERROR_FILE_NOT_FOUND);
    EXPECT_GT(strlen(fileNotFound), 0u);
    const std::string copy = fileNotFound;
    SetLastError(ERROR_ACCESS_DENIED);
    const char* lastError = TinyFramework::GetLastErrorText();
    EXPECT_NE(lastError, fileNotFound);
    EXPECT_EQ(copy, fileNotFound);  // the other function's buffer was not touched
    EXPECT_NE(std::string(lastError), copy);
    EXPECT_EQ(GetErrorText(ERROR_ACCESS_DENIED), std::string(lastError));
}

}  // namespace
