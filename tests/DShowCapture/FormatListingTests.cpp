#include "DShowCapture/VideoCapture.h"

#include <gtest/gtest.h>

#include <cstring>

#include "FakeCom.h"

using namespace DShow;
using FakeCom::Capability;
using FakeCom::FakeFilter;
using FakeCom::FakePin;

namespace {

// Converts one capability the way the listing does.
bool Convert(const Capability& capability, VideoFormat& format) {
    ScopedMediaType mediaType;
    *mediaType.Receive() = FakeCom::NewMediaType(capability);
    return VideoFormatFromCapability(*mediaType.Get(), &capability.caps, format);
}

Capability Yuy2(LONG width, LONG height, REFERENCE_TIME interval = 333333) {
    Capability capability;
    capability.width = width;
    capability.height = height;
    capability.avgTimePerFrame = interval;
    return capability;
}

class FormatListing : public ::testing::Test {
protected:
    void SetUp() override {
        m_filter = FakeCom::Own(new FakeFilter());
        m_pin = m_filter->AddPin(PINDIR_OUTPUT);
        m_pin->hasPropertySet = true;
        m_pin->category = PIN_CATEGORY_CAPTURE;
        m_pin->hasStreamConfig = true;
    }
    FakeFilter* Filter() { return m_filter.Get(); }
    FakePin* Pin() { return m_pin; }

private:
    ComPtr<FakeFilter> m_filter;
    FakePin* m_pin = nullptr;
};

}  // namespace

TEST(VideoFormatFromCapability, RateIsComputedInFloat) {
    VideoFormat format;
    ASSERT_TRUE(Convert(Yuy2(640, 480, 333333), format));
    EXPECT_EQ(format.rate, 30.000030517578125f);
    EXPECT_EQ(static_cast<double>(format.rate), 30.000030517578125);
    EXPECT_EQ(format.minRate, format.rate);
    EXPECT_EQ(format.maxRate, format.rate);
    ASSERT_TRUE(Convert(Yuy2(640, 480, 400000), format));
    EXPECT_EQ(static_cast<double>(format.rate), 25.0);
}

TEST(VideoFormatFromCapability, NoAverageRateButIntervals) {
    Capability capability = Yuy2(640, 480, 0);
    capability.caps.MinFrameInterval = 333333;
    capability.caps.MaxFrameInterval = 2000000;
    VideoFormat format;
    ASSERT_TRUE(Convert(capability, format));
    EXPECT_EQ(format.rate, 0.0f);
    EXPECT_EQ(format.minRate, 5.0f);
    EXPECT_EQ(static_cast<double>(format.maxRate), 30.000030517578125);
}

TEST(VideoFormatFromCapability, NegativeAverageCountsAsNoRate) {
    VideoFormat format;
    ASSERT_TRUE(Convert(Yuy2(640, 480, -333333), format));
    EXPECT_EQ(format.rate, 0.0f);
    EXPECT_EQ(format.minRate, 0.0f);
    EXPECT_EQ(format.maxRate, 0.0f);
}

TEST(VideoFormatFromCapability, ZeroIntervalsKeepTheRate) {
    VideoFormat format;
    ASSERT_TRUE(Convert(Yuy2(640, 480, 666666), format));
    EXPECT_EQ(format.rate, format.minRate);
    EXPECT_EQ(format.rate, format.maxRate);
    EXPECT_EQ(format.rate, 10000000.0f / 666666.0f);
}

TEST(VideoFormatFromCapability, NegativeLongestIntervalGivesNegativeLowestRate) {
    Capability capability = Yuy2(640, 480);
    capability.caps.MaxFrameInterval = -2000000;
    capability.caps.MinFrameInterval = -333333;
    VideoFormat format;
    ASSERT_TRUE(Convert(capability, format));
    EXPECT_EQ(format.minRate, -5.0f);
    // A negative shortest interval does not count: the mode's own rate stands.
    EXPECT_EQ(format.maxRate, format.rate);
}

