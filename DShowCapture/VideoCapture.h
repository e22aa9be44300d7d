#pragma once

#include <windows.h>

#include <dshow.h>

#include <vector>

#include "DShowCapture/DeviceEnumeration.h"
#include "DShowCapture/VideoFormat.h"

namespace DShow {

// Captures video from one device through a DirectShow graph. For now only the format listing,
// which needs no instance and no graph.
class VideoCapture {
public:
    // Appends the modes of the video input device `device.id` to `formats` and sorts the whole
    // vector. True when every capability was read; on a failure `formats` keeps what was read
    // so far, unsorted.
    static bool GetDeviceFormats(const VideoDevice& device, std::vector<VideoFormat>& formats);
    // The same for a device of another category.
    static bool GetDeviceFormats(const VideoDevice& device, const GUID& category,
                                 std::vector<VideoFormat>& formats);
    // The listing once the device's filter is open: its capture output pin's modes.
    static bool GetFilterFormats(IBaseFilter* filter, std::vector<VideoFormat>& formats);
    // The listing over a capture pin's IAMStreamConfig.
    static bool GetPinFormats(IPin* pin, std::vector<VideoFormat>& formats);
};

// Turns one stream capability into a mode. False when the capability is not listed: not a
// VIDEOINFOHEADER video type, a subtype without pixel format, or no whole VIDEOINFOHEADER in the
// format block. Without a capability block (null) the mode's sizes and rates are the frame's own.
bool VideoFormatFromCapability(const AM_MEDIA_TYPE& mediaType,
                               const VIDEO_STREAM_CONFIG_CAPS* capability, VideoFormat& format);

// Sorts modes by FormatLess in the order that the Windows builds produce.
void SortFormats(std::vector<VideoFormat>& formats);

}  // namespace DShow
