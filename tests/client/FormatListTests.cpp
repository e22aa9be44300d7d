#include "client/FormatList.h"
#include "client/QueryClient.h"
#include "tests/support/TestDeadlines.h"

#include <gtest/gtest.h>

namespace {

using QueryClient::DecodeFormatList;

const char kExample[] =
    "[{\"flip\": 0, \"format\": 6, \"maxRate\": 30.000030517578125, \"maxSize_cx\": 640, "
    "\"maxSize_cy\": 480, \"minRate\": 5, \"minSize_cx\": 640, \"minSize_cy\": 480, "
    "\"rate\": 30.000030517578125, \"scale_x\": 0, \"scale_y\": 0, \"size_x\": 640, "
    "\"size_y\": -480}]";

TEST(FormatListDecoding, OneModeWithEveryKeyDecodes) {
    const auto decoding = DecodeFormatList(kExample);
    ASSERT_TRUE(decoding.complete) << decoding.problem;
    ASSERT_EQ(decoding.modes.size(), 1u);
    const QueryClient::Mode& mode = decoding.modes[0];
    EXPECT_EQ(mode.format, 6);
    EXPECT_EQ(mode.size_x, 640);
    EXPECT_EQ(mode.size_y, -480);
    EXPECT_EQ(mode.rate, static_cast<double>(10000000.0f / 333333.0f));
    EXPECT_EQ(mode.minRate, 5.0);
    EXPECT_EQ(mode.maxSize_cy, 480);
}

TEST(FormatListDecoding, EmptyArrayIsNoModes) {
    const auto decoding = DecodeFormatList("[]");
    EXPECT_TRUE(decoding.complete);
    EXPECT_TRUE(decoding.modes.empty());
}

TEST(FormatListDecoding, CutOrForeignTextIsNotComplete) {
    for (const char* text : {"", "[", "[{\"flip\": 0", "{}", "[1]", "null", "[{\"flip\": 0}]",
                             "[{\"flip\": \"0\", \"format\": 6}]"}) {
        const auto decoding = DecodeFormatList(text);
        EXPECT_FALSE(decoding.complete) << text;
        EXPECT_FALSE(decoding.problem.empty()) << text;
    }
}

TEST(FormatListDecoding, IntegerOutOfRangeIsRefused) {
    std::string text = kExample;
    text.replace(text.find("\"size_x\": 640"), 13, "\"size_x\": 4294967296");
    EXPECT_FALSE(DecodeFormatList(text).complete);
}

std::wstring FakeServerPath() {
    std::wstring server = QueryClient::DefaultServerPath();
    return server.substr(0, server.size() - wcslen(L"QueryServer.exe")) + L"FakeServer.exe";
}

TEST(FormatListReplies, JsonThatDoesNotParseIsAMalformedReply) {
    QueryClient::QueryOptions options = TestSupport::GenerousOptions();
    options.serverPath = FakeServerPath();
    QueryClient::Client client(options);
    const QueryClient::FormatListReply bad =
        QueryClient::ToFormatListReply(client.Query(L"json", L"[{\"flip\": 0"));
    EXPECT_EQ(bad.outcome, QueryClient::Outcome::MalformedReply);
    EXPECT_EQ(bad.json, "[{\"flip\": 0");
    const QueryClient::FormatListReply good =
        QueryClient::ToFormatListReply(client.Query(L"json", L"[]"));
    EXPECT_EQ(good.outcome, QueryClient::Outcome::Ok) << good.detail;
    EXPECT_EQ(good.json, "[]");
}

}  // namespace
