// The video sink in a real filter graph of the platform, fed by a virtual camera: joining and
// leaving the graph, connections the pin accepts and refuses, frames through a FilterObserver
// (counted by the camera's own frame counter), state changes, disconnection, the references
// left after the graph is gone, and registration through the filter mapper.

#include <windows.h>

#include <dshow.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "DShowCapture/MediaTypes.h"
#include "DShowCapture/VideoSinkFilter.h"
#include "SinkTestSupport.h"
#include "VirtualCameraFixture.h"

using namespace DShow;
using namespace SinkTests;

namespace {

// A graph of one virtual camera and the sink, which the test holds as well.
struct SinkGraph {
    ComPtr<IGraphBuilder> graph;
    ComPtr<IMediaControl> control;
    ComPtr<IBaseFilter> camera;
    ComPtr<IPin> cameraPin;
    WatchedSinkFilter* sink = nullptr;
    IPin* sinkPin = nullptr;  // owned by the sink

    ~SinkGraph() {
        if (control) {
            control->Stop();
        }
        cameraPin.Reset();
        camera.Reset();
        control.Reset();
        graph.Reset();
        if (sink != nullptr) {
            sink->Release();
        }
    }
};

class SinkGraphTest : public VirtualCameraTests::VirtualCameraTest {
protected:
    // Registers a camera with the given mode lines and returns its name.
    std::wstring AddCamera(const std::wstring& modes) {
        const std::wstring name = UniqueName(std::to_wstring(++m_cameras));
        AddDevices(L"[device " + name + L"]\nFriendlyName = Sink Test Camera\n" + modes);
        return name;
    }

    // The graph with the camera and the sink added, not connected.
    void BuildGraph(const std::wstring& camera, SinkGraph* graph) {
        ASSERT_EQ(
            CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder,
                             reinterpret_cast<void**>(graph->graph.GetAddressOf())),
            S_OK);
        ASSERT_EQ(graph->graph->QueryInterface(
                      IID_IMediaControl, reinterpret_cast<void**>(graph->control.GetAddressOf())),
                  S_OK);
        graph->camera = BindFilterOrFail(camera);
        ASSERT_TRUE(graph->camera);
        graph->cameraPin = OutputPin(graph->camera.Get());
        ASSERT_TRUE(graph->cameraPin);
        graph->sink = new WatchedSinkFilter(&m_observer, &m_sinkDestroyed);
        graph->sink->AddRef();
        graph->sinkPin = graph->sink->GetPin(0);
        ASSERT_EQ(graph->graph->AddFilter(graph->camera.Get(), nullptr), S_OK);
        ASSERT_EQ(graph->graph->AddFilter(graph->sink, kTinyFilterName), S_OK);
    }

    // The graph connected with the sink's offer of `format`.
    void BuildConnectedGraph(const std::wstring& camera, const VideoFormat& format,
                             SinkGraph* graph) {
        BuildGraph(camera, graph);
        ASSERT_FALSE(HasFatalFailure());
        graph->sink->SetFormat(format);
        ASSERT_EQ(graph->graph->Connect(graph->cameraPin.Get(), graph->sinkPin), S_OK);
    }

    std::vector<ObservedCall> Frames() {
        std::vector<ObservedCall> frames;
        for (const ObservedCall& call : m_observer.Calls()) {
            if (call.kind == ObservedCall::FrameReceived) {
                frames.push_back(call);
            }
        }
        return frames;
    }

    // Every frame carries the camera's counter, one more than the frame before.
    void ExpectConsecutiveFrames(long size) {
        const std::vector<ObservedCall> frames = Frames();
        ASSERT_FALSE(frames.empty());
        for (size_t i = 0; i < frames.size(); ++i) {
            EXPECT_TRUE(frames[i].counterDecoded) << i;
            EXPECT_EQ(frames[i].size, size) << i;
            EXPECT_EQ(frames[i].userData, &m_userData) << i;
            EXPECT_EQ(frames[i].timestamp % 100, 0) << i;
            if (i > 0) {
                EXPECT_EQ(frames[i].counter, frames[i - 1].counter + 1) << i;
                EXPECT_GT(frames[i].timestamp, frames[i - 1].timestamp) << i;
            }
        }
    }

    void SetUp() override {
        VirtualCameraTest::SetUp();
        m_observer.SetUserData(&m_userData);
    }

    int m_userData = 0;
    RecordingObserver m_observer;
    bool m_sinkDestroyed = false;
    int m_cameras = 0;
};

