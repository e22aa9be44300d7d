#include "tools/VirtualCamera/Setup/DeviceRegistry.h"

#include <uuids.h>

#include "tools/VirtualCamera/Config/Guids.h"
#include "tools/VirtualCamera/Config/SystemHelpers.h"
#include "tools/VirtualCamera/Config/Variant.h"

using Microsoft::WRL::ComPtr;

namespace VirtualCamera {
namespace {

HRESULT WriteString(IPropertyBag* bag, const wchar_t* name, const std::wstring& text) {
    Variant value;
    value.get()->vt = VT_BSTR;
    value.get()->bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
    if (!value.get()->bstrVal) {
        return E_OUTOFMEMORY;
    }
    return bag->Write(name, value.get());
}

std::wstring DisplayNameOf(IMoniker* moniker) {
    LPOLESTR name = nullptr;
    if (FAILED(moniker->GetDisplayName(nullptr, nullptr, &name)) || !name) {
        return std::wstring();
    }
    std::wstring copy = name;
    CoTaskMemFree(name);
    return copy;
}

// A registered instance's display name is "@device:sw:{category}\<instance-name>".
std::wstring InstanceNameOf(const std::wstring& displayName) {
    const size_t slash = displayName.find(L'\\');
    return slash == std::wstring::npos ? std::wstring() : displayName.substr(slash + 1);
}

// Where the property bag of a registered instance keeps its values.
std::wstring InstanceKeyPath(const std::wstring& displayName) {
    const std::wstring prefix = L"@device:sw:";
    if (displayName.compare(0, prefix.size(), prefix) != 0) {
        return std::wstring();
    }
    const std::wstring rest = displayName.substr(prefix.size());
    const size_t slash = rest.find(L'\\');
    if (slash == std::wstring::npos) {
        return std::wstring();
    }
    return L"CLSID\\" + rest.substr(0, slash) + L"\\Instance\\" + rest.substr(slash + 1);
}

// The monikers of the video input category; null when the category is empty (S_FALSE, no
// enumerator comes back) or cannot be enumerated.
ComPtr<IEnumMoniker> VideoInputMonikers() {
    ComPtr<ICreateDevEnum> devices;
    if (FAILED(CoCreateInstance(CLSID_SystemDeviceEnum, nullptr, CLSCTX_INPROC_SERVER,
                                IID_PPV_ARGS(&devices)))) {
        return nullptr;
    }
    ComPtr<IEnumMoniker> monikers;
    if (devices->CreateClassEnumerator(CLSID_VideoInputDeviceCategory, &monikers, 0) != S_OK) {
        return nullptr;
    }
    return monikers;
}

// The first video input whose instance name matches, ignoring case; null when there is none.
ComPtr<IMoniker> FindMoniker(const std::wstring& instanceName) {
    ComPtr<IEnumMoniker> monikers = VideoInputMonikers();
    if (!monikers) {
        return nullptr;
    }
    ComPtr<IMoniker> moniker;
    while (monikers->Next(1, moniker.ReleaseAndGetAddressOf(), nullptr) == S_OK) {
        if (_wcsicmp(InstanceNameOf(DisplayNameOf(moniker.Get())).c_str(), instanceName.c_str()) ==
            0) {
            return moniker;
        }
    }
    return nullptr;
}

ComPtr<IPropertyBag> OpenBag(IMoniker* moniker) {
    ComPtr<IPropertyBag> bag;
    if (FAILED(moniker->BindToStorage(nullptr, nullptr, IID_PPV_ARGS(&bag)))) {
        return nullptr;
    }
    return bag;
}

HRESULT WriteName(IPropertyBag* bag, const wchar_t* key, const NameValue& name) {
    switch (name.kind) {
        case NameKind::Text:
            return WriteString(bag, key, name.text);
        case NameKind::Number:
            return WriteBagNumber(bag, key, name.number);
        case NameKind::Absent:
            return S_OK;
    }
    return E_UNEXPECTED;
}

}  // namespace

HRESULT DeviceRegistry::Open() {
    if (m_mapper) {
        return S_OK;
    }
    return CoCreateInstance(CLSID_FilterMapper2, nullptr, CLSCTX_INPROC_SERVER,
                            IID_PPV_ARGS(&m_mapper));
}

HRESULT DeviceRegistry::Register(const DeviceDescription& device, std::wstring* error) {
    const REGPINTYPES pinType = {&MEDIATYPE_Video, &MEDIASUBTYPE_NULL};
    REGFILTERPINS2 pin = {};
    pin.dwFlags = REG_PINFLAG_B_OUTPUT;
    pin.cInstances = 1;
    pin.nMediaTypes = 1;
    pin.lpMediaType = &pinType;
    pin.clsPinCategory = &PIN_CATEGORY_CAPTURE;
    REGFILTER2 filter = {};
    filter.dwVersion = 2;
    filter.dwMerit = MERIT_DO_NOT_USE;
    filter.cPins2 = 1;
    filter.rgPins2 = &pin;
    // The filter mapper always stores a FriendlyName string; other kinds are fixed up afterwards.
    const std::wstring mapperName =
        device.friendlyName.kind == NameKind::Text ? device.friendlyName.text : device.instanceName;
    ComPtr<IMoniker> moniker;
    HRESULT hr = m_mapper->RegisterFilter(CLSID_VirtualCameraFilter, mapperName.c_str(), &moniker,
                                          &CLSID_VideoInputDeviceCategory,
                                          device.instanceName.c_str(), &filter);
    if (FAILED(hr) || !moniker) {
        if (error) {
            *error = L"RegisterFilter failed for '" + device.instanceName + L"': " + HexCode(hr);
        }
        return FAILED(hr) ? hr : E_FAIL;
    }
    ComPtr<IPropertyBag> bag;
    hr = moniker->BindToStorage(nullptr, nullptr, IID_PPV_ARGS(&bag));
    if (SUCCEEDED(hr)) {
        hr = WriteNames(device, moniker.Get(), bag.Get());
    }
    if (SUCCEEDED(hr)) {
        hr = WriteString(bag.Get(), kBagSettings, device.settingsText);
    }
    if (FAILED(hr)) {
        if (error) {
            *error =
                L"writing the settings of '" + device.instanceName + L"' failed: " + HexCode(hr);
        }
        Unregister(device.instanceName);
    }
    return hr;
}

HRESULT DeviceRegistry::WriteNames(const DeviceDescription& device, IMoniker* moniker,
                                   IPropertyBag* bag) {
    HRESULT hr = S_OK;
    if (device.friendlyName.kind == NameKind::Absent) {
        hr = DeleteBagValue(moniker, kBagFriendlyName);
    } else {
        hr = WriteName(bag, kBagFriendlyName, device.friendlyName);
    }
    if (SUCCEEDED(hr)) {
        hr = WriteName(bag, kBagDescription, device.description);
    }
    if (SUCCEEDED(hr)) {
        hr = WriteName(bag, kBagDevicePath, device.devicePath);
    }
    return hr;
}

HRESULT DeviceRegistry::DeleteBagValue(IMoniker* moniker, const wchar_t* name) {
    // IPropertyBag cannot delete a value; the bag of a registered instance is a registry key.
    const std::wstring path = InstanceKeyPath(DisplayNameOf(moniker));
    if (path.empty()) {
        return E_UNEXPECTED;
    }
    HKEY key = nullptr;
    LSTATUS status = RegOpenKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, KEY_SET_VALUE, &key);
    if (status != ERROR_SUCCESS) {
        return HRESULT_FROM_WIN32(status);
    }
    status = RegDeleteValueW(key, name);
    RegCloseKey(key);
    return status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND ? S_OK
                                                                     : HRESULT_FROM_WIN32(status);
}

