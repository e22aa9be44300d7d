// VideoCapture's graph assembly and teardown with virtual cameras: what Initialize builds, what
// Uninitialize leaves (records, references, a stopped graph), and a second life of one object.

#include <windows.h>

#include <dshow.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "CaptureTestSupport.h"
#include "DShowCapture/MediaTypes.h"

using namespace DShow;
using namespace CaptureTests;

namespace {

const wchar_t kYuy2Modes[] = L"mode = YUY2 videoinfo 64 48 333333\n";
const VideoFormat kYuy2At64(TinySize(64, 48), 30.0f, PIXEL_FORMAT_YUY2);

using CaptureAssembly = CaptureTest;

TEST_F(CaptureAssembly, ConstructionWritesNoRecordAndHoldsNoFormat) {
    TestSupport::LogCapture log;
    {
        TestableCapture capture;
        EXPECT_TRUE(log.Messages().empty());
        EXPECT_EQ(capture.GetCurrentFormat().format, PIXEL_FORMAT_UNKNOWN);
        EXPECT_EQ(capture.GetCurrentFormat().size.cx, 0);
        EXPECT_EQ(capture.Graph(), nullptr);
    }
}

TEST_F(CaptureAssembly, AnUnknownDeviceFailsWithoutARecord) {
    // Another device keeps the category from being empty, which the enumeration would report.
    AddCamera(kYuy2Modes);
    TestSupport::LogCapture log;
    TestableCapture capture;
    EXPECT_FALSE(capture.Initialize(VideoDevice(std::wstring(L"x"), UniqueName(L"-missing"))));
    EXPECT_EQ(log.Messages(), std::vector<std::string>());
}

TEST_F(CaptureAssembly, UninitializeOfANeverInitializedObjectWritesItsRecord) {
    TestSupport::LogCapture log;
    TestableCapture capture;
    capture.Uninitialize();
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"[VideoCapture] Uninitialize"});
}

TEST_F(CaptureAssembly, UninitializeTwiceWritesTheRecordTwice) {
    TestSupport::LogCapture log;
    TestableCapture capture;
    capture.Uninitialize();
    capture.Uninitialize();
    EXPECT_EQ(log.Messages(), (std::vector<std::string>{"[VideoCapture] Uninitialize",
                                                        "[VideoCapture] Uninitialize"}));
}

TEST_F(CaptureAssembly, TheDestructorWritesTheUninitializeRecord) {
    TestSupport::LogCapture log;
    { TestableCapture capture; }
    EXPECT_EQ(log.Messages(), std::vector<std::string>{"[VideoCapture] Uninitialize"});
}

TEST_F(CaptureAssembly, InitializeBuildsTwoUnconnectedFiltersWithOnlyTheSinkNamed) {
    const VideoDevice device = AddCamera(kYuy2Modes);
    TestSupport::LogCapture log;
    TestableCapture capture;
    ASSERT_TRUE(capture.Initialize(device));
    EXPECT_TRUE(log.Messages().empty());
    const std::vector<ComPtr<IBaseFilter>> filters = capture.Filters();
    ASSERT_EQ(filters.size(), 2u);
    ComPtr<IBaseFilter> sink = capture.Sink();
    ASSERT_TRUE(sink);
    int named = 0;
    for (const ComPtr<IBaseFilter>& filter : filters) {
        FILTER_INFO info = {};
        ASSERT_EQ(filter->QueryFilterInfo(&info), S_OK);
        if (info.pGraph != nullptr) {
            info.pGraph->Release();
        }
        if (std::wstring(info.achName) == L"Tiny Capture Filter") {
            ++named;
            EXPECT_EQ(filter.Get(), sink.Get());
        } else {
            // Added without a name: it bears no name of ours nor its device's.
            EXPECT_NE(std::wstring(info.achName), L"Capture Test Camera");
        }
    }
    EXPECT_EQ(named, 1);
    EXPECT_FALSE(capture.SinkPeer());
    EXPECT_EQ(capture.GetCurrentFormat().format, PIXEL_FORMAT_UNKNOWN);
}