const VideoFormat kYuy2At640(TinySize(640, 480), 30.0f, PIXEL_FORMAT_YUY2);

TEST_F(SinkGraphTest, TheSinkJoinsTheGraphUnderItsName) {
    const std::wstring camera = AddCamera(L"mode = YUY2 videoinfo 640 480 333333\n");
    SinkGraph graph;
    BuildGraph(camera, &graph);
    ASSERT_FALSE(HasFatalFailure());
    FILTER_INFO info = {};
    ASSERT_EQ(graph.sink->QueryFilterInfo(&info), S_OK);
    EXPECT_EQ(std::wstring(info.achName), L"Tiny Capture Filter");
    ComPtr<IFilterGraph> asFilterGraph;
    graph.graph->QueryInterface(IID_IFilterGraph,
                                reinterpret_cast<void**>(asFilterGraph.GetAddressOf()));
    EXPECT_EQ(info.pGraph, asFilterGraph.Get());
    info.pGraph->Release();
    IBaseFilter* found = nullptr;
    ASSERT_EQ(graph.graph->FindFilterByName(L"Tiny Capture Filter", &found), S_OK);
    EXPECT_EQ(found, static_cast<IBaseFilter*>(graph.sink));
    found->Release();
}

TEST_F(SinkGraphTest, RemovingTheSinkFromTheGraphGivesBackTheGraphsReference) {
    const std::wstring camera = AddCamera(L"mode = YUY2 videoinfo 640 480 333333\n");
    SinkGraph graph;
    BuildGraph(camera, &graph);
    ASSERT_FALSE(HasFatalFailure());
    EXPECT_EQ(graph.sink->RefCount(), 2);
    ASSERT_EQ(graph.graph->RemoveFilter(graph.sink), S_OK);
    EXPECT_EQ(graph.sink->RefCount(), 1);
    EXPECT_EQ(graph.sink->Graph(), nullptr);
    EXPECT_EQ(graph.sink->Name(), nullptr);
}

TEST_F(SinkGraphTest, AnAcceptedTypeConnectsAndIsRecorded) {
    const std::wstring camera = AddCamera(L"mode = YUY2 videoinfo 640 480 333333\n");
    SinkGraph graph;
    BuildConnectedGraph(camera, kYuy2At640, &graph);
    ASSERT_FALSE(HasFatalFailure());
    const VideoFormat* format = graph.sink->GetFormat();
    EXPECT_EQ(format->format, PIXEL_FORMAT_YUY2);
    EXPECT_EQ(format->size.cx, 640);
    EXPECT_EQ(format->size.cy, 480);
    EXPECT_EQ(format->rate, 30.0f);
    EXPECT_EQ(format->GetFlip(), 0);
    ComPtr<IPin> peer;
    ASSERT_EQ(graph.sinkPin->ConnectedTo(peer.GetAddressOf()), S_OK);
    EXPECT_EQ(peer.Get(), graph.cameraPin.Get());
    AM_MEDIA_TYPE type = {};
    ASSERT_EQ(graph.sinkPin->ConnectionMediaType(&type), S_OK);
    EXPECT_EQ(type.subtype, MEDIASUBTYPE_YUY2);
    DShow::FreeMediaType(type);
}

TEST_F(SinkGraphTest, ASubtypeTheSinkRefusesDoesNotConnect) {
    const std::wstring camera = AddCamera(L"mode = UYVY videoinfo 320 240 333333\n");
    SinkGraph graph;
    BuildGraph(camera, &graph);
    ASSERT_FALSE(HasFatalFailure());
    graph.sink->SetFormat(kYuy2At640);
    EXPECT_EQ(graph.graph->ConnectDirect(graph.cameraPin.Get(), graph.sinkPin, nullptr),
              VFW_E_NO_ACCEPTABLE_TYPES);
    EXPECT_FALSE(SinkPin(*graph.sink)->IsConnected());
    // The refused type still left its size.
    EXPECT_EQ(graph.sink->GetFormat()->size.cx, 320);
    EXPECT_EQ(graph.sink->GetFormat()->format, PIXEL_FORMAT_UNKNOWN);
}

