// Child process for the crash tests: uses one virtual device the way a capture application would,
// so that a device that crashes takes only this process down.
//   VirtualCameraCrashProbe caps <instance>    reads every capability
//   VirtualCameraCrashProbe stream <instance>  runs the device until it has sent a few frames
// Exit code 0: no crash; 2: the device could not be used; 3: it sent no frames in time; a crash
// ends it with its exception code.

#include <windows.h>
#include <dshow.h>
#include <wrl/client.h>

#include <string>

#include "FrameSink.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"

using Microsoft::WRL::ComPtr;

namespace {

constexpr int kSetupFailed = 2;
constexpr int kNoFrames = 3;
// A device that crashes on its streaming thread does so before its first frame; a healthy one
// has shown it streams once a few frames arrived, however slowly.
constexpr size_t kFramesToSee = 3;
constexpr DWORD kFramesDeadlineMs = 60000;

ComPtr<IBaseFilter> BindDevice(const std::wstring& instanceName) {
    ComPtr<ICreateDevEnum> devices;
    ComPtr<IEnumMoniker> monikers;
    if (FAILED(CoCreateInstance(CLSID_SystemDeviceEnum, nullptr, CLSCTX_INPROC_SERVER,
                                IID_PPV_ARGS(&devices))) ||
        devices->CreateClassEnumerator(CLSID_VideoInputDeviceCategory, &monikers, 0) != S_OK) {
        return nullptr;
    }
    ComPtr<IMoniker> moniker;
    while (monikers->Next(1, &moniker, nullptr) == S_OK) {
        LPOLESTR name = nullptr;
        if (SUCCEEDED(moniker->GetDisplayName(nullptr, nullptr, &name))) {
            const std::wstring displayName = name;
            CoTaskMemFree(name);
            const std::wstring suffix = L"\\" + instanceName;
            if (displayName.size() > suffix.size() &&
                displayName.compare(displayName.size() - suffix.size(), suffix.size(), suffix) ==
                    0) {
                ComPtr<IBaseFilter> filter;
                if (SUCCEEDED(moniker->BindToObject(nullptr, nullptr, IID_PPV_ARGS(&filter)))) {
                    return filter;
                }
                return nullptr;
            }
        }
        moniker.Reset();
    }
    return nullptr;
}

ComPtr<IPin> FirstPin(IBaseFilter* filter) {
    ComPtr<IEnumPins> pins;
    ComPtr<IPin> pin;
    if (FAILED(filter->EnumPins(&pins)) || pins->Next(1, &pin, nullptr) != S_OK) return nullptr;
    return pin;
}

int ReadCapabilities(IBaseFilter* filter) {
    ComPtr<IPin> pin = FirstPin(filter);
    ComPtr<IAMStreamConfig> config;
    if (!pin || FAILED(pin.As(&config))) return kSetupFailed;
    int count = 0;
    int size = 0;
    if (FAILED(config->GetNumberOfCapabilities(&count, &size))) return kSetupFailed;
    for (int i = 0; i < count; ++i) {
        AM_MEDIA_TYPE* type = nullptr;
        VIDEO_STREAM_CONFIG_CAPS caps = {};
        if (config->GetStreamCaps(i, &type, reinterpret_cast<BYTE*>(&caps)) == S_OK) {
            VirtualCamera::DeleteMediaType(type);
        }
    }
    return 0;
}

int Stream(IBaseFilter* camera) {
    ComPtr<IGraphBuilder> graph;
    if (FAILED(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER,
                                IID_PPV_ARGS(&graph)))) {
        return kSetupFailed;
    }
    // Adopts the creator's reference: MinGW's ComPtr::Attach would add one of its own.
    ComPtr<VirtualCameraTests::FrameSink> sink;
    *sink.ReleaseAndGetAddressOf() = new VirtualCameraTests::FrameSink();
    ComPtr<IPin> out = FirstPin(camera);
    ComPtr<IMediaControl> control;
    if (!out || FAILED(graph->AddFilter(camera, L"Camera")) ||
        FAILED(graph->AddFilter(sink.Get(), L"Sink")) ||
        FAILED(graph->ConnectDirect(out.Get(), sink->InputPin(), nullptr)) ||
        FAILED(graph.As(&control))) {
        return kSetupFailed;
    }
    if (FAILED(control->Run())) return kSetupFailed;
    const bool streamed = sink->WaitForFrames(kFramesToSee, kFramesDeadlineMs);
    control->Stop();
    graph->RemoveFilter(sink.Get());
    graph->RemoveFilter(camera);
    return streamed ? 0 : kNoFrames;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc != 3) return kSetupFailed;
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) return kSetupFailed;
    int result = kSetupFailed;
    {
        ComPtr<IBaseFilter> filter = BindDevice(argv[2]);
        const std::wstring action = argv[1];
        if (filter && action == L"caps") result = ReadCapabilities(filter.Get());
        if (filter && action == L"stream") result = Stream(filter.Get());
    }
    CoUninitialize();
    return result;
}
