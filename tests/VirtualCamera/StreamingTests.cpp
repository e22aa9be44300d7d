// Frames from a running graph: order, time stamps, sizes and pixel formats; state changes. How
// many frames arrive in a second depends on the machine as much as on the camera, so tests wait
// for a number of frames and check what the camera controls: counters and stamps.

#include <dshow.h>
#include <vfwmsgs.h>

#include "VirtualCameraFixture.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"

namespace VirtualCameraTests {
namespace {

using VirtualCamera::ImageSize;

class VirtualCameraStreamingTest : public VirtualCameraTest {
protected:
    // Counters go up one by one and stream times only forward.
    static void ExpectFramesInOrder(const std::vector<ReceivedFrame>& frames) {
        ASSERT_FALSE(frames.empty());
        for (size_t i = 0; i < frames.size(); ++i) {
            EXPECT_TRUE(frames[i].counterDecoded) << i;
            EXPECT_TRUE(frames[i].hasTime) << i;
            EXPECT_TRUE(frames[i].syncPoint) << i;
            if (i == 0) continue;
            EXPECT_EQ(frames[i].counter, frames[i - 1].counter + 1) << i;
            EXPECT_GT(frames[i].start, frames[i - 1].start) << i;
            EXPECT_FALSE(frames[i].discontinuity) << i;
        }
    }

