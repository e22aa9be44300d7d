// VideoCapture's format selection and decoder chain with virtual cameras: the direct path with
// frames in the callback, the choice among capabilities, the rate forced onto the chosen one,
// the decoder paths as far as Wine's decoders go, and the stream format table.

#include <windows.h>

#include <dshow.h>
#include <dvdmedia.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CaptureTestSupport.h"
#include "DShowCapture/MediaTypes.h"
#include "tools/VirtualCamera/VirtualCameraSetup.h"

using namespace DShow;
using namespace CaptureTests;

namespace {

VideoFormat Request(LONG width, LONG height, float rate, VideoPixelFormat format) {
    return VideoFormat(TinySize(width, height), rate, format);
}

class CaptureFormat : public CaptureTest {
protected:
    // A capture object assembled over a new camera with these modes.
    void Assemble(const std::wstring& modes) {
        ASSERT_TRUE(m_capture.Initialize(AddCamera(modes)));
    }
    // The graph goes before the apartment does.
    void TearDown() override {
        m_capture.Uninitialize();
        CaptureTest::TearDown();
    }

    bool SinkConnectedToCamera() {
        ComPtr<IPin> peer = m_capture.SinkPeer();
        if (!peer) {
            return false;
        }
        PIN_INFO info = {};
        peer->QueryPinInfo(&info);
        const bool fromCamera = info.pFilter != nullptr && info.pFilter != m_capture.Sink().Get() &&
                                m_capture.Filters().size() == 2;
        if (info.pFilter != nullptr) {
            info.pFilter->Release();
        }
        return fromCamera;
    }