TEST(VideoFormatFromCapability, OutputSizesNeedAllFourNumbers) {
    Capability capability = Yuy2(640, 480);
    capability.caps.MinOutputSize = {160, 120};
    capability.caps.MaxOutputSize = {0, 0};
    VideoFormat format;
    ASSERT_TRUE(Convert(capability, format));
    EXPECT_EQ(format.minSize.cx, 640);
    EXPECT_EQ(format.minSize.cy, 480);
    EXPECT_EQ(format.maxSize.cx, 640);
    EXPECT_EQ(format.maxSize.cy, 480);

    capability.caps.MaxOutputSize = {1920, 0};
    ASSERT_TRUE(Convert(capability, format));
    EXPECT_EQ(format.maxSize.cx, 640);

    capability.caps.MaxOutputSize = {1920, 1080};
    ASSERT_TRUE(Convert(capability, format));
    EXPECT_EQ(format.minSize.cx, 160);
    EXPECT_EQ(format.minSize.cy, 120);
    EXPECT_EQ(format.maxSize.cx, 1920);
    EXPECT_EQ(format.maxSize.cy, 1080);
    EXPECT_EQ(format.size.cx, 640);
    EXPECT_EQ(format.size.cy, 480);
}

TEST(VideoFormatFromCapability, TopDownHeightKeepsItsSign) {
    VideoFormat format;
    ASSERT_TRUE(Convert(Yuy2(640, -480), format));
    EXPECT_EQ(format.size.cy, -480);
    EXPECT_EQ(format.minSize.cy, -480);
    EXPECT_EQ(format.maxSize.cy, -480);

    Capability overridden = Yuy2(640, -480);
    overridden.caps.MinOutputSize = {320, 240};
    overridden.caps.MaxOutputSize = {640, 480};
    ASSERT_TRUE(Convert(overridden, format));
    EXPECT_EQ(format.size.cy, -480);
    EXPECT_EQ(format.minSize.cy, 240);
    EXPECT_EQ(format.maxSize.cy, 480);
}

TEST(VideoFormatFromCapability, SubtypesOutsideTheTableAreSkipped) {
    Capability yv12 = Yuy2(640, 480);
    yv12.subtype = MEDIASUBTYPE_YV12;
    VideoFormat format;
    EXPECT_FALSE(Convert(yv12, format));

    Capability argb = Yuy2(640, 480);
    argb.subtype = MEDIASUBTYPE_ARGB32;
    ASSERT_TRUE(Convert(argb, format));
    EXPECT_EQ(format.format, 7);
}

TEST(VideoFormatFromCapability, OnlyVideoInfoVideoTypesWithABlock) {
    VideoFormat format;
    Capability info2 = Yuy2(640, 480);
    info2.formatType = FORMAT_VideoInfo2;
    EXPECT_FALSE(Convert(info2, format));
    Capability audio = Yuy2(640, 480);
    audio.majorType = MEDIATYPE_Audio;
    EXPECT_FALSE(Convert(audio, format));
    Capability noBlock = Yuy2(640, 480);
    noBlock.hasFormatBlock = false;
    EXPECT_FALSE(Convert(noBlock, format));
}

TEST(VideoFormatFromCapability, WithoutACapabilityBlockTheFramesOwnSizeAndRateStand) {
    ScopedMediaType mediaType;
    *mediaType.Receive() = FakeCom::NewMediaType(Yuy2(640, 480, 400000));
    VideoFormat format;
    ASSERT_TRUE(VideoFormatFromCapability(*mediaType.Get(), nullptr, format));
    EXPECT_EQ(format.rate, 25.0f);
    EXPECT_EQ(format.minRate, 25.0f);
    EXPECT_EQ(format.maxRate, 25.0f);
    EXPECT_EQ(format.minSize.cx, 640);
    EXPECT_EQ(format.minSize.cy, 480);
    EXPECT_EQ(format.maxSize.cx, 640);
    EXPECT_EQ(format.maxSize.cy, 480);
}

TEST(VideoFormatFromCapability, FlipAndScaleStayZero) {
    VideoFormat format;
    format.SetFlip();
    format.SetScale(5, 5);
    ASSERT_TRUE(Convert(Yuy2(640, 480), format));
    EXPECT_EQ(format.GetFlip(), 0);
    EXPECT_EQ(format.scale.cx, 0);
    EXPECT_EQ(format.scale.cy, 0);
}

TEST_F(FormatListing, ZeroCapabilitiesGiveEmptyListAndTrue) {
    std::vector<VideoFormat> formats;
    EXPECT_TRUE(VideoCapture::GetFilterFormats(Filter(), formats));
    EXPECT_TRUE(formats.empty());
}

TEST_F(FormatListing, OnlyVideoInfo2GivesEmptyListAndTrue) {
    Capability info2 = Yuy2(640, 480);
    info2.formatType = FORMAT_VideoInfo2;
    Pin()->capabilities = {info2, info2};
    std::vector<VideoFormat> formats;
    EXPECT_TRUE(VideoCapture::GetFilterFormats(Filter(), formats));
    EXPECT_TRUE(formats.empty());
}