    // Every frame lasts the mode's frame time in its stream times.
    static void ExpectFrameTime(const std::vector<ReceivedFrame>& frames,
                                REFERENCE_TIME frameTime) {
        for (size_t i = 0; i < frames.size(); ++i) {
            EXPECT_EQ(frames[i].stop - frames[i].start, frameTime) << i;
        }
    }
};

// A second's worth of frames at 50 frames a second, however long they take to arrive.
constexpr size_t kFramesOfASecondAtFifty = 50;
constexpr REFERENCE_TIME kFiftyFramesASecond = 200000;
constexpr REFERENCE_TIME kThirtyFramesASecond = 333333;
constexpr REFERENCE_TIME kTenFramesASecond = 1000000;

TEST_F(VirtualCameraStreamingTest, DeliversFramesInOrderStampedWithTheModesFrameTime) {
    const std::wstring name = AddDevice(L"mode = YUY2 videoinfo 320 240 200000\n");
    CaptureGraph graph;
    BuildGraph(name, &graph);
    EXPECT_TRUE(graph.sink->NotifiedAllocator());
    ASSERT_EQ(graph.control->Run(), S_OK);
    ASSERT_TRUE(graph.sink->WaitForFrames(kFramesOfASecondAtFifty, kStateDeadlineMs));
    EXPECT_EQ(graph.control->Stop(), S_OK);
    const auto frames = graph.sink->Frames();
    ASSERT_GE(frames.size(), kFramesOfASecondAtFifty);
    EXPECT_TRUE(frames[0].discontinuity);
    ExpectFramesInOrder(frames);
    ExpectFrameTime(frames, kFiftyFramesASecond);
    for (const auto& frame : frames) {
        EXPECT_EQ(frame.actualLength, 320 * 240 * 2);
    }
}

TEST_F(VirtualCameraStreamingTest, ZeroFrameTimeMeansThirtyFramesASecond) {
    const std::wstring name = AddDevice(L"mode = RGB32 none 64 48 0\n");
    CaptureGraph graph;
    BuildGraph(name, &graph);
    ASSERT_EQ(graph.control->Run(), S_OK);
    ASSERT_TRUE(graph.sink->WaitForFrames(10, kStateDeadlineMs));
    graph.control->Stop();
    const auto frames = graph.sink->Frames();
    ExpectFramesInOrder(frames);
    ExpectFrameTime(frames, kThirtyFramesASecond);
    EXPECT_EQ(frames.at(0).actualLength, 64 * 48 * 4);
}

class VirtualCameraPixelFormatTest : public VirtualCameraStreamingTest,
                                     public ::testing::WithParamInterface<const wchar_t*> {};

TEST_P(VirtualCameraPixelFormatTest, FramesHaveTheFormatsSizeAndCounter) {
    const std::wstring subtypeName = GetParam();
    const std::wstring name = AddDevice(L"mode = " + subtypeName + L" videoinfo 64 48 100000\n");
    CaptureGraph graph;
    BuildGraph(name, &graph);
    GUID subtype;
    ASSERT_TRUE(VirtualCamera::SubtypeFromName(subtypeName, &subtype));
    EXPECT_TRUE(IsEqualGUID(graph.sink->ConnectedType()->subtype, subtype));
    ASSERT_EQ(graph.control->Run(), S_OK);
    ASSERT_TRUE(graph.sink->WaitForFrames(4, kStateDeadlineMs));
    graph.control->Stop();
    const auto frames = graph.sink->Frames();
    ExpectFramesInOrder(frames);
    for (const auto& frame : frames) {
        EXPECT_EQ(static_cast<DWORD>(frame.actualLength), ImageSize(subtype, 64, 48));
    }
}

INSTANTIATE_TEST_SUITE_P(Uncompressed, VirtualCameraPixelFormatTest,
                         ::testing::Values(L"YUY2", L"UYVY", L"I420", L"IYUV", L"NV12", L"YV12",
                                           L"RGB24", L"RGB32", L"ARGB32", L"RGB565"));

TEST_F(VirtualCameraStreamingTest, MjpgFramesAreJpegImagesWithCounters) {
    const std::wstring name = AddDevice(L"mode = MJPG videoinfo 320 240 333333\n");
    CaptureGraph graph;
    BuildGraph(name, &graph);
    ASSERT_EQ(graph.control->Run(), S_OK);
    ASSERT_TRUE(graph.sink->WaitForFrames(5, kStateDeadlineMs));
    graph.control->Stop();
    const auto frames = graph.sink->Frames();
    ExpectFramesInOrder(frames);
    for (const auto& frame : frames) {
        EXPECT_TRUE(frame.validJpeg);
        EXPECT_GT(frame.actualLength, 100);
        EXPECT_LE(frame.actualLength, frame.bufferSize);
    }
}

TEST_F(VirtualCameraStreamingTest, PausedLiveSourceCannotCueAndSendsNothing) {
    const std::wstring name = AddDevice(L"mode = YUY2 videoinfo 64 48 200000\n");
    CaptureGraph graph;
    BuildGraph(name, &graph);
    EXPECT_TRUE(SUCCEEDED(graph.control->Pause()));
    OAFilterState state = State_Stopped;
    EXPECT_EQ(graph.control->GetState(1000, &state), VFW_S_CANT_CUE);
    EXPECT_EQ(state, State_Paused);
    FILTER_STATE cameraState = State_Stopped;
    EXPECT_EQ(graph.camera->GetState(0, &cameraState), VFW_S_CANT_CUE);
    Sleep(200);
    EXPECT_EQ(graph.sink->FrameCount(), 0u);
    ASSERT_EQ(graph.control->Run(), S_OK);
    ASSERT_TRUE(graph.sink->WaitForFrames(3, kStateDeadlineMs));
    EXPECT_TRUE(SUCCEEDED(graph.control->Pause()));
    const size_t paused = graph.sink->FrameCount();
    Sleep(200);
    EXPECT_EQ(graph.sink->FrameCount(), paused);
    EXPECT_EQ(graph.control->Stop(), S_OK);
}

TEST_F(VirtualCameraStreamingTest, StateChangesInAnyOrderLeaveNothingBehind) {
    const std::wstring name = AddDevice(L"mode = YUY2 videoinfo 64 48 100000\n");
    {
        CaptureGraph graph;
        BuildGraph(name, &graph);
        IMediaControl* control = graph.control.Get();
        EXPECT_EQ(control->Run(), S_OK);
        EXPECT_TRUE(graph.sink->WaitForFrames(2, kStateDeadlineMs));
        EXPECT_TRUE(SUCCEEDED(control->Pause()));
        EXPECT_EQ(control->Run(), S_OK);
        EXPECT_EQ(control->Stop(), S_OK);
        EXPECT_EQ(control->Stop(), S_OK);
        EXPECT_TRUE(SUCCEEDED(control->Pause()));
        EXPECT_EQ(control->Stop(), S_OK);
        const size_t before = graph.sink->FrameCount();
        EXPECT_EQ(control->Run(), S_OK);
        EXPECT_TRUE(graph.sink->WaitForFrames(before + 2, kStateDeadlineMs));
        EXPECT_EQ(control->Stop(), S_OK);
        const size_t stopped = graph.sink->FrameCount();
        Sleep(200);
        EXPECT_EQ(graph.sink->FrameCount(), stopped);
        // Counters keep going up across restarts.
        const auto frames = graph.sink->Frames();
        for (size_t i = 1; i < frames.size(); ++i)
            EXPECT_GT(frames[i].counter, frames[i - 1].counter);
    }
    // With graph and filters gone, the DLL holds no object: no thread or reference survived.
    HMODULE module = GetModuleHandleW(L"VirtualCamera.dll");
    ASSERT_NE(module, nullptr);
    using CanUnload = HRESULT(STDAPICALLTYPE*)();
    const auto canUnload = reinterpret_cast<CanUnload>(
        reinterpret_cast<void*>(GetProcAddress(module, "DllCanUnloadNow")));
    ASSERT_NE(canUnload, nullptr);
    EXPECT_EQ(canUnload(), S_OK);
}

TEST_F(VirtualCameraStreamingTest, SetFormatReconnectsWithTheChosenMode) {
    const std::wstring name =
        AddDevice(L"mode = YUY2 videoinfo 64 48 100000\nmode = RGB24 videoinfo 32 24 100000\n");
    CaptureGraph graph;
    BuildGraph(name, &graph);
    EXPECT_TRUE(IsEqualGUID(graph.sink->ConnectedType()->subtype, MEDIASUBTYPE_YUY2));
    ComPtr<IPin> pin = OutputPin(graph.camera.Get());
    ComPtr<IAMStreamConfig> config;
    ASSERT_EQ(pin.As(&config), S_OK);
    AM_MEDIA_TYPE* type = nullptr;
    VIDEO_STREAM_CONFIG_CAPS caps = {};
    ASSERT_EQ(config->GetStreamCaps(1, &type, reinterpret_cast<BYTE*>(&caps)), S_OK);
    EXPECT_EQ(config->SetFormat(type), S_OK);
    VirtualCamera::DeleteMediaType(type);
    EXPECT_TRUE(IsEqualGUID(graph.sink->ConnectedType()->subtype, MEDIASUBTYPE_RGB24));
    ASSERT_EQ(graph.control->Run(), S_OK);
    ASSERT_TRUE(graph.sink->WaitForFrames(2, kStateDeadlineMs));
    graph.control->Stop();
    EXPECT_EQ(static_cast<DWORD>(graph.sink->Frames().at(0).actualLength),
              ImageSize(MEDIASUBTYPE_RGB24, 32, 24));
}

TEST_F(VirtualCameraStreamingTest, RunsIntoTheNullRendererWithItsAllocator) {
    const std::wstring name = AddDevice(L"mode = I420 videoinfo 64 48 100000\n");
    ComPtr<IGraphBuilder> graph;
    ASSERT_EQ(
        CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&graph)),
        S_OK);
    ComPtr<IBaseFilter> renderer;
    ASSERT_EQ(CoCreateInstance(kNullRendererClsid, nullptr, CLSCTX_INPROC_SERVER,
                               IID_PPV_ARGS(&renderer)),
              S_OK);
    ComPtr<IBaseFilter> camera = BindFilterOrFail(name);
    ASSERT_TRUE(camera);
    ASSERT_EQ(graph->AddFilter(camera.Get(), L"Camera"), S_OK);
    ASSERT_EQ(graph->AddFilter(renderer.Get(), L"Null"), S_OK);
    ComPtr<IPin> out = OutputPin(camera.Get());
    ComPtr<IPin> in = OutputPin(renderer.Get());
    ASSERT_EQ(graph->ConnectDirect(out.Get(), in.Get(), nullptr), S_OK);
    ComPtr<IMediaControl> control;
    ASSERT_EQ(graph.As(&control), S_OK);
    // S_FALSE: the renderer finishes its transition once the first sample arrives, which
    // GetState waits for.
    EXPECT_TRUE(SUCCEEDED(control->Run()));
    OAFilterState state = State_Stopped;
    EXPECT_EQ(control->GetState(kStateDeadlineMs, &state), S_OK);
    EXPECT_EQ(state, State_Running);
    EXPECT_EQ(control->Stop(), S_OK);
    graph->RemoveFilter(camera.Get());
    graph->RemoveFilter(renderer.Get());
}

