// VideoSinkFilter and VideoSinkInputPin: names and identity, the pin, SetFormat, what the pin
// accepts (CheckMediaType, in its order and with its table) and what it offers (GetMediaType).

#include "DShowCapture/VideoSinkFilter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "DShowCapture/MediaTypes.h"
#include "SinkTestSupport.h"

using namespace DShow;
using namespace SinkTests;

namespace {

class VideoSinkTest : public ComTest {
protected:
    void SetUp() override {
        ComTest::SetUp();
        m_sink = new VideoSinkFilter(&m_observer);
        m_sink->AddRef();
        m_pin = SinkPin(*m_sink);
    }
    void TearDown() override {
        m_sink->Release();
        ComTest::TearDown();
    }

    void Request(VideoPixelFormat format, LONG width, LONG height, float rate) {
        m_sink->SetFormat(VideoFormat(TinySize(width, height), rate, format));
    }

    // GetMediaType into a fresh record, which the test then owns.
    HRESULT Offer(int position, AM_MEDIA_TYPE* type) {
        ZeroMemory(type, sizeof(*type));
        return m_pin->GetMediaType(position, type);
    }

    static const VIDEOINFOHEADER* HeaderOf(const AM_MEDIA_TYPE& type) {
        return reinterpret_cast<const VIDEOINFOHEADER*>(type.pbFormat);
    }