TEST_F(SinkGraphTest, WithoutADecoderForARefusedSubtypeTheGraphCannotConnect) {
    const std::wstring camera = AddCamera(L"mode = UYVY videoinfo 320 240 333333\n");
    SinkGraph graph;
    BuildGraph(camera, &graph);
    ASSERT_FALSE(HasFatalFailure());
    graph.sink->SetFormat(kYuy2At640);
    EXPECT_EQ(graph.graph->Connect(graph.cameraPin.Get(), graph.sinkPin), VFW_E_CANNOT_CONNECT);
    EXPECT_FALSE(SinkPin(*graph.sink)->IsConnected());
}

TEST_F(SinkGraphTest, VideoInfo2IsRefused) {
    const std::wstring camera = AddCamera(L"mode = YUY2 videoinfo2 320 240 333333\n");
    SinkGraph graph;
    BuildGraph(camera, &graph);
    ASSERT_FALSE(HasFatalFailure());
    EXPECT_EQ(graph.graph->ConnectDirect(graph.cameraPin.Get(), graph.sinkPin, nullptr),
              VFW_E_NO_ACCEPTABLE_TYPES);
    EXPECT_FALSE(SinkPin(*graph.sink)->IsConnected());
}

TEST_F(SinkGraphTest, MjpegIsRefusedWhenADecoderWillHandleIt) {
    const std::wstring camera = AddCamera(L"mode = MJPG videoinfo 320 240 333333\n");
    SinkGraph graph;
    BuildGraph(camera, &graph);
    ASSERT_FALSE(HasFatalFailure());
    graph.sink->SetMjpegDecEnabled(1);
    EXPECT_EQ(graph.graph->ConnectDirect(graph.cameraPin.Get(), graph.sinkPin, nullptr),
              VFW_E_NO_ACCEPTABLE_TYPES);
    EXPECT_FALSE(SinkPin(*graph.sink)->IsConnected());
}

TEST_F(SinkGraphTest, MjpegFramesArriveWithoutADecoder) {
    const std::wstring camera = AddCamera(L"mode = MJPG videoinfo 320 240 333333\n");
    SinkGraph graph;
    BuildConnectedGraph(camera, VideoFormat(TinySize(320, 240), 30.0f, PIXEL_FORMAT_MJPEG), &graph);
    ASSERT_FALSE(HasFatalFailure());
    EXPECT_EQ(graph.sink->GetFormat()->format, PIXEL_FORMAT_MJPEG);
    m_observer.SetCounterSubtype(MEDIASUBTYPE_MJPG);
    ASSERT_EQ(graph.control->Run(), S_OK);
    ASSERT_TRUE(m_observer.WaitForFrames(3));
    ASSERT_EQ(graph.control->Stop(), S_OK);
    const std::vector<ObservedCall> frames = Frames();
    for (size_t i = 0; i < frames.size(); ++i) {
        EXPECT_TRUE(frames[i].counterDecoded) << i;
        ASSERT_GE(frames[i].head.size(), 2u);
        EXPECT_EQ(frames[i].head[0], 0xFF) << i;  // a JPEG image, as the camera sent it
        EXPECT_EQ(frames[i].head[1], 0xD8) << i;
    }
}

TEST_F(SinkGraphTest, FramesFlowWithTheCamerasOwnAllocator) {
    const std::wstring camera = AddCamera(L"mode = YUY2 videoinfo 640 480 333333\n");
    SinkGraph graph;
    BuildConnectedGraph(camera, kYuy2At640, &graph);
    ASSERT_FALSE(HasFatalFailure());
    IMemAllocator* allocator = nullptr;
    EXPECT_EQ(SinkPin(*graph.sink)->GetAllocator(&allocator), VFW_E_NO_ALLOCATOR);
    m_observer.SetCounterSubtype(MEDIASUBTYPE_YUY2);
    ASSERT_EQ(graph.control->Run(), S_OK);
    ASSERT_TRUE(m_observer.WaitForFrames(5));
    ASSERT_EQ(graph.control->Stop(), S_OK);
    ExpectConsecutiveFrames(640 * 480 * 2);
}