HRESULT DeviceRegistry::Unregister(const std::wstring& instanceName) {
    // Deletes the instance key itself, which is what UnregisterFilter does for a category
    // instance: Wine's UnregisterFilter builds the key path in a fixed-size buffer and corrupts
    // the caller's stack with longer instance names.
    const std::wstring path =
        L"CLSID\\" + GuidToString(CLSID_VideoInputDeviceCategory) + L"\\Instance\\" + instanceName;
    const LSTATUS status = RegDeleteTreeW(HKEY_CLASSES_ROOT, path.c_str());
    return status == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(status);
}

bool DeviceRegistry::ReadNumber(const std::wstring& instanceName, const wchar_t* name,
                                LONG* number) {
    ComPtr<IMoniker> moniker = FindMoniker(instanceName);
    ComPtr<IPropertyBag> bag = moniker ? OpenBag(moniker.Get()) : nullptr;
    return bag && ReadBagNumber(bag.Get(), name, number);
}

std::vector<DeviceRecord> DeviceRegistry::List() {
    std::vector<DeviceRecord> records;
    ComPtr<IEnumMoniker> monikers = VideoInputMonikers();
    if (!monikers) {
        return records;
    }
    ComPtr<IMoniker> moniker;
    while (monikers->Next(1, &moniker, nullptr) == S_OK) {
        ComPtr<IPropertyBag> bag = OpenBag(moniker.Get());
        std::wstring clsid;
        GUID guid = GUID_NULL;
        if (bag && ReadBagString(bag.Get(), L"CLSID", &clsid) && ParseGuid(clsid, &guid) &&
            IsEqualGUID(guid, CLSID_VirtualCameraFilter)) {
            DeviceRecord record;
            record.displayName = DisplayNameOf(moniker.Get());
            record.instanceName = InstanceNameOf(record.displayName);
            ReadBagString(bag.Get(), kBagFriendlyName, &record.friendlyName);
            ReadBagString(bag.Get(), kBagDevicePath, &record.devicePath);
            records.push_back(record);
        }
        moniker.Reset();
    }
    return records;
}

}  // namespace VirtualCamera
