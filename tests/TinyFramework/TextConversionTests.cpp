#include "TinyFramework/Common/TinyTextConversion.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using TinyFramework::FromUtf8;
using TinyFramework::ToUtf8;

TEST(TextConversionTest, EmptyTextStaysEmpty) {
    EXPECT_EQ(ToUtf8(std::wstring()), "");
    EXPECT_EQ(FromUtf8(std::string()), L"");
}

TEST(TextConversionTest, NonAsciiTextRoundTrips) {
    const std::wstring text = L"Kam\u00e9ra \u6444\u50cf\u5934 \U0001F3A5";
    const std::string utf8 = ToUtf8(text);
    EXPECT_EQ(utf8, "Kam\xC3\xA9ra \xE6\x91\x84\xE5\x83\x8F\xE5\xA4\xB4 \xF0\x9F\x8E\xA5");
    EXPECT_EQ(FromUtf8(utf8), text);
}

TEST(TextConversionTest, UnpairedSurrogateBecomesReplacementCharacter) {
    EXPECT_EQ(ToUtf8(std::wstring(1, wchar_t(0xD800)) + L"a"),
              "\xEF\xBF\xBD"
              "a");
}

TEST(TextConversionTest, InvalidByteBecomesReplacementCharacter) {
    EXPECT_EQ(FromUtf8("a\xFF"
                       "b"),
              L"a\uFFFDb");
}

}  // namespace
