#include "DShowCapture/ComHelpers.h"
#include "DShowCapture/VideoCapture.h"

#include <dvdmedia.h>
#include <ks.h>
#include <ksmedia.h>

#include <cstdlib>
#include <memory>

#include "DShowCapture/DShowPropertyDlg.h"
#include "DShowCapture/DriverData.h"
#include "DShowCapture/FormatSort.h"
#include "DShowCapture/MediaTypes.h"
#include "DShowCapture/PinSearch.h"
#include "TinyFramework/Common/TinyBacktrace.h"
#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/Common/TinyLogging_win32.h"

namespace DShow {
namespace {

using TinyFramework::StringPrintf;

// 100-nanosecond units per second. Exact in a float; the rates are computed in float so that
// they come out as the parent process knows them (333333 gives 30.000030517578125).
constexpr float kUnitsPerSecond = 10000000.0f;

float RateFromInterval(REFERENCE_TIME interval) {
    return kUnitsPerSecond / static_cast<float>(interval);
}

bool HasAllOutputSizes(const VIDEO_STREAM_CONFIG_CAPS& capability) {
    return capability.MinOutputSize.cx != 0 && capability.MinOutputSize.cy != 0 &&
           capability.MaxOutputSize.cx != 0 && capability.MaxOutputSize.cy != 0;
}

// Output sizes and the range of rates from the capability block, around the frame's own size
// and rate, which `mode` holds already.
void ApplyCapability(const VIDEO_STREAM_CONFIG_CAPS& capability, VideoFormat& mode) {
    if (HasAllOutputSizes(capability)) {
        mode.minSize = TinySize(capability.MinOutputSize.cx, capability.MinOutputSize.cy);
        mode.maxSize = TinySize(capability.MaxOutputSize.cx, capability.MaxOutputSize.cy);
    }
    // The two interval tests differ on purpose: a negative longest interval still gives a
    // (negative) lowest rate, while the shortest interval must be positive to count.
    if (capability.MaxFrameInterval != 0) {
        mode.minRate = RateFromInterval(capability.MaxFrameInterval);
    }
    if (capability.MinFrameInterval > 0) {
        mode.maxRate = RateFromInterval(capability.MinFrameInterval);
    }
}

}  // namespace

bool VideoFormatFromCapability(const AM_MEDIA_TYPE& mediaType,
                               const VIDEO_STREAM_CONFIG_CAPS* capability, VideoFormat& format) {
    // VIDEOINFOHEADER2 capabilities are not listed.
    if (!IsEqualGUID(mediaType.majortype, MEDIATYPE_Video) ||
        !IsEqualGUID(mediaType.formattype, FORMAT_VideoInfo)) {
        return false;
    }
    VideoFormat mode;
    mode.format = GetVideoPixelFormat(mediaType.subtype);
    const VIDEOINFOHEADER* header = GetVideoInfoHeader(mediaType);
    if (mode.format == PIXEL_FORMAT_UNKNOWN || header == nullptr) {
        return false;
    }
    // The height keeps its sign: a negative one marks a top-down frame.
    const TinySize frameSize(header->bmiHeader.biWidth, header->bmiHeader.biHeight);
    mode.size = frameSize;
    mode.minSize = frameSize;
    mode.maxSize = frameSize;

    const float rate =
        header->AvgTimePerFrame > 0 ? RateFromInterval(header->AvgTimePerFrame) : 0.0f;
    mode.rate = rate;
    mode.minRate = rate;
    mode.maxRate = rate;

    if (capability != nullptr) {
        ApplyCapability(*capability, mode);
    }
    format = mode;
    return true;
}

void SortFormats(std::vector<VideoFormat>& formats) {
    PlatformSort(formats.begin(), formats.end(), FormatLess);
}

bool VideoCapture::GetDeviceFormats(const VideoDevice& device, std::vector<VideoFormat>& formats) {
    return GetDeviceFormats(device, CLSID_VideoInputDeviceCategory, formats);
}

bool VideoCapture::GetDeviceFormats(const VideoDevice& device, const GUID& category,
                                    std::vector<VideoFormat>& formats) {
    ComPtr<IBaseFilter> filter;
    if (!GetDeviceFilter(device, category, filter)) {
        return false;
    }
    return GetFilterFormats(filter.Get(), formats);
}

bool VideoCapture::GetFilterFormats(IBaseFilter* filter, std::vector<VideoFormat>& formats) {
    ComPtr<IPin> pin = GetPinByCategory(filter, PINDIR_OUTPUT, PIN_CATEGORY_CAPTURE);
    if (!pin) {
        TINY_LOG_ERROR() << "Failed to GetPinByCategory";
        return false;
    }
    return GetPinFormats(pin.Get(), formats);
}

bool VideoCapture::GetPinFormats(IPin* pin, std::vector<VideoFormat>& formats) {
    ComPtr<IAMStreamConfig> config;
    HRESULT hr =
        pin->QueryInterface(IID_IAMStreamConfig, reinterpret_cast<void**>(config.GetAddressOf()));
    if (hr != S_OK) {
        TINY_LOG_ERROR() << StringPrintf("Failed to QueryInterface(IAMStreamConfig,0x%X)",
                                         static_cast<unsigned>(hr));
        return false;
    }
    StreamCapabilityReader capabilities(config.Get());
    hr = capabilities.Open();
    if (hr != S_OK) {
        TINY_LOG_ERROR() << StringPrintf("Failed to GetNumberOfCapabilities(0x%X)",
                                         static_cast<unsigned>(hr));
        return false;
    }
    for (int index = 0; index < capabilities.Count(); ++index) {
        ScopedMediaType mediaType;
        hr = capabilities.Read(index, mediaType.Receive());
        if (hr != S_OK) {
            TINY_LOG_ERROR() << StringPrintf("Failed to GetStreamCaps(0x%X)",
                                             static_cast<unsigned>(hr));
            return false;
        }
        VideoFormat format;
        if (mediaType.Get() != nullptr &&
            VideoFormatFromCapability(*mediaType.Get(), capabilities.VideoCapability(), format)) {
            formats.push_back(format);
        }
    }
    SortFormats(formats);
    return true;
}

namespace {

// The property set of the camera's image controls, {C6E13360-30AC-11D0-A18C-00A0C9118956}.
const GUID kVideoProcAmpPropertySet = {
    0xc6e13360, 0x30ac, 0x11d0, {0xa1, 0x8c, 0x00, 0xa0, 0xc9, 0x11, 0x89, 0x56}};
// KSPROPERTY_VIDEOPROCAMP_POWERLINE_FREQUENCY.
constexpr DWORD kPowerLineFrequencyProperty = 13;
// The value that selects 60 Hz mains. Fixed: there is no setting for the place's own mains.
constexpr LONG kPowerLineFrequency60Hz = 2;
// KSPROPERTY_VIDEOPROCAMP_FLAGS_MANUAL.
constexpr ULONG kVideoProcAmpManual = 2;

static_assert(sizeof(KSPROPERTY_VIDEOPROCAMP_S) == 40,
              "the driver expects the 40-byte record, padding included");
static_assert(sizeof(VIDEO_STREAM_CONFIG_CAPS) <= 128, "the capability buffer is too small");

// The event codes below 32 that end a poll with false: EC_COMPLETE (1), EC_ERRORABORT (3) and
// EC_DEVICE_LOST (31).
constexpr unsigned long kFatalEventMask = 0x8000000A;

bool IsFatalEvent(long code) {
    const unsigned long bit = static_cast<unsigned long>(code);
    return bit < 32 && ((1UL << bit) & kFatalEventMask) != 0;
}

// Where the stream's format lands in the current format. The three RGB rows differ from the
// listing's table on purpose: what is requested is RGB24/RGBA, what the memory really holds is
// bottom-up BGR24/BGRA, hence also the flip mark.
struct StreamSubtype {
    const GUID* subtype;
    VideoPixelFormat format;
    bool flipped;
};

const StreamSubtype kStreamSubtypes[] = {
    {&MEDIASUBTYPE_ARGB32, PIXEL_FORMAT_BGRA, true}, {&MEDIASUBTYPE_RGB32, PIXEL_FORMAT_BGRA, true},
    {&MEDIASUBTYPE_RGB24, PIXEL_FORMAT_BGR24, true}, {&MEDIASUBTYPE_NV12, PIXEL_FORMAT_NV12, false},
    {&MEDIASUBTYPE_YUY2, PIXEL_FORMAT_YUY2, false},  {&MEDIASUBTYPE_UYVY, PIXEL_FORMAT_UYVY, false},
    {&MEDIASUBTYPE_I420, PIXEL_FORMAT_I420, false},  {&MEDIASUBTYPE_YV12, PIXEL_FORMAT_YV12, false},
    {&MEDIASUBTYPE_MJPG, PIXEL_FORMAT_MJPEG, false},
};

// Size, rate and pixel format of a stream whose bitmap header and interval are given. A subtype
// outside the table leaves the format (and the flip mark) as they are; an interval of 0 leaves
// the rate.
void ApplyStreamFormat(const GUID& subtype, const BITMAPINFOHEADER& bitmap, REFERENCE_TIME interval,
                       VideoFormat& format) {
    format.size = TinySize(bitmap.biWidth, std::abs(bitmap.biHeight));
    if (interval > 0) {
        // Whole frames per second: 333667 gives 29, not 29.97.
        format.rate = static_cast<float>(10000000LL / interval);
    }
    for (const StreamSubtype& entry : kStreamSubtypes) {
        if (IsEqualGUID(subtype, *entry.subtype)) {
            format.format = entry.format;
            if (entry.flipped) {
                format.SetFlip();
            }
            return;
        }
    }
}

}  // namespace

VideoCapture::VideoCapture() : m_enableMjpegDec(TRUE) {}

VideoCapture::~VideoCapture() {
    Uninitialize();
}

bool VideoCapture::Initialize(const VideoDevice& device) {
    HRESULT hr =
        CreateComInstance(CLSID_FilterGraph, CLSCTX_INPROC_SERVER, IID_IGraphBuilder, m_graph);
    if (FAILED(hr)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to CoCreateInstance(CLSID_FilterGraph,0x%X)",
                                         HexOf(hr));
        return false;
    }
    hr = CreateComInstance(CLSID_CaptureGraphBuilder2, CLSCTX_INPROC_SERVER,
                           IID_ICaptureGraphBuilder2, m_builder);
    if (FAILED(hr)) {
        TINY_LOG_ERROR() << StringPrintf(
            "Failed to CoCreateInstance(CLSID_CaptureGraphBuilder2,0x%X)", HexOf(hr));
        return false;
    }
    hr = m_builder->SetFiltergraph(m_graph.Get());
    if (FAILED(hr)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to SetFiltergraph(0x%X)", HexOf(hr));
        return false;
    }
    // GetDeviceFilter reports its own failures.
    if (!GetDeviceFilter(device, CLSID_VideoInputDeviceCategory, m_captureFilter)) {
        return false;
    }
    m_capturePin = GetPinByCategory(m_captureFilter.Get(), PINDIR_OUTPUT, PIN_CATEGORY_CAPTURE);
    if (!m_capturePin) {
        TINY_LOG_ERROR() << "Failed to GetPinByCategory";
        return false;
    }
    hr = m_graph->AddFilter(m_captureFilter.Get(), nullptr);
    if (FAILED(hr)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to AddFilter(0x%X)", HexOf(hr));
        return false;
    }
    hr = m_graph->QueryInterface(IID_IMediaControl,
                                 reinterpret_cast<void**>(m_mediaControl.ReleaseAndGetAddressOf()));
    if (FAILED(hr)) {
        TINY_LOG_ERROR() << "Failed to QueryInterface(IMediaControl)";
        return false;
    }
    // This query alone takes any result but S_OK as a failure.
    hr = m_graph->QueryInterface(IID_IMediaEvent,
                                 reinterpret_cast<void**>(m_mediaEvent.ReleaseAndGetAddressOf()));
    if (hr != S_OK) {
        TINY_LOG_ERROR() << StringPrintf("Failed to QueryInterface(IMediaEvent,0x%X)", HexOf(hr));
        return false;
    }
    m_sinkFilter = TinyFramework::TinyScopedRefPtr<VideoSinkFilter>(new VideoSinkFilter(this));
    m_sinkFilter->SetMjpegDecEnabled(m_enableMjpegDec);
    m_sinkInputPin = m_sinkFilter->GetPin(0);
    if (!m_sinkInputPin) {
        TINY_LOG_ERROR() << "Failed to GetPin(0)";
        return false;
    }
    hr = m_graph->AddFilter(m_sinkFilter.Get(), kTinyFilterName);
    if (FAILED(hr)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to AddFilter(0x%X)", HexOf(hr));
        return false;
    }
    m_currentFormat.Reset();
    return true;
}