    RecordingObserver m_observer;
    VideoSinkFilter* m_sink = nullptr;
    VideoSinkInputPin* m_pin = nullptr;
};

TEST_F(VideoSinkTest, FilterNameIsTinyCaptureFilter) {
    EXPECT_EQ(std::wstring(kTinyFilterName), L"Tiny Capture Filter");
}

TEST_F(VideoSinkTest, HasOnePinNamedTinyVideoCapture) {
    EXPECT_EQ(m_sink->GetPinCount(), 1);
    ASSERT_NE(m_sink->GetPin(0), nullptr);
    EXPECT_EQ(m_sink->GetPin(1), nullptr);
    EXPECT_EQ(m_sink->GetPin(-1), nullptr);
    IPin* pin = nullptr;
    ASSERT_EQ(m_sink->FindPin(L"Tiny Video Capture", &pin), S_OK);
    EXPECT_EQ(pin, static_cast<IPin*>(m_pin));
    pin->Release();
}

TEST_F(VideoSinkTest, GetPinGivesNoReference) {
    m_sink->GetPin(0);
    EXPECT_EQ(m_pin->AddRef(), 2u);
    EXPECT_EQ(m_pin->Release(), 1u);
}

TEST_F(VideoSinkTest, ClassIdIsTheTinyCaptureFilters) {
    CLSID clsid = GUID_NULL;
    ASSERT_EQ(m_sink->GetClassID(&clsid), S_OK);
    EXPECT_EQ(clsid, CLSID_TinyCaptureFilter);
}

TEST_F(VideoSinkTest, RegisterOfTheSinkHasNothingToRegister) {
    EXPECT_EQ(m_sink->Register(), S_FALSE);
}

TEST_F(VideoSinkTest, FormatStartsEmpty) {
    const VideoFormat* format = m_sink->GetFormat();
    EXPECT_EQ(format->format, PIXEL_FORMAT_UNKNOWN);
    EXPECT_EQ(format->size.cx, 0);
    EXPECT_EQ(format->size.cy, 0);
    EXPECT_EQ(format->rate, 0.0f);
    EXPECT_EQ(format->GetFlip(), 0);
}

TEST_F(VideoSinkTest, SetFormatClearsTheCurrentFormatButItsFlip) {
    VideoType rgb(MEDIASUBTYPE_RGB24, 320, 240);
    ASSERT_EQ(m_pin->QueryAccept(rgb.Get()), S_OK);
    ASSERT_EQ(m_sink->GetFormat()->GetFlip(), 1);
    Request(PIXEL_FORMAT_YUY2, 640, 480, 30.0f);
    const VideoFormat* format = m_sink->GetFormat();
    EXPECT_EQ(format->format, PIXEL_FORMAT_UNKNOWN);
    EXPECT_EQ(format->size.cx, 0);
    EXPECT_EQ(format->size.cy, 0);
    EXPECT_EQ(format->rate, 0.0f);
    EXPECT_EQ(format->GetFlip(), 1);
}

TEST_F(VideoSinkTest, GetMediaTypeOnAFreshPinFails) {
    AM_MEDIA_TYPE type;
    EXPECT_EQ(Offer(0, &type), E_FAIL);
    FreeMediaType(type);
}

TEST_F(VideoSinkTest, GetMediaTypeAtPositionOneFailsForAnyFormat) {
    for (int format = 0; format <= PIXEL_FORMAT_MAX; ++format) {
        Request(static_cast<VideoPixelFormat>(format), 640, 480, 30.0f);
        AM_MEDIA_TYPE type;
        EXPECT_EQ(Offer(1, &type), E_FAIL) << format;
        EXPECT_EQ(type.pbFormat, nullptr) << format;
    }
}

TEST_F(VideoSinkTest, AnI420OfferHasItsImageSizeAndFrameTime) {
    Request(PIXEL_FORMAT_I420, 640, 480, 30.0f);
    AM_MEDIA_TYPE type;
    ASSERT_EQ(Offer(0, &type), S_OK);
    EXPECT_EQ(type.majortype, MEDIATYPE_Video);
    EXPECT_EQ(type.subtype, MEDIASUBTYPE_I420);
    EXPECT_EQ(type.formattype, FORMAT_VideoInfo);
    EXPECT_EQ(type.bFixedSizeSamples, TRUE);
    EXPECT_EQ(type.bTemporalCompression, FALSE);
    EXPECT_EQ(type.cbFormat, 88u);
    const VIDEOINFOHEADER* header = HeaderOf(type);
    EXPECT_EQ(header->bmiHeader.biSizeImage, 460800u);
    EXPECT_EQ(type.lSampleSize, 460800u);
    EXPECT_EQ(header->AvgTimePerFrame, 333333);
    EXPECT_EQ(header->bmiHeader.biSize, 40u);
    EXPECT_EQ(header->bmiHeader.biPlanes, 1);
    EXPECT_EQ(header->bmiHeader.biWidth, 640);
    EXPECT_EQ(header->bmiHeader.biHeight, 480);
    EXPECT_EQ(header->bmiHeader.biBitCount, 12);
    EXPECT_EQ(header->bmiHeader.biCompression, MAKEFOURCC('I', '4', '2', '0'));
    FreeMediaType(type);
}

TEST_F(VideoSinkTest, AnRgb24OfferRoundsItsRowsToWholeWords) {
    Request(PIXEL_FORMAT_RGB24, 639, 480, 30.0f);
    AM_MEDIA_TYPE type;
    ASSERT_EQ(Offer(0, &type), S_OK);
    EXPECT_EQ(type.subtype, MEDIASUBTYPE_RGB24);
    const VIDEOINFOHEADER* header = HeaderOf(type);
    EXPECT_EQ(header->bmiHeader.biSizeImage, 921600u);
    EXPECT_EQ(header->bmiHeader.biCompression, static_cast<DWORD>(BI_RGB));
    EXPECT_EQ(header->bmiHeader.biBitCount, 24);
    FreeMediaType(type);
}

struct OfferCase {
    VideoPixelFormat format;
    const GUID* subtype;
    DWORD compression;
    WORD bitCount;
    DWORD imageSize;  // at 639 x 480
};

class VideoSinkOfferTest : public VideoSinkTest, public ::testing::WithParamInterface<OfferCase> {};

TEST_P(VideoSinkOfferTest, OfferFollowsTheTable) {
    const OfferCase& expected = GetParam();
    Request(expected.format, 639, 480, 25.0f);
    AM_MEDIA_TYPE type;
    ASSERT_EQ(Offer(0, &type), S_OK);
    EXPECT_EQ(type.subtype, *expected.subtype);
    const VIDEOINFOHEADER* header = HeaderOf(type);
    EXPECT_EQ(header->bmiHeader.biCompression, expected.compression);
    EXPECT_EQ(header->bmiHeader.biBitCount, expected.bitCount);
    EXPECT_EQ(header->bmiHeader.biSizeImage, expected.imageSize);
    EXPECT_EQ(type.lSampleSize, expected.imageSize);
    EXPECT_EQ(header->AvgTimePerFrame, 400000);
    FreeMediaType(type);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, VideoSinkOfferTest,
    ::testing::Values(OfferCase{PIXEL_FORMAT_I420, &MEDIASUBTYPE_I420,
                                MAKEFOURCC('I', '4', '2', '0'), 12, 639 * 480 * 3 / 2},
                      OfferCase{PIXEL_FORMAT_NV12, &MEDIASUBTYPE_NV12,
                                MAKEFOURCC('N', 'V', '1', '2'), 12, 639 * 480 * 3 / 2},
                      OfferCase{PIXEL_FORMAT_YUY2, &MEDIASUBTYPE_YUY2,
                                MAKEFOURCC('Y', 'U', 'Y', '2'), 16, 639 * 480 * 2},
                      OfferCase{static_cast<VideoPixelFormat>(7), &MEDIASUBTYPE_ARGB32,
                                MAKEFOURCC('A', 'R', 'G', 'B'), 32, 639 * 4 * 480},
                      OfferCase{PIXEL_FORMAT_RGB24, &MEDIASUBTYPE_RGB24, BI_RGB, 24, 1920 * 480},
                      OfferCase{PIXEL_FORMAT_RGBA, &MEDIASUBTYPE_RGB32, BI_RGB, 32,
                                639 * 4 * 480}));

TEST_F(VideoSinkTest, FormatsWithoutARowHaveNoOffer) {
    const int noOffer[] = {0, 2, 4, 5, 8, 11, 12, 13, 24, 28};
    for (int format : noOffer) {
        Request(static_cast<VideoPixelFormat>(format), 640, 480, 30.0f);
        AM_MEDIA_TYPE type;
        EXPECT_EQ(Offer(0, &type), E_FAIL) << format;
        FreeMediaType(type);
    }
}

TEST_F(VideoSinkTest, WithoutRateTheOfferHasNoFrameTime) {
    Request(PIXEL_FORMAT_YUY2, 640, 480, 0.0f);
    AM_MEDIA_TYPE type;
    ASSERT_EQ(Offer(0, &type), S_OK);
    EXPECT_EQ(HeaderOf(type)->AvgTimePerFrame, 0);
    FreeMediaType(type);
}

TEST_F(VideoSinkTest, TheOfferFillsABlockThatIsThere) {
    Request(PIXEL_FORMAT_YUY2, 640, 480, 30.0f);
    AM_MEDIA_TYPE type = {};
    type.cbFormat = sizeof(VIDEOINFOHEADER);
    type.pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(type.cbFormat));
    BYTE* block = type.pbFormat;
    std::memset(block, 0xCC, type.cbFormat);
    ASSERT_EQ(m_pin->GetMediaType(0, &type), S_OK);
    EXPECT_EQ(type.pbFormat, block);
    EXPECT_EQ(HeaderOf(type)->rcSource.left, 0);
    EXPECT_EQ(HeaderOf(type)->dwBitRate, 0u);
    FreeMediaType(type);
}

