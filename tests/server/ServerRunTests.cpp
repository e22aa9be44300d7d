// Whole runs of the query server inside the test process, the test playing the parent step by
// step, so that each step of the rendezvous and its log records can be checked.
#include "protocol/QueryProtocol.h"
#include "server/QueryServerRun.h"
#include "server/ReplyChannel.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RawParent.h"

#include <gtest/gtest.h>

#include <objbase.h>

#include <atomic>
#include <future>
#include <string>
#include <thread>
#include <vector>

namespace {

using TestSupport::LogCapture;
using TestSupport::RawParent;

// How long the parent waits for a step of the server: only a hang reaches it, also on a machine
// loaded many times over.
constexpr DWORD kWaitMs = 60000;
constexpr DWORD kConnectPauseMs = 5;

std::wstring UniqueId(const wchar_t* purpose) {
    static std::atomic<int> counter{0};
    return std::wstring(L"run-") + purpose + L"-" + std::to_wstring(GetCurrentProcessId()) + L"-" +
           std::to_wstring(counter++);
}

enum class Apartment { None, MultiThreaded, SingleThreaded };

// RunQueryServer on a thread of its own, optionally in an apartment entered beforehand.
class ServerThread {
public:
    ServerThread(std::vector<std::wstring> arguments, Apartment apartment = Apartment::None)
        : m_arguments(std::move(arguments)) {
        std::packaged_task<int()> task([this, apartment] {
            if (apartment == Apartment::MultiThreaded) {
                CoInitializeEx(nullptr, COINIT_MULTITHREADED);
            } else if (apartment == Apartment::SingleThreaded) {
                CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
            }
            std::vector<const wchar_t*> argv;
            for (const std::wstring& argument : m_arguments) {
                argv.push_back(argument.c_str());
            }
            return QueryServer::RunQueryServer(static_cast<int>(argv.size()), argv.data());
        });
        m_result = task.get_future();
        m_thread = std::thread(std::move(task));
    }
    ~ServerThread() {
        if (m_thread.joinable()) {
            // A run that never ended has failed its test already; do not hang the others.
            m_thread.detach();
        }
    }
    // True when the run ended within the time; `exitCode` receives its result.
    bool Finish(DWORD milliseconds, int* exitCode) {
        if (m_result.wait_for(std::chrono::milliseconds(milliseconds)) !=
            std::future_status::ready) {
            return false;
        }
        m_thread.join();
        *exitCode = m_result.get();
        return true;
    }

private:
    std::vector<std::wstring> m_arguments;
    std::future<int> m_result;
    std::thread m_thread;
};

// The parent's normal part: woken, a short pause, open, read to the end.
std::vector<uint8_t> ActAsParent(RawParent& parent) {
    std::vector<uint8_t> bytes;
    EXPECT_TRUE(parent.WaitForEvent(kWaitMs));
    Sleep(kConnectPauseMs);
    EXPECT_TRUE(parent.OpenPipe(kWaitMs));
    EXPECT_TRUE(parent.ReadToEnd(kWaitMs, &bytes));
    return bytes;
}

void ExpectRunEndsWithZero(ServerThread& server) {
    int exitCode = -1;
    ASSERT_TRUE(server.Finish(kWaitMs, &exitCode));
    EXPECT_EQ(exitCode, 0);
}

// Some runs depend on which of two threads gets somewhere first, and on a loaded machine either
// can. A run that went the other way shows nothing of what the test is about and is made again:
// `attempt` makes one run and answers whether it showed it (checking it then); `otherwise` says
// what the runs showed instead when none did.
constexpr int kRunAttempts = 10;

template <typename Attempt>
void RepeatUntilARunShowsIt(Attempt attempt, const char* otherwise) {
    for (int index = 0; index < kRunAttempts; ++index) {
        if (attempt()) {
            return;
        }
    }
    ADD_FAILURE() << "in each of " << kRunAttempts << " runs " << otherwise;
}

// A parent that opens the pipe between the server's wake and its connect loses the reply by
// design, and the server wakes it a second time. The parent's pause after the wake makes that
// rare; a server slower than the pause still makes it happen. Asked once the run has ended.
bool WasServed(RawParent& parent) {
    return !parent.WaitForEvent(0);
}

constexpr char kParentLostTheReply[] = "the parent was woken twice and lost the reply";

TEST(ServerRun, UnknownMethodGivesAnEmptyStreamAndTheTwoUsualRecords) {
    RepeatUntilARunShowsIt(
        [] {
            LogCapture capture;  // each run's own, its flood guard empty too
            const std::wstring id = UniqueId(L"unknown");
            RawParent parent(id);
            ServerThread server({L"QueryServer.exe", L"method=getvideodevices", L"id=" + id});
            const std::vector<uint8_t> bytes = ActAsParent(parent);
            ExpectRunEndsWithZero(server);
            if (!WasServed(parent)) {
                return false;
            }
            EXPECT_TRUE(bytes.empty());
            // Flush and disconnect end the stream as "not connected".
            EXPECT_EQ(parent.EndError(), static_cast<DWORD>(ERROR_PIPE_NOT_CONNECTED));
            // The null write of Close fails, and the destructor's repeated Close fails to connect.
            EXPECT_EQ(capture.RecordsContaining("Failed to WriteFile(").size(), 1u);
            EXPECT_EQ(capture.RecordsContaining("Failed to ConnectNamedPipe(").size(), 1u);
            EXPECT_EQ(capture.Records().size(), 2u);
            return true;
        },
        kParentLostTheReply);
}

TEST(ServerRun, NoMethodAtAllGivesAnEmptyStream) {
    const std::wstring id = UniqueId(L"no-method");
    RawParent parent(id);
    ServerThread server({L"QueryServer.exe", L"id=" + id});
    EXPECT_TRUE(ActAsParent(parent).empty());
    ExpectRunEndsWithZero(server);
}

TEST(ServerRun, WithoutAnIdBothNamesEndInTheirHyphen) {
    RawParent parent(L"");
    ServerThread server({L"QueryServer.exe", L"method=none"});
    EXPECT_TRUE(ActAsParent(parent).empty());
    ExpectRunEndsWithZero(server);
}

TEST(ServerRun, IdGivenAsTheProgramPathTakesEffect) {
    const std::wstring id = UniqueId(L"argv0");
    RawParent parent(id);
    ServerThread server({L"id=" + id});
    EXPECT_TRUE(ActAsParent(parent).empty());
    ExpectRunEndsWithZero(server);
}

TEST(ServerRun, ClientThatComesBeforeTheEventGetsNothing) {
    // The client opens the pipe as soon as it stands. Only if the event was not yet set then did
    // it certainly come before the server's connect, which follows the event.
    RepeatUntilARunShowsIt(
        [] {
            LogCapture capture;  // each run's own, its flood guard empty too
            const std::wstring id = UniqueId(L"early");
            RawParent parent(id);
            ServerThread server({L"QueryServer.exe", L"method=x", L"id=" + id});
            EXPECT_TRUE(parent.OpenPipe(kWaitMs));
            const bool cameBeforeTheEvent = !parent.WaitForEvent(0);
            std::vector<uint8_t> bytes;
            EXPECT_TRUE(parent.ReadToEnd(kWaitMs, &bytes));
            EXPECT_TRUE(bytes.empty());
            ExpectRunEndsWithZero(server);
            if (!cameBeforeTheEvent) {
                return false;
            }
            EXPECT_TRUE(parent.WaitForEvent(0));
            const auto connectFailures = capture.RecordsContaining("Failed to ConnectNamedPipe(");
            EXPECT_EQ(connectFailures.size(), 2u);
            const std::string alreadyConnected = std::string("Failed to ConnectNamedPipe(") +
                                                 TinyFramework::GetErrorText(ERROR_PIPE_CONNECTED);
            EXPECT_NE(connectFailures.at(0).find(alreadyConnected), std::string::npos)
                << connectFailures.at(0);
            // No null write after a failed connect.
            EXPECT_TRUE(capture.RecordsContaining("Failed to WriteFile(").empty());
            return true;
        },
        "the server reached its connect before the client");
}

TEST(ServerRun, PipeThatCannotBeCreatedStillWakesTheParent) {
    LogCapture capture;
    const std::wstring id = UniqueId(L"squatted");
    RawParent parent(id);
    // Somebody else holds the one instance of the name.
    const HANDLE squatter =
        CreateNamedPipeW(parent.PipeName().c_str(), PIPE_ACCESS_DUPLEX, 0, 1, 512, 512, 0, nullptr);
    ASSERT_NE(squatter, INVALID_HANDLE_VALUE);
    ServerThread server({L"QueryServer.exe", L"method=GetVideoDevices", L"id=" + id});
    ExpectRunEndsWithZero(server);
    EXPECT_TRUE(parent.WaitForEvent(0));
    EXPECT_EQ(capture.RecordsContaining("Failed to CreateNamedPipe(").size(), 1u);
    EXPECT_EQ(capture.RecordsContaining("Failed to ConnectNamedPipe(").size(), 1u);
    CloseHandle(squatter);
}

TEST(ServerRun, ApartmentOfAnotherKindEndsWithAnEmptyStream) {
    const std::wstring id = UniqueId(L"mta");
    RawParent parent(id);
    ServerThread server({L"QueryServer.exe", L"method=GetVideoDevices", L"id=" + id},
                        Apartment::MultiThreaded);
    EXPECT_TRUE(ActAsParent(parent).empty());
    ExpectRunEndsWithZero(server);
}

TEST(ServerRun, ApartmentEnteredAlreadyCountsAsFailureToo) {
    // CoInitializeEx then answers S_FALSE, and only S_OK lets the query run.
    const std::wstring id = UniqueId(L"sta");
    RawParent parent(id);
    ServerThread server({L"QueryServer.exe", L"method=GetVideoDevices", L"id=" + id},
                        Apartment::SingleThreaded);
    EXPECT_TRUE(ActAsParent(parent).empty());
    ExpectRunEndsWithZero(server);
}

TEST(ServerRun, WithoutTheParentsEventTheRunGoesOn) {
    const std::wstring id = UniqueId(L"no-event");
    ServerThread server({L"QueryServer.exe", L"method=x", L"id=" + id});
    // Nobody is woken; a client that opens the pipe anyway still sees the stream end.
    const std::wstring pipeName = QueryProtocol::kPipeNamePrefix + id;
    HANDLE pipe = INVALID_HANDLE_VALUE;
    const ULONGLONG end = GetTickCount64() + kWaitMs;
    while (pipe == INVALID_HANDLE_VALUE && GetTickCount64() < end) {
        pipe = CreateFileW(pipeName.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        Sleep(1);
    }
    ASSERT_NE(pipe, INVALID_HANDLE_VALUE);
    char buffer[16];
    DWORD read = 0;
    EXPECT_FALSE(ReadFile(pipe, buffer, sizeof(buffer), &read, nullptr));
    EXPECT_EQ(read, 0u);
    CloseHandle(pipe);
    ExpectRunEndsWithZero(server);
}

// A channel opened by hand, as the run opens it.
struct OpenedChannel {
    explicit OpenedChannel(const std::wstring& id) : parent(id) {
        EXPECT_TRUE(channel.pipe.Create(parent.PipeName().c_str()));
        EXPECT_TRUE(channel.readyEvent.Open(0, 0, parent.EventName().c_str()));
    }
    RawParent parent;
    QueryServer::ReplyChannel channel;
};

TEST(ReplyChannelTest, FirstWriteWakesTheParentAndLaterWritesDoNot) {
    RepeatUntilARunShowsIt(
        [] {
            OpenedChannel opened(UniqueId(L"write"));
            bool wrote[2] = {};
            std::thread writer([&] {
                wrote[0] = opened.channel.Write("abc", 3);
                wrote[1] = opened.channel.Write("def", 3);
                opened.channel.Close();
            });
            const std::vector<uint8_t> bytes = ActAsParent(opened.parent);
            writer.join();
            if (!WasServed(opened.parent)) {
                return false;
            }
            EXPECT_TRUE(wrote[0]);
            EXPECT_TRUE(wrote[1]);
            EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "abcdef");
            EXPECT_TRUE(opened.channel.readyEvent.IsEmpty());
            EXPECT_TRUE(opened.channel.pipe.IsEmpty());
            EXPECT_TRUE(opened.channel.spareEvent.IsEmpty());
            return true;
        },
        kParentLostTheReply);
}

TEST(ReplyChannelTest, WriteLargerThanThePipeBufferIsOneWriteThatWaitsForTheReader) {
    std::string large(100000, 'x');
    for (size_t index = 0; index < large.size(); ++index) {
        large[index] = static_cast<char>('a' + index % 26);
    }
    RepeatUntilARunShowsIt(
        [&large] {
            OpenedChannel opened(UniqueId(L"large"));
            bool wrote = false;
            std::thread writer([&] {
                wrote = opened.channel.Write(large.data(), static_cast<uint32_t>(large.size()));
                opened.channel.Close();
            });
            const std::vector<uint8_t> bytes = ActAsParent(opened.parent);
            writer.join();
            if (!WasServed(opened.parent)) {
                return false;
            }
            EXPECT_TRUE(wrote);
            EXPECT_EQ(std::string(bytes.begin(), bytes.end()), large);
            return true;
        },
        kParentLostTheReply);
}

TEST(ReplyChannelTest, FailedConnectInWriteIsFollowedByASecondWakeInClose) {
    LogCapture capture;
    OpenedChannel opened(UniqueId(L"lost"));
    ASSERT_TRUE(opened.parent.OpenPipe(kWaitMs));  // too early
    EXPECT_FALSE(opened.channel.Write("lost", 4));
    std::thread closer([&] { opened.channel.Close(); });
    std::vector<uint8_t> bytes;
    EXPECT_TRUE(opened.parent.ReadToEnd(kWaitMs, &bytes));
    closer.join();
    EXPECT_TRUE(bytes.empty());
    // Set once by Write and once by Close: the auto-reset event holds one of them.
    EXPECT_TRUE(opened.parent.WaitForEvent(0));
    EXPECT_EQ(capture.RecordsContaining("Failed to ConnectNamedPipe(").size(), 2u);
}

TEST(ReplyChannelTest, DestructorOfAClosedChannelLogsOneFailedConnect) {
    LogCapture capture;
    {
        OpenedChannel opened(UniqueId(L"dtor"));
        std::thread closer([&] { opened.channel.Close(); });
        ActAsParent(opened.parent);
        closer.join();
        capture.Clear();
    }
    EXPECT_EQ(capture.RecordsContaining("Failed to ConnectNamedPipe(").size(), 1u);
    EXPECT_EQ(capture.Records().size(), 1u);
}

}  // namespace