void VideoCapture::Uninitialize() {
    CloseProperty(m_captureFilter.Get());
    m_currentFormat.Reset();
    // GetState leaves the state alone when it cannot ask the graph: such a graph counts as
    // stopped. A paused graph is left paused.
    FILTER_STATE state = State_Stopped;
    GetState(state);
    if (state == State_Running) {
        Stop();
    }
    Deallocate();
    if (m_builder) {
        m_builder->SetFiltergraph(nullptr);
    }
    if (m_graph) {
        m_graph->RemoveFilter(m_sinkFilter.Get());
        m_graph->RemoveFilter(m_mjpegFilter.Get());
        m_graph->RemoveFilter(m_aviFilter.Get());
        m_graph->RemoveFilter(m_captureFilter.Get());
    }
    m_capturePin.Reset();
    m_sinkInputPin.Reset();
    m_mjpegInputPin.Reset();
    m_mjpegOutputPin.Reset();
    m_aviOutputPin.Reset();
    m_aviInputPin.Reset();
    m_mjpegFilter.Reset();
    m_aviFilter.Reset();
    m_captureFilter.Reset();
    m_mediaControl.Reset();
    m_mediaEvent.Reset();
    m_builder.Reset();
    m_graph.Reset();
    // Last: the graph and the pins above no longer point at the sink.
    m_sinkFilter.Reset();
    TINY_LOG_INFO() << "[VideoCapture] Uninitialize";
}

