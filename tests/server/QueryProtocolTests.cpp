// The texts and numbers that parents were built against: they must stay exactly as they are.
#include "protocol/QueryProtocol.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

TEST(QueryProtocol, RendezvousNamesAreTheOnesParentsKnow) {
    EXPECT_EQ(std::wstring(QueryProtocol::kPipeNamePrefix),
              L"\\\\.\\pipe\\71FADDA3-07A6-021F-DBE6-15012EFB1791-");
    EXPECT_EQ(std::wstring(QueryProtocol::kEventNamePrefix),
              L"Global\\C49E4172-B9F8-22EA-5052-D226B8741074-");
    EXPECT_EQ(std::wstring(QueryProtocol::kPipeNamePrefix).size(), 46u);
    EXPECT_EQ(std::wstring(QueryProtocol::kEventNamePrefix).size(), 44u);
}

TEST(QueryProtocol, ModeKeysMixTheirSuffixesAsTheWireDoes) {
    EXPECT_STREQ(QueryProtocol::kModeSizeX, "size_x");
    EXPECT_STREQ(QueryProtocol::kModeScaleY, "scale_y");
    EXPECT_STREQ(QueryProtocol::kModeMaxSizeCx, "maxSize_cx");
    EXPECT_STREQ(QueryProtocol::kModeMinSizeCy, "minSize_cy");
}

TEST(QueryProtocol, ModeKeysInReplyOrderAreInByteOrder) {
    const char* const keys[] = {
        QueryProtocol::kModeFlip,      QueryProtocol::kModeFormat,    QueryProtocol::kModeMaxRate,
        QueryProtocol::kModeMaxSizeCx, QueryProtocol::kModeMaxSizeCy, QueryProtocol::kModeMinRate,
        QueryProtocol::kModeMinSizeCx, QueryProtocol::kModeMinSizeCy, QueryProtocol::kModeRate,
        QueryProtocol::kModeScaleX,    QueryProtocol::kModeScaleY,    QueryProtocol::kModeSizeX,
        QueryProtocol::kModeSizeY,
    };
    for (size_t index = 1; index < std::size(keys); ++index) {
        EXPECT_LT(std::strcmp(keys[index - 1], keys[index]), 0) << keys[index];
    }
}

TEST(QueryProtocol, NamedPixelFormatsHaveTheirWireNames) {
    const struct {
        int32_t value;
        const char* name;
    } expected[] = {{0, "UNKNOWN"}, {1, "I420"},  {2, "YV12"},   {3, "NV12"},
                    {5, "UYUY"},    {6, "YUY2"},  {9, "RGB24"},  {10, "RGBA"},
                    {11, "BGR24"},  {12, "BGRA"}, {13, "MJPEG"}, {24, "NV12_MS"}};
    for (const auto& entry : expected) {
        EXPECT_STREQ(QueryProtocol::PixelFormatNameOf(entry.value), entry.name) << entry.value;
    }
}

TEST(QueryProtocol, WideNamesAreTheNarrowOnesWidened) {
    for (const QueryProtocol::PixelFormatName& entry : QueryProtocol::kPixelFormatNames) {
        const std::string narrow = entry.name;
        EXPECT_EQ(std::wstring(QueryProtocol::PixelFormatWideNameOf(entry.value)),
                  std::wstring(narrow.begin(), narrow.end()));
    }
}

TEST(QueryProtocol, NamelessAndOutOfRangeFormatsHaveAnEmptyName) {
    for (int32_t value : {4, 7, 8, 14, 23, 25, 28, 29, -1}) {
        EXPECT_STREQ(QueryProtocol::PixelFormatNameOf(value), "") << value;
        EXPECT_STREQ(QueryProtocol::PixelFormatWideNameOf(value), L"") << value;
    }
}

}  // namespace
