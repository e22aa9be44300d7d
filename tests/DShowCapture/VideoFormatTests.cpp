#include "DShowCapture/MediaTypes.h"
#include "DShowCapture/VideoFormat.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

using namespace DShow;

namespace {

VideoFormat Mode(VideoPixelFormat format, int32_t cx, int32_t cy, float rate = 30.0f) {
    return VideoFormat(TinySize(cx, cy), rate, format);
}

}  // namespace

TEST(TinySize, DefaultsToZero) {
    TinySize size;
    EXPECT_EQ(size.cx, 0);
    EXPECT_EQ(size.cy, 0);
}

TEST(VideoFormat, IsAPlainValueInRecordOrder) {
    static_assert(std::is_trivially_copyable<VideoFormat>::value, "copied byte by byte");
    static_assert(sizeof(VideoFormat) == 13 * 4, "nine fields, four of them sizes");
    static_assert(sizeof(VideoPixelFormat) == 4, "32-bit wire value");
    VideoFormat format;
    format.SetFlip();
    format.SetRate(2.0f);
    format.SetSize(3, 4);
    format.SetScale(5, 6);
    format.SetMinRate(7.0f);
    format.SetMaxRate(8.0f);
    format.SetMinSize(9, 10);
    format.SetMaxSize(11, 12);
    format.SetFormat(static_cast<VideoPixelFormat>(13));
    // Each field at its place in the record, read back as the bytes a copy carries.
    int32_t words[13] = {};
    memcpy(words, &format, sizeof(words));
    float rates[3] = {};
    memcpy(&rates[0], &words[1], sizeof(float));
    memcpy(&rates[1], &words[6], sizeof(float));
    memcpy(&rates[2], &words[7], sizeof(float));
    EXPECT_EQ(words[0], 1) << "flip first";
    EXPECT_EQ(rates[0], 2.0f) << "then rate";
    EXPECT_EQ(words[2], 3) << "then size";
    EXPECT_EQ(words[3], 4);
    EXPECT_EQ(words[4], 5) << "then scale";
    EXPECT_EQ(words[5], 6);
    EXPECT_EQ(rates[1], 7.0f) << "then minRate";
    EXPECT_EQ(rates[2], 8.0f) << "then maxRate";
    EXPECT_EQ(words[8], 9) << "then minSize";
    EXPECT_EQ(words[9], 10);
    EXPECT_EQ(words[10], 11) << "then maxSize";
    EXPECT_EQ(words[11], 12);
    EXPECT_EQ(words[12], 13) << "format last";
}

TEST(VideoFormat, DefaultAndResetZeroEveryField) {
    const VideoFormat zero;
    const unsigned char zeros[sizeof(VideoFormat)] = {};
    EXPECT_EQ(memcmp(&zero, zeros, sizeof(zeros)), 0);

    VideoFormat format = Mode(PIXEL_FORMAT_MJPEG, 1280, 720, 60.0f);
    format.SetFlip();
    format.SetScale(3, 4);
    format.Reset();
    EXPECT_EQ(memcmp(&format, zeros, sizeof(zeros)), 0);
}

TEST(VideoFormat, SizeRateConstructorFillsAllRatesAndSizes) {
    const VideoFormat format(TinySize(640, 480), 25.0f, PIXEL_FORMAT_YUY2);
    EXPECT_EQ(format.GetFlip(), 0);
    EXPECT_EQ(format.GetRate(), 25.0f);
    EXPECT_EQ(format.GetMinRate(), 25.0f);
    EXPECT_EQ(format.GetMaxRate(), 25.0f);
    EXPECT_EQ(format.GetSize().cx, 640);
    EXPECT_EQ(format.GetSize().cy, 480);
    EXPECT_EQ(format.GetMinSize().cx, 640);
    EXPECT_EQ(format.GetMinSize().cy, 480);
    EXPECT_EQ(format.GetMaxSize().cx, 640);
    EXPECT_EQ(format.GetMaxSize().cy, 480);
    EXPECT_EQ(format.GetScale().cx, 0);
    EXPECT_EQ(format.GetScale().cy, 0);
    EXPECT_EQ(format.GetFormat(), PIXEL_FORMAT_YUY2);
}

TEST(VideoFormat, SettersAndGetters) {
    VideoFormat format;
    format.SetRate(15.0f);
    format.SetSize(320, 240);
    format.SetScale(TinySize(2, 3));
    format.SetMinRate(5.0f);
    format.SetMaxRate(30.0f);
    format.SetMinSize(TinySize(160, 120));
    format.SetMaxSize(1920, 1080);
    format.SetFormat(PIXEL_FORMAT_NV12);
    format.SetFlip();
    EXPECT_EQ(format.GetFlip(), 1);
    EXPECT_EQ(format.GetRate(), 15.0f);
    EXPECT_EQ(format.GetSize().cx, 320);
    EXPECT_EQ(format.GetSize().cy, 240);
    EXPECT_EQ(format.GetScale().cx, 2);
    EXPECT_EQ(format.GetScale().cy, 3);
    EXPECT_EQ(format.GetMinRate(), 5.0f);
    EXPECT_EQ(format.GetMaxRate(), 30.0f);
    EXPECT_EQ(format.GetMinSize().cx, 160);
    EXPECT_EQ(format.GetMaxSize().cy, 1080);
    EXPECT_EQ(format.GetFormat(), PIXEL_FORMAT_NV12);

    format.SetSize(TinySize(7, 8));
    format.SetMinSize(9, 10);
    format.SetMaxSize(TinySize(11, 12));
    format.SetScale(13, 14);
    EXPECT_EQ(format.GetSize().cy, 8);
    EXPECT_EQ(format.GetMinSize().cx, 9);
    EXPECT_EQ(format.GetMaxSize().cx, 11);
    EXPECT_EQ(format.GetScale().cy, 14);
}

