#include "DShowCapture/VideoCapture.h"

#include "DShowCapture/DriverData.h"
#include "DShowCapture/FormatSort.h"
#include "DShowCapture/MediaTypes.h"
#include "DShowCapture/PinSearch.h"
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

}  // namespace DShow
