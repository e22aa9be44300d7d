#include "DShowCapture/DeviceEnumeration.h"

#include <utility>

#include "DShowCapture/PinSearch.h"
#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/Common/TinyLogging_win32.h"

namespace DShow {
namespace {

using TinyFramework::StringPrintf;

// CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER: the enumerator lives in this process.
constexpr DWORD kInProcessContext = CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER;

std::wstring BstrText(BSTR text) {
    return std::wstring(text, SysStringLen(text));
}

// Creates the system device enumerator and opens `category`. Both failures are logged; an
// empty category counts as a failure too (the enumerator answers S_FALSE for it).
bool OpenCategory(const GUID& category, ComPtr<IEnumMoniker>& monikers) {
    ComPtr<ICreateDevEnum> deviceEnum;
    HRESULT hr = CreateComInstance(CLSID_SystemDeviceEnum, kInProcessContext, IID_ICreateDevEnum,
                                   deviceEnum);
    if (hr != S_OK) {
        TINY_LOG_ERROR() << StringPrintf("Failed to CoCreateInstance(CLSID_SystemDeviceEnum,0x%X)",
                                         static_cast<unsigned>(hr));
        return false;
    }
    hr = deviceEnum->CreateClassEnumerator(category, monikers.ReleaseAndGetAddressOf(), 0);
    if (hr != S_OK) {
        TINY_LOG_ERROR() << StringPrintf("Failed to CreateClassEnumerator(IEnumMoniker,0x%X)",
                                         static_cast<unsigned>(hr));
        return false;
    }
    return true;
}

// The next device; false at the end and on any error of the enumerator alike.
bool NextMoniker(IEnumMoniker* monikers, ComPtr<IMoniker>& moniker) {
    return monikers->Next(1, moniker.ReleaseAndGetAddressOf(), nullptr) == S_OK && moniker;
}

HRESULT BindPropertyBag(IMoniker* moniker, ComPtr<IPropertyBag>& bag) {
    return moniker->BindToStorage(nullptr, nullptr, IID_IPropertyBag,
                                  reinterpret_cast<void**>(bag.ReleaseAndGetAddressOf()));
}

HRESULT BindFilter(IMoniker* moniker, ComPtr<IBaseFilter>& filter) {
    return moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter,
                                 reinterpret_cast<void**>(filter.ReleaseAndGetAddressOf()));
}

// The device lists log a bag that cannot be opened and go on with the next device.
bool BindPropertyBagLogged(IMoniker* moniker, ComPtr<IPropertyBag>& bag) {
    const HRESULT hr = BindPropertyBag(moniker, bag);
    if (hr != S_OK) {
        TINY_LOG_ERROR() << StringPrintf("Failed to BindToStorage(IPropertyBag,0x%X)",
                                         static_cast<unsigned>(hr));
        return false;
    }
    return true;
}

// Whether the device's first pin sits on a medium of its own, which marks an analog device.
bool HasOwnMedium(IBaseFilter* filter) {
    ComPtr<IPin> pin = GetFirstPin(filter);
    REGPINMEDIUM medium = {};
    return pin && GetPinMedium(pin.Get(), medium);
}

}  // namespace

VideoDevice::VideoDevice(std::wstring&& deviceName, std::wstring&& deviceId)
    : name(std::move(deviceName)), id(std::move(deviceId)) {
    // A moved-from string is only "valid but unspecified"; the sources are promised empty.
    deviceName.clear();
    deviceId.clear();
}

bool ReadDeviceNameAndId(IPropertyBag* bag, VideoDevice& device) {
    ScopedVariant value;
    HRESULT hr = bag->Read(L"Description", value.Get(), nullptr);
    if (hr != S_OK) {
        // Same variant, and this second result is the one that counts.
        hr = bag->Read(L"FriendlyName", value.Get(), nullptr);
    }
    if (FAILED(hr) || !value.IsString()) {
        return false;
    }
    device.name = BstrText(value.Value().bstrVal);
    value.Clear();

    hr = bag->Read(L"DevicePath", value.Get(), nullptr);
    // Without a path the name has to serve as the id; GetDeviceFilter falls back the same way.
    device.id = SUCCEEDED(hr) && value.IsString() ? BstrText(value.Value().bstrVal) : device.name;
    return true;
}

