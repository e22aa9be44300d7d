// VideoCapture from the virtual camera, beside the same camera into the platform's null renderer
// in the same run: YUY2 at 640x480 and 1920x1080, 30 and 60 frames per second, straight into the
// sink ("direct") and as UYVY through the AVI decompressor ("avi", with the decoder stand-ins
// installed for that part and removed afterwards when the prefix did not have them).
//
// For each case, over a fixed window (argument: seconds, default 3):
//   - frames delivered against the frames the rate promises over the window;
//   - drops, judged from the samples' time stamps as CaptureTool judges them;
//   - CPU time of the whole process per frame (the camera fills its frames in this process, so
//     both consumers carry that cost alike) and its ratio to the null renderer's;
//   - for VideoCapture, the latency from the camera's fill of a frame (the performance counter
//     it stamps into the frame) to the callback, median and 99th percentile. The null renderer
//     has no callback, and so no latency, and tells no frame count (no IQualProp): its frames
//     are the span between the time stamps of the last sample before the window and the last one
//     in it, in frame intervals, as its IMediaSeeking position gives them; drops inside that span
//     are not seen.
//
// The benchmark registers a device of its own ("CaptureBench Camera") and removes it at the end.
#include <windows.h>

#include <amvideo.h>
#include <dshow.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "DShowCapture/ComHelpers.h"
#include "DShowCapture/DeviceEnumeration.h"
#include "DShowCapture/PinSearch.h"
#include "DShowCapture/VideoCapture.h"
#include "TinyFramework/Common/TinyCallback.h"
#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/Common/TinyLock.h"
#include "TinyFramework/Common/TinyLogging_win32.h"
#include "tools/CaptureTool/CaptureSummary.h"
#include "tools/CaptureTool/FrameStatistics.h"
#include "tools/TestDecoders/TestDecodersSetup.h"
#include "tools/VirtualCamera/Config/FramePattern.h"
#include "tools/VirtualCamera/VirtualCameraSetup.h"