TEST_F(SinkGraphTest, FramesFlowThroughTheSinksOwnAllocator) {
    const std::wstring camera = AddCamera(L"mode = YUY2 videoinfo 320 240 333333\n");
    SinkGraph graph;
    BuildGraph(camera, &graph);
    ASSERT_FALSE(HasFatalFailure());
    graph.sink->SetFormat(VideoFormat(TinySize(320, 240), 30.0f, PIXEL_FORMAT_YUY2));
    graph.sink->SetUseAllocator(1);
    ASSERT_EQ(graph.graph->Connect(graph.cameraPin.Get(), graph.sinkPin), S_OK);
    // The camera took the sink's allocator and sized it for its frames.
    ComPtr<IMemAllocator> allocator;
    ASSERT_EQ(SinkPin(*graph.sink)->GetAllocator(allocator.GetAddressOf()), S_OK);
    ALLOCATOR_PROPERTIES properties = {};
    ASSERT_EQ(allocator->GetProperties(&properties), S_OK);
    EXPECT_GE(properties.cbBuffer, 320 * 240 * 2);
    EXPECT_GE(properties.cBuffers, 1);
    m_observer.SetCounterSubtype(MEDIASUBTYPE_YUY2);
    ASSERT_EQ(graph.control->Run(), S_OK);
    ASSERT_TRUE(m_observer.WaitForFrames(5));
    ASSERT_EQ(graph.control->Stop(), S_OK);
    ExpectConsecutiveFrames(320 * 240 * 2);
}

TEST_F(SinkGraphTest, RgbFramesAreMarkedBottomUp) {
    const std::wstring camera = AddCamera(L"mode = RGB24 videoinfo 160 120 333333\n");
    SinkGraph graph;
    BuildConnectedGraph(camera, VideoFormat(TinySize(160, 120), 30.0f, PIXEL_FORMAT_RGB24), &graph);
    ASSERT_FALSE(HasFatalFailure());
    EXPECT_EQ(graph.sink->GetFormat()->format, PIXEL_FORMAT_BGR24);
    EXPECT_EQ(graph.sink->GetFormat()->GetFlip(), 1);
    m_observer.SetCounterSubtype(MEDIASUBTYPE_RGB24);
    ASSERT_EQ(graph.control->Run(), S_OK);
    ASSERT_TRUE(m_observer.WaitForFrames(3));
    ASSERT_EQ(graph.control->Stop(), S_OK);
    ExpectConsecutiveFrames(160 * 120 * 3);
}

TEST_F(SinkGraphTest, TheSinkFollowsTheGraphsStateChanges) {
    const std::wstring camera = AddCamera(L"mode = YUY2 videoinfo 320 240 333333\n");
    SinkGraph graph;
    BuildConnectedGraph(camera, VideoFormat(TinySize(320, 240), 30.0f, PIXEL_FORMAT_YUY2), &graph);
    ASSERT_FALSE(HasFatalFailure());
    m_observer.SetCounterSubtype(MEDIASUBTYPE_YUY2);
    FILTER_STATE state = State_Stopped;
    ASSERT_EQ(graph.control->Run(), S_OK);
    EXPECT_EQ(graph.sink->GetState(0, &state), S_OK);
    EXPECT_EQ(state, State_Running);
    ASSERT_TRUE(m_observer.WaitForFrames(2));
    EXPECT_TRUE(SUCCEEDED(graph.control->Pause()));
    EXPECT_EQ(graph.sink->GetState(0, &state), S_OK);
    EXPECT_EQ(state, State_Paused);
    ASSERT_EQ(graph.control->Stop(), S_OK);
    EXPECT_EQ(graph.sink->GetState(0, &state), S_OK);
    EXPECT_EQ(state, State_Stopped);
    // Stopped, the pin refuses what still comes.
    AllocatorSamples samples(1, 64);
    ComPtr<IMediaSample> late = samples.Sample(16);
    EXPECT_EQ(SinkPin(*graph.sink)->Receive(late.Get()), VFW_E_WRONG_STATE);
    // And a second run carries on where the camera is.
    const size_t before = m_observer.FrameCount();
    ASSERT_EQ(graph.control->Run(), S_OK);
    ASSERT_TRUE(m_observer.WaitForFrames(before + 2));
    ASSERT_EQ(graph.control->Stop(), S_OK);
    const std::vector<ObservedCall> frames = Frames();
    for (size_t i = 1; i < frames.size(); ++i) {
        EXPECT_GT(frames[i].counter, frames[i - 1].counter) << i;
    }
}

