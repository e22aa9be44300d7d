// The client against a server that misbehaves in every way a parent must survive.
#include "client/QueryClient.h"
#include "tests/support/RawParent.h"

#include <gtest/gtest.h>

namespace {

using QueryClient::Client;
using QueryClient::Outcome;
using QueryClient::QueryOptions;
using QueryClient::RawReply;

constexpr DWORD kShortDeadlineMs = 700;
// What a deadline may overrun by: ending the server and collecting it.
constexpr ULONGLONG kDeadlineMarginMs = 1500;

std::wstring FakeServerPath() {
    std::wstring server = QueryClient::DefaultServerPath();
    return server.substr(0, server.size() - wcslen(L"QueryServer.exe")) + L"FakeServer.exe";
}

Client FakeClient(DWORD timeoutMs = 5000) {
    QueryOptions options;
    options.serverPath = FakeServerPath();
    options.timeoutMs = timeoutMs;
    return Client(options);
}

class ClientFaults : public ::testing::Test {
protected:
    void TearDown() override {
        EXPECT_EQ(TestSupport::CountProcesses(L"FakeServer.exe"), 0)
            << "a server outlived its query";
    }
};

TEST_F(ClientFaults, ServerThatNeverWakesTheParentTimesOutAndIsEnded) {
    Client client = FakeClient(kShortDeadlineMs);
    const ULONGLONG start = GetTickCount64();
    const RawReply reply = client.Query(L"hang");
    const ULONGLONG elapsed = GetTickCount64() - start;
    EXPECT_EQ(reply.outcome, Outcome::TimedOutWaitingForEvent) << reply.detail;
    EXPECT_GE(elapsed, kShortDeadlineMs - 50);
    EXPECT_LT(elapsed, kShortDeadlineMs + kDeadlineMarginMs);
}

TEST_F(ClientFaults, ServerThatNeverEndsTheStreamTimesOutReading) {
    Client client = FakeClient(kShortDeadlineMs);
    const ULONGLONG start = GetTickCount64();
    const RawReply reply = client.Query(L"stall");
    EXPECT_EQ(reply.outcome, Outcome::TimedOutReading) << reply.detail;
    EXPECT_LT(GetTickCount64() - start, kShortDeadlineMs + kDeadlineMarginMs);
    EXPECT_EQ(reply.bytes, TestSupport::Utf16Bytes(L"id\n"));
}

TEST_F(ClientFaults, ServerThatExitsBeforeTheEventIsReported) {
    const RawReply reply = FakeClient().Query(L"exit");
    EXPECT_EQ(reply.outcome, Outcome::ServerExitedBeforeEvent) << reply.detail;
    EXPECT_EQ(reply.serverExitCode, 3u);
}

TEST_F(ClientFaults, WakeWithoutAPipeIsReported) {
    const RawReply reply = FakeClient().Query(L"no-pipe");
    EXPECT_EQ(reply.outcome, Outcome::PipeNotOpened) << reply.detail;
}

TEST_F(ClientFaults, ServerThatDiesKeepsTheCompleteLinesBeforeIt) {
    const RawReply raw = FakeClient().Query(L"crash");
    EXPECT_EQ(raw.outcome, Outcome::ServerDied) << raw.detail;
    EXPECT_EQ(raw.serverExitCode, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
    const QueryClient::DeviceListReply reply = QueryClient::ToDeviceListReply(raw);
    EXPECT_EQ(reply.outcome, Outcome::ServerDied);
    ASSERT_EQ(reply.devices.size(), 1u);
    EXPECT_EQ(reply.devices[0].id, L"id0");
}

TEST_F(ClientFaults, StreamCutInAUnitIsMalformed) {
    const QueryClient::DeviceListReply reply =
        QueryClient::ToDeviceListReply(FakeClient().Query(L"half-unit"));
    EXPECT_EQ(reply.outcome, Outcome::MalformedReply);
    EXPECT_NE(reply.detail.find("UTF-16 unit"), std::string::npos) << reply.detail;
}

TEST_F(ClientFaults, IdWithoutNameIsMalformedAndDropped) {
    const QueryClient::DeviceListReply reply =
        QueryClient::ToDeviceListReply(FakeClient().Query(L"unpaired"));
    EXPECT_EQ(reply.outcome, Outcome::MalformedReply);
    ASSERT_EQ(reply.devices.size(), 1u);
    EXPECT_EQ(reply.devices[0].name, L"name0");
}

TEST_F(ClientFaults, DroppedReplyIsRetriedOnceAndThenReported) {
    const RawReply reply = FakeClient().Query(L"drop-reply");
    EXPECT_EQ(reply.outcome, Outcome::ReplyLost) << reply.detail;
    EXPECT_EQ(reply.attempts, 2);
}

TEST_F(ClientFaults, DroppedReplyWithoutRetryIsReportedAtOnce) {
    QueryOptions options;
    options.serverPath = FakeServerPath();
    options.retryLostReply = false;
    const RawReply reply = Client(options).Query(L"drop-reply");
    EXPECT_EQ(reply.outcome, Outcome::ReplyLost);
    EXPECT_EQ(reply.attempts, 1);
}

TEST_F(ClientFaults, ManyLinesArriveWhole) {
    const QueryClient::DeviceListReply reply =
        QueryClient::ToDeviceListReply(FakeClient().Query(L"lines", L"2000"));
    EXPECT_EQ(reply.outcome, Outcome::Ok) << reply.detail;
    ASSERT_EQ(reply.devices.size(), 2000u);
    EXPECT_EQ(reply.devices[1999].id, L"id1999");
    EXPECT_EQ(reply.devices[1999].name, L"name1999");
}

TEST_F(ClientFaults, MissingExecutableIsReported) {
    QueryOptions options;
    options.serverPath = L"C:\\no\\such\\QueryServer.exe";
    const RawReply reply = Client(options).Query(L"GetVideoDevices");
    EXPECT_EQ(reply.outcome, Outcome::ServerNotStarted);
    EXPECT_FALSE(reply.detail.empty());
}

TEST_F(ClientFaults, ValuesTheServerCannotCarryAreRefusedBeforeStarting) {
    Client client = FakeClient();
    EXPECT_EQ(client.Query(L"GetVideoDeviceFormats", L"a=b").outcome, Outcome::InvalidArgument);
    EXPECT_EQ(client.Query(L"GetVideoDeviceFormats", L"id", L" padded").outcome,
              Outcome::InvalidArgument);
}

TEST(RandomId, FreshAndHexadecimal) {
    const std::wstring first = QueryClient::MakeRandomId();
    const std::wstring second = QueryClient::MakeRandomId();
    EXPECT_EQ(first.size(), 16u);
    EXPECT_NE(first, second);
    EXPECT_EQ(first.find_first_not_of(L"0123456789ABCDEF"), std::wstring::npos);
}

}  // namespace
