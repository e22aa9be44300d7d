// The platform's AVI decompressor with the test codec installed, in real graphs: the virtual
// camera's YUV frames reach an RGB32 sample grabber as the camera's picture, converted.

#include <dshow.h>
#include <dvdmedia.h>
#include <uuids.h>

#include <gtest/gtest.h>

#include <string>

#include "DecoderFixture.h"
#include "GrabberSink.h"
#include "tests/VirtualCamera/FramePictures.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"

namespace DecoderTests {
namespace {

using VirtualCameraTests::PictureDifference;
using VirtualCameraTests::PictureOfRgb32;
using VirtualCameraTests::ReferencePicture;
using VirtualCameraTests::RgbPicture;

constexpr LONG kWidth = 96;
constexpr LONG kRows = 64;
constexpr size_t kFramesToCheck = 4;

// Whether DllCanUnloadNow of a loaded module says S_OK: none of its objects is alive.
HRESULT ModuleCanUnload(const wchar_t* module) {
    HMODULE handle = GetModuleHandleW(module);
    if (!handle) return S_OK;
    const DllCanUnloadNowFunction canUnload = DllCanUnloadNowOf(handle);
    return canUnload ? canUnload() : E_NOINTERFACE;
}

// The codec instances still open; none when the system has unloaded the codec.
LONG CodecInstancesLeftOpen() {
    const LONG open = CodecInstancesOpen();
    return open == kCodecNotLoaded ? 0 : open;
}

class DecodingGraphTest : public DecoderTest, public ::testing::WithParamInterface<const wchar_t*> {
protected:
    void SetUp() override {
        DecoderTest::SetUp();
        ASSERT_TRUE(VirtualCamera::SubtypeFromName(GetParam(), &m_subtype));
        const std::wstring name =
            AddCamera(L"mode = " + std::wstring(GetParam()) + L" videoinfo " +
                      std::to_wstring(kWidth) + L" " + std::to_wstring(kRows) + L" 333333\n");
        ASSERT_EQ(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER,
                                   IID_PPV_ARGS(&m_graph)),
                  S_OK);
        m_camera = BindFilterOrFail(name);
        ASSERT_TRUE(m_camera);
        ASSERT_EQ(m_graph->AddFilter(m_camera.Get(), L"Camera"), S_OK);
        ASSERT_EQ(m_grabber.Create(m_graph.Get()), S_OK);
        m_capturePin = PinOf(m_camera.Get(), PINDIR_OUTPUT);
        ASSERT_TRUE(m_capturePin);
    }

    void TearDown() override {
        TakeGraphDown();
        DecoderTest::TearDown();
    }

    void TakeGraphDown() {
        if (!m_graph) return;
        StopGraphAndEveryFilter(m_graph.Get());
        m_capturePin.Reset();
        m_graph.Reset();
    }

    // Runs the graph until the grabber has its frames, then checks each against the camera's
    // picture of the frame's counter.
    void RunAndCheckFrames() {
        const VirtualCamera::MediaType type = m_grabber.ConnectedType();
        ASSERT_TRUE(IsEqualGUID(type->subtype, MEDIASUBTYPE_RGB32));
        const BITMAPINFOHEADER* header = VirtualCamera::BitmapHeaderOf(*type);
        ASSERT_NE(header, nullptr);
        EXPECT_EQ(header->biWidth, kWidth);
        // A positive height: the decoder delivers bottom-up DIBs.
        EXPECT_EQ(header->biHeight, kRows);
        ComPtr<IMediaControl> control;
        ASSERT_EQ(m_graph.As(&control), S_OK);
        const HRESULT ran = control->Run();
        ASSERT_TRUE(SUCCEEDED(ran)) << std::hex << ran;
        ASSERT_TRUE(m_grabber.WaitForFrames(kFramesToCheck, kStateDeadlineMs));
        ASSERT_EQ(control->Stop(), S_OK);
        const auto frames = m_grabber.Frames();
        uint32_t previous = 0;
        for (size_t i = 0; i < frames.size(); ++i) {
            ASSERT_EQ(frames[i].bytes.size(), static_cast<size_t>(kWidth * kRows * 4)) << i;
            const RgbPicture picture = PictureOfRgb32(
                frames[i].bytes.data(), frames[i].bytes.size(), kWidth, header->biHeight);
            const uint32_t counter = CounterOfPicture(picture);
            if (i > 0) {
                EXPECT_EQ(counter, previous + 1) << i;
            }
            previous = counter;
            const PictureDifference difference =
                ComparePictures(picture, ReferencePicture(m_subtype, kWidth, kRows, counter));
            EXPECT_LE(difference.largest, 2) << "frame " << i << " " << difference.where;
        }
    }

    // After the graph is gone: nothing of the camera or the codec is left alive or running.
    void ExpectNothingLeft() {
        TakeGraphDown();
        EXPECT_EQ(ReferenceCount(m_camera.Get()), 1u);
        m_camera.Reset();
        EXPECT_EQ(ModuleCanUnload(L"VirtualCamera.dll"), S_OK);
        EXPECT_EQ(CodecInstancesLeftOpen(), 0);
        EXPECT_EQ(ReferenceCount(m_grabber.Callback()), 2u);  // Ours and the grabber's.
    }

    GUID m_subtype = GUID_NULL;
    ComPtr<IGraphBuilder> m_graph;
    ComPtr<IBaseFilter> m_camera;
    ComPtr<IPin> m_capturePin;
    GrabberSink m_grabber;
};

TEST_P(DecodingGraphTest, GraphBuilderInsertsTheAviDecompressorThatDecodesTheCamerasPicture) {
    ASSERT_EQ(m_graph->Connect(m_capturePin.Get(), m_grabber.InputPin().Get()), S_OK);
    EXPECT_TRUE(FindFilterOfClass(m_graph.Get(), CLSID_AVIDec));
    RunAndCheckFrames();
    ExpectNothingLeft();
}

TEST_P(DecodingGraphTest, AviDecompressorConnectedByHandDecodesTheCamerasPicture) {
    // The way the capture library inserts it: the capture pin to the decoder with the camera's
    // own type, then the decoder to the sink with whatever type the two agree on.
    ComPtr<IBaseFilter> decoder;
    ASSERT_NO_FATAL_FAILURE(ConnectThroughDecoderOrFail(
        m_graph.Get(), m_capturePin.Get(), CLSID_AVIDec, m_grabber.InputPin().Get(), &decoder));
    RunAndCheckFrames();
    decoder.Reset();
    ExpectNothingLeft();
}

INSTANTIATE_TEST_SUITE_P(Yuv, DecodingGraphTest,
                         ::testing::Values(L"YUY2", L"UYVY", L"I420", L"IYUV", L"YV12", L"NV12"),
                         [](const ::testing::TestParamInfo<const wchar_t*>& info) {
                             const std::wstring name = info.param;
                             return std::string(name.begin(), name.end());
                         });

}  // namespace
}  // namespace DecoderTests
