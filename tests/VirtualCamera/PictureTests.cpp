// The camera's picture settings (IVirtualCameraPicture) without a window: the page that the
// filter names, the ranges it keeps, and changes that reach a running stream. The page itself is
// tested with a display, in tests/DShowCapture/PicturePageTests.cpp.

#include <dshow.h>
#include <ocidl.h>

#include <set>
#include <vector>

#include "VirtualCameraFixture.h"
#include "tools/VirtualCamera/Config/PictureSettings.h"

namespace VirtualCameraTests {
namespace {

using VirtualCamera::IVirtualCameraPicture;
using VirtualCamera::PictureSettings;
using VirtualCamera::TestPattern;

class VirtualCameraPicture : public VirtualCameraTest {
protected:
    static ComPtr<IVirtualCameraPicture> PictureOf(IBaseFilter* camera) {
        ComPtr<IVirtualCameraPicture> picture;
        EXPECT_EQ(camera->QueryInterface(VirtualCamera::IID_IVirtualCameraPicture,
                                         reinterpret_cast<void**>(picture.GetAddressOf())),
                  S_OK);
        return picture;
    }

    // Sets `settings` on the running camera and gives a frame painted after that.
    static ReceivedFrame FrameAfter(CaptureGraph& graph, const PictureSettings& settings) {
        const size_t before = graph.sink->FrameCount();
        EXPECT_EQ(PictureOf(graph.camera.Get())->SetPicture(&settings), S_OK);
        // One frame may have been painted before the change and still be on its way.
        EXPECT_TRUE(graph.sink->WaitForFrames(before + 3, kStateDeadlineMs));
        return graph.sink->Frames().back();
    }
};

TEST_F(VirtualCameraPicture, TheFilterNamesItsPicturePage) {
    ComPtr<IBaseFilter> camera = BindFilterOrFail(AddDevice(L"mode = YUY2 videoinfo 64 48 0\n"));
    ASSERT_TRUE(camera);
    ComPtr<ISpecifyPropertyPages> specify;
    ASSERT_EQ(camera.As(&specify), S_OK);
    CAUUID pages = {};
    ASSERT_EQ(specify->GetPages(&pages), S_OK);
    ASSERT_EQ(pages.cElems, 1u);
    EXPECT_TRUE(IsEqualGUID(pages.pElems[0], VirtualCamera::CLSID_VirtualCameraPicturePage));
    CoTaskMemFree(pages.pElems);
    EXPECT_EQ(specify->GetPages(nullptr), E_POINTER);
}

TEST_F(VirtualCameraPicture, StartsWithTheUsualPictureAndRefusesValuesOutOfRange) {
    ComPtr<IBaseFilter> camera = BindFilterOrFail(AddDevice(L"mode = YUY2 videoinfo 64 48 0\n"));
    ASSERT_TRUE(camera);
    ComPtr<IVirtualCameraPicture> picture = PictureOf(camera.Get());
    ASSERT_TRUE(picture);
    PictureSettings settings;
    settings.brightness = 7;
    ASSERT_EQ(picture->GetPicture(&settings), S_OK);
    EXPECT_EQ(settings.pattern, TestPattern::kMovingBars);
    EXPECT_EQ(settings.brightness, 128);
    EXPECT_EQ(settings.frameCounter, TRUE);

    PictureSettings tooBright;
    tooBright.brightness = 256;
    EXPECT_EQ(picture->SetPicture(&tooBright), E_INVALIDARG);
    PictureSettings noSuchPattern;
    noSuchPattern.pattern = static_cast<TestPattern>(3);
    EXPECT_EQ(picture->SetPicture(&noSuchPattern), E_INVALIDARG);
    EXPECT_EQ(picture->SetPicture(nullptr), E_POINTER);
    EXPECT_EQ(picture->GetPicture(nullptr), E_POINTER);
    ASSERT_EQ(picture->GetPicture(&settings), S_OK);
    EXPECT_EQ(settings, PictureSettings());
}

TEST_F(VirtualCameraPicture, AFlatFieldWithoutCounterReachesTheRunningStream) {
    CaptureGraph graph;
    BuildGraph(AddDevice(L"mode = YUY2 videoinfo 64 48 333333\n"), &graph);
    graph.sink->KeepBytes(true);
    ASSERT_EQ(graph.control->Run(), S_OK);
    ASSERT_TRUE(graph.sink->WaitForFrames(2, kStateDeadlineMs));
    PictureSettings flat;
    flat.pattern = TestPattern::kFlatField;
    flat.brightness = 50;
    flat.frameCounter = FALSE;

    const ReceivedFrame frame = FrameAfter(graph, flat);
    graph.control->Stop();

    ASSERT_EQ(frame.bytes.size(), 64u * 48u * 2u);
    std::set<BYTE> luma;
    for (size_t i = 0; i < frame.bytes.size(); i += 2) luma.insert(frame.bytes[i]);
    EXPECT_EQ(luma, std::set<BYTE>{50});
}

TEST_F(VirtualCameraPicture, BrightnessKeepsLumaInTheVideoRange) {
    CaptureGraph graph;
    BuildGraph(AddDevice(L"mode = YUY2 videoinfo 64 48 333333\n"), &graph);
    graph.sink->KeepBytes(true);
    ASSERT_EQ(graph.control->Run(), S_OK);
    ASSERT_TRUE(graph.sink->WaitForFrames(2, kStateDeadlineMs));
    PictureSettings bright;
    bright.pattern = TestPattern::kFlatField;
    bright.brightness = 255;
    bright.frameCounter = FALSE;

    const ReceivedFrame frame = FrameAfter(graph, bright);
    graph.control->Stop();

    ASSERT_FALSE(frame.bytes.empty());
    EXPECT_EQ(frame.bytes[0], 235);
    EXPECT_EQ(frame.bytes[frame.bytes.size() - 2], 235);
}

TEST_F(VirtualCameraPicture, AnMjpegFrameWithoutCounterIsStillAJpeg) {
    CaptureGraph graph;
    BuildGraph(AddDevice(L"mode = MJPG videoinfo 64 48 333333\n"), &graph);
    ASSERT_EQ(graph.control->Run(), S_OK);
    ASSERT_TRUE(graph.sink->WaitForFrames(2, kStateDeadlineMs));
    EXPECT_TRUE(graph.sink->Frames().front().counterDecoded);
    PictureSettings noCounter;
    noCounter.pattern = TestPattern::kCheckerboard;
    noCounter.frameCounter = FALSE;

    const ReceivedFrame frame = FrameAfter(graph, noCounter);
    graph.control->Stop();

    EXPECT_TRUE(frame.validJpeg);
    EXPECT_FALSE(frame.counterDecoded);
}

}  // namespace
}  // namespace VirtualCameraTests