TEST_F(VideoSinkTest, TheOfferIsAcceptedByThePinItself) {
    Request(PIXEL_FORMAT_NV12, 1280, 720, 30.0f);
    AM_MEDIA_TYPE type;
    ASSERT_EQ(Offer(0, &type), S_OK);
    EXPECT_EQ(m_pin->QueryAccept(&type), S_OK);
    EXPECT_EQ(m_sink->GetFormat()->format, PIXEL_FORMAT_NV12);
    FreeMediaType(type);
}

TEST_F(VideoSinkTest, AnotherMajorTypeIsAnInvalidArgument) {
    VideoType type(MEDIASUBTYPE_YUY2, 640, 480);
    type.Get()->majortype = MEDIATYPE_Audio;
    EXPECT_EQ(m_pin->CheckMediaType(type.Get()), E_INVALIDARG);
    // Refused before the size is read.
    EXPECT_EQ(m_sink->GetFormat()->size.cx, 0);
}

TEST_F(VideoSinkTest, VideoInfo2IsAnInvalidArgument) {
    VideoType type(MEDIASUBTYPE_YUY2, 640, 480);
    type.Get()->formattype = FORMAT_VideoInfo2;
    EXPECT_EQ(m_pin->CheckMediaType(type.Get()), E_INVALIDARG);
}

