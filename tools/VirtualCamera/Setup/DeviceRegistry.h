#pragma once
// Registers, finds and removes virtual devices through the system's filter mapper and device
// enumerator.

#include <windows.h>
#include <strmif.h>
#include <wrl/client.h>

#include <string>
#include <vector>

#include "tools/VirtualCamera/Config/DeviceConfig.h"
#include "tools/VirtualCamera/VirtualCameraSetup.h"

namespace VirtualCamera {

class DeviceRegistry {
public:
    HRESULT Open();
    HRESULT Register(const DeviceDescription& device, std::wstring* error);
    HRESULT Unregister(const std::wstring& instanceName);
    std::vector<DeviceRecord> List();
    // A number in the property bag of the device with this instance name; false when there is
    // no such device or no such number.
    bool ReadNumber(const std::wstring& instanceName, const wchar_t* name, LONG* number);

private:
    HRESULT WriteNames(const DeviceDescription& device, IMoniker* moniker, IPropertyBag* bag);
    HRESULT DeleteBagValue(IMoniker* moniker, const wchar_t* name);

    Microsoft::WRL::ComPtr<IFilterMapper2> m_mapper;
};

}  // namespace VirtualCamera