namespace {

using DShow::ComPtr;

// CLSID_NullRenderer of the editing services (qedit), which MinGW-w64 does not declare.
constexpr GUID kNullRendererClsid = {
    0xc1f400a4, 0x3f08, 0x11d3, {0x9f, 0x0b, 0x00, 0x60, 0x08, 0x03, 0x9e, 0x37}};

constexpr wchar_t kInstanceName[] = L"CaptureBench";
constexpr wchar_t kDevicePath[] = L"\\\\?\\virtual#capturebench";
// One mode per format and size; the rate is put on the mode when the case starts, as
// VideoCapture::Allocate does, within the interval range the mode declares.
constexpr wchar_t kDescription[] =
    L"[device CaptureBench]\n"
    L"FriendlyName = CaptureBench Camera\n"
    L"DevicePath = \\\\?\\virtual#capturebench\n"
    L"stamp_fill_time = on\n"
    L"mode = YUY2 videoinfo 640 480 333333 min_interval=166666 max_interval=333333\n"
    L"mode = YUY2 videoinfo 1920 1080 333333 min_interval=166666 max_interval=333333\n"
    L"mode = UYVY videoinfo 640 480 333333 min_interval=166666 max_interval=333333\n"
    L"mode = UYVY videoinfo 1920 1080 333333 min_interval=166666 max_interval=333333\n";

// A stream that has not started within this long is broken, not slow.
constexpr double kFirstFramesDeadlineSeconds = 20.0;
// Frames let through before the window opens, so that allocation and the first decoder set-up
// stay out of the figures.
constexpr int64_t kWarmUpFrames = 5;
constexpr DWORD kPollMs = 20;

double Seconds() {
    return static_cast<double>(TinyFramework::GetMonotonicNanos()) / 1e9;
}

double QpcFrequency() {
    LARGE_INTEGER frequency = {};
    QueryPerformanceFrequency(&frequency);
    return static_cast<double>(frequency.QuadPart);
}

uint64_t QpcNow() {
    LARGE_INTEGER now = {};
    QueryPerformanceCounter(&now);
    return static_cast<uint64_t>(now.QuadPart);
}

// User and kernel time of the whole process, in seconds.
double ProcessCpuSeconds() {
    FILETIME creation;
    FILETIME exit;
    FILETIME kernel;
    FILETIME user;
    if (!GetProcessTimes(GetCurrentProcess(), &creation, &exit, &kernel, &user)) {
        return 0.0;
    }
    auto ticks = [](const FILETIME& time) {
        return (static_cast<uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime;
    };
    return static_cast<double>(ticks(kernel) + ticks(user)) / 1e7;
}

double Percentile(std::vector<double> values, double fraction) {
    if (values.empty()) {
        return 0.0;
    }
    std::sort(values.begin(), values.end());
    const size_t index = static_cast<size_t>(fraction * static_cast<double>(values.size() - 1));
    return values[index];
}

struct Case {
    const char* path;  // "direct" or "avi": what VideoCapture is expected to put before its sink
    DShow::VideoPixelFormat format;
    const GUID* subtype;
    LONG width;
    LONG height;
    int rate;
};

struct Measurement {
    std::string failure;  // empty when the case ran
    std::string feed;     // what fed the consumer, as CaptureTool names it
    double windowSeconds = 0.0;
    int64_t frames = 0;
    int64_t drops = -1;  // -1: not known
    double cpuSeconds = 0.0;
    std::vector<double> latenciesUs;
    int64_t undecodedStamps = 0;
};

// Where the camera's stamp lies in the frame that reaches the callback.
struct StampLayout {
    const GUID* subtype = nullptr;
    size_t rowOffset = 0;  // start of the picture's top row in the buffer
    size_t rowBytes = 0;
};

// The callback's side of a VideoCapture case: counts frames, judges drops from their time
// stamps and measures each frame's latency while the window is open.
//
// Threads: Take runs on the streaming thread of the filter in front of the sink; the other
// operations on the benchmark's main thread. m_lock guards every member below it.
class FrameRecorder {
public:
    FrameRecorder(double intervalNs, const StampLayout& layout, size_t expectedFrames)
        : m_layout(layout), m_qpcPerUs(QpcFrequency() / 1e6), m_dropCounter(intervalNs) {
        m_latenciesUs.reserve(expectedFrames * 2);
    }

    void Take(const unsigned char* bits, long size, long long timestampNs, void*) {
        const uint64_t arrival = QpcNow();
        TinyFramework::TinyAutoLock hold(m_lock);
        ++m_seen;
        if (!m_open) {
            return;
        }
        ++m_frames;
        m_dropCounter.Add(timestampNs);
        uint64_t filled = 0;
        if (size > 0 && m_layout.rowOffset + m_layout.rowBytes <= static_cast<size_t>(size) &&
            VirtualCamera::DecodeFillTime(*m_layout.subtype, bits + m_layout.rowOffset,
                                          m_layout.rowBytes, &filled) &&
            filled <= arrival) {
            m_latenciesUs.push_back(static_cast<double>(arrival - filled) / m_qpcPerUs);
        } else {
            ++m_undecoded;
        }
    }

    int64_t Seen() {
        TinyFramework::TinyAutoLock hold(m_lock);
        return m_seen;
    }
    void Open() {
        TinyFramework::TinyAutoLock hold(m_lock);
        m_open = true;
    }
    void Close(Measurement& measurement) {
        TinyFramework::TinyAutoLock hold(m_lock);
        m_open = false;
        measurement.frames = m_frames;
        measurement.drops = m_dropCounter.Drops();
        measurement.latenciesUs = m_latenciesUs;
        measurement.undecodedStamps = m_undecoded;
    }

private:
    const StampLayout m_layout;
    const double m_qpcPerUs;
    TinyFramework::TinyLock m_lock;
    bool m_open = false;
    int64_t m_seen = 0;
    int64_t m_frames = 0;
    int64_t m_undecoded = 0;
    CaptureTool::DropCounter m_dropCounter;
    std::vector<double> m_latenciesUs;
};

bool FindDevice(DShow::VideoDevice& found) {
    std::vector<DShow::VideoDevice> devices;
    DShow::GetVideoDevices(devices);
    for (const DShow::VideoDevice& device : devices) {
        if (device.GetId() == kDevicePath) {
            found = device;
            return true;
        }
    }
    return false;
}

// The stamp sits in the first row in memory of the camera's frame, which is the picture's top
// row. The AVI decompressor hands out bottom-up RGB32, where the top row is the last in memory.
StampLayout LayoutOfCurrentFormat(const DShow::VideoFormat& current) {
    StampLayout layout;
    const LONG width = current.GetSize().cx;
    const LONG rows = std::abs(current.GetSize().cy);
    switch (current.GetFormat()) {
        case DShow::PIXEL_FORMAT_YUY2:
            layout.subtype = &MEDIASUBTYPE_YUY2;
            layout.rowBytes = static_cast<size_t>(width) * 2;
            break;
        case DShow::PIXEL_FORMAT_UYVY:
            layout.subtype = &MEDIASUBTYPE_UYVY;
            layout.rowBytes = static_cast<size_t>(width) * 2;
            break;
        default:  // RGB32 out of the decoder
            layout.subtype = &MEDIASUBTYPE_RGB32;
            layout.rowBytes = static_cast<size_t>(width) * 4;
            break;
    }
    if (current.GetFlip() != 0 && rows > 0) {
        layout.rowOffset = layout.rowBytes * static_cast<size_t>(rows - 1);
    }
    return layout;
}

// Waits until `ready` says so, or the deadline passes; keeps the graph's event queue drained.
// False when the stream broke or never started.
template <typename Ready, typename Events>
bool WaitUntil(Ready ready, Events eventsOk, double deadlineSeconds) {
    const double end = Seconds() + deadlineSeconds;
    while (!ready()) {
        if (!eventsOk() || Seconds() > end) {
            return false;
        }
        Sleep(kPollMs);
    }
    return true;
}

// Keeps the window open for `seconds` while the graph runs; the measured length goes back.
template <typename Events>
bool HoldWindow(double seconds, Events eventsOk, double& measured) {
    const double start = Seconds();
    for (;;) {
        const double elapsed = Seconds() - start;
        if (elapsed >= seconds) {
            measured = elapsed;
            return true;
        }
        if (!eventsOk()) {
            return false;
        }
        const double left = (seconds - elapsed) * 1000.0;
        Sleep(static_cast<DWORD>(std::min<double>(kPollMs, left)) + 1);
    }
}

Measurement MeasureVideoCapture(const DShow::VideoDevice& device, const Case& item,
                                double seconds) {
    Measurement result;
    // The recorder outlives the capture object, whose teardown stops the streaming thread that
    // calls into it.
    std::unique_ptr<FrameRecorder> recorder;
    DShow::VideoCapture capture;
    if (!capture.Initialize(device)) {
        result.failure = "Initialize failed";
        return result;
    }
    const DShow::VideoFormat wanted(DShow::TinySize(item.width, item.height),
                                    static_cast<float>(item.rate), item.format);
    if (!capture.Allocate(wanted) ||
        capture.GetSinkFeed() == DShow::VideoCapture::SinkFeed::kNone) {
        result.failure = "Allocate connected nothing";
        return result;
    }
    result.feed = CaptureTool::PathName(capture.GetSinkFeed());
    const DShow::VideoFormat current = capture.GetCurrentFormat();
    recorder.reset(new FrameRecorder(CaptureTool::FrameIntervalNs(current.GetRate()),
                                     LayoutOfCurrentFormat(current),
                                     static_cast<size_t>(item.rate * seconds)));
    capture.SetCallback(
        TinyFramework::BindCallback<void(const unsigned char*, long, long long, void*)>(
            &FrameRecorder::Take, recorder.get()));
    if (!capture.Run()) {
        result.failure = "Run failed";
        return result;
    }
    auto eventsOk = [&] { return capture.CheckEvents(); };
    if (!WaitUntil([&] { return recorder->Seen() >= kWarmUpFrames; }, eventsOk,
                   kFirstFramesDeadlineSeconds)) {
        result.failure = "no frames";
        capture.Stop();
        return result;
    }
    const double cpuBefore = ProcessCpuSeconds();
    recorder->Open();
    const bool held = HoldWindow(seconds, eventsOk, result.windowSeconds);
    recorder->Close(result);
    result.cpuSeconds = ProcessCpuSeconds() - cpuBefore;
    capture.Stop();
    if (!held) {
        result.failure = "stream ended";
    }
    return result;
}

// The same camera and mode into CLSID_NullRenderer, connected by the graph's own Connect from
// the capture pin: no sink, no callback, no decoder (the null renderer takes any type).
class NullRendererGraph {
public:
    ~NullRendererGraph() {
        if (m_control) {
            m_control->Stop();
        }
        if (m_graph) {
            m_graph->RemoveFilter(m_renderer.Get());
            m_graph->RemoveFilter(m_camera.Get());
        }
    }

    std::string Build(const DShow::VideoDevice& device, const Case& item) {
        if (FAILED(DShow::CreateComInstance(CLSID_FilterGraph, CLSCTX_INPROC_SERVER,
                                            IID_IGraphBuilder, m_graph))) {
            return "no filter graph";
        }
        if (!DShow::GetDeviceFilter(device, CLSID_VideoInputDeviceCategory, m_camera)) {
            return "no camera filter";
        }
        m_capturePin = DShow::GetPinByCategory(m_camera.Get(), PINDIR_OUTPUT, PIN_CATEGORY_CAPTURE);
        if (!m_capturePin || FAILED(m_graph->AddFilter(m_camera.Get(), L"Camera"))) {
            return "camera not added";
        }
        if (!SetMode(item)) {
            return "mode not set";
        }
        if (FAILED(DShow::CreateComInstance(kNullRendererClsid, CLSCTX_INPROC_SERVER,
                                            IID_IBaseFilter, m_renderer)) ||
            FAILED(m_graph->AddFilter(m_renderer.Get(), L"Null Renderer"))) {
            return "no null renderer";
        }
        ComPtr<IPin> input = DShow::GetPinByCategory(m_renderer.Get(), PINDIR_INPUT, GUID_NULL);
        if (!input) {
            return "null renderer without input pin";
        }
        const HRESULT hr = m_graph->Connect(m_capturePin.Get(), input.Get());
        if (FAILED(hr)) {
            return TinyFramework::StringPrintf("Connect failed (0x%08lX)",
                                               static_cast<unsigned long>(hr));
        }
        if (FAILED(m_graph->QueryInterface(IID_IMediaControl,
                                           reinterpret_cast<void**>(m_control.GetAddressOf()))) ||
            FAILED(m_graph->QueryInterface(IID_IMediaEvent,
                                           reinterpret_cast<void**>(m_events.GetAddressOf())))) {
            return "no graph control";
        }
        // A renderer reports the start time of the last sample it received as its current
        // position; that is all a null renderer tells about its frames (it has no IQualProp).
        if (FAILED(m_renderer->QueryInterface(
                IID_IMediaSeeking, reinterpret_cast<void**>(m_seeking.GetAddressOf())))) {
            return "the null renderer has no IMediaSeeking";
        }
        return std::string();
    }

    bool Run() { return SUCCEEDED(m_control->Run()); }
    void Stop() { m_control->Stop(); }

    // The stream time of the last sample the renderer received; false before the first one.
    // Wine's renderer writes that time and then fails with E_NOTIMPL, because it converts the
    // time format through the camera's pin, which has no IMediaSeeking: a written value counts.
    bool LastSampleTime(LONGLONG& time) {
        constexpr LONGLONG kNotWritten = std::numeric_limits<LONGLONG>::min();
        time = kNotWritten;
        const HRESULT hr = m_seeking->GetCurrentPosition(&time);
        if (time == kNotWritten) {
            time = 0;
            return false;
        }
        return SUCCEEDED(hr) || hr == E_NOTIMPL;
    }

    // False once the stream ended or the device was lost.
    bool DrainEvents() {
        long code = 0;
        LONG_PTR first = 0;
        LONG_PTR second = 0;
        bool alive = true;
        while (m_events->GetEvent(&code, &first, &second, 0) == S_OK) {
            if (code == EC_DEVICE_LOST || code == EC_ERRORABORT || code == EC_COMPLETE) {
                alive = false;
            }
            m_events->FreeEventParams(code, first, second);
        }
        return alive;
    }

private:
    // The capability of the case's format and size, with the case's rate put on it.
    bool SetMode(const Case& item) {
        ComPtr<IAMStreamConfig> config;
        if (FAILED(m_capturePin->QueryInterface(IID_IAMStreamConfig,
                                                reinterpret_cast<void**>(config.GetAddressOf())))) {
            return false;
        }
        int count = 0;
        int size = 0;
        if (FAILED(config->GetNumberOfCapabilities(&count, &size))) {
            return false;
        }
        for (int index = 0; index < count; ++index) {
            alignas(8) BYTE caps[128] = {};
            AM_MEDIA_TYPE* type = nullptr;
            if (FAILED(config->GetStreamCaps(index, &type, caps)) || type == nullptr) {
                return false;
            }
            bool chosen = false;
            if (IsEqualGUID(type->subtype, *item.subtype) &&
                IsEqualGUID(type->formattype, FORMAT_VideoInfo) &&
                type->cbFormat >= sizeof(VIDEOINFOHEADER)) {
                auto* header = reinterpret_cast<VIDEOINFOHEADER*>(type->pbFormat);
                if (header->bmiHeader.biWidth == item.width &&
                    header->bmiHeader.biHeight == item.height) {
                    header->AvgTimePerFrame = 10000000LL / item.rate;
                    chosen = SUCCEEDED(config->SetFormat(type));
                }
            }
            if (type->pbFormat != nullptr) {
                CoTaskMemFree(type->pbFormat);
            }
            if (type->pUnk != nullptr) {
                type->pUnk->Release();
            }
            CoTaskMemFree(type);
            if (chosen) {
                return true;
            }
        }
        return false;
    }

    ComPtr<IGraphBuilder> m_graph;
    ComPtr<IBaseFilter> m_camera;
    ComPtr<IPin> m_capturePin;
    ComPtr<IBaseFilter> m_renderer;
    ComPtr<IMediaControl> m_control;
    ComPtr<IMediaEvent> m_events;
    ComPtr<IMediaSeeking> m_seeking;
};

Measurement MeasureNullRenderer(const DShow::VideoDevice& device, const Case& item,
                                double seconds) {
    Measurement result;
    NullRendererGraph graph;
    result.failure = graph.Build(device, item);
    if (!result.failure.empty()) {
        return result;
    }
    result.feed = "device";
    if (!graph.Run()) {
        result.failure = "Run failed";
        return result;
    }
    auto eventsOk = [&] { return graph.DrainEvents(); };
    // The first samples can carry stream times at or below zero: wait for the clock to pass
    // several frames' worth, which also lets the stream warm up.
    const LONGLONG interval = 10000000LL / item.rate;
    LONGLONG first = 0;
    LONGLONG last = 0;
    if (!WaitUntil([&] { return graph.LastSampleTime(last) && last >= kWarmUpFrames * interval; },
                   eventsOk, kFirstFramesDeadlineSeconds)) {
        result.failure = "no frames";
        return result;
    }
    const double cpuBefore = ProcessCpuSeconds();
    graph.LastSampleTime(first);
    const bool held = HoldWindow(seconds, eventsOk, result.windowSeconds);
    graph.LastSampleTime(last);
    result.cpuSeconds = ProcessCpuSeconds() - cpuBefore;
    // Frames between the last sample before the window and the last one in it, judged from
    // their time stamps: exact while the stream keeps its pace, and blind to a drop inside.
    result.frames = std::llround(static_cast<double>(last - first) / static_cast<double>(interval));
    graph.Stop();
    if (!held) {
        result.failure = "stream ended";
    }
    return result;
}

double CpuMsPerFrame(const Measurement& measurement) {
    return measurement.frames > 0
               ? 1000.0 * measurement.cpuSeconds / static_cast<double>(measurement.frames)
               : 0.0;
}

void PrintHeader(double seconds) {
    printf("VideoCapture against the null renderer: %.1f s per case, one case after another\n",
           seconds);
    printf("%-7s %-17s %-13s %-7s %7s %8s %6s %9s %7s %9s %9s\n", "path", "mode", "consumer",
           "feed", "frames", "expected", "drops", "cpu ms/f", "vs null", "lat p50us", "lat p99us");
}

void PrintRow(const char* path, const std::string& mode, const char* consumer,
              const Measurement& measurement, double seconds, int rate, double nullCpuPerFrame,
              bool hasLatency) {
    if (!measurement.failure.empty()) {
        printf("%-7s %-17s %-13s failed: %s\n", path, mode.c_str(), consumer,
               measurement.failure.c_str());
        return;
    }
    const double cpu = CpuMsPerFrame(measurement);
    const std::string drops =
        measurement.drops >= 0 ? std::to_string(measurement.drops) : std::string("-");
    const std::string ratio = nullCpuPerFrame > 0.0
                                  ? TinyFramework::StringPrintf("%.2fx", cpu / nullCpuPerFrame)
                                  : std::string("-");
    std::string p50 = "-";
    std::string p99 = "-";
    if (hasLatency && !measurement.latenciesUs.empty()) {
        p50 = TinyFramework::StringPrintf("%.0f", Percentile(measurement.latenciesUs, 0.5));
        p99 = TinyFramework::StringPrintf("%.0f", Percentile(measurement.latenciesUs, 0.99));
    }
    printf("%-7s %-17s %-13s %-7s %7lld %8.0f %6s %9.3f %7s %9s %9s\n", path, mode.c_str(),
           consumer, measurement.feed.c_str(), static_cast<long long>(measurement.frames),
           rate * seconds, drops.c_str(), cpu, ratio.c_str(), p50.c_str(), p99.c_str());
    if (hasLatency && measurement.undecodedStamps > 0) {
        printf("        (%lld frames without a readable fill stamp)\n",
               static_cast<long long>(measurement.undecodedStamps));
    }
}

void PrintNotes() {
    printf(
        "expected: rate x seconds. drops: gaps of more than 1.5 intervals between time stamps.\n"
        "cpu ms/f: user and kernel time of the whole process over the window (the camera fills\n"
        "  its frames in it too) per frame delivered; vs null: VideoCapture's against the null\n"
        "  renderer's of the same case.\n"
        "lat: from the camera's fill of a frame (the counter it stamps into it) to the callback.\n"
        "null renderer: no callback, so no latency; no frame count of its own, so its frames are\n"
        "  the span of the time stamps it last received at the window's two ends, in intervals,\n"
        "  and no drops. It takes the camera's UYVY as it is: on the avi path the ratio is the\n"
        "  cost of the decoder and the sink together.\n");
}

void RunCase(const DShow::VideoDevice& device, const Case& item, double seconds) {
    const std::string mode = TinyFramework::StringPrintf(
        "%s %ldx%ld@%d", item.format == DShow::PIXEL_FORMAT_UYVY ? "UYVY" : "YUY2", item.width,
        item.height, item.rate);
    const Measurement capture = MeasureVideoCapture(device, item, seconds);
    const Measurement null = MeasureNullRenderer(device, item, seconds);
    const double nullCpu = null.failure.empty() ? CpuMsPerFrame(null) : 0.0;
    PrintRow(item.path, mode, "VideoCapture", capture, seconds, item.rate, nullCpu, true);
    PrintRow("", mode, "null renderer", null, seconds, item.rate, 0.0, false);
    fflush(stdout);
}

void RunCases(const DShow::VideoDevice& device, const char* path, DShow::VideoPixelFormat format,
              const GUID& subtype, double seconds) {
    const LONG sizes[][2] = {{640, 480}, {1920, 1080}};
    const int rates[] = {30, 60};
    for (const auto& size : sizes) {
        for (int rate : rates) {
            RunCase(device, Case{path, format, &subtype, size[0], size[1], rate}, seconds);
        }
    }
}

// The AVI path needs the decoder stand-ins; a prefix that had none gets none back.
void RunAviCases(const DShow::VideoDevice& device, double seconds) {
    TestDecoders::ScopedDecoderInstall decoders;
    std::wstring error;
    if (!decoders.Install(&error)) {
        printf("avi     the decoder stand-ins could not be installed: %ls\n", error.c_str());
        return;
    }
    RunCases(device, "avi", DShow::PIXEL_FORMAT_UYVY, MEDIASUBTYPE_UYVY, seconds);
    if (!decoders.Restore(&error)) {
        printf("the decoder stand-ins could not be removed: %ls\n", error.c_str());
    }
}

double ParseSeconds(int argc, wchar_t** argv) {
    if (argc < 2) {
        return 3.0;
    }
    const double seconds = wcstod(argv[1], nullptr);
    return seconds > 0.0 ? seconds : 3.0;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    const double seconds = ParseSeconds(argc, argv);
    if (FAILED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {
        printf("CaptureBench: COM did not start\n");
        return 1;
    }
    std::wstring error;
    if (!VirtualCamera::RegisterServer(&error) ||
        !VirtualCamera::AddDevices(kDescription, &error)) {
        printf("CaptureBench: the virtual camera could not be registered: %ls\n", error.c_str());
        CoUninitialize();
        return 1;
    }
    int exitCode = 0;
    {
        DShow::VideoDevice device;
        if (FindDevice(device)) {
            PrintHeader(seconds);
            RunCases(device, "direct", DShow::PIXEL_FORMAT_YUY2, MEDIASUBTYPE_YUY2, seconds);
            RunAviCases(device, seconds);
            PrintNotes();
        } else {
            printf("CaptureBench: the device \"%ls\" was not found\n", kDevicePath);
            exitCode = 1;
        }
    }
    VirtualCamera::RemoveDevice(kInstanceName);
    CoUninitialize();
    return exitCode;
}