bool VideoCapture::IsNotReady() const {
    return !m_graph || !m_sinkFilter.Get() || !m_capturePin || !m_mediaControl;
}

bool VideoCapture::Allocate(const VideoFormat& format) {
    if (IsNotReady()) {
        TINY_LOG_ERROR() << "Failed to Allocate";
        return false;
    }
    m_currentFormat.Reset();
    // The sink brings an allocator of its own for the 24-bit RGB formats.
    const bool rgb24 = format.format == PIXEL_FORMAT_RGB24 || format.format == PIXEL_FORMAT_BGR24;
    m_sinkFilter->SetUseAllocator(rgb24 ? 1 : 0);

    ComPtr<IAMStreamConfig> config;
    HRESULT hr = m_capturePin->QueryInterface(IID_IAMStreamConfig,
                                              reinterpret_cast<void**>(config.GetAddressOf()));
    if (FAILED(hr)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to QueryInterface(IAMStreamConfig,0x%X)",
                                         HexOf(hr));
        return false;
    }
    int count = 0;
    int size = 0;
    hr = config->GetNumberOfCapabilities(&count, &size);
    if (FAILED(hr)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to GetNumberOfCapabilities(0x%X)", HexOf(hr));
        return false;
    }
    // Written by the driver and never read: only the media type chooses. The driver's stated
    // capability size is not used for this buffer.
    alignas(8) BYTE caps[128] = {};
    ScopedMediaType mediaType;
    for (int index = 0; index < count; ++index) {
        mediaType.Reset();
        hr = config->GetStreamCaps(index, mediaType.Receive(), caps);
        if (FAILED(hr)) {
            TINY_LOG_ERROR() << StringPrintf("Failed to GetStreamCaps(0x%X)", HexOf(hr));
            return false;
        }
        AM_MEDIA_TYPE* type = mediaType.Get();
        if (type == nullptr || !IsEqualGUID(type->majortype, MEDIATYPE_Video) ||
            !IsEqualGUID(type->formattype, FORMAT_VideoInfo)) {
            continue;
        }
        VideoFormat wanted = format;
        // A format block shorter than its header counts as none, so that a lying driver costs
        // the mode and not a read past its memory.
        if (GetVideoInfoHeader(*type) == nullptr) {
            continue;
        }
        auto* header = reinterpret_cast<VIDEOINFOHEADER*>(type->pbFormat);
        if (GetVideoPixelFormat(type->subtype) != wanted.format) {
            continue;
        }
        // Signed on purpose: a top-down mode is found only by its own negative height.
        if (header->bmiHeader.biWidth != wanted.size.cx ||
            header->bmiHeader.biHeight != wanted.size.cy) {
            continue;
        }
        // The first match wins whatever its rate; the requested rate is forced onto it, its
        // fraction cut off (29.97 gives 29 frames). A rate between 0 and 1 divides by zero:
        // callers never ask for one.
        if (wanted.rate > 0) {
            header->AvgTimePerFrame = 10000000LL / static_cast<long long>(wanted.rate);
        }
        m_sinkFilter->SetFormat(wanted);
        hr = config->SetFormat(type);
        if (FAILED(hr)) {
            TINY_LOG_ERROR() << StringPrintf("Failed to SetFormat(0x%X)", HexOf(hr));
            return false;
        }
        ApplyPowerLineFrequency();
        if (!ConnectByChoice(wanted, type)) {
            return false;
        }
        // After a failed connection that no decoder applies to, this is what the sink's pin saw
        // and the result is still true: callers judge the connection by the current format.
        m_currentFormat = *m_sinkFilter->GetFormat();
        return true;
    }
    TINY_LOG_ERROR() << "Failed to Allocate";
    return false;
}

