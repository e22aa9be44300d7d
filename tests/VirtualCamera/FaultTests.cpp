// Faults a device can be told to have, seen through the published interfaces.

#include <dvdmedia.h>
#include <evcode.h>
#include <ks.h>

#include "VirtualCameraFixture.h"
#include "tools/VirtualCamera/Config/Guids.h"
#include "tools/VirtualCamera/Config/KsPin.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"

namespace VirtualCameraTests {
namespace {

constexpr DWORD kAccessViolation = EXCEPTION_ACCESS_VIOLATION;
constexpr LONGLONG kDelayMs = 300;
// Sleep may end a little early on a coarse timer.
constexpr LONGLONG kDelayTolerance = 30;

class VirtualCameraFaultTest : public VirtualCameraTest {
protected:
};

TEST_F(VirtualCameraFaultTest, CreateFaultMakesBindingFail) {
    const std::wstring name = AddDevice(L"fault = create\nmode = YUY2 videoinfo 64 48 333333\n");
    ASSERT_TRUE(FindMoniker(name));
    ComPtr<IBaseFilter> filter;
    const HRESULT hr = BindFilter(name, &filter);
    EXPECT_TRUE(FAILED(hr));
    EXPECT_EQ(hr, VirtualCamera::kCreateRefusedError);
    EXPECT_FALSE(filter);
}

TEST_F(VirtualCameraFaultTest, CapabilityCountCanFail) {
    const std::wstring name =
        AddDevice(L"fault = caps_count\nmode = YUY2 videoinfo 64 48 333333\n");
    ComPtr<IAMStreamConfig> config = StreamConfig(name);
    ASSERT_TRUE(config);
    int count = 0;
    int size = 0;
    EXPECT_TRUE(FAILED(config->GetNumberOfCapabilities(&count, &size)));
}

TEST_F(VirtualCameraFaultTest, CapabilityAtOneIndexFails) {
    const std::wstring name = AddDevice(
        L"fault = caps_at:1\nmode = YUY2 videoinfo 64 48 333333\n"
        L"mode = YUY2 videoinfo 32 24 333333\n"
        L"mode = RGB24 videoinfo 32 24 333333\n");
    ComPtr<IAMStreamConfig> config = StreamConfig(name);
    ASSERT_TRUE(config);
    for (int index = 0; index < 3; ++index) {
        AM_MEDIA_TYPE* type = nullptr;
        VIDEO_STREAM_CONFIG_CAPS caps = {};
        const HRESULT hr = config->GetStreamCaps(index, &type, reinterpret_cast<BYTE*>(&caps));
        if (index == 1) {
            EXPECT_TRUE(FAILED(hr)) << index;
        } else {
            EXPECT_EQ(hr, S_OK) << index;
        }
        VirtualCamera::DeleteMediaType(type);
    }
}

TEST_F(VirtualCameraFaultTest, BindingCanBeSlow) {
    const std::wstring name = AddDevice(L"fault = delay_bind:" + std::to_wstring(kDelayMs) + L"\n");
    ComPtr<IMoniker> moniker = FindMoniker(name);
    ASSERT_TRUE(moniker);
    ComPtr<IBaseFilter> filter;
    const LONGLONG start = NowMilliseconds();
    ASSERT_EQ(moniker->BindToObject(nullptr, nullptr, IID_PPV_ARGS(&filter)), S_OK);
    EXPECT_GE(NowMilliseconds() - start, kDelayMs - kDelayTolerance);
}

TEST_F(VirtualCameraFaultTest, CapabilitiesCanBeSlow) {
    const std::wstring name = AddDevice(L"fault = delay_caps:" + std::to_wstring(kDelayMs) +
                                        L"\nmode = YUY2 videoinfo 64 48 333333\n");
    ComPtr<IAMStreamConfig> config = StreamConfig(name);
    ASSERT_TRUE(config);
    AM_MEDIA_TYPE* type = nullptr;
    VIDEO_STREAM_CONFIG_CAPS caps = {};
    const LONGLONG start = NowMilliseconds();
    ASSERT_EQ(config->GetStreamCaps(0, &type, reinterpret_cast<BYTE*>(&caps)), S_OK);
    EXPECT_GE(NowMilliseconds() - start, kDelayMs - kDelayTolerance);
    VirtualCamera::DeleteMediaType(type);
}

TEST_F(VirtualCameraFaultTest, RunCanBeSlow) {
    const std::wstring name = AddDevice(L"fault = delay_run:" + std::to_wstring(kDelayMs) +
                                        L"\nmode = YUY2 videoinfo 64 48 333333\n");
    CaptureGraph graph;
    BuildGraph(name, &graph);
    const LONGLONG start = NowMilliseconds();
    ASSERT_TRUE(SUCCEEDED(graph.control->Run()));
    EXPECT_GE(NowMilliseconds() - start, kDelayMs - kDelayTolerance);
    EXPECT_TRUE(graph.sink->WaitForFrames(1, kStateDeadlineMs));
}

TEST_F(VirtualCameraFaultTest, RunCanBeRefusedAsInUse) {
    const std::wstring name =
        AddDevice(L"fault = run_in_use\nmode = YUY2 videoinfo 64 48 333333\n");
    CaptureGraph graph;
    BuildGraph(name, &graph);
    EXPECT_EQ(graph.camera->Run(0), VirtualCamera::kRunRefusedError);
    const HRESULT hr = graph.control->Run();
    if (hr != VirtualCamera::kRunRefusedError) {
        // Wine 8's graph manager drops a filter's failing Run and answers S_OK; the refusal then
        // shows as a camera that never starts.
        EXPECT_EQ(hr, S_OK);
        FILTER_STATE state = State_Running;
        graph.camera->GetState(0, &state);
        EXPECT_NE(state, State_Running);
        Sleep(200);
    }
    graph.control->Stop();
    EXPECT_EQ(graph.sink->FrameCount(), 0u);
}

TEST_F(VirtualCameraFaultTest, UnpluggedDeviceReportsDeviceLostAndStops) {
    const std::wstring name =
        AddDevice(L"fault = unplug_after:5\nmode = YUY2 videoinfo 64 48 200000\n");
    CaptureGraph graph;
    BuildGraph(name, &graph);
    ASSERT_TRUE(SUCCEEDED(graph.control->Run()));
    LONG_PTR lostDevice = 0;
    ASSERT_TRUE(WaitForEvent(graph.events.Get(), EC_DEVICE_LOST, kStateDeadlineMs, &lostDevice));
    ComPtr<IUnknown> cameraIdentity;
    ASSERT_EQ(graph.camera.As(&cameraIdentity), S_OK);
    ComPtr<IUnknown> reportedIdentity;
    ASSERT_EQ(
        reinterpret_cast<IUnknown*>(lostDevice)->QueryInterface(IID_PPV_ARGS(&reportedIdentity)),
        S_OK);
    EXPECT_EQ(reportedIdentity.Get(), cameraIdentity.Get());
    EXPECT_EQ(graph.sink->FrameCount(), 5u);
    Sleep(300);
    EXPECT_EQ(graph.sink->FrameCount(), 5u);
    EXPECT_EQ(graph.control->Stop(), S_OK);
}

TEST_F(VirtualCameraFaultTest, UnplugPutsDeviceLostForRemovalIntoTheGraphsQueue) {
    const std::wstring name =
        AddDevice(L"fault = unplug_after:4\nmode = YUY2 videoinfo 64 48 200000\n");
    CaptureGraph graph;
    BuildGraph(name, &graph);
    ASSERT_TRUE(SUCCEEDED(graph.control->Run()));
    // Polls the queue without waiting in it, as an owner of a graph does.
    bool lost = false;
    LONG_PTR device = 0;
    LONG_PTR change = -1;
    size_t framesWhenLost = 0;
    const LONGLONG deadline = NowMilliseconds() + kStateDeadlineMs;
    while (!lost && NowMilliseconds() < deadline) {
        long code = 0;
        LONG_PTR param1 = 0;
        LONG_PTR param2 = 0;
        const HRESULT hr = graph.events->GetEvent(&code, &param1, &param2, 0);
        if (hr == E_ABORT) {
            Sleep(1);  // The queue is empty: give the streaming thread the processor.
            continue;
        }
        ASSERT_EQ(hr, S_OK);
        if (code == EC_DEVICE_LOST) {
            lost = true;
            device = param1;
            change = param2;
            framesWhenLost = graph.sink->FrameCount();
        }
        graph.events->FreeEventParams(code, param1, param2);
    }
    ASSERT_TRUE(lost);
    // 0: the device went away (1 would be its arrival).
    EXPECT_EQ(change, 0);
    ComPtr<IBaseFilter> camera;
    ASSERT_EQ(graph.camera.As(&camera), S_OK);
    EXPECT_EQ(device, reinterpret_cast<LONG_PTR>(camera.Get()));
    // Every frame before the loss was delivered before it was reported, and none after it.
    EXPECT_EQ(framesWhenLost, 4u);
    EXPECT_EQ(graph.control->Stop(), S_OK);
    EXPECT_EQ(graph.sink->FrameCount(), 4u);
}

TEST_F(VirtualCameraFaultTest, CrashInCapabilitiesEndsTheProcess) {
    const std::wstring crashing =
        AddDevice(L"fault = crash_caps\nmode = YUY2 videoinfo 64 48 333333\n");
    const std::wstring healthy = AddDevice(L"mode = YUY2 videoinfo 64 48 333333\n");
    EXPECT_EQ(RunProgram(L"VirtualCameraCrashProbe.exe", L"caps " + healthy), 0u);
    EXPECT_EQ(RunProgram(L"VirtualCameraCrashProbe.exe", L"caps " + crashing), kAccessViolation);
}

TEST_F(VirtualCameraFaultTest, CrashOnTheStreamingThreadEndsTheProcess) {
    const std::wstring crashing =
        AddDevice(L"fault = crash_streaming\nmode = YUY2 videoinfo 64 48 333333\n");
    const std::wstring healthy = AddDevice(L"mode = YUY2 videoinfo 64 48 333333\n");
    EXPECT_EQ(RunProgram(L"VirtualCameraCrashProbe.exe", L"stream " + healthy), 0u);
    EXPECT_EQ(RunProgram(L"VirtualCameraCrashProbe.exe", L"stream " + crashing), kAccessViolation);
}

TEST_F(VirtualCameraFaultTest, CapabilitySizeCanBeStatedTooSmallWhileWholeRecordsAreWritten) {
    const std::wstring name = AddDevice(
        L"fault = caps_size:8\nmode = YUY2 videoinfo 64 48 333333 max_interval=2000000\n");
    ComPtr<IAMStreamConfig> config = StreamConfig(name);
    ASSERT_TRUE(config);
    int count = 0;
    int size = 0;
    ASSERT_EQ(config->GetNumberOfCapabilities(&count, &size), S_OK);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(size, 8);
    AM_MEDIA_TYPE* type = nullptr;
    VIDEO_STREAM_CONFIG_CAPS caps = {};
    ASSERT_EQ(config->GetStreamCaps(0, &type, reinterpret_cast<BYTE*>(&caps)), S_OK);
    EXPECT_EQ(caps.MaxFrameInterval, 2000000);
    VirtualCamera::DeleteMediaType(type);
}

TEST_F(VirtualCameraFaultTest, FormatBlockOfOneModeCanBeShorterThanItsHeader) {
    const std::wstring name = AddDevice(
        L"fault = short_format:1\nmode = YUY2 videoinfo 64 48 333333\n"
        L"mode = YUY2 videoinfo2 32 24 333333\n");
    ComPtr<IAMStreamConfig> config = StreamConfig(name);
    ASSERT_TRUE(config);
    const ULONG expectedSizes[] = {sizeof(VIDEOINFOHEADER), sizeof(VIDEOINFOHEADER2) - 1};
    for (int index = 0; index < 2; ++index) {
        AM_MEDIA_TYPE* type = nullptr;
        VIDEO_STREAM_CONFIG_CAPS caps = {};
        ASSERT_EQ(config->GetStreamCaps(index, &type, reinterpret_cast<BYTE*>(&caps)), S_OK);
        EXPECT_EQ(type->cbFormat, expectedSizes[index]) << index;
        VirtualCamera::DeleteMediaType(type);
    }
    // The pin's media types are cut the same way.
    ComPtr<IEnumMediaTypes> types;
    ASSERT_EQ(OutputPin(BindFilterOrFail(name).Get())->EnumMediaTypes(&types), S_OK);
    AM_MEDIA_TYPE* offered[2] = {};
    ULONG fetched = 0;
    ASSERT_EQ(types->Next(2, offered, &fetched), S_OK);
    EXPECT_EQ(offered[0]->cbFormat, expectedSizes[0]);
    EXPECT_EQ(offered[1]->cbFormat, expectedSizes[1]);
    VirtualCamera::DeleteMediaType(offered[0]);
    VirtualCamera::DeleteMediaType(offered[1]);
}

TEST_F(VirtualCameraFaultTest, MediumListSizeCanFallOneMediumShortOfItsCount) {
    const std::wstring name = AddDevice(L"mediums = standard,analog\nfault = short_mediums\n");
    ComPtr<VirtualCamera::IKsPin> ksPin;
    ASSERT_EQ(OutputPin(BindFilterOrFail(name).Get())
                  ->QueryInterface(IID_IKsPin, reinterpret_cast<void**>(ksPin.GetAddressOf())),
              S_OK);
    KSMULTIPLE_ITEM* list = nullptr;
    ASSERT_EQ(ksPin->KsQueryMediums(&list), S_OK);
    EXPECT_EQ(list->Count, 2u);
    EXPECT_EQ(list->Size, sizeof(KSMULTIPLE_ITEM) + sizeof(REGPINMEDIUM));
    // The medium left outside the Size is there all the same.
    const auto* mediums = reinterpret_cast<const REGPINMEDIUM*>(list + 1);
    EXPECT_TRUE(IsEqualGUID(mediums[1].clsMedium, VirtualCamera::MEDIUMSETID_VirtualCameraAnalog));
    CoTaskMemFree(list);
}

}  // namespace
}  // namespace VirtualCameraTests