bool ReadDeviceLookupText(IPropertyBag* bag, std::wstring& text) {
    // The fallbacks of the device lists, in the same order, so that an id from a list finds its
    // device again. Only the variant's type decides; the read results are not looked at.
    static const wchar_t* const kNames[] = {L"DevicePath", L"Description", L"FriendlyName"};
    ScopedVariant value;
    for (const wchar_t* propertyName : kNames) {
        if (value.IsString()) {
            break;
        }
        bag->Read(propertyName, value.Get(), nullptr);
    }
    if (!value.IsString()) {
        return false;
    }
    text = BstrText(value.Value().bstrVal);
    return true;
}

bool GetVideoDevices(std::vector<VideoDevice>& devices) {
    return GetDevicesInCategory(CLSID_VideoInputDeviceCategory, devices);
}

bool GetAnalogDevices(std::vector<VideoDevice>& devices) {
    return GetAnalogDevicesInCategory(CLSID_VideoInputDeviceCategory, devices);
}

bool GetDevicesInCategory(const GUID& category, std::vector<VideoDevice>& devices) {
    ComPtr<IEnumMoniker> monikers;
    if (!OpenCategory(category, monikers)) {
        return false;
    }
    devices.clear();
    ComPtr<IMoniker> moniker;
    while (NextMoniker(monikers.Get(), moniker)) {
        ComPtr<IPropertyBag> bag;
        if (!BindPropertyBagLogged(moniker.Get(), bag)) {
            continue;
        }
        VideoDevice device;
        if (!ReadDeviceNameAndId(bag.Get(), device)) {
            continue;
        }
        // The filter is created only to prove that the driver loads; it is not kept.
        ComPtr<IBaseFilter> filter;
        if (SUCCEEDED(BindFilter(moniker.Get(), filter))) {
            devices.push_back(device);
        }
    }
    return true;
}

bool GetAnalogDevicesInCategory(const GUID& category, std::vector<VideoDevice>& devices) {
    ComPtr<IEnumMoniker> monikers;
    if (!OpenCategory(category, monikers)) {
        return false;
    }
    devices.clear();
    ComPtr<IMoniker> moniker;
    while (NextMoniker(monikers.Get(), moniker)) {
        // Unlike the plain list, the filter comes first here: its pins decide.
        ComPtr<IBaseFilter> filter;
        const HRESULT hr = BindFilter(moniker.Get(), filter);
        if (hr != S_OK) {
            TINY_LOG_ERROR() << StringPrintf("Failed to BindToObject(IBaseFilter,0x%X)",
                                             static_cast<unsigned>(hr));
            continue;
        }
        if (!HasOwnMedium(filter.Get())) {
            continue;
        }
        ComPtr<IPropertyBag> bag;
        if (!BindPropertyBagLogged(moniker.Get(), bag)) {
            continue;
        }
        VideoDevice device;
        if (!ReadDeviceNameAndId(bag.Get(), device)) {
            continue;
        }
        devices.push_back(device);
    }
    return true;
}

bool GetDeviceFilter(const VideoDevice& device, const GUID& category, ComPtr<IBaseFilter>& filter) {
    ComPtr<IEnumMoniker> monikers;
    if (!OpenCategory(category, monikers)) {
        return false;
    }
    ComPtr<IMoniker> moniker;
    while (NextMoniker(monikers.Get(), moniker)) {
        ComPtr<IPropertyBag> bag;
        if (BindPropertyBag(moniker.Get(), bag) != S_OK) {
            continue;
        }
        std::wstring text;
        if (!ReadDeviceLookupText(bag.Get(), text) || text != device.id) {
            continue;
        }
        // A device that will not bind leaves the next one with the same id its chance.
        ComPtr<IBaseFilter> candidate;
        if (SUCCEEDED(BindFilter(moniker.Get(), candidate)) && candidate) {
            filter = std::move(candidate);
            return true;
        }
    }
    return false;
}

bool GetFilterByMedium(const GUID& category, const REGPINMEDIUM& medium,
                       ComPtr<IBaseFilter>& filter) {
    ComPtr<IEnumMoniker> monikers;
    if (!OpenCategory(category, monikers)) {
        return false;
    }
    ComPtr<IMoniker> moniker;
    while (NextMoniker(monikers.Get(), moniker)) {
        // The bag is not read; a device without one is not taken.
        ComPtr<IPropertyBag> bag;
        if (BindPropertyBag(moniker.Get(), bag) != S_OK) {
            continue;
        }
        ComPtr<IBaseFilter> candidate;
        if (FAILED(BindFilter(moniker.Get(), candidate)) || !candidate) {
            continue;
        }
        if (GetPinByMedium(candidate.Get(), medium)) {
            filter = std::move(candidate);
            return true;
        }
    }
    return false;
}

}  // namespace DShow
