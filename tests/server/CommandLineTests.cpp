#include "server/CommandLine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using QueryServer::QueryArguments;
using QueryServer::ReadArguments;
using QueryServer::SplitArgument;
using TinyFramework::TinyArray;
using TinyFramework::TinyStringW;

std::vector<std::wstring> Split(const wchar_t* argument) {
    TinyArray<TinyStringW> tokens;
    SplitArgument(TinyStringW(argument), tokens);
    std::vector<std::wstring> result;
    for (int32_t index = 0; index < tokens.GetSize(); ++index) {
        result.push_back(tokens[index].GetBuffer());
    }
    return result;
}

QueryArguments Read(std::vector<const wchar_t*> argv) {
    QueryArguments arguments;
    ReadArguments(static_cast<int>(argv.size()), argv.data(), arguments);
    return arguments;
}

std::wstring Text(const TinyStringW& string) {
    return string.GetBuffer();
}

using Tokens = std::vector<std::wstring>;

TEST(SplitArgumentTest, KeyAndValue) {
    EXPECT_EQ(Split(L"id=7"), (Tokens{L"id", L"7"}));
}

TEST(SplitArgumentTest, EmptyFieldKeepsItsEqualsSignForTheNextToken) {
    EXPECT_EQ(Split(L"a==b"), (Tokens{L"a", L"=b"}));
    EXPECT_EQ(Split(L"=x"), (Tokens{L"=x"}));
    EXPECT_EQ(Split(L"id==7"), (Tokens{L"id", L"=7"}));
}

TEST(SplitArgumentTest, TrailingEmptyFieldAddsNoToken) {
    EXPECT_EQ(Split(L"id=7="), (Tokens{L"id", L"7"}));
    EXPECT_EQ(Split(L"id="), (Tokens{L"id"}));
    EXPECT_EQ(Split(L""), Tokens{});
}

TEST(SplitArgumentTest, TokensAreTrimmedOfSpacesOnly) {
    EXPECT_EQ(Split(L" method = GetVideoDevices "), (Tokens{L"method", L"GetVideoDevices"}));
    EXPECT_EQ(Split(L"id=\t7\n"), (Tokens{L"id", L"\t7\n"}));
}

TEST(SplitArgumentTest, AFieldOfSpacesGivesAnEmptyTokenThatCounts) {
    EXPECT_EQ(Split(L"id=   "), (Tokens{L"id", L""}));
    EXPECT_EQ(Split(L" = "), (Tokens{L"", L""}));
}

TEST(SplitArgumentTest, ThreeValuesGiveThreeTokens) {
    EXPECT_EQ(Split(L"device_name=a=b"), (Tokens{L"device_name", L"a", L"b"}));
}

TEST(ReadArgumentsTest, SpacesAroundTheEqualsSignStillGiveTheMethod) {
    const QueryArguments arguments = Read({L"server.exe", L"method = GetVideoDevices"});
    EXPECT_EQ(Text(arguments.method), L"GetVideoDevices");
}

TEST(ReadArgumentsTest, AllFourKeys) {
    const QueryArguments arguments =
        Read({L"server.exe", L"method=GetVideoDeviceFormats", L"device_id=\\\\?\\usb#1",
              L"device_name=Cam One", L"id=42"});
    EXPECT_EQ(Text(arguments.method), L"GetVideoDeviceFormats");
    EXPECT_EQ(Text(arguments.device_id), L"\\\\?\\usb#1");
    EXPECT_EQ(Text(arguments.device_name), L"Cam One");
    EXPECT_EQ(Text(arguments.id), L"42");
}

TEST(ReadArgumentsTest, ArgumentWithThreeTokensIsDroppedWhole) {
    const QueryArguments arguments =
        Read({L"server.exe", L"device_name=before", L"device_name=a=b"});
    EXPECT_EQ(Text(arguments.device_name), L"before");
}

TEST(ReadArgumentsTest, TrailingEqualsSignIsHarmless) {
    EXPECT_EQ(Text(Read({L"id=7="}).id), L"7");
}

TEST(ReadArgumentsTest, DoubledEqualsSignBecomesPartOfTheValue) {
    EXPECT_EQ(Text(Read({L"id==7"}).id), L"=7");
}

TEST(ReadArgumentsTest, KeyWithoutValueLeavesTheValueButSpacesEmptyIt) {
    EXPECT_EQ(Text(Read({L"id=5", L"id="}).id), L"5");
    const QueryArguments emptied = Read({L"id=5", L"id=   "});
    EXPECT_TRUE(emptied.id.IsEmpty());
}

TEST(ReadArgumentsTest, KeysAreCaseSensitive) {
    const QueryArguments arguments = Read({L"Method=GetVideoDevices", L"ID=3"});
    EXPECT_TRUE(arguments.method.IsEmpty());
    EXPECT_TRUE(arguments.id.IsEmpty());
}

TEST(ReadArgumentsTest, MethodValueIsTakenAsItStands) {
    EXPECT_EQ(Text(Read({L"method=getvideodevices"}).method), L"getvideodevices");
}

TEST(ReadArgumentsTest, NoArgumentsAtAllLeaveEverythingEmpty) {
    QueryArguments arguments;
    ReadArguments(0, nullptr, arguments);
    EXPECT_TRUE(arguments.method.IsEmpty());
    EXPECT_TRUE(arguments.device_id.IsEmpty());
    EXPECT_TRUE(arguments.device_name.IsEmpty());
    EXPECT_TRUE(arguments.id.IsEmpty());
}

TEST(ReadArgumentsTest, TheProgramPathIsReadLikeAnyArgument) {
    EXPECT_EQ(Text(Read({L"id=5"}).id), L"5");
}

TEST(ReadArgumentsTest, LastUsableValueWins) {
    EXPECT_EQ(Text(Read({L"x", L"id=1", L"id=2", L"id=3=4"}).id), L"2");
}

TEST(ReadArgumentsTest, UnknownKeysAreIgnored) {
    const QueryArguments arguments = Read({L"x", L"color=red", L"method=GetAnalogDevices"});
    EXPECT_EQ(Text(arguments.method), L"GetAnalogDevices");
    EXPECT_TRUE(arguments.device_id.IsEmpty());
}

}  // namespace
