#include "DShowCapture/VideoCapture.h"

#include <algorithm>

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

}  // namespace

bool VideoFormatFromCapability(const AM_MEDIA_TYPE& mediaType,
                               const VIDEO_STREAM_CONFIG_CAPS& capability, VideoFormat& format) {
    // VIDEOINFOHEADER2 capabilities are not listed.
    if (!IsEqualGUID(mediaType.majortype, MEDIATYPE_Video) ||
        !IsEqualGUID(mediaType.formattype, FORMAT_VideoInfo)) {
        return false;
    }
    VideoFormat mode;
    mode.format = GetVideoPixelFormat(mediaType.subtype);
    if (mode.format == PIXEL_FORMAT_UNKNOWN || mediaType.pbFormat == nullptr) {
        return false;
    }
    const auto* header = reinterpret_cast<const VIDEOINFOHEADER*>(mediaType.pbFormat);
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

    if (HasAllOutputSizes(capability)) {
        mode.minSize = TinySize(capability.MinOutputSize.cx, capability.MinOutputSize.cy);
        mode.maxSize = TinySize(capability.MaxOutputSize.cx, capability.MaxOutputSize.cy);
    } else {
        mode.minSize = frameSize;
        mode.maxSize = frameSize;
    }
    // The two interval tests differ on purpose: a negative longest interval still gives a
    // (negative) lowest rate, while the shortest interval must be positive to count.
    mode.minRate =
        capability.MaxFrameInterval != 0 ? RateFromInterval(capability.MaxFrameInterval) : rate;
    mode.maxRate =
        capability.MinFrameInterval > 0 ? RateFromInterval(capability.MinFrameInterval) : rate;
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
    int count = 0;
    int blockSize = 0;
    hr = config->GetNumberOfCapabilities(&count, &blockSize);
    if (hr != S_OK) {
        TINY_LOG_ERROR() << StringPrintf("Failed to GetNumberOfCapabilities(0x%X)",
                                         static_cast<unsigned>(hr));
        return false;
    }
    // One block for the whole loop. It is never smaller than the record it is read as, so that
    // a driver that states a short block cannot make us read past the allocation.
    std::vector<BYTE> block(
        std::max(static_cast<size_t>(std::max(blockSize, 0)), sizeof(VIDEO_STREAM_CONFIG_CAPS)));
    const auto* capability = reinterpret_cast<const VIDEO_STREAM_CONFIG_CAPS*>(block.data());
    for (int index = 0; index < count; ++index) {
        ScopedMediaType mediaType;
        hr = config->GetStreamCaps(index, mediaType.Receive(), block.data());
        if (hr != S_OK) {
            TINY_LOG_ERROR() << StringPrintf("Failed to GetStreamCaps(0x%X)",
                                             static_cast<unsigned>(hr));
            return false;
        }
        VideoFormat format;
        if (mediaType.Get() != nullptr &&
            VideoFormatFromCapability(*mediaType.Get(), *capability, format)) {
            formats.push_back(format);
        }
    }
    SortFormats(formats);
    return true;
}

}  // namespace DShow
