// The MJPEG decompressor's class as the stand-in registers it: created by CLSID_MjpegDec while
// installed, unknown once uninstalled, and in a graph the filter the capture library expects,
// turning the virtual camera's MJPG frames into RGB32 pictures of the camera's pattern.

#include <dshow.h>
#include <uuids.h>

#include <gtest/gtest.h>

#include <limits>
#include <string>

#include "DecoderFixture.h"
#include "GrabberSink.h"
#include "tests/VirtualCamera/FramePictures.h"
#include "tools/TestDecoders/TestDecodersSetup.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"

namespace DecoderTests {
namespace {

using VirtualCameraTests::JpegPictureCount;
using VirtualCameraTests::PictureDifference;
using VirtualCameraTests::PictureOfRgb32;
using VirtualCameraTests::ReferencePicture;
using VirtualCameraTests::RgbPicture;

constexpr LONG kWidth = 320;
constexpr LONG kRows = 240;
constexpr DWORD kDecoderContext = CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER;

class MjpegDecoderTest : public DecoderTest {
protected:
    void TearDown() override {
        // A test that uninstalled puts the stand-ins back for the tests after it.
        InstallOrFail();
        DecoderTest::TearDown();
    }
};

TEST_F(MjpegDecoderTest, ClassCreatesATransformFilterWithOneInputAndOneOutput) {
    ComPtr<IBaseFilter> decoder;
    ASSERT_EQ(CoCreateInstance(CLSID_MjpegDec, nullptr, kDecoderContext, IID_PPV_ARGS(&decoder)),
              S_OK);
    EXPECT_TRUE(PinOf(decoder.Get(), PINDIR_INPUT));
    EXPECT_TRUE(PinOf(decoder.Get(), PINDIR_OUTPUT));
    // The filter is the platform's AVI decompressor, and says so.
    CLSID clsid = GUID_NULL;
    EXPECT_EQ(decoder->GetClassID(&clsid), S_OK);
    EXPECT_TRUE(IsEqualCLSID(clsid, CLSID_AVIDec));
    EXPECT_EQ(ReferenceCount(decoder.Get()), 1u);
}

TEST_F(MjpegDecoderTest, ClassIsNotRegisteredOnceUninstalled) {
    std::wstring error;
    ASSERT_TRUE(TestDecoders::UninstallDecoders(&error)) << std::string(error.begin(), error.end());
    ComPtr<IBaseFilter> decoder;
    EXPECT_EQ(CoCreateInstance(CLSID_MjpegDec, nullptr, kDecoderContext, IID_PPV_ARGS(&decoder)),
              REGDB_E_CLASSNOTREG);
    EXPECT_FALSE(decoder);
    ASSERT_TRUE(TestDecoders::InstallDecoders(&error)) << std::string(error.begin(), error.end());
    EXPECT_EQ(CoCreateInstance(CLSID_MjpegDec, nullptr, kDecoderContext, IID_PPV_ARGS(&decoder)),
              S_OK);
}

TEST_F(MjpegDecoderTest, ClassObjectKeepsTheServerLoadedOnlyWhileItLives) {
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(
        CoGetClassObject(CLSID_MjpegDec, CLSCTX_INPROC_SERVER, nullptr, IID_PPV_ARGS(&factory)),
        S_OK);
    HMODULE server = GetModuleHandleW(L"TestMjpegDecoder.dll");
    ASSERT_NE(server, nullptr);
    const DllCanUnloadNowFunction canUnload = DllCanUnloadNowOf(server);
    ASSERT_NE(canUnload, nullptr);
    EXPECT_EQ(canUnload(), S_FALSE);
    EXPECT_EQ(factory->LockServer(TRUE), S_OK);
    ComPtr<IBaseFilter> decoder;
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_PPV_ARGS(&decoder)), S_OK);
    factory.Reset();
    // The lock alone keeps it; the filter is the platform's and does not.
    EXPECT_EQ(canUnload(), S_FALSE);
    ComPtr<IClassFactory> again;
    ASSERT_EQ(CoGetClassObject(CLSID_MjpegDec, CLSCTX_INPROC_SERVER, nullptr, IID_PPV_ARGS(&again)),
              S_OK);
    EXPECT_EQ(again->LockServer(FALSE), S_OK);
    again.Reset();
    EXPECT_EQ(canUnload(), S_OK);
    EXPECT_TRUE(decoder);
}