bool VideoCapture::ConnectByChoice(VideoFormat& wanted, const AM_MEDIA_TYPE* mediaType) {
    // The intelligent connect may bring in a system filter by itself; this class does not
    // track it. Only S_OK counts as connected.
    if (m_graph->Connect(m_capturePin.Get(), m_sinkInputPin.Get()) == S_OK) {
        return true;
    }
    switch (wanted.format) {
        case PIXEL_FORMAT_I420:
        case PIXEL_FORMAT_YV12:
        case PIXEL_FORMAT_NV12:
        case PIXEL_FORMAT_UYVY:
        case PIXEL_FORMAT_YUY2:
            return InsertAviDecoder(wanted, mediaType);
        case PIXEL_FORMAT_MJPEG:
            return m_enableMjpegDec ? InsertMjpegDecoder(wanted, mediaType) : true;
        default:
            return true;
    }
}

void VideoCapture::ApplyPowerLineFrequency() {
    ComPtr<IKsPropertySet> properties;
    if (FAILED(m_captureFilter->QueryInterface(
            IID_IKsPropertySet, reinterpret_cast<void**>(properties.GetAddressOf())))) {
        return;
    }
    DWORD support = 0;
    if (FAILED(properties->QuerySupported(kVideoProcAmpPropertySet, kPowerLineFrequencyProperty,
                                          &support)) ||
        (support & KSPROPERTY_SUPPORT_SET) == 0) {
        return;
    }
    KSPROPERTY_VIDEOPROCAMP_S record;
    ZeroMemory(&record, sizeof(record));
    record.Property.Set = kVideoProcAmpPropertySet;
    record.Property.Id = kPowerLineFrequencyProperty;
    record.Property.Flags = KSPROPERTY_TYPE_SET;
    record.Value = kPowerLineFrequency60Hz;
    record.Flags = kVideoProcAmpManual;
    record.Capabilities = 0;
    // The same record serves as instance data and as property data; a driver that refuses it
    // keeps its own setting.
    properties->Set(kVideoProcAmpPropertySet, kPowerLineFrequencyProperty, &record, sizeof(record),
                    &record, sizeof(record));
}