TEST_F(SinkGraphTest, DisconnectEndsTheConnectionOnBothSides) {
    const std::wstring camera = AddCamera(L"mode = YUY2 videoinfo 640 480 333333\n");
    SinkGraph graph;
    BuildConnectedGraph(camera, kYuy2At640, &graph);
    ASSERT_FALSE(HasFatalFailure());
    // The camera's pin holds the sink's pin while connected, as a pin and as its IMemInputPin.
    EXPECT_EQ(CountOf(graph.sinkPin), 3u);
    ASSERT_EQ(graph.graph->Disconnect(graph.cameraPin.Get()), S_OK);
    ASSERT_EQ(graph.graph->Disconnect(graph.sinkPin), S_OK);
    IPin* peer = reinterpret_cast<IPin*>(1);
    EXPECT_EQ(graph.sinkPin->ConnectedTo(&peer), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(peer, nullptr);
    EXPECT_EQ(graph.cameraPin->ConnectedTo(&peer), VFW_E_NOT_CONNECTED);
    EXPECT_EQ(CountOf(graph.sinkPin), 1u);
    // A second disconnect has nothing to do.
    EXPECT_EQ(graph.sinkPin->Disconnect(), S_FALSE);
}

TEST_F(SinkGraphTest, TheSinkCanBeConnectedAgainAfterADisconnect) {
    const std::wstring camera = AddCamera(
        L"mode = YUY2 videoinfo 640 480 333333\n"
        L"mode = RGB24 videoinfo 320 240 333333\n");
    SinkGraph graph;
    BuildConnectedGraph(camera, kYuy2At640, &graph);
    ASSERT_FALSE(HasFatalFailure());
    ASSERT_EQ(graph.graph->Disconnect(graph.cameraPin.Get()), S_OK);
    ASSERT_EQ(graph.graph->Disconnect(graph.sinkPin), S_OK);
    graph.sink->SetFormat(VideoFormat(TinySize(320, 240), 30.0f, PIXEL_FORMAT_RGB24));
    AM_MEDIA_TYPE rgb = {};
    rgb.majortype = MEDIATYPE_Video;
    rgb.subtype = MEDIASUBTYPE_RGB24;
    ASSERT_EQ(graph.graph->ConnectDirect(graph.cameraPin.Get(), graph.sinkPin, &rgb), S_OK);
    EXPECT_EQ(graph.sink->GetFormat()->format, PIXEL_FORMAT_BGR24);
    EXPECT_EQ(graph.sink->GetFormat()->size.cx, 320);
}

TEST_F(SinkGraphTest, ReleasingTheGraphLeavesOnlyTheOwnersReference) {
    const std::wstring camera = AddCamera(L"mode = YUY2 videoinfo 320 240 333333\n");
    WatchedSinkFilter* sink = nullptr;
    IPin* sinkPin = nullptr;
    {
        SinkGraph graph;
        BuildConnectedGraph(camera, VideoFormat(TinySize(320, 240), 30.0f, PIXEL_FORMAT_YUY2),
                            &graph);
        ASSERT_FALSE(HasFatalFailure());
        ASSERT_EQ(graph.control->Run(), S_OK);
        ASSERT_TRUE(m_observer.WaitForFrames(2));
        ASSERT_EQ(graph.control->Stop(), S_OK);
        // Keep the sink past the graph: the owner's reference.
        sink = graph.sink;
        sinkPin = graph.sinkPin;
        sink->AddRef();
    }
    EXPECT_FALSE(m_sinkDestroyed);
    EXPECT_EQ(sink->RefCount(), 1);
    EXPECT_EQ(CountOf(sinkPin), 1u);
    EXPECT_FALSE(SinkPin(*sink)->IsConnected());
    EXPECT_EQ(sink->Graph(), nullptr);
    EXPECT_EQ(sink->Release(), 0u);
    EXPECT_TRUE(m_sinkDestroyed);
}

// Registration through the filter mapper: only a filter with setup data has anything to
// register, and none of the library's does, so a filter of our own brings it.
class SinkRegistrationTest : public VirtualCameraTests::VirtualCameraTest {
protected:
    void TearDown() override {
        // Leave the prefix as it was, whatever the test did.
        RecordingFilter* filter = new RecordingFilter(&m_observer);
        filter->AddRef();
        filter->SetSetupData(&m_setup);
        filter->Unregister();
        filter->Release();
        // The mapper leaves the class's key behind, empty; it was not there before.
        RegDeleteTreeW(HKEY_CLASSES_ROOT, L"CLSID\\{88CDBBDC-A73B-4AFA-ACBF-15D5E2CE12C3}");
        VirtualCameraTest::TearDown();
    }

    // Whether the system enumerator lists a filter of the sink's class among the legacy
    // filters.
    bool FoundInLegacyCategory() {
        ComPtr<ICreateDevEnum> devices;
        EXPECT_EQ(
            CoCreateInstance(CLSID_SystemDeviceEnum, nullptr, CLSCTX_INPROC_SERVER,
                             IID_ICreateDevEnum, reinterpret_cast<void**>(devices.GetAddressOf())),
            S_OK);
        ComPtr<IEnumMoniker> monikers;
        if (devices->CreateClassEnumerator(CLSID_LegacyAmFilterCategory, monikers.GetAddressOf(),
                                           0) != S_OK) {
            return false;
        }
        ComPtr<IMoniker> moniker;
        while (monikers->Next(1, moniker.ReleaseAndGetAddressOf(), nullptr) == S_OK) {
            ComPtr<IPropertyBag> bag;
            if (FAILED(moniker->BindToStorage(nullptr, nullptr, IID_IPropertyBag,
                                              reinterpret_cast<void**>(bag.GetAddressOf())))) {
                continue;
            }
            VARIANT clsid;
            VariantInit(&clsid);
            const bool ours = SUCCEEDED(bag->Read(L"CLSID", &clsid, nullptr)) &&
                              clsid.vt == VT_BSTR && _wcsicmp(clsid.bstrVal, kClsidText) == 0;
            VariantClear(&clsid);
            if (ours) {
                return true;
            }
        }
        return false;
    }

    // The name under which the filter mapper keeps the filter, or "" without a record.
    static std::wstring MapperName() {
        wchar_t name[128] = {};
        DWORD size = sizeof(name);
        const std::wstring key = std::wstring(L"Filter\\") + kClsidText;
        if (RegGetValueW(HKEY_CLASSES_ROOT, key.c_str(), nullptr, RRF_RT_REG_SZ, nullptr, name,
                         &size) != ERROR_SUCCESS) {
            return std::wstring();
        }
        return name;
    }

    static constexpr const wchar_t* kClsidText = L"{88CDBBDC-A73B-4AFA-ACBF-15D5E2CE12C3}";

    RecordingObserver m_observer;
    const REGPINTYPES m_pinTypes[1] = {{&MEDIATYPE_Video, &GUID_NULL}};
    const REGFILTERPINS m_pins[1] = {{const_cast<LPWSTR>(L"Tiny Video Capture"), TRUE, FALSE, FALSE,
                                      FALSE, &CLSID_NULL, nullptr, 1, m_pinTypes}};
    const DShow::AMOVIESETUP_FILTER m_setup = {&CLSID_TinyCaptureFilter, L"Tiny Capture Filter",
                                               MERIT_DO_NOT_USE, 1, m_pins};
};

TEST_F(SinkRegistrationTest, RegisterPutsTheFilterWhereTheSystemEnumeratorFindsIt) {
    RecordingFilter* filter = new RecordingFilter(&m_observer);
    filter->AddRef();
    filter->SetSetupData(&m_setup);
    EXPECT_EQ(filter->Register(), S_OK);
    EXPECT_TRUE(FoundInLegacyCategory());
    EXPECT_EQ(MapperName(), L"Tiny Capture Filter");
    filter->Release();
}

TEST_F(SinkRegistrationTest, UnregisterTakesTheFilterAwayAgain) {
    RecordingFilter* filter = new RecordingFilter(&m_observer);
    filter->AddRef();
    filter->SetSetupData(&m_setup);
    ASSERT_EQ(filter->Register(), S_OK);
    EXPECT_EQ(filter->Unregister(), S_OK);
    EXPECT_FALSE(FoundInLegacyCategory());
    EXPECT_EQ(MapperName(), L"");
    filter->Release();
}

TEST_F(SinkRegistrationTest, UnregisteringAFilterThatWasNeverRegisteredSucceeds) {
    RecordingFilter* filter = new RecordingFilter(&m_observer);
    filter->AddRef();
    filter->SetSetupData(&m_setup);
    EXPECT_EQ(filter->Unregister(), S_OK);
    EXPECT_EQ(filter->Unregister(), S_OK);
    filter->Release();
}

TEST_F(SinkRegistrationTest, TheSinkItselfRegistersNothing) {
    VideoSinkFilter* sink = new VideoSinkFilter(&m_observer);
    sink->AddRef();
    EXPECT_EQ(sink->Register(), S_FALSE);
    EXPECT_FALSE(FoundInLegacyCategory());
    EXPECT_EQ(MapperName(), L"");
    sink->Release();
}

}  // namespace