TEST_F(CaptureAssembly, AFailedInitializeLeavesTheBuilderTiedToTheGraphUntilUninitializeLetsItGo) {
    TestableCapture capture;
    ASSERT_FALSE(capture.Initialize(VideoDevice(std::wstring(L"x"), UniqueName(L"-missing"))));
    ComPtr<ICaptureGraphBuilder2> builder = capture.Builder();
    ASSERT_TRUE(builder);
    ComPtr<IGraphBuilder> tied;
    ASSERT_EQ(builder->GetFiltergraph(tied.GetAddressOf()), S_OK);
    EXPECT_EQ(tied.Get(), capture.Graph());
    tied.Reset();
    capture.Uninitialize();
    EXPECT_EQ(capture.Builder(), nullptr);
    EXPECT_EQ(CountOf(builder.Get()), 1u);
    // Wine's builder refuses to be untied from a graph (E_UNEXPECTED) and keeps it; Uninitialize
    // ignores that result, and releasing the builder frees the graph with it.
}

TEST_F(CaptureAssembly, AfterUninitializeNoReferenceOnTheSinkOrTheDeviceIsLeft) {
    const VideoDevice device = AddCamera(kYuy2Modes);
    TestableCapture capture;
    ASSERT_TRUE(capture.Initialize(device));
    ASSERT_TRUE(capture.Allocate(kYuy2At64));
    ASSERT_TRUE(capture.Run());
    ASSERT_TRUE(capture.WaitForDeliveries(2));
    IBaseFilter* sink = capture.Sink().Detach();
    ASSERT_NE(sink, nullptr);
    IBaseFilter* camera = nullptr;
    for (const ComPtr<IBaseFilter>& filter : capture.Filters()) {
        if (filter.Get() != sink) {
            camera = filter.Get();
            camera->AddRef();
        }
    }
    ASSERT_NE(camera, nullptr);
    capture.Uninitialize();
    // Ours are the only references left: the last Release destroys each.
    EXPECT_EQ(sink->Release(), 0u);
    EXPECT_EQ(camera->Release(), 0u);
}

TEST_F(CaptureAssembly, UninitializeStopsARunningGraph) {
    const VideoDevice device = AddCamera(kYuy2Modes);
    TestableCapture capture;
    ASSERT_TRUE(capture.Initialize(device));
    ASSERT_TRUE(capture.Allocate(kYuy2At64));
    ASSERT_TRUE(capture.Run());
    ASSERT_TRUE(capture.WaitForDeliveries(2));
    ComPtr<IMediaControl> control = capture.MediaControl();
    capture.Uninitialize();
    OAFilterState state = State_Running;
    ASSERT_TRUE(SUCCEEDED(control->GetState(0, &state)));
    EXPECT_EQ(state, State_Stopped);
}

TEST_F(CaptureAssembly, ASecondInitializeKeepsTheMjpegSwitchAndTheCallback) {
    const VideoDevice device = AddCamera(L"mode = MJPG videoinfo 64 48 333333\n");
    FrameLog frames(MEDIASUBTYPE_MJPG);
    TestableCapture capture;
    capture.EnableMjpegDec(FALSE);
    capture.SetCallback(frames.Callback());
    ASSERT_TRUE(capture.Initialize(device));
    capture.Uninitialize();
    ASSERT_TRUE(capture.Initialize(device));
    // Without the switch in force the sink would refuse MJPEG and ask for a decoder.
    ASSERT_TRUE(capture.Allocate(VideoFormat(TinySize(64, 48), 30.0f, PIXEL_FORMAT_MJPEG)));
    EXPECT_EQ(capture.GetCurrentFormat().format, PIXEL_FORMAT_MJPEG);
    ASSERT_TRUE(capture.Run());
    ASSERT_TRUE(frames.WaitForFrames(2));
    ASSERT_TRUE(capture.Stop());
    EXPECT_TRUE(frames.Frames()[0].counterDecoded);
}

}  // namespace