TEST(VideoFormat, ToStringUsesNameSizeAndThreeDecimals) {
    EXPECT_EQ(Mode(PIXEL_FORMAT_YUY2, 640, 480, 30.0f).ToString(), "YUY2,640*480,30.000");
    EXPECT_EQ(Mode(PIXEL_FORMAT_YUY2, 640, 480, 30.0f).ToWideString(), L"YUY2,640*480,30.000");
    EXPECT_EQ(Mode(PIXEL_FORMAT_I420, 1280, -720, 29.97f).ToString(), "I420,1280*-720,29.970");
    EXPECT_EQ(Mode(PIXEL_FORMAT_I420, 1280, -720, 29.97f).ToWideString(), L"I420,1280*-720,29.970");
}

TEST(VideoFormat, NamelessValueGivesTextStartingWithComma) {
    const VideoFormat format = Mode(static_cast<VideoPixelFormat>(7), 640, 480, 30.0f);
    EXPECT_EQ(format.ToString(), ",640*480,30.000");
    EXPECT_EQ(format.ToWideString(), L",640*480,30.000");
}

TEST(PixelFormatNames, NamedValues) {
    const struct {
        int value;
        const char* name;
    } names[] = {{0, "UNKNOWN"}, {1, "I420"},  {2, "YV12"},   {3, "NV12"},
                 {5, "UYUY"},    {6, "YUY2"},  {9, "RGB24"},  {10, "RGBA"},
                 {11, "BGR24"},  {12, "BGRA"}, {13, "MJPEG"}, {24, "NV12_MS"}};
    for (const auto& entry : names) {
        const auto format = static_cast<VideoPixelFormat>(entry.value);
        EXPECT_STREQ(GetPixelFormatName(format), entry.name) << entry.value;
        std::wstring wide(entry.name, entry.name + strlen(entry.name));
        EXPECT_EQ(std::wstring(GetPixelFormatWideName(format)), wide) << entry.value;
    }
}

TEST(PixelFormatNames, NamelessAndOutOfRangeValuesHaveEmptyNames) {
    for (int value : {4, 7, 8, 14, 15, 20, 23, 25, 26, 28, 29, -1, 1000}) {
        const auto format = static_cast<VideoPixelFormat>(value);
        EXPECT_STREQ(GetPixelFormatName(format), "") << value;
        EXPECT_STREQ(GetPixelFormatWideName(format), L"") << value;
    }
}

TEST(PixelFormatNames, TwentyFourIsNv12MsAndTwentyFiveIsNameless) {
    EXPECT_STREQ(GetPixelFormatName(static_cast<VideoPixelFormat>(24)), "NV12_MS");
    EXPECT_STREQ(GetPixelFormatName(static_cast<VideoPixelFormat>(25)), "");
}

TEST(GetVideoPixelFormat, NineRowTable) {
    EXPECT_EQ(GetVideoPixelFormat(MEDIASUBTYPE_I420), 1);
    EXPECT_EQ(GetVideoPixelFormat(MEDIASUBTYPE_IYUV), 1);
    EXPECT_EQ(GetVideoPixelFormat(MEDIASUBTYPE_NV12), 3);
    EXPECT_EQ(GetVideoPixelFormat(MEDIASUBTYPE_RGB24), 9);
    EXPECT_EQ(GetVideoPixelFormat(MEDIASUBTYPE_RGB32), 10);
    EXPECT_EQ(GetVideoPixelFormat(MEDIASUBTYPE_YUY2), 6);
    EXPECT_EQ(GetVideoPixelFormat(MEDIASUBTYPE_MJPG), 13);
    EXPECT_EQ(GetVideoPixelFormat(MEDIASUBTYPE_UYVY), 5);
    EXPECT_EQ(GetVideoPixelFormat(MEDIASUBTYPE_ARGB32), 7);
}