void VideoCapture::Deallocate() {
    if (!m_graph) {
        return;
    }
    // Every result is ignored: a pin that is not connected has nothing to undo.
    m_graph->Disconnect(m_capturePin.Get());
    m_graph->Disconnect(m_mjpegInputPin.Get());
    m_graph->Disconnect(m_mjpegOutputPin.Get());
    m_graph->Disconnect(m_aviInputPin.Get());
    m_graph->Disconnect(m_aviOutputPin.Get());
    m_graph->Disconnect(m_sinkInputPin.Get());
}

void VideoCapture::OnMediaTypeChanged(const AM_MEDIA_TYPE* mediaType, void* /*userData*/) {
    if (mediaType == nullptr || !IsEqualGUID(mediaType->majortype, MEDIATYPE_Video)) {
        return;
    }
    // Both headers are read only when the block holds all of one.
    if (IsEqualGUID(mediaType->formattype, FORMAT_VideoInfo) && mediaType->pbFormat != nullptr &&
        mediaType->cbFormat >= sizeof(VIDEOINFOHEADER)) {
        const auto* header = reinterpret_cast<const VIDEOINFOHEADER*>(mediaType->pbFormat);
        ApplyStreamFormat(mediaType->subtype, header->bmiHeader, header->AvgTimePerFrame,
                          m_currentFormat);
        TINY_LOG_INFO() << StringPrintf("[VideoCapture] Change Format(%s)",
                                        m_currentFormat.ToString().c_str());
    }
    if (IsEqualGUID(mediaType->formattype, FORMAT_VideoInfo2) && mediaType->pbFormat != nullptr &&
        mediaType->cbFormat >= sizeof(VIDEOINFOHEADER2)) {
        const auto* header = reinterpret_cast<const VIDEOINFOHEADER2*>(mediaType->pbFormat);
        ApplyStreamFormat(mediaType->subtype, header->bmiHeader, header->AvgTimePerFrame,
                          m_currentFormat);
        TINY_LOG_INFO() << StringPrintf("[VideoCapture] Change Format2(%s)",
                                        m_currentFormat.ToString().c_str());
    }
}