    TestableCapture m_capture;
};

// The camera's frames carry a counter, one more than the frame before, and rising times.
void ExpectConsecutive(const std::vector<Frame>& frames, long size, void* userData) {
    ASSERT_FALSE(frames.empty());
    for (size_t i = 0; i < frames.size(); ++i) {
        EXPECT_EQ(frames[i].size, size) << i;
        EXPECT_EQ(frames[i].userData, userData) << i;
        EXPECT_TRUE(frames[i].counterDecoded) << i;
        if (i > 0) {
            EXPECT_EQ(frames[i].counter, frames[i - 1].counter + 1) << i;
            EXPECT_GT(frames[i].timestamp, frames[i - 1].timestamp) << i;
        }
    }
}

TEST_F(CaptureFormat, Yuy2ConnectsDirectlyAndTheSinksFormatBecomesCurrent) {
    Assemble(L"mode = YUY2 videoinfo 640 480 333333\n");
    ASSERT_TRUE(m_capture.Allocate(Request(640, 480, 30.0f, PIXEL_FORMAT_YUY2)));
    EXPECT_TRUE(SinkConnectedToCamera());
    EXPECT_EQ(m_capture.SinkSubtype(), MEDIASUBTYPE_YUY2);
    const VideoFormat& current = m_capture.GetCurrentFormat();
    EXPECT_EQ(current.format, PIXEL_FORMAT_YUY2);
    EXPECT_EQ(current.size.cx, 640);
    EXPECT_EQ(current.size.cy, 480);
    EXPECT_EQ(current.rate, 30.0f);
    EXPECT_EQ(current.GetFlip(), 0);
}

TEST_F(CaptureFormat, AskingWhatFeedsTheSinkKeepsNoReference) {
    Assemble(L"mode = YUY2 videoinfo 640 480 333333\n");
    ASSERT_TRUE(m_capture.Allocate(Request(640, 480, 30.0f, PIXEL_FORMAT_YUY2)));
    const ComPtr<IPin> peer = m_capture.SinkPeer();
    ASSERT_TRUE(peer);
    PIN_INFO info = {};
    ASSERT_EQ(peer->QueryPinInfo(&info), S_OK);
    const ComPtr<IBaseFilter> camera = AdoptReference(info.pFilter);
    const ULONG before = CountOf(camera.Get());
    EXPECT_EQ(m_capture.GetSinkFeed(), VideoCapture::SinkFeed::kDevice);
    EXPECT_EQ(CountOf(camera.Get()), before);
}

// The power-line property is set to 60 Hz, manually, on every device that takes it.
TEST_F(CaptureFormat, AllocateSetsThePowerLineFrequencyToSixtyHertzManually) {
    Assemble(L"mode = YUY2 videoinfo 640 480 333333\n");
    ASSERT_TRUE(m_capture.Allocate(Request(640, 480, 30.0f, PIXEL_FORMAT_YUY2)));
    VirtualCamera::PowerLineReport report;
    ASSERT_TRUE(VirtualCamera::ReadPowerLineReport(LastCameraName(), &report));
    EXPECT_EQ(report.value, 2);
    EXPECT_EQ(report.flags, 2u);
}

TEST_F(CaptureFormat, ADeviceWithoutThePowerLinePropertyAllocatesWithNoRecord) {
    Assemble(L"mode = YUY2 videoinfo 640 480 333333\nfault = powerline_unsupported\n");
    TestSupport::LogCapture log;
    ASSERT_TRUE(m_capture.Allocate(Request(640, 480, 30.0f, PIXEL_FORMAT_YUY2)));
    EXPECT_TRUE(log.Messages().empty());
    VirtualCamera::PowerLineReport report;
    EXPECT_FALSE(VirtualCamera::ReadPowerLineReport(LastCameraName(), &report));
}

TEST_F(CaptureFormat, FramesReachTheCallbackWithTheirSizeRisingTimesAndTheCameraCounter) {
    Assemble(L"mode = YUY2 videoinfo 640 480 333333\n");
    int userData = 0;
    m_capture.SetUserData(&userData);
    FrameLog frames(MEDIASUBTYPE_YUY2);
    m_capture.SetCallback(frames.Callback());
    ASSERT_TRUE(m_capture.Allocate(Request(640, 480, 30.0f, PIXEL_FORMAT_YUY2)));
    ASSERT_TRUE(m_capture.Run());
    ASSERT_TRUE(frames.WaitForFrames(5));
    ASSERT_TRUE(m_capture.Stop());
    ExpectConsecutive(frames.Frames(), 640 * 480 * 2, &userData);
}

TEST_F(CaptureFormat, AfterStopAndDeallocateAnotherModeStreams) {
    Assemble(L"mode = YUY2 videoinfo 640 480 333333\nmode = YUY2 videoinfo 320 240 333333\n");
    FrameLog first(MEDIASUBTYPE_YUY2);
    m_capture.SetCallback(first.Callback());
    ASSERT_TRUE(m_capture.Allocate(Request(640, 480, 30.0f, PIXEL_FORMAT_YUY2)));
    ASSERT_TRUE(m_capture.Run());
    ASSERT_TRUE(first.WaitForFrames(2));
    ASSERT_TRUE(m_capture.Stop());
    m_capture.Deallocate();
    EXPECT_FALSE(m_capture.SinkPeer());

    FrameLog second(MEDIASUBTYPE_YUY2);
    m_capture.SetCallback(second.Callback());
    ASSERT_TRUE(m_capture.Allocate(Request(320, 240, 30.0f, PIXEL_FORMAT_YUY2)));
    EXPECT_EQ(m_capture.GetCurrentFormat().size.cx, 320);
    ASSERT_TRUE(m_capture.Run());
    ASSERT_TRUE(second.WaitForFrames(3));
    ASSERT_TRUE(m_capture.Stop());
    ExpectConsecutive(second.Frames(), 320 * 240 * 2, nullptr);
}

TEST_F(CaptureFormat, AnUnassembledObjectFailsToAllocate) {
    TestSupport::LogCapture log;
    EXPECT_FALSE(m_capture.Allocate(Request(64, 48, 30.0f, PIXEL_FORMAT_YUY2)));
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to Allocate"});
}

TEST_F(CaptureFormat, ARequestNoCapabilityMatchesFailsToAllocate) {
    Assemble(L"mode = YUY2 videoinfo 64 48 333333\n");
    TestSupport::LogCapture log;
    EXPECT_FALSE(m_capture.Allocate(Request(800, 600, 30.0f, PIXEL_FORMAT_YUY2)));
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to Allocate"});
    EXPECT_FALSE(m_capture.SinkPeer());
}

TEST_F(CaptureFormat, TheLowerIndexWinsAmongEqualCapabilities) {
    Assemble(L"mode = YUY2 videoinfo 64 48 333333\nmode = YUY2 videoinfo 64 48 666666\n");
    ASSERT_TRUE(m_capture.Allocate(Request(64, 48, 0.0f, PIXEL_FORMAT_YUY2)));
    REFERENCE_TIME interval = 0;
    ASSERT_TRUE(CaptureConnectionInterval(m_capture, &interval));
    EXPECT_EQ(interval, 333333);
}

TEST_F(CaptureFormat, TheRequestedRateOverridesTheChosenCapabilitysInterval) {
    Assemble(L"mode = YUY2 videoinfo 64 48 333333\nmode = YUY2 videoinfo 64 48 666666\n");
    ASSERT_TRUE(m_capture.Allocate(Request(64, 48, 10.0f, PIXEL_FORMAT_YUY2)));
    REFERENCE_TIME interval = 0;
    ASSERT_TRUE(CaptureConnectionInterval(m_capture, &interval));
    EXPECT_EQ(interval, 1000000);
}

TEST_F(CaptureFormat, AFractionalRateIsCutToWholeFrames) {
    Assemble(L"mode = YUY2 videoinfo 64 48 333333\n");
    ASSERT_TRUE(m_capture.Allocate(Request(64, 48, 29.97f, PIXEL_FORMAT_YUY2)));
    REFERENCE_TIME interval = 0;
    ASSERT_TRUE(CaptureConnectionInterval(m_capture, &interval));
    EXPECT_EQ(interval, 344827);
}

TEST_F(CaptureFormat, ARateOfZeroKeepsTheDriversIntervalAndTheRateComesFromThePin) {
    Assemble(L"mode = YUY2 videoinfo 64 48 500000\n");
    ASSERT_TRUE(m_capture.Allocate(Request(64, 48, 0.0f, PIXEL_FORMAT_YUY2)));
    REFERENCE_TIME interval = 0;
    ASSERT_TRUE(CaptureConnectionInterval(m_capture, &interval));
    EXPECT_EQ(interval, 500000);
    EXPECT_EQ(m_capture.GetCurrentFormat().rate, 20.0f);
}

TEST_F(CaptureFormat, ANegativeHeightIsFoundOnlyByThatSameHeight) {
    Assemble(L"mode = YUY2 videoinfo 64 -48 333333\n");
    TestSupport::LogCapture log;
    EXPECT_FALSE(m_capture.Allocate(Request(64, 48, 30.0f, PIXEL_FORMAT_YUY2)));
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to Allocate"});
    EXPECT_TRUE(m_capture.Allocate(Request(64, -48, 30.0f, PIXEL_FORMAT_YUY2)));
    EXPECT_TRUE(m_capture.SinkPeer());
}

TEST_F(CaptureFormat, AnRgb24RequestFindsTheRgb24CapabilityAndTheStreamIsBgr24) {
    Assemble(L"mode = RGB24 videoinfo 64 48 333333\n");
    ASSERT_TRUE(m_capture.Allocate(Request(64, 48, 30.0f, PIXEL_FORMAT_RGB24)));
    EXPECT_EQ(m_capture.SinkSubtype(), MEDIASUBTYPE_RGB24);
    EXPECT_EQ(m_capture.GetCurrentFormat().format, PIXEL_FORMAT_BGR24);
}

TEST_F(CaptureFormat, Bgr24AndBgraRequestsMatchNoCapability) {
    Assemble(L"mode = RGB24 videoinfo 64 48 333333\nmode = RGB32 videoinfo 64 48 333333\n");
    TestSupport::LogCapture log;
    EXPECT_FALSE(m_capture.Allocate(Request(64, 48, 30.0f, PIXEL_FORMAT_BGR24)));
    EXPECT_FALSE(m_capture.Allocate(Request(64, 48, 30.0f, PIXEL_FORMAT_BGRA)));
    EXPECT_EQ(log.Messages(),
              (std::vector<std::string>{"Failed to Allocate", "Failed to Allocate"}));
}

TEST_F(CaptureFormat, AYv12RequestMatchesNoCapability) {
    Assemble(L"mode = YV12 videoinfo 64 48 333333\n");
    TestSupport::LogCapture log;
    EXPECT_FALSE(m_capture.Allocate(Request(64, 48, 30.0f, PIXEL_FORMAT_YV12)));
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"Failed to Allocate"});
}