TEST_F(VideoSinkTest, AMissingFormatBlockIsAnInvalidArgument) {
    AM_MEDIA_TYPE type = {};
    type.majortype = MEDIATYPE_Video;
    type.subtype = MEDIASUBTYPE_YUY2;
    type.formattype = FORMAT_VideoInfo;
    type.cbFormat = sizeof(VIDEOINFOHEADER);
    EXPECT_EQ(m_pin->CheckMediaType(&type), E_INVALIDARG);
}

TEST_F(VideoSinkTest, Rgb565IsRefusedButLeavesItsSize) {
    VideoType type(MEDIASUBTYPE_RGB565, 352, 288, 400000);
    EXPECT_EQ(m_pin->QueryAccept(type.Get()), S_FALSE);
    EXPECT_EQ(m_pin->CheckMediaType(type.Get()), E_FAIL);
    const VideoFormat* format = m_sink->GetFormat();
    EXPECT_EQ(format->size.cx, 352);
    EXPECT_EQ(format->size.cy, 288);
    EXPECT_EQ(format->rate, 25.0f);
    EXPECT_EQ(format->format, PIXEL_FORMAT_UNKNOWN);
}

TEST_F(VideoSinkTest, ANegativeHeightGivesAPositiveSize) {
    VideoType type(MEDIASUBTYPE_YUY2, 640, -480);
    ASSERT_EQ(m_pin->CheckMediaType(type.Get()), S_OK);
    EXPECT_EQ(m_sink->GetFormat()->size.cy, 480);
    EXPECT_EQ(m_sink->GetFormat()->GetFlip(), 0);
}

TEST_F(VideoSinkTest, TheRateIsWholeFramesPerSecond) {
    VideoType ntsc(MEDIASUBTYPE_YUY2, 640, 480, 333667);
    ASSERT_EQ(m_pin->CheckMediaType(ntsc.Get()), S_OK);
    EXPECT_EQ(m_sink->GetFormat()->rate, 29.0f);
    VideoType thirty(MEDIASUBTYPE_YUY2, 640, 480, 333333);
    ASSERT_EQ(m_pin->CheckMediaType(thirty.Get()), S_OK);
    EXPECT_EQ(m_sink->GetFormat()->rate, 30.0f);
}

TEST_F(VideoSinkTest, WithoutFrameTimeTheRequestedRateIsTaken) {
    Request(PIXEL_FORMAT_YUY2, 640, 480, 12.5f);
    VideoType type(MEDIASUBTYPE_YUY2, 640, 480, 0);
    ASSERT_EQ(m_pin->CheckMediaType(type.Get()), S_OK);
    EXPECT_EQ(m_sink->GetFormat()->rate, 12.5f);
}