void VideoCapture::OnFrameReceived(const unsigned char* bits, long size, long long timestamp,
                                   void* userData) {
    // The frame path takes no lock and copies nothing: the stream waits while the owner works.
    if (m_callback.IsNull()) {
        return;
    }
    m_callback(bits, size, timestamp, userData);
}

void VideoCapture::SetCallback(FrameCallback&& callback) {
    m_callback = std::move(callback);
}

void VideoCapture::EnableMjpegDec(BOOL enable) {
    TINY_LOG_INFO() << StringPrintf("EnableMjpegDec [%d]", enable);
    m_enableMjpegDec = enable;
}

bool VideoCapture::InsertAviDecoder(VideoFormat& wanted, const AM_MEDIA_TYPE* mediaType) {
    // The doubled parenthesis is part of this text, as the logs have always shown it.
    return InsertDecoder(CLSID_AVIDec, "Failed to CoCreateInstance(CLSID_AVIDec,0x%X))",
                         "Failed to AddFilter(0x%X)", m_aviFilter, m_aviOutputPin, m_aviInputPin,
                         wanted, mediaType);
}

bool VideoCapture::InsertMjpegDecoder(VideoFormat& wanted, const AM_MEDIA_TYPE* mediaType) {
    // The capital X is part of this text, as the logs have always shown it.
    return InsertDecoder(CLSID_MjpegDec, "Failed to CoCreateInstance(CLSID_MjpegDec,0x%X)",
                         "Failed to AddFilter(0X%X)", m_mjpegFilter, m_mjpegOutputPin,
                         m_mjpegInputPin, wanted, mediaType);
}

