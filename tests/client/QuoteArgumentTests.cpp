#include "client/ServerProcess.h"

#include <gtest/gtest.h>

#include <shellapi.h>

namespace {

// What the platform's own command-line parsing makes of one quoted argument.
std::wstring RoundTrip(const std::wstring& argument) {
    const std::wstring commandLine = L"program.exe " + QueryClient::QuoteArgument(argument);
    int count = 0;
    LPWSTR* parsed = CommandLineToArgvW(commandLine.c_str(), &count);
    std::wstring result = count == 2 ? parsed[1] : L"<" + std::to_wstring(count) + L" arguments>";
    LocalFree(parsed);
    return result;
}

TEST(QuoteArgumentTest, PlainArgumentsStayAsTheyAre) {
    EXPECT_EQ(QueryClient::QuoteArgument(L"method=GetVideoDevices"), L"method=GetVideoDevices");
}

TEST(QuoteArgumentTest, ArgumentsComeBackUnchanged) {
    for (const std::wstring& argument :
         {std::wstring(L"device_name=My Camera"), std::wstring(L"device_id=\\\\?\\usb#vid\\"),
          std::wstring(L"a \"quoted\" word"), std::wstring(L"ends in backslash \\"),
          std::wstring(L"\\\\\"\\"), std::wstring(L"tab\there"), std::wstring(L""),
          std::wstring(L"caf\u00e9 \u6444")}) {
        EXPECT_EQ(RoundTrip(argument), argument);
    }
}

}  // namespace