TEST_F(CaptureFormat, FormatZeroFindsAnUnlistedSubtypeAndSucceedsUnconnected) {
    // YV12 has no pixel format in the listing, and the sink refuses it.
    Assemble(L"mode = YUY2 videoinfo 64 48 333333\nmode = YV12 videoinfo 64 48 333333\n");
    TestSupport::LogCapture log;
    EXPECT_TRUE(m_capture.Allocate(Request(64, 48, 30.0f, PIXEL_FORMAT_UNKNOWN)));
    EXPECT_TRUE(log.Messages().empty());
    EXPECT_FALSE(m_capture.SinkPeer());
    EXPECT_EQ(m_capture.Filters().size(), 2u);
    EXPECT_EQ(m_capture.GetCurrentFormat().format, PIXEL_FORMAT_UNKNOWN);
    EXPECT_EQ(m_capture.GetCurrentFormat().size.cx, 64);
}

TEST_F(CaptureFormat, I420ConnectsDirectlyAsFormatOne) {
    Assemble(L"mode = I420 videoinfo 64 48 333333\n");
    ASSERT_TRUE(m_capture.Allocate(Request(64, 48, 30.0f, PIXEL_FORMAT_I420)));
    EXPECT_EQ(m_capture.SinkSubtype(), MEDIASUBTYPE_I420);
    EXPECT_EQ(m_capture.GetCurrentFormat().format, PIXEL_FORMAT_I420);
}