bool VideoCapture::InsertDecoder(REFCLSID clsid, const char* createText, const char* addFilterText,
                                 ComPtr<IBaseFilter>& filter, ComPtr<IPin>& outputPin,
                                 ComPtr<IPin>& inputPin, VideoFormat& wanted,
                                 const AM_MEDIA_TYPE* mediaType) {
    // A decoder is made once and then kept, with its pins, until Uninitialize.
    if (!filter) {
        HRESULT hr = CreateComInstance(clsid, CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER,
                                       IID_IBaseFilter, filter);
        if (FAILED(hr)) {
            filter.Reset();
            TINY_LOG_ERROR() << StringPrintf(createText, HexOf(hr));
            return false;
        }
        // Empty pins are not caught here: the connection below fails on them.
        outputPin = GetPinByCategory(filter.Get(), PINDIR_OUTPUT, GUID_NULL);
        inputPin = GetPinByCategory(filter.Get(), PINDIR_INPUT, GUID_NULL);
        hr = m_graph->AddFilter(filter.Get(), nullptr);
        if (hr != S_OK) {
            filter.Reset();
            outputPin.Reset();
            inputPin.Reset();
            TINY_LOG_ERROR() << StringPrintf(addFilterText, HexOf(hr));
            return false;
        }
    }
    // The capability's own type, with the requested rate already in it.
    HRESULT hr = m_graph->ConnectDirect(m_capturePin.Get(), inputPin.Get(), mediaType);
    if (FAILED(hr)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to ConnectDirect(0x%X)", HexOf(hr));
        return false;
    }
    // Only proves that RGB32 is on offer; the sink then asks for it in the requested size.
    ScopedMediaType rgb32;
    if (!GetPinMediaTypeRGB32(outputPin.Get(), rgb32)) {
        return false;
    }
    wanted.format = PIXEL_FORMAT_RGBA;
    m_sinkFilter->SetFormat(wanted);
    hr = m_graph->ConnectDirect(outputPin.Get(), m_sinkInputPin.Get(), nullptr);
    if (FAILED(hr)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to ConnectDirect(0x%X)", HexOf(hr));
        return false;
    }
    return true;
}

bool VideoCapture::Run() {
    if (!m_mediaControl) {
        return false;
    }
    // A success code also when the change of state is still under way: Run does not wait.
    const HRESULT hr = m_mediaControl->Run();
    if (SUCCEEDED(hr)) {
        return true;
    }
    if (hr == static_cast<HRESULT>(0x8007001F)) {
        TINY_LOG_ERROR() << StringPrintf(
            "Failed to Run(0x%X) sometimes caused by a device already in use by other "
            "application",
            HexOf(hr));
    } else {
        TINY_LOG_ERROR() << StringPrintf("Failed to Run(0x%X)", HexOf(hr));
    }
    return false;
}

bool VideoCapture::Stop() {
    if (!m_mediaControl) {
        return false;
    }
    const HRESULT hr = m_mediaControl->Stop();
    if (FAILED(hr)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to Stop(0x%X)", HexOf(hr));
        return false;
    }
    return true;
}