TEST_F(VideoSinkTest, AnySizeOfAnAcceptedSubtypeIsAccepted) {
    Request(PIXEL_FORMAT_YUY2, 640, 480, 30.0f);
    VideoType type(MEDIASUBTYPE_YUY2, 1920, 1080);
    ASSERT_EQ(m_pin->CheckMediaType(type.Get()), S_OK);
    EXPECT_EQ(m_sink->GetFormat()->size.cx, 1920);
    EXPECT_EQ(m_sink->GetFormat()->size.cy, 1080);
}

TEST_F(VideoSinkTest, MjpegIsAcceptedWithoutADecoder) {
    VideoType type(MEDIASUBTYPE_MJPG, 1280, 720);
    EXPECT_EQ(m_pin->CheckMediaType(type.Get()), S_OK);
    EXPECT_EQ(m_sink->GetFormat()->format, PIXEL_FORMAT_MJPEG);
    EXPECT_EQ(m_sink->GetFormat()->GetFlip(), 0);
}

TEST_F(VideoSinkTest, MjpegIsRefusedWhenADecoderHandlesIt) {
    m_sink->SetMjpegDecEnabled(1);
    VideoType type(MEDIASUBTYPE_MJPG, 1280, 720);
    EXPECT_EQ(m_pin->CheckMediaType(type.Get()), E_FAIL);
    EXPECT_EQ(m_pin->QueryAccept(type.Get()), S_FALSE);
}

struct AcceptCase {
    const GUID* subtype;
    VideoPixelFormat format;
    int flip;
};

class VideoSinkAcceptTest : public VideoSinkTest,
                            public ::testing::WithParamInterface<AcceptCase> {};

TEST_P(VideoSinkAcceptTest, AcceptedSubtypeSetsFormatAndFlip) {
    const AcceptCase& expected = GetParam();
    VideoType type(*expected.subtype, 320, 240);
    ASSERT_EQ(m_pin->CheckMediaType(type.Get()), S_OK);
    EXPECT_EQ(m_sink->GetFormat()->format, expected.format);
    EXPECT_EQ(m_sink->GetFormat()->GetFlip(), expected.flip);
}

INSTANTIATE_TEST_SUITE_P(Table, VideoSinkAcceptTest,
                         ::testing::Values(AcceptCase{&MEDIASUBTYPE_RGB24, PIXEL_FORMAT_BGR24, 1},
                                           AcceptCase{&MEDIASUBTYPE_RGB32, PIXEL_FORMAT_BGRA, 1},
                                           AcceptCase{&MEDIASUBTYPE_ARGB32, PIXEL_FORMAT_BGRA, 1},
                                           AcceptCase{&MEDIASUBTYPE_I420, PIXEL_FORMAT_I420, 0},
                                           AcceptCase{&MEDIASUBTYPE_NV12, PIXEL_FORMAT_NV12, 0},
                                           AcceptCase{&MEDIASUBTYPE_YUY2, PIXEL_FORMAT_YUY2, 0}));

TEST_F(VideoSinkTest, OtherSubtypesAreRefused) {
    const GUID* refused[] = {&MEDIASUBTYPE_IYUV, &MEDIASUBTYPE_YV12, &MEDIASUBTYPE_UYVY,
                             &MEDIASUBTYPE_RGB565, &MEDIASUBTYPE_RGB555};
    for (const GUID* subtype : refused) {
        VideoType type(*subtype, 320, 240);
        EXPECT_EQ(m_pin->CheckMediaType(type.Get()), E_FAIL);
    }
}

TEST_F(VideoSinkTest, UseAllocatorReachesThePin) {
    IMemAllocator* allocator = nullptr;
    EXPECT_EQ(m_pin->GetAllocator(&allocator), VFW_E_NO_ALLOCATOR);
    m_sink->SetUseAllocator(1);
    ASSERT_EQ(m_pin->GetAllocator(&allocator), S_OK);
    allocator->Release();
}

}  // namespace