TEST_F(CaptureFormat, IyuvIsFoundAsFormatOneAndGoesTheDecoderWay) {
    // The sink refuses IYUV, so the request reaches the AVI decompressor, which Wine's codecs
    // cannot feed: the record is the connection's, not "Failed to Allocate".
    Assemble(L"mode = IYUV videoinfo 64 48 333333\n");
    TestSupport::LogCapture log;
    EXPECT_FALSE(m_capture.Allocate(Request(64, 48, 30.0f, PIXEL_FORMAT_I420)));
    const std::vector<std::string> messages = log.Messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].rfind("Failed to ConnectDirect(0x8", 0), 0u) << messages[0];
}

TEST_F(CaptureFormat, UyvyWithoutACodecFailsAtTheAviDecodersInputAndKeepsIt) {
    Assemble(L"mode = UYVY videoinfo 64 48 333333\n");
    TestSupport::LogCapture log;
    EXPECT_FALSE(m_capture.Allocate(Request(64, 48, 30.0f, PIXEL_FORMAT_UYVY)));
    const std::vector<std::string> messages = log.Messages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0].rfind("Failed to ConnectDirect(0x8", 0), 0u) << messages[0];
    EXPECT_EQ(m_capture.Filters().size(), 3u);
    EXPECT_EQ(m_capture.GetCurrentFormat().format, PIXEL_FORMAT_UNKNOWN);
}