TEST_F(VirtualCameraStreamingTest, SeveralDevicesStreamIndependently) {
    const std::wstring fast = AddDevice(L"mode = YUY2 videoinfo 160 120 200000\n");
    const std::wstring slow = AddDevice(L"mode = RGB24 videoinfo 64 48 1000000\n");
    CaptureGraph fastGraph;
    CaptureGraph slowGraph;
    BuildGraph(fast, &fastGraph);
    BuildGraph(slow, &slowGraph);
    ASSERT_EQ(fastGraph.control->Run(), S_OK);
    ASSERT_EQ(slowGraph.control->Run(), S_OK);
    ASSERT_TRUE(fastGraph.sink->WaitForFrames(10, kStateDeadlineMs));
    ASSERT_TRUE(slowGraph.sink->WaitForFrames(3, kStateDeadlineMs));
    EXPECT_EQ(slowGraph.control->Stop(), S_OK);
    const size_t slowStopped = slowGraph.sink->FrameCount();
    // The fast camera goes on alone: it sends frames while the stopped one sends none.
    EXPECT_TRUE(fastGraph.sink->WaitForFrames(fastGraph.sink->FrameCount() + 3, kStateDeadlineMs));
    EXPECT_EQ(slowGraph.sink->FrameCount(), slowStopped);
    EXPECT_EQ(fastGraph.control->Stop(), S_OK);
    const auto fastFrames = fastGraph.sink->Frames();
    const auto slowFrames = slowGraph.sink->Frames();
    ExpectFramesInOrder(fastFrames);
    ExpectFramesInOrder(slowFrames);
    ExpectFrameTime(fastFrames, kFiftyFramesASecond);
    ExpectFrameTime(slowFrames, kTenFramesASecond);
    EXPECT_EQ(fastFrames.at(0).actualLength, 160 * 120 * 2);
    EXPECT_EQ(static_cast<DWORD>(slowFrames.at(0).actualLength),
              ImageSize(MEDIASUBTYPE_RGB24, 64, 48));
}

}  // namespace
}  // namespace VirtualCameraTests
