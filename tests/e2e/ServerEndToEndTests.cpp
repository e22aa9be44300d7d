// The client and the real QueryServer.exe, through the whole rendezvous.
#include "client/QueryClient.h"
#include "client/ServerProcess.h"
#include "protocol/QueryProtocol.h"
#include "tests/support/TestDeadlines.h"
#include "tests/support/OwnProcesses.h"
#include "tests/support/RawParent.h"

#include <gtest/gtest.h>

namespace {

using QueryClient::Client;
using QueryClient::Outcome;
using QueryClient::RawReply;
using TestSupport::GenerousOptions;
using TestSupport::kGenerousDeadlineMs;

// Long enough to see a server that should stay blocked end by itself if it wrongly did.
constexpr DWORD kStaysBlockedProbeMs = 200;

class RealServer : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_TRUE(TestSupport::JoinOwnProcessJob()); }
    void TearDown() override {
        EXPECT_EQ(TestSupport::OwnProcessesLeftAfter(L"QueryServer.exe", kGenerousDeadlineMs), 0)
            << "a server outlived its query";
    }

    void ExpectEmptyStreamAndCleanExit(const RawReply& reply) {
        EXPECT_EQ(reply.outcome, Outcome::Ok) << reply.detail;
        EXPECT_TRUE(reply.bytes.empty());
        EXPECT_EQ(reply.serverExitCode, 0u);
    }

    RawReply Raw(const std::vector<std::wstring>& arguments, const std::wstring& id) {
        return Client(GenerousOptions()).QueryRaw(arguments, id);
    }
};

TEST_F(RealServer, UnknownMethodGivesAnEmptyStream) {
    const std::wstring id = QueryClient::MakeRandomId().text;
    ExpectEmptyStreamAndCleanExit(Raw({L"method=getvideodevices", L"id=" + id}, id));
}

TEST_F(RealServer, NoMethodGivesAnEmptyStream) {
    const std::wstring id = QueryClient::MakeRandomId().text;
    ExpectEmptyStreamAndCleanExit(Raw({L"id=" + id}, id));
}

TEST_F(RealServer, NoIdUsesNamesEndingInTheHyphen) {
    ExpectEmptyStreamAndCleanExit(Raw({L"method=nothing"}, L""));
}

TEST_F(RealServer, FormatsWithoutADeviceIdEndNormally) {
    const RawReply reply = Client(GenerousOptions()).Query(QueryProtocol::kMethodDeviceFormats);
    EXPECT_EQ(reply.outcome, Outcome::Ok) << reply.detail;
    EXPECT_EQ(reply.serverExitCode, 0u);
}

TEST_F(RealServer, EveryMethodEndsWithACleanExit) {
    Client client(GenerousOptions());
    for (const wchar_t* method :
         {QueryProtocol::kMethodVideoDevices, QueryProtocol::kMethodAnalogDevices}) {
        const QueryClient::DeviceListReply reply =
            QueryClient::ToDeviceListReply(client.Query(method));
        EXPECT_EQ(reply.outcome, Outcome::Ok) << reply.detail;
    }
}

TEST_F(RealServer, ParentThatOpensThePipeBeforeTheEventGetsNoLines) {
    const std::wstring id = QueryClient::MakeRandomId().text;
    TestSupport::RawParent parent(id);
    QueryClient::ServerProcess server;
    std::string error;
    ASSERT_TRUE(server.Start(QueryClient::DefaultServerPath(),
                             {L"method=GetVideoDevices", L"id=" + id}, &error))
        << error;
    ASSERT_TRUE(parent.OpenPipe(kGenerousDeadlineMs));
    std::vector<uint8_t> bytes;
    EXPECT_TRUE(parent.ReadToEnd(kGenerousDeadlineMs, &bytes));
    EXPECT_TRUE(bytes.empty());
    EXPECT_TRUE(server.WaitForExit(kGenerousDeadlineMs));
    EXPECT_EQ(server.ExitCode(), 0u);
}

TEST_F(RealServer, ServerWhoseClientNeverComesWaitsUntilTheParentEndsIt) {
    const std::wstring id = QueryClient::MakeRandomId().text;
    TestSupport::RawParent parent(id);
    {
        QueryClient::ServerProcess server;
        std::string error;
        ASSERT_TRUE(
            server.Start(QueryClient::DefaultServerPath(), {L"method=x", L"id=" + id}, &error));
        EXPECT_TRUE(parent.WaitForEvent(kGenerousDeadlineMs));
        // Woken, the parent does not come: the server stays blocked in its connect.
        EXPECT_FALSE(server.WaitForExit(kStaysBlockedProbeMs));
        EXPECT_EQ(TestSupport::CountOwnProcesses(L"QueryServer.exe"), 1);
    }
    // The parent's deadline ended it through the job; TearDown counts what is left.
}

TEST_F(RealServer, PipeOfAnotherProcessIsRefused) {
    // Somebody else created the pipe of that name first.
    const std::wstring id = QueryClient::MakeRandomId().text;
    const std::wstring pipeName = QueryProtocol::kPipeNamePrefix + id;
    const HANDLE squatter =
        CreateNamedPipeW(pipeName.c_str(), PIPE_ACCESS_DUPLEX, 0, 1, 512, 512, 0, nullptr);
    ASSERT_NE(squatter, INVALID_HANDLE_VALUE);
    const RawReply reply =
        Client(GenerousOptions()).QueryRaw({L"method=GetVideoDevices", L"id=" + id}, id);
    // The server cannot create its pipe, still sets the event, and the client opens the
    // squatter's pipe instead: its server end is not the process the client started.
    EXPECT_EQ(reply.outcome, Outcome::ServerNotVerified) << reply.detail;
    CloseHandle(squatter);
}

}  // namespace