TEST(GetVideoPixelFormat, SubtypeGuidsHaveTheirPublishedValues) {
    const GUID i420 = {
        0x30323449, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
    const GUID argb32 = {
        0x773C9AC0, 0x3274, 0x11D0, {0xB7, 0x24, 0x00, 0xAA, 0x00, 0x6C, 0x1A, 0x01}};
    EXPECT_TRUE(IsEqualGUID(MEDIASUBTYPE_I420, i420));
    EXPECT_TRUE(IsEqualGUID(MEDIASUBTYPE_ARGB32, argb32));
    EXPECT_EQ(GetVideoPixelFormat(i420), 1);
}

TEST(GetVideoPixelFormat, OtherSubtypesAreUnknown) {
    EXPECT_EQ(GetVideoPixelFormat(MEDIASUBTYPE_YV12), 0);
    EXPECT_EQ(GetVideoPixelFormat(MEDIASUBTYPE_RGB565), 0);
    EXPECT_EQ(GetVideoPixelFormat(GUID_NULL), 0);
    // All 16 bytes count: a subtype differing in the last byte only is unknown.
    GUID almostYuy2 = MEDIASUBTYPE_YUY2;
    almostYuy2.Data4[7] ^= 1;
    EXPECT_EQ(GetVideoPixelFormat(almostYuy2), 0);
}

TEST(FormatLess, RecordWithItselfIsNotLess) {
    const VideoFormat format = Mode(PIXEL_FORMAT_YUY2, 640, 480);
    EXPECT_FALSE(FormatLess(format, format));
}

TEST(FormatLess, OneDimensionSmallerIsUnorderedBothWays) {
    const VideoFormat wide = Mode(PIXEL_FORMAT_YUY2, 640, 480);
    const VideoFormat narrow = Mode(PIXEL_FORMAT_YUY2, 320, 480);
    EXPECT_FALSE(FormatLess(wide, narrow));
    EXPECT_FALSE(FormatLess(narrow, wide));
}

TEST(FormatLess, BothDimensionsSmallerSameFormatIsLess) {
    const VideoFormat small = Mode(PIXEL_FORMAT_YUY2, 320, 240, 60.0f);
    const VideoFormat large = Mode(PIXEL_FORMAT_YUY2, 640, 480, 5.0f);
    EXPECT_TRUE(FormatLess(small, large));
    EXPECT_FALSE(FormatLess(large, small));
}

TEST(FormatLess, DifferentFormatsAreUnordered) {
    const VideoFormat small = Mode(PIXEL_FORMAT_YUY2, 320, 240);
    const VideoFormat large = Mode(PIXEL_FORMAT_MJPEG, 640, 480);
    EXPECT_FALSE(FormatLess(small, large));
    EXPECT_FALSE(FormatLess(large, small));
}

TEST(FormatLess, ComparesSigned) {
    const VideoFormat topDown = Mode(PIXEL_FORMAT_YUY2, 320, -240);
    const VideoFormat bottomUp = Mode(PIXEL_FORMAT_YUY2, 640, 480);
    EXPECT_TRUE(FormatLess(topDown, bottomUp));
}

TEST(VideoFormatIsValid, RateBounds) {
    EXPECT_FALSE(Mode(PIXEL_FORMAT_YUY2, 640, 480, 1000.0f).IsValid());
    EXPECT_TRUE(Mode(PIXEL_FORMAT_YUY2, 640, 480, 999.99f).IsValid());
    EXPECT_TRUE(Mode(PIXEL_FORMAT_YUY2, 640, 480, 0.0f).IsValid());
    EXPECT_FALSE(Mode(PIXEL_FORMAT_YUY2, 640, 480, -0.5f).IsValid());
    EXPECT_FALSE(
        Mode(PIXEL_FORMAT_YUY2, 640, 480, std::numeric_limits<float>::quiet_NaN()).IsValid());
}

TEST(VideoFormatIsValid, SizeBounds) {
    EXPECT_FALSE(Mode(PIXEL_FORMAT_YUY2, 32767, 1).IsValid());
    EXPECT_FALSE(Mode(PIXEL_FORMAT_YUY2, 1, 32767).IsValid());
    EXPECT_TRUE(Mode(PIXEL_FORMAT_YUY2, 32766, 1).IsValid());
    // 16384 * 16384 = 0x10000000, one past the largest pixel count.
    EXPECT_FALSE(Mode(PIXEL_FORMAT_YUY2, 16384, 16384).IsValid());
    EXPECT_TRUE(Mode(PIXEL_FORMAT_YUY2, 16384, 16383).IsValid());
    // Signed comparison: negative sizes pass the dimension tests, and the product is unsigned.
    EXPECT_TRUE(Mode(PIXEL_FORMAT_YUY2, 0, -480).IsValid());
    EXPECT_FALSE(Mode(PIXEL_FORMAT_YUY2, 640, -480).IsValid());
    // -65536 * -65536 wraps to 0 in 32 bits.
    EXPECT_TRUE(Mode(PIXEL_FORMAT_YUY2, -65536, -65536).IsValid());
}

TEST(VideoFormatIsValid, FormatBounds) {
    EXPECT_TRUE(Mode(static_cast<VideoPixelFormat>(28), 640, 480).IsValid());
    EXPECT_FALSE(Mode(static_cast<VideoPixelFormat>(29), 640, 480).IsValid());
    EXPECT_FALSE(Mode(static_cast<VideoPixelFormat>(-1), 640, 480).IsValid());
    EXPECT_TRUE(Mode(PIXEL_FORMAT_UNKNOWN, 640, 480).IsValid());
}
