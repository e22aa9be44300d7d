// VideoCapture over the decoder stand-ins of the build's prefix: a stream the sink refuses reaches
// it decoded into RGB32. With a codec for the stream installed, the graph's own connection
// already brings in the AVI decompressor, so these tests see the decoded stream whichever of the
// two put the decompressor there. That the decoded picture is the camera's is the stand-ins' own
// tests' business.

#include <windows.h>

#include <dshow.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CaptureTestSupport.h"
#include "tools/TestDecoders/TestDecodersSetup.h"

using namespace DShow;
using namespace CaptureTests;

namespace {

std::string Narrow(const std::wstring& text) {
    return std::string(text.begin(), text.end());
}

// Installs the stand-ins for the suite, and removes them afterwards when the prefix did not have
// them: the other capture tests need a prefix without codecs.
class CaptureWithDecoders : public CaptureTest {
protected:
    static void SetUpTestSuite() {
        // This hides the camera fixture's own suite set-up, which registers the camera server:
        // without it, a prefix where no other suite ran first has no camera to open.
        CaptureTest::SetUpTestSuite();
        std::wstring error;
        ASSERT_TRUE(s_decoders.Install(&error)) << Narrow(error);
    }
    static void TearDownTestSuite() {
        std::wstring error;
        EXPECT_TRUE(s_decoders.Restore(&error)) << Narrow(error);
    }
    // The graph goes before the apartment does.
    void TearDown() override {
        m_capture.Uninitialize();
        CaptureTest::TearDown();
    }

    // Streams `count` frames of the camera's only mode, requested as `format`, and stops.
    std::vector<Frame> Stream(const std::wstring& mode, VideoPixelFormat format, size_t count) {
        EXPECT_TRUE(m_capture.Initialize(AddCamera(mode)));
        FrameLog frames(MEDIASUBTYPE_RGB32);
        m_capture.SetCallback(frames.Callback());
        EXPECT_TRUE(m_capture.Allocate(VideoFormat(TinySize(64, 48), 30.0f, format)));
        EXPECT_TRUE(m_capture.Run());
        EXPECT_TRUE(frames.WaitForFrames(count));
        EXPECT_TRUE(m_capture.Stop());
        return frames.Frames();
    }

    static TestDecoders::ScopedDecoderInstall s_decoders;
    TestableCapture m_capture;
};

TestDecoders::ScopedDecoderInstall CaptureWithDecoders::s_decoders;

TEST_F(CaptureWithDecoders, UyvyReachesTheSinkAsRgb32ThroughTheAviDecompressor) {
    const std::vector<Frame> frames =
        Stream(L"mode = UYVY videoinfo 64 48 333333\n", PIXEL_FORMAT_UYVY, 3);
    EXPECT_EQ(m_capture.GetSinkFeed(), VideoCapture::SinkFeed::kAviDecoder);
    EXPECT_EQ(m_capture.SinkSubtype(), MEDIASUBTYPE_RGB32);
    EXPECT_EQ(m_capture.Filters().size(), 3u);
    ASSERT_FALSE(frames.empty());
    for (const Frame& frame : frames) {
        EXPECT_EQ(frame.size, 64 * 48 * 4);
    }
}

// The current format is what the sink's pin took, bottom-up BGRA, not the request.
TEST_F(CaptureWithDecoders, TheCurrentFormatIsTheDecodedOneAtTheSink) {
    Stream(L"mode = UYVY videoinfo 64 48 333333\n", PIXEL_FORMAT_UYVY, 1);
    const VideoFormat& current = m_capture.GetCurrentFormat();
    EXPECT_EQ(current.format, PIXEL_FORMAT_BGRA);
    EXPECT_EQ(current.GetFlip(), 1);
    EXPECT_EQ(current.size.cx, 64);
    EXPECT_EQ(current.size.cy, 48);
}

TEST_F(CaptureWithDecoders, MjpegWithTheDecoderSwitchOnArrivesDecoded) {
    const std::vector<Frame> frames =
        Stream(L"mode = MJPG videoinfo 64 48 333333\n", PIXEL_FORMAT_MJPEG, 3);
    EXPECT_NE(m_capture.GetSinkFeed(), VideoCapture::SinkFeed::kDevice);
    EXPECT_EQ(m_capture.SinkSubtype(), MEDIASUBTYPE_RGB32);
    ASSERT_FALSE(frames.empty());
    for (const Frame& frame : frames) {
        EXPECT_EQ(frame.size, 64 * 48 * 4);
        EXPECT_FALSE(frame.head[0] == 0xFF && frame.head[1] == 0xD8);  // no longer a JPEG image
    }
}

}  // namespace