TEST_F(FormatListing, ListsSortsAndKeepsDuplicates) {
    Capability yv12 = Yuy2(320, 240);
    yv12.subtype = MEDIASUBTYPE_YV12;
    Capability missing;
    missing.hasMediaType = false;
    Pin()->capabilities = {Yuy2(1280, 720), yv12,           Yuy2(320, 240),
                           missing,         Yuy2(640, 480), Yuy2(320, 240)};
    std::vector<VideoFormat> formats;
    EXPECT_TRUE(VideoCapture::GetFilterFormats(Filter(), formats));
    ASSERT_EQ(formats.size(), 4u);
    EXPECT_EQ(formats[0].ToString(), "YUY2,320*240,30.000");
    EXPECT_EQ(formats[1].ToString(), "YUY2,320*240,30.000");
    EXPECT_EQ(formats[2].ToString(), "YUY2,640*480,30.000");
    EXPECT_EQ(formats[3].ToString(), "YUY2,1280*720,30.000");
    EXPECT_EQ(memcmp(&formats[0], &formats[1], sizeof(VideoFormat)), 0);
}

TEST_F(FormatListing, AppendsToTheCallersListAndSortsItAll) {
    Pin()->capabilities = {Yuy2(320, 240)};
    std::vector<VideoFormat> formats = {VideoFormat(TinySize(640, 480), 30.0f, PIXEL_FORMAT_YUY2)};
    EXPECT_TRUE(VideoCapture::GetFilterFormats(Filter(), formats));
    ASSERT_EQ(formats.size(), 2u);
    EXPECT_EQ(formats[0].size.cx, 320);
    EXPECT_EQ(formats[1].size.cx, 640);
}

TEST_F(FormatListing, NoCapturePin) {
    Pin()->category = PIN_CATEGORY_PREVIEW;
    FakeCom::LogCapture log;
    std::vector<VideoFormat> formats(1);
    EXPECT_FALSE(VideoCapture::GetFilterFormats(Filter(), formats));
    EXPECT_EQ(formats.size(), 1u);
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to GetPinByCategory"});
}

TEST_F(FormatListing, PinWithoutStreamConfig) {
    Pin()->hasStreamConfig = false;
    FakeCom::LogCapture log;
    std::vector<VideoFormat> formats;
    EXPECT_FALSE(VideoCapture::GetFilterFormats(Filter(), formats));
    EXPECT_EQ(log.Messages(),
              std::vector<std::string>{"Failed to QueryInterface(IAMStreamConfig,0x80004002)"});
}

TEST_F(FormatListing, CountNotAvailableIncludingSFalse) {
    Pin()->capabilities = {Yuy2(320, 240)};
    Pin()->numberOfCapabilitiesResult = S_FALSE;
    FakeCom::LogCapture log;
    std::vector<VideoFormat> formats;
    EXPECT_FALSE(VideoCapture::GetFilterFormats(Filter(), formats));
    EXPECT_TRUE(formats.empty());
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to GetNumberOfCapabilities(0x1)"});
}

TEST_F(FormatListing, FailedCapabilityKeepsEarlierRecordsUnsorted) {
    Capability failing = Yuy2(160, 120);
    failing.result = E_FAIL;
    Pin()->capabilities = {Yuy2(1280, 720), Yuy2(320, 240), failing, Yuy2(160, 120)};
    FakeCom::LogCapture log;
    std::vector<VideoFormat> formats;
    EXPECT_FALSE(VideoCapture::GetFilterFormats(Filter(), formats));
    ASSERT_EQ(formats.size(), 2u);
    EXPECT_EQ(formats[0].size.cx, 1280);
    EXPECT_EQ(formats[1].size.cx, 320);
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to GetStreamCaps(0x80004005)"});
}

TEST_F(FormatListing, CountBeyondTheCapabilitiesStopsAtSFalse) {
    Pin()->capabilities = {Yuy2(320, 240)};
    Pin()->capabilityCount = 2;
    FakeCom::LogCapture log;
    std::vector<VideoFormat> formats;
    EXPECT_FALSE(VideoCapture::GetFilterFormats(Filter(), formats));
    EXPECT_EQ(formats.size(), 1u);
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to GetStreamCaps(0x1)"});
}

TEST_F(FormatListing, ReleasesEverythingItTook) {
    Pin()->capabilities = {Yuy2(320, 240)};
    std::vector<VideoFormat> formats;
    EXPECT_TRUE(VideoCapture::GetFilterFormats(Filter(), formats));
    EXPECT_EQ(Pin()->RefCount(), 1u);
    EXPECT_EQ(Filter()->RefCount(), 1u);
}