bool VideoCapture::Pause() {
    if (!m_mediaControl) {
        return false;
    }
    const HRESULT hr = m_mediaControl->Pause();
    if (FAILED(hr)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to Pause(0x%X)", HexOf(hr));
        return false;
    }
    return true;
}

bool VideoCapture::GetState(FILTER_STATE& state) {
    if (!m_mediaControl) {
        return false;
    }
    OAFilterState graphState = State_Stopped;
    const HRESULT hr = m_mediaControl->GetState(0, &graphState);
    if (FAILED(hr)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to GetState(0x%X)", HexOf(hr));
        return false;
    }
    state = static_cast<FILTER_STATE>(graphState);
    return true;
}

bool VideoCapture::CheckEvents() {
    if (!m_mediaEvent) {
        return false;
    }
    bool result = true;
    long code = 0;
    LONG_PTR param1 = 0;
    LONG_PTR param2 = 0;
    // Only E_ABORT, the empty queue, ends the loop: any other failure counts as one more event
    // with the values left from the one before.
    while (m_mediaEvent->GetEvent(&code, &param1, &param2, 0) != E_ABORT) {
        if (IsFatalEvent(code)) {
            if (code == EC_DEVICE_LOST) {
                TINY_LOG_ERROR() << "Failed to GetEvent(EC_DEVICE_LOST)";
            } else {
                TINY_LOG_ERROR() << StringPrintf("Failed to GetEvent(%d)", static_cast<int>(code));
            }
            result = false;
        }
        m_mediaEvent->FreeEventParams(code, param1, param2);
    }
    return result;
}

namespace {

// What the guarded call of VideoCapture::ShowProperty needs, behind the one pointer that the
// guard passes through.
struct PropertyCall {
    const ComPtr<IBaseFilter>* filter;
    HWND owner;
};

void ShowPropertyOf(void* context) {
    const PropertyCall* call = static_cast<const PropertyCall*>(context);
    ShowProperty(*call->filter, call->owner);
}

}  // namespace

BOOL VideoCapture::ShowProperty(HWND owner) {
    // std::addressof: the unary & of MinGW's ComPtr releases what the pointer holds.
    PropertyCall call = {std::addressof(m_captureFilter), owner};
    // A driver's property code runs in this process: a fault in it is logged with its stack
    // and reported as false instead of ending the program.
    return TinyFramework::CallWithExceptionTrace(&ShowPropertyOf, &call);
}

bool VideoCapture::IsPropertyShown() const {
    return m_captureFilter && DShow::IsPropertyShown(m_captureFilter.Get());
}

VideoCapture::SinkFeed VideoCapture::GetSinkFeed() const {
    ComPtr<IPin> upstreamPin;
    if (!m_sinkInputPin || FAILED(m_sinkInputPin->ConnectedTo(upstreamPin.GetAddressOf())) ||
        !upstreamPin) {
        return SinkFeed::kNone;
    }
    PIN_INFO info = {};
    if (FAILED(upstreamPin->QueryPinInfo(&info)) || info.pFilter == nullptr) {
        return SinkFeed::kOtherFilter;
    }
    // QueryPinInfo hands out a counted reference to the pin's filter: take it over.
    const ComPtr<IBaseFilter> upstreamFilter = AdoptReference(info.pFilter);
    if (upstreamFilter.Get() == m_captureFilter.Get()) {
        return SinkFeed::kDevice;
    }
    CLSID clsid = GUID_NULL;
    if (FAILED(upstreamFilter->GetClassID(&clsid))) {
        return SinkFeed::kOtherFilter;
    }
    if (IsEqualGUID(clsid, CLSID_AVIDec)) {
        return SinkFeed::kAviDecoder;
    }
    return IsEqualGUID(clsid, CLSID_MjpegDec) ? SinkFeed::kMjpegDecoder : SinkFeed::kOtherFilter;
}

}  // namespace DShow
