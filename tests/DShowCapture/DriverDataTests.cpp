// The checks on the sizes that drivers state, against records made to measure.

#include "DShowCapture/DriverData.h"

#include <dvdmedia.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "FakeCom.h"

using namespace DShow;
using FakeCom::Capability;
using FakeCom::FakePin;

namespace {

// A VideoInfo media type whose format block is `blockSize` bytes, with no memory behind it
// beyond that: the checks must decide by the sizes alone.
struct VideoInfoType {
    explicit VideoInfoType(ULONG blockSize) : block(blockSize) {
        type.majortype = MEDIATYPE_Video;
        type.formattype = FORMAT_VideoInfo;
        type.cbFormat = blockSize;
        type.pbFormat = block.data();
    }
    std::vector<BYTE> block;
    AM_MEDIA_TYPE type = {};
};

KSMULTIPLE_ITEM MediumList(ULONG mediumsInSize, ULONG count) {
    KSMULTIPLE_ITEM list = {};
    list.Size = static_cast<ULONG>(sizeof(KSMULTIPLE_ITEM) + mediumsInSize * sizeof(REGPINMEDIUM));
    list.Count = count;
    return list;
}

Capability WithIntervals(LONGLONG shortest, LONGLONG longest) {
    Capability capability;
    capability.caps.MinFrameInterval = shortest;
    capability.caps.MaxFrameInterval = longest;
    return capability;
}

}  // namespace

TEST(GetVideoInfoHeader, WholeHeaderIsGiven) {
    VideoInfoType exact(sizeof(VIDEOINFOHEADER));
    EXPECT_EQ(GetVideoInfoHeader(exact.type),
              reinterpret_cast<const VIDEOINFOHEADER*>(exact.block.data()));
}

TEST(GetVideoInfoHeader, BlockOneByteShortOfTheHeaderGivesNone) {
    VideoInfoType shortBlock(sizeof(VIDEOINFOHEADER) - 1);
    EXPECT_EQ(GetVideoInfoHeader(shortBlock.type), nullptr);
}

TEST(GetVideoInfoHeader, OtherFormatTypesAndMissingBlocksGiveNone) {
    VideoInfoType info2(sizeof(VIDEOINFOHEADER2));
    info2.type.formattype = FORMAT_VideoInfo2;
    EXPECT_EQ(GetVideoInfoHeader(info2.type), nullptr);
    VideoInfoType noBlock(sizeof(VIDEOINFOHEADER));
    noBlock.type.pbFormat = nullptr;
    EXPECT_EQ(GetVideoInfoHeader(noBlock.type), nullptr);
}

TEST(MediumListIsWhole, CountThatFitsInTheSizeIsWhole) {
    EXPECT_TRUE(MediumListIsWhole(MediumList(2, 2)));
    EXPECT_TRUE(MediumListIsWhole(MediumList(3, 2)));
    EXPECT_TRUE(MediumListIsWhole(MediumList(0, 0)));
}

TEST(MediumListIsWhole, CountBeyondTheSizeIsNot) {
    EXPECT_FALSE(MediumListIsWhole(MediumList(1, 2)));
    EXPECT_FALSE(MediumListIsWhole(MediumList(0, 0xFFFFFFFFu)));
}

TEST(MediumListIsWhole, SizeSmallerThanTheListHeaderIsNot) {
    KSMULTIPLE_ITEM list = {};
    list.Size = sizeof(KSMULTIPLE_ITEM) - 1;
    EXPECT_FALSE(MediumListIsWhole(list));
}

class StreamCapabilities : public ::testing::Test {
protected:
    void SetUp() override { m_pin->hasStreamConfig = true; }
    FakePin* Pin() { return m_pin.Get(); }
    ComPtr<IAMStreamConfig> Config() {
        ComPtr<IAMStreamConfig> config;
        m_pin->QueryInterface(IID_IAMStreamConfig, reinterpret_cast<void**>(config.GetAddressOf()));
        return config;
    }

private:
    ComPtr<FakePin> m_pin = FakeCom::Own(new FakePin());
};

TEST_F(StreamCapabilities, StatedSizeOfARecordGivesTheRecord) {
    Pin()->capabilities = {WithIntervals(333333, 2000000)};
    StreamCapabilityReader reader(Config().Get());
    ASSERT_EQ(reader.Open(), S_OK);
    EXPECT_EQ(reader.Count(), 1);
    ScopedMediaType mediaType;
    ASSERT_EQ(reader.Read(0, mediaType.Receive()), S_OK);
    ASSERT_NE(reader.VideoCapability(), nullptr);
    EXPECT_EQ(reader.VideoCapability()->MinFrameInterval, 333333);
    EXPECT_EQ(reader.VideoCapability()->MaxFrameInterval, 2000000);
}

TEST_F(StreamCapabilities, StatedSizeShortOfARecordGivesNoRecord) {
    Pin()->capabilities = {WithIntervals(333333, 2000000)};
    Pin()->capabilityBlockSize = 8;
    StreamCapabilityReader reader(Config().Get());
    ASSERT_EQ(reader.Open(), S_OK);
    ScopedMediaType mediaType;
    ASSERT_EQ(reader.Read(0, mediaType.Receive()), S_OK);
    EXPECT_EQ(reader.VideoCapability(), nullptr);
}

TEST_F(StreamCapabilities, EachCapabilityIsReadIntoAClearedBlock) {
    Pin()->capabilities = {WithIntervals(333333, 2000000), WithIntervals(0, 0)};
    StreamCapabilityReader reader(Config().Get());
    ASSERT_EQ(reader.Open(), S_OK);
    ScopedMediaType first;
    ASSERT_EQ(reader.Read(0, first.Receive()), S_OK);
    ASSERT_EQ(reader.VideoCapability()->MaxFrameInterval, 2000000);
    // The driver states whole records but now writes only the part before the intervals: the
    // first capability's intervals must not show through in the second.
    Pin()->capabilityBytesWritten = offsetof(VIDEO_STREAM_CONFIG_CAPS, MinFrameInterval);
    ScopedMediaType second;
    ASSERT_EQ(reader.Read(1, second.Receive()), S_OK);
    EXPECT_EQ(reader.VideoCapability()->MinFrameInterval, 0);
    EXPECT_EQ(reader.VideoCapability()->MaxFrameInterval, 0);
}

TEST_F(StreamCapabilities, ResultsArePassedOnAsTheDriverGaveThem) {
    Pin()->numberOfCapabilitiesResult = S_FALSE;
    Pin()->capabilities = {Capability()};
    Pin()->capabilities[0].result = E_UNEXPECTED;
    StreamCapabilityReader reader(Config().Get());
    EXPECT_EQ(reader.Open(), S_FALSE);
    ScopedMediaType failed;
    EXPECT_EQ(reader.Read(0, failed.Receive()), E_UNEXPECTED);
    ScopedMediaType beyondTheEnd;
    EXPECT_EQ(reader.Read(1, beyondTheEnd.Receive()), S_FALSE);
}