TEST_F(CaptureFormat, ASecondAllocateAfterDeallocateReusesTheDecoder) {
    Assemble(L"mode = UYVY videoinfo 64 48 333333\n");
    EXPECT_FALSE(m_capture.Allocate(Request(64, 48, 30.0f, PIXEL_FORMAT_UYVY)));
    const std::vector<ComPtr<IBaseFilter>> before = m_capture.Filters();
    ASSERT_EQ(before.size(), 3u);
    m_capture.Deallocate();
    TestSupport::LogCapture log;
    EXPECT_FALSE(m_capture.Allocate(Request(64, 48, 30.0f, PIXEL_FORMAT_UYVY)));
    EXPECT_TRUE(log.RecordsContaining("CoCreateInstance").empty());
    EXPECT_TRUE(log.RecordsContaining("AddFilter").empty());
    const std::vector<ComPtr<IBaseFilter>> after = m_capture.Filters();
    ASSERT_EQ(after.size(), 3u);
    for (size_t i = 0; i < after.size(); ++i) {
        EXPECT_EQ(after[i].Get(), before[i].Get()) << i;
    }
}

TEST_F(CaptureFormat, MjpegWithTheDecoderSwitchOffIsTakenAsItIs) {
    m_capture.EnableMjpegDec(FALSE);
    Assemble(L"mode = MJPG videoinfo 64 48 333333\n");
    FrameLog frames(MEDIASUBTYPE_MJPG);
    m_capture.SetCallback(frames.Callback());
    ASSERT_TRUE(m_capture.Allocate(Request(64, 48, 30.0f, PIXEL_FORMAT_MJPEG)));
    EXPECT_TRUE(SinkConnectedToCamera());
    EXPECT_EQ(m_capture.GetCurrentFormat().format, PIXEL_FORMAT_MJPEG);
    ASSERT_TRUE(m_capture.Run());
    ASSERT_TRUE(frames.WaitForFrames(3));
    ASSERT_TRUE(m_capture.Stop());
    for (const Frame& frame : frames.Frames()) {
        EXPECT_EQ(frame.head[0], 0xFF);  // a JPEG image, as the camera sent it
        EXPECT_EQ(frame.head[1], 0xD8);
        EXPECT_TRUE(frame.counterDecoded);
    }
}

TEST_F(CaptureFormat, MjpegWithoutARegisteredDecoderFailsAtItsCreation) {
    Assemble(L"mode = MJPG videoinfo 64 48 333333\n");
    TestSupport::LogCapture log;
    EXPECT_FALSE(m_capture.Allocate(Request(64, 48, 30.0f, PIXEL_FORMAT_MJPEG)));
    EXPECT_EQ(log.Messages(),
              std::vector<std::string>{"Failed to CoCreateInstance(CLSID_MjpegDec,0x80040154)"});
    EXPECT_EQ(m_capture.Filters().size(), 2u);
}

TEST_F(CaptureFormat, TheSwitchClearedAfterInitializeStillRefusesMjpegWithoutADecoder) {
    Assemble(L"mode = MJPG videoinfo 64 48 333333\n");
    m_capture.EnableMjpegDec(FALSE);
    TestSupport::LogCapture log;
    EXPECT_TRUE(m_capture.Allocate(Request(64, 48, 30.0f, PIXEL_FORMAT_MJPEG)));
    EXPECT_TRUE(log.Messages().empty());
    EXPECT_FALSE(m_capture.SinkPeer());
    EXPECT_EQ(m_capture.Filters().size(), 2u);
    EXPECT_EQ(m_capture.GetCurrentFormat().format, PIXEL_FORMAT_UNKNOWN);
}

TEST_F(CaptureFormat, TheSwitchSetAfterAnInitializeWithItClearTakesMjpegDirectly) {
    m_capture.EnableMjpegDec(FALSE);
    Assemble(L"mode = MJPG videoinfo 64 48 333333\n");
    m_capture.EnableMjpegDec(TRUE);
    EXPECT_TRUE(m_capture.Allocate(Request(64, 48, 30.0f, PIXEL_FORMAT_MJPEG)));
    EXPECT_TRUE(SinkConnectedToCamera());
    EXPECT_EQ(m_capture.GetCurrentFormat().format, PIXEL_FORMAT_MJPEG);
}