TEST_F(MjpegDecoderTest, ClassObjectRefusesOtherClassesAndAggregationForAnInterface) {
    ComPtr<IClassFactory> factory;
    ASSERT_EQ(
        CoGetClassObject(CLSID_MjpegDec, CLSCTX_INPROC_SERVER, nullptr, IID_PPV_ARGS(&factory)),
        S_OK);
    // An outer object may only ask for the inner IUnknown; the platform's filter says so.
    ComPtr<IUnknown> outer;
    ASSERT_EQ(
        CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&outer)),
        S_OK);
    ComPtr<IBaseFilter> decoder;
    EXPECT_EQ(factory->CreateInstance(outer.Get(), IID_PPV_ARGS(&decoder)), E_NOINTERFACE);
    EXPECT_FALSE(decoder);
}

class MjpegDecodingTest : public DecoderTest {};

// The phase of the camera's picture a decoded frame shows: the one it differs least from.
int ClosestPhase(const RgbPicture& picture, double* meanDifference) {
    int closest = -1;
    *meanDifference = std::numeric_limits<double>::max();
    for (uint32_t phase = 0; phase < JpegPictureCount(); ++phase) {
        const PictureDifference difference =
            ComparePictures(picture, ReferencePicture(MEDIASUBTYPE_MJPG, kWidth, kRows, phase));
        if (difference.mean < *meanDifference) {
            *meanDifference = difference.mean;
            closest = static_cast<int>(phase);
        }
    }
    return closest;
}

TEST_F(MjpegDecodingTest, CameraMjpgThroughTheDecoderReachesTheGrabberAsThePattern) {
    const std::wstring name = AddCamera(L"mode = MJPG videoinfo " + std::to_wstring(kWidth) + L" " +
                                        std::to_wstring(kRows) + L" 333333\n");
    ComPtr<IGraphBuilder> graph;
    ASSERT_EQ(
        CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&graph)),
        S_OK);
    ComPtr<IBaseFilter> camera = BindFilterOrFail(name);
    ASSERT_TRUE(camera);
    ASSERT_EQ(graph->AddFilter(camera.Get(), L"Camera"), S_OK);
    GrabberSink grabber;
    ASSERT_EQ(grabber.Create(graph.Get()), S_OK);
    ComPtr<IPin> capturePin = PinOf(camera.Get(), PINDIR_OUTPUT);
    ComPtr<IBaseFilter> decoder;
    ASSERT_NO_FATAL_FAILURE(ConnectThroughDecoderOrFail(
        graph.Get(), capturePin.Get(), CLSID_MjpegDec, grabber.InputPin().Get(), &decoder));
    const VirtualCamera::MediaType type = grabber.ConnectedType();
    EXPECT_TRUE(IsEqualGUID(type->subtype, MEDIASUBTYPE_RGB32));
    const BITMAPINFOHEADER* header = VirtualCamera::BitmapHeaderOf(*type);
    ASSERT_NE(header, nullptr);
    EXPECT_EQ(header->biWidth, kWidth);
    EXPECT_EQ(header->biHeight, kRows);

    ComPtr<IMediaControl> control;
    ASSERT_EQ(graph.As(&control), S_OK);
    ASSERT_TRUE(SUCCEEDED(control->Run()));
    const bool arrived = grabber.WaitForFrames(4, kStateDeadlineMs);
    StopGraphAndEveryFilter(graph.Get());
    ASSERT_TRUE(arrived);
    const auto frames = grabber.Frames();
    // Wine's decompressor passes no media times on, which carry the camera's counter: the
    // phases of the pattern, which the counter picks, tell the frames apart instead.
    int previousPhase = -1;
    for (size_t i = 0; i < frames.size(); ++i) {
        ASSERT_EQ(frames[i].bytes.size(), static_cast<size_t>(kWidth * kRows * 4)) << i;
        const RgbPicture picture = PictureOfRgb32(frames[i].bytes.data(), frames[i].bytes.size(),
                                                  kWidth, header->biHeight);
        double mean = 0.0;
        const int phase = ClosestPhase(picture, &mean);
        // The decoded picture is the camera's, within what JPEG loses (the next phase of the
        // pattern differs by some 18 on average).
        EXPECT_LE(mean, 3.0) << i;
        EXPECT_LE(
            ComparePictures(picture, ReferencePicture(MEDIASUBTYPE_MJPG, kWidth, kRows, phase))
                .largest,
            16)
            << i;
        if (previousPhase >= 0) {
            EXPECT_EQ(phase, (previousPhase + 1) % static_cast<int>(JpegPictureCount())) << i;
        }
        previousPhase = phase;
    }
    control.Reset();
    capturePin.Reset();
    decoder.Reset();
    graph.Reset();
    EXPECT_EQ(ReferenceCount(camera.Get()), 1u);
    EXPECT_EQ(ReferenceCount(grabber.Callback()), 2u);  // Ours and the grabber's.
}

}  // namespace
}  // namespace DecoderTests
