// The client against a server that misbehaves in every way a parent must survive.
#include "client/QueryClient.h"
#include "client/SystemErrorText.h"
#include "client/UniqueHandle.h"
#include "protocol/QueryProtocol.h"
#include "tests/support/TestDeadlines.h"
#include "tests/support/OwnProcesses.h"
#include "tests/support/RawParent.h"

#include <gtest/gtest.h>

namespace {

using QueryClient::Client;
using QueryClient::Outcome;
using QueryClient::QueryOptions;
using QueryClient::RawReply;

using TestSupport::kDeadlineMarginMs;
using TestSupport::kGenerousDeadlineMs;

// For a server that never wakes the parent: whatever the machine's speed, this deadline ends it.
constexpr DWORD kShortDeadlineMs = 700;
// For a server that stalls after its first line: the deadline must end the reading, so it leaves
// the stand-in time to start and wake the parent on a loaded machine first.
constexpr DWORD kStallDeadlineMs = 10000;

std::wstring FakeServerPath() {
    std::wstring server = QueryClient::DefaultServerPath();
    return server.substr(0, server.size() - wcslen(L"QueryServer.exe")) + L"FakeServer.exe";
}

Client FakeClient(DWORD timeoutMs = kGenerousDeadlineMs) {
    QueryOptions options = TestSupport::GenerousOptions();
    options.serverPath = FakeServerPath();
    options.timeoutMs = timeoutMs;
    return Client(options);
}

class ClientFaults : public ::testing::Test {
protected:
    static void SetUpTestSuite() { ASSERT_TRUE(TestSupport::JoinOwnProcessJob()); }
    void TearDown() override {
        EXPECT_EQ(TestSupport::OwnProcessesLeftAfter(L"FakeServer.exe", kGenerousDeadlineMs), 0)
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
    Client client = FakeClient(kStallDeadlineMs);
    const ULONGLONG start = GetTickCount64();
    const RawReply reply = client.Query(L"stall");
    EXPECT_EQ(reply.outcome, Outcome::TimedOutReading) << reply.detail;
    EXPECT_LT(GetTickCount64() - start, kStallDeadlineMs + kDeadlineMarginMs);
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
    QueryOptions options = TestSupport::GenerousOptions();
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
    const RawReply reply = Client(options).Query(QueryProtocol::kMethodVideoDevices);
    EXPECT_EQ(reply.outcome, Outcome::ServerNotStarted);
    EXPECT_FALSE(reply.detail.empty());
}

TEST_F(ClientFaults, ValuesTheServerCannotCarryAreRefusedBeforeStarting) {
    Client client = FakeClient();
    EXPECT_EQ(client.Query(QueryProtocol::kMethodDeviceFormats, L"a=b").outcome,
              Outcome::InvalidArgument);
    EXPECT_EQ(client.Query(QueryProtocol::kMethodDeviceFormats, L"id", L" padded").outcome,
              Outcome::InvalidArgument);
}

// A stand-in for the system's random source: BCryptGenRandom does not fail in practice, and
// neither Wine nor a test can make it fail, yet the client must end such a query cleanly.
constexpr LONG kRandomSourceFailure = static_cast<LONG>(0xC0000001);  // STATUS_UNSUCCESSFUL
int g_failingSourceCalls = 0;

LONG FailingRandomSource(uint8_t*, ULONG) {
    ++g_failingSourceCalls;
    return kRandomSourceFailure;
}

TEST_F(ClientFaults, FailingRandomSourceEndsTheQueryBeforeAServerStarts) {
    QueryOptions options;
    options.serverPath = FakeServerPath();
    options.randomSource = FailingRandomSource;
    g_failingSourceCalls = 0;
    // "hang" would end in a timeout, not at once, if a server were started anyway.
    const RawReply reply = Client(options).Query(L"hang");
    EXPECT_EQ(reply.outcome, Outcome::ServerNotStarted);
    EXPECT_EQ(reply.detail,
              "no random id for the query's names: the random source failed (status 0xC0000001)");
    EXPECT_EQ(reply.attempts, 0);
    EXPECT_EQ(reply.serverExitCode, static_cast<DWORD>(STILL_ACTIVE));
    EXPECT_EQ(g_failingSourceCalls, 1);
}

TEST(RandomId, FailingSourceGivesNoIdAndItsStatus) {
    const QueryClient::RandomId id = QueryClient::MakeRandomId(FailingRandomSource);
    EXPECT_EQ(id.text, L"");
    EXPECT_EQ(id.status, kRandomSourceFailure);
}

TEST_F(ClientFaults, EventThatExistsAlreadyIsRefusedAndNoServerStarts) {
    const std::wstring id = QueryClient::MakeRandomId().text;
    // Somebody else made the query's event first.
    const QueryClient::UniqueHandle squatter(
        CreateEventW(nullptr, FALSE, FALSE, (QueryProtocol::kEventNamePrefix + id).c_str()));
    ASSERT_TRUE(squatter.IsValid());
    const RawReply reply = FakeClient().QueryRaw({L"method=hang", L"id=" + id}, id);
    EXPECT_EQ(reply.outcome, Outcome::ServerNotStarted);
    EXPECT_EQ(reply.detail,
              "an event of the query's name exists already; the query was not started");
    EXPECT_EQ(reply.serverExitCode, static_cast<DWORD>(STILL_ACTIVE));
    EXPECT_EQ(WaitForSingleObject(squatter.Get(), 0), static_cast<DWORD>(WAIT_TIMEOUT))
        << "nobody set the other's event";
}

TEST_F(ClientFaults, NameTakenByAnotherKindOfObjectIsReportedWithTheSystemsError) {
    const std::wstring id = QueryClient::MakeRandomId().text;
    // A mutex holds the event's name: the system refuses to make an event of it.
    const QueryClient::UniqueHandle squatter(
        CreateMutexW(nullptr, FALSE, (QueryProtocol::kEventNamePrefix + id).c_str()));
    ASSERT_TRUE(squatter.IsValid());
    const RawReply reply = FakeClient().QueryRaw({L"method=hang", L"id=" + id}, id);
    EXPECT_EQ(reply.outcome, Outcome::ServerNotStarted);
    EXPECT_EQ(reply.detail, "the query's event could not be created: " +
                                QueryClient::DescribeFailure("CreateEvent", ERROR_INVALID_HANDLE));
    EXPECT_EQ(reply.serverExitCode, static_cast<DWORD>(STILL_ACTIVE));
}

TEST(RandomId, FreshAndHexadecimal) {
    const std::wstring first = QueryClient::MakeRandomId().text;
    const std::wstring second = QueryClient::MakeRandomId().text;
    EXPECT_EQ(first.size(), 16u);
    EXPECT_NE(first, second);
    EXPECT_EQ(first.find_first_not_of(L"0123456789ABCDEF"), std::wstring::npos);
}

}  // namespace