TEST_F(CaptureFormat, EnableMjpegDecWritesItsRecord) {
    TestSupport::LogCapture log;
    m_capture.EnableMjpegDec(FALSE);
    m_capture.EnableMjpegDec(TRUE);
    EXPECT_EQ(log.Messages(),
              (std::vector<std::string>{"EnableMjpegDec [0]", "EnableMjpegDec [1]"}));
}

// A second Allocate without Deallocate finds the sink still connected, so its Connect fails.
void ExpectNoDecoderForAFailedConnection(TestableCapture& capture, VideoPixelFormat format) {
    ASSERT_TRUE(capture.Allocate(Request(64, 48, 30.0f, format)));
    ASSERT_TRUE(capture.SinkPeer());
    TestSupport::LogCapture log;
    EXPECT_TRUE(capture.Allocate(Request(64, 48, 30.0f, format)));
    EXPECT_TRUE(log.Messages().empty());
    EXPECT_EQ(capture.Filters().size(), 2u);
}

TEST_F(CaptureFormat, AFailedConnectionOfRgb24GetsNoDecoder) {
    Assemble(L"mode = RGB24 videoinfo 64 48 333333\n");
    ExpectNoDecoderForAFailedConnection(m_capture, PIXEL_FORMAT_RGB24);
}

TEST_F(CaptureFormat, AFailedConnectionOfRgbaGetsNoDecoder) {
    Assemble(L"mode = RGB32 videoinfo 64 48 333333\n");
    ExpectNoDecoderForAFailedConnection(m_capture, PIXEL_FORMAT_RGBA);
}

TEST_F(CaptureFormat, AFailedConnectionOfArgb32GetsNoDecoder) {
    Assemble(L"mode = ARGB32 videoinfo 64 48 333333\n");
    ExpectNoDecoderForAFailedConnection(m_capture, static_cast<VideoPixelFormat>(7));
}

// The stream format table, fed as the sink feeds it when a sample brings a new type.
struct StreamType {
    AM_MEDIA_TYPE type = {};
    VIDEOINFOHEADER header = {};
    VIDEOINFOHEADER2 header2 = {};
    StreamType(const GUID& subtype, LONG width, LONG height, REFERENCE_TIME interval,
               bool second = false) {
        type.majortype = MEDIATYPE_Video;
        type.subtype = subtype;
        if (second) {
            type.formattype = FORMAT_VideoInfo2;
            header2.bmiHeader.biWidth = width;
            header2.bmiHeader.biHeight = height;
            header2.AvgTimePerFrame = interval;
            type.cbFormat = sizeof(header2);
            type.pbFormat = reinterpret_cast<BYTE*>(&header2);
        } else {
            type.formattype = FORMAT_VideoInfo;
            header.bmiHeader.biWidth = width;
            header.bmiHeader.biHeight = height;
            header.AvgTimePerFrame = interval;
            type.cbFormat = sizeof(header);
            type.pbFormat = reinterpret_cast<BYTE*>(&header);
        }
    }
};

using StreamFormatTable = ::testing::Test;

