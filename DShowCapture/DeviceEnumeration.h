#pragma once

#include <windows.h>

#include <dshow.h>

#include <string>
#include <vector>

#include "DShowCapture/ComHelpers.h"

namespace DShow {

// A capture device as the parent process sees it: `name` to show, `id` to find it again.
class VideoDevice {
public:
    VideoDevice() = default;
    // Takes both texts over; the sources are left empty.
    VideoDevice(std::wstring&& deviceName, std::wstring&& deviceId);
    VideoDevice(const VideoDevice&) = default;
    VideoDevice& operator=(const VideoDevice&) = default;

    const std::wstring& GetId() const { return id; }
    const std::wstring& GetName() const { return name; }
    bool IsEmpty() const { return id.empty(); }

    // Devices are told apart by `id` alone, case-sensitively.
    bool operator==(const VideoDevice& other) const { return id == other.id; }
    bool operator!=(const VideoDevice& other) const { return !(*this == other); }

    std::wstring name;  // "Description", else "FriendlyName"
    std::wstring id;    // "DevicePath", else a copy of `name`
};

// The video input devices whose filter can be created, in the enumerator's order. True when
// the enumeration ran to its end. `devices` is emptied only once the category could be opened.
bool GetVideoDevices(std::vector<VideoDevice>& devices);
// The video input devices whose first pin has a medium of its own (analog tuners, crossbars).
bool GetAnalogDevices(std::vector<VideoDevice>& devices);
// The same two lists over any device category.
bool GetDevicesInCategory(const GUID& category, std::vector<VideoDevice>& devices);
bool GetAnalogDevicesInCategory(const GUID& category, std::vector<VideoDevice>& devices);

// The filter of the first device of `category` whose "DevicePath", else "Description", else
// "FriendlyName" equals `device.id` and whose filter can be created.
bool GetDeviceFilter(const VideoDevice& device, const GUID& category, ComPtr<IBaseFilter>& filter);
// The filter of the first device of `category` with a pin on `medium`.
bool GetFilterByMedium(const GUID& category, const REGPINMEDIUM& medium,
                       ComPtr<IBaseFilter>& filter);

// Building blocks of the above, over one device's property bag.
// Fills `name` and `id` as the device lists do; false when the bag gives no name.
bool ReadDeviceNameAndId(IPropertyBag* bag, VideoDevice& device);
// The text that GetDeviceFilter compares with a device id; false when there is none.
bool ReadDeviceLookupText(IPropertyBag* bag, std::wstring& text);

}  // namespace DShow
