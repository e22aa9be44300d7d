// Thousands of generated command lines against the argument reader, compared with a model of
// the reader written here independently: a character-by-character state machine instead of the
// reader's index arithmetic.
#include "protocol/QueryProtocol.h"
#include "server/CommandLine.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/support/ArgumentGenerator.h"

namespace {

TEST(HostileArguments, ReaderAgreesWithTheModelOnGeneratedCommandLines) {
    std::mt19937 random(20261122);
    std::map<std::wstring, int> keysSet;
    for (int round = 0; round < 5000; ++round) {
        const std::vector<std::wstring> argv = ArgumentGenerator::CommandLine(random);
        std::vector<const wchar_t*> pointers;
        for (const std::wstring& argument : argv) {
            pointers.push_back(argument.c_str());
        }
        QueryServer::QueryArguments read;
        QueryServer::ReadArguments(static_cast<int>(pointers.size()), pointers.data(), read);
        const std::map<std::wstring, std::wstring> model = ArgumentGenerator::ModelValues(argv);
        for (const auto& value : model) {
            ++keysSet[value.first];
        }
        auto expected = [&model](const wchar_t* key) {
            const auto found = model.find(key);
            return found == model.end() ? std::wstring() : found->second;
        };
        ASSERT_EQ(std::wstring(read.method.GetBuffer()), expected(QueryProtocol::kKeyMethod))
            << round;
        ASSERT_EQ(std::wstring(read.device_id.GetBuffer()), expected(QueryProtocol::kKeyDeviceId))
            << round;
        ASSERT_EQ(std::wstring(read.device_name.GetBuffer()),
                  expected(QueryProtocol::kKeyDeviceName))
            << round;
        ASSERT_EQ(std::wstring(read.id.GetBuffer()), expected(QueryProtocol::kKeyId)) << round;
    }
    // The generator must really reach every key, or the comparison proves little.
    for (const wchar_t* key : {QueryProtocol::kKeyMethod, QueryProtocol::kKeyDeviceId,
                               QueryProtocol::kKeyDeviceName, QueryProtocol::kKeyId}) {
        EXPECT_GT(keysSet[key], 100) << "key rarely set";
    }
}

TEST(HostileArguments, ModelSplitsAtTheFirstEqualsSignAndTrimsSpaces) {
    using Tokens = std::vector<std::wstring>;
    EXPECT_EQ(ArgumentGenerator::ModelTokens(L"a==b"), (Tokens{L"a", L"=b"}));
    EXPECT_EQ(ArgumentGenerator::ModelTokens(L"=x"), (Tokens{L"=x"}));
    EXPECT_EQ(ArgumentGenerator::ModelTokens(L"id=7="), (Tokens{L"id", L"7"}));
    EXPECT_EQ(ArgumentGenerator::ModelTokens(L"id=  "), (Tokens{L"id", L""}));
    EXPECT_EQ(ArgumentGenerator::ModelTokens(L" method = x "), (Tokens{L"method", L"x"}));
}

}  // namespace