TEST_F(StreamFormatTable, EachSubtypeGivesItsFormatAndTheRgbRowsSetFlip) {
    struct Row {
        const GUID* subtype;
        VideoPixelFormat format;
        int flip;
    };
    const Row rows[] = {
        {&MEDIASUBTYPE_ARGB32, PIXEL_FORMAT_BGRA, 1}, {&MEDIASUBTYPE_RGB32, PIXEL_FORMAT_BGRA, 1},
        {&MEDIASUBTYPE_RGB24, PIXEL_FORMAT_BGR24, 1}, {&MEDIASUBTYPE_NV12, PIXEL_FORMAT_NV12, 0},
        {&MEDIASUBTYPE_YUY2, PIXEL_FORMAT_YUY2, 0},   {&MEDIASUBTYPE_UYVY, PIXEL_FORMAT_UYVY, 0},
        {&MEDIASUBTYPE_I420, PIXEL_FORMAT_I420, 0},   {&MEDIASUBTYPE_YV12, PIXEL_FORMAT_YV12, 0},
        {&MEDIASUBTYPE_MJPG, PIXEL_FORMAT_MJPEG, 0},
    };
    for (const Row& row : rows) {
        TestableCapture capture;
        StreamType stream(*row.subtype, 320, -240, 333333);
        capture.OnMediaTypeChanged(&stream.type, nullptr);
        EXPECT_EQ(capture.GetCurrentFormat().format, row.format);
        EXPECT_EQ(capture.GetCurrentFormat().GetFlip(), row.flip);
        EXPECT_EQ(capture.GetCurrentFormat().size.cx, 320);
        EXPECT_EQ(capture.GetCurrentFormat().size.cy, 240);  // the absolute height
        EXPECT_EQ(capture.GetCurrentFormat().rate, 30.0f);
    }
}

TEST_F(StreamFormatTable, TheRateIsCutToWholeFramesAndTheRecordTellsTheFormat) {
    TestableCapture capture;
    TestSupport::LogCapture log;
    StreamType stream(MEDIASUBTYPE_YUY2, 640, 480, 333667);
    capture.OnMediaTypeChanged(&stream.type, nullptr);
    EXPECT_EQ(capture.GetCurrentFormat().rate, 29.0f);
    EXPECT_EQ(log.Messages(),
              std::vector<std::string>{"[VideoCapture] Change Format(YUY2,640*480,29.000)"});
}

TEST_F(StreamFormatTable, AVideoInfo2StreamIsReadTheSameWayWithItsOwnRecord) {
    TestableCapture capture;
    TestSupport::LogCapture log;
    StreamType stream(MEDIASUBTYPE_NV12, 64, 48, 500000, true);
    capture.OnMediaTypeChanged(&stream.type, nullptr);
    EXPECT_EQ(capture.GetCurrentFormat().format, PIXEL_FORMAT_NV12);
    EXPECT_EQ(capture.GetCurrentFormat().rate, 20.0f);
    EXPECT_EQ(log.Messages(),
              std::vector<std::string>{"[VideoCapture] Change Format2(NV12,64*48,20.000)"});
}

TEST_F(StreamFormatTable, IyuvAndAZeroIntervalLeaveFormatAndRateAsTheyWere) {
    TestableCapture capture;
    StreamType yuy2(MEDIASUBTYPE_YUY2, 64, 48, 333333);
    capture.OnMediaTypeChanged(&yuy2.type, nullptr);
    StreamType iyuv(MEDIASUBTYPE_IYUV, 32, 24, 0);
    capture.OnMediaTypeChanged(&iyuv.type, nullptr);
    EXPECT_EQ(capture.GetCurrentFormat().format, PIXEL_FORMAT_YUY2);
    EXPECT_EQ(capture.GetCurrentFormat().rate, 30.0f);
    EXPECT_EQ(capture.GetCurrentFormat().size.cx, 32);
}

TEST_F(StreamFormatTable, ANullTypeOrAnotherMajorTypeChangesNothing) {
    TestableCapture capture;
    TestSupport::LogCapture log;
    capture.OnMediaTypeChanged(nullptr, nullptr);
    StreamType audio(MEDIASUBTYPE_YUY2, 64, 48, 333333);
    audio.type.majortype = MEDIATYPE_Audio;
    capture.OnMediaTypeChanged(&audio.type, nullptr);
    EXPECT_EQ(capture.GetCurrentFormat().size.cx, 0);
    EXPECT_TRUE(log.Messages().empty());
}

}  // namespace
