#include "tools/VirtualCamera/VirtualCameraSetup.h"

#include <objbase.h>

#include "tools/VirtualCamera/Config/DeviceConfig.h"
#include "tools/VirtualCamera/Config/Guids.h"
#include "tools/VirtualCamera/Config/SystemHelpers.h"
#include "tools/VirtualCamera/Setup/DeviceRegistry.h"

namespace VirtualCamera {
namespace {

constexpr const wchar_t* kDllName = L"VirtualCamera.dll";

// COM for the duration of one call; a thread already in another apartment keeps it.
class ComScope {
public:
    ComScope() : m_hr(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    ~ComScope() {
        if (SUCCEEDED(m_hr)) {
            CoUninitialize();
        }
    }
    bool Usable() const { return SUCCEEDED(m_hr) || m_hr == RPC_E_CHANGED_MODE; }

private:
    HRESULT m_hr;
};

class Library {
public:
    explicit Library(const std::wstring& path) : m_module(LoadLibraryW(path.c_str())) {}
    ~Library() {
        if (m_module) {
            FreeLibrary(m_module);
        }
    }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    HMODULE get() const { return m_module; }

private:
    HMODULE m_module;
};

bool Fail(std::wstring* error, const std::wstring& message) {
    if (error) {
        *error = message;
    }
    return false;
}

std::wstring ExecutableDirectory() {
    const std::wstring path = ModuleFilePath(nullptr);
    const size_t slash = path.find_last_of(L"\\/");
    return slash == std::wstring::npos ? std::wstring() : path.substr(0, slash + 1);
}

bool CallServerEntry(const char* entryName, std::wstring* error) {
    ComScope com;
    const std::wstring path = ExecutableDirectory() + kDllName;
    Library library(path);
    if (!library.get()) {
        return Fail(error,
                    L"cannot load " + path + L" (error " + std::to_wstring(GetLastError()) + L")");
    }
    using Entry = HRESULT(STDAPICALLTYPE*)();
    const auto entry =
        reinterpret_cast<Entry>(reinterpret_cast<void*>(GetProcAddress(library.get(), entryName)));
    if (!entry) {
        return Fail(error,
                    path + L" has no " + std::wstring(entryName, entryName + strlen(entryName)));
    }
    const HRESULT hr = entry();
    if (FAILED(hr)) {
        return Fail(error, std::wstring(entryName, entryName + strlen(entryName)) + L" failed: " +
                               HexCode(hr));
    }
    return true;
}

}  // namespace

const GUID& VirtualCameraClsid() {
    return CLSID_VirtualCameraFilter;
}

bool RegisterServer(std::wstring* error) {
    return CallServerEntry("DllRegisterServer", error);
}

bool UnregisterServer(std::wstring* error) {
    return CallServerEntry("DllUnregisterServer", error);
}

bool AddDevices(const std::wstring& descriptionText, std::wstring* error) {
    std::vector<DeviceDescription> devices;
    std::wstring parseError;
    if (!ParseDescription(descriptionText, &devices, &parseError)) {
        return Fail(error, parseError);
    }
    ComScope com;
    if (!com.Usable()) {
        return Fail(error, L"COM could not be initialized");
    }
    DeviceRegistry registry;
    const HRESULT hr = registry.Open();
    if (FAILED(hr)) {
        return Fail(error, L"the filter mapper is not available: " + HexCode(hr));
    }
    for (const auto& device : devices) {
        // Replacing: a stale instance would keep values the new description leaves out.
        registry.Unregister(device.instanceName);
        if (FAILED(registry.Register(device, error))) {
            return false;
        }
    }
    return true;
}

bool RemoveDevice(const std::wstring& instanceName) {
    ComScope com;
    DeviceRegistry registry;
    if (FAILED(registry.Open())) {
        return false;
    }
    bool found = false;
    for (const auto& record : registry.List()) {
        if (_wcsicmp(record.instanceName.c_str(), instanceName.c_str()) == 0) {
            found = true;
        }
    }
    return found && SUCCEEDED(registry.Unregister(instanceName));
}

bool RemoveAllDevices() {
    ComScope com;
    DeviceRegistry registry;
    if (FAILED(registry.Open())) {
        return false;
    }
    bool allRemoved = true;
    for (const auto& record : registry.List()) {
        if (FAILED(registry.Unregister(record.instanceName))) {
            allRemoved = false;
        }
    }
    return allRemoved;
}

bool ReadPowerLineReport(const std::wstring& instanceName, PowerLineReport* report) {
    ComScope com;
    DeviceRegistry registry;
    LONG value = 0;
    LONG flags = 0;
    if (!registry.ReadNumber(instanceName, kBagPowerLineValue, &value) ||
        !registry.ReadNumber(instanceName, kBagPowerLineFlags, &flags)) {
        return false;
    }
    report->value = value;
    report->flags = static_cast<ULONG>(flags);
    return true;
}

std::vector<DeviceRecord> ListDeviceRecords() {
    ComScope com;
    DeviceRegistry registry;
    return registry.List();
}

std::vector<std::wstring> ListDevices() {
    std::vector<std::wstring> names;
    for (const auto& record : ListDeviceRecords()) {
        names.push_back(record.instanceName);
    }
    return names;
}

std::wstring DefaultCameraInstanceName() {
    return L"VirtualCamera0";
}

std::wstring DefaultCameraDescription() {
    return L"[device " + DefaultCameraInstanceName() +
           L"]\n"
           L"FriendlyName = Virtual Camera\n"
           L"DevicePath = "
           L"\\\\?\\root#virtualcamera#0000#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\\global\n"
           L"mode = YUY2 videoinfo 640 480 333333 min_interval=333333 max_interval=2000000\n"
           L"mode = YUY2 videoinfo 1280 720 333333 min_interval=333333 max_interval=2000000\n"
           L"mode = MJPG videoinfo 1280 720 333333 min_interval=333333 max_interval=2000000\n";
}

std::wstring DescriptionHelp() {
    return DescriptionFormatHelp();
}

bool Utf8ToWide(const std::string& utf8, std::wstring* wide) {
    std::string text = utf8;
    if (text.size() >= 3 && text.compare(0, 3, "\xEF\xBB\xBF") == 0) {
        text.erase(0, 3);
    }
    wide->clear();
    if (text.empty()) {
        return true;
    }
    const int length = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(),
                                           static_cast<int>(text.size()), nullptr, 0);
    if (length <= 0) {
        return false;
    }
    wide->resize(static_cast<size_t>(length));
    return MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(),
                               static_cast<int>(text.size()), &(*wide)[0], length) == length;
}

}  // namespace VirtualCamera
