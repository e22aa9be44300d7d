// The in-process COM server entry points of VirtualCamera.dll: a class factory for the capture
// filter and self-registration of its CLSID.

#include <windows.h>
#include <olectl.h>

#include <atomic>
#include <new>
#include <string>

#include "tools/VirtualCamera/Config/DeviceConfig.h"
#include "tools/VirtualCamera/Config/Guids.h"
#include "tools/VirtualCamera/Config/SystemHelpers.h"
#include "tools/VirtualCamera/Filter/CaptureFilter.h"
#include "tools/VirtualCamera/Filter/ComObject.h"
#include "tools/VirtualCamera/Filter/ModuleLifetime.h"

namespace VirtualCamera {
namespace {

class FilterFactory final : public SingleInterfaceObject<IClassFactory, &IID_IClassFactory> {
public:
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID riid, void** object) override {
        if (!object) {
            return E_POINTER;
        }
        *object = nullptr;
        if (outer) {
            return CLASS_E_NOAGGREGATION;
        }
        auto* filter = new (std::nothrow) CaptureFilter();
        if (!filter) {
            return E_OUTOFMEMORY;
        }
        const HRESULT hr = filter->QueryInterface(riid, object);
        filter->Release();
        return hr;
    }
    STDMETHODIMP LockServer(BOOL lock) override {
        ModuleLock(lock != FALSE);
        return S_OK;
    }

private:
    ~FilterFactory() override = default;
};

std::wstring ClsidKeyPath() {
    return L"CLSID\\" + GuidToString(CLSID_VirtualCameraFilter);
}

LSTATUS SetStringValue(HKEY key, const wchar_t* name, const std::wstring& value) {
    return RegSetValueExW(key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                          static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
}

HRESULT WriteKey(const std::wstring& path, const wchar_t* name, const std::wstring& value) {
    HKEY key = nullptr;
    LSTATUS status = RegCreateKeyExW(HKEY_CLASSES_ROOT, path.c_str(), 0, nullptr, 0, KEY_WRITE,
                                     nullptr, &key, nullptr);
    if (status != ERROR_SUCCESS) {
        return HRESULT_FROM_WIN32(status);
    }
    status = SetStringValue(key, name, value);
    RegCloseKey(key);
    return status == ERROR_SUCCESS ? S_OK : HRESULT_FROM_WIN32(status);
}

}  // namespace
}  // namespace VirtualCamera

using namespace VirtualCamera;

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        SetModuleHandle(instance);
        DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}

STDAPI DllGetClassObject(REFCLSID clsid, REFIID riid, void** object) {
    if (!object) {
        return E_POINTER;
    }
    *object = nullptr;
    if (!IsEqualCLSID(clsid, CLSID_VirtualCameraFilter)) {
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    auto* factory = new (std::nothrow) FilterFactory();
    if (!factory) {
        return E_OUTOFMEMORY;
    }
    const HRESULT hr = factory->QueryInterface(riid, object);
    factory->Release();
    return hr;
}

STDAPI DllCanUnloadNow() {
    return ModuleCanUnload() ? S_OK : S_FALSE;
}

STDAPI DllRegisterServer() {
    const std::wstring path = ModuleFilePath(ModuleHandle());
    if (path.empty()) {
        return SELFREG_E_CLASS;
    }
    const std::wstring clsidKey = ClsidKeyPath();
    HRESULT hr = WriteKey(clsidKey, nullptr, L"Virtual Camera");
    if (SUCCEEDED(hr)) {
        hr = WriteKey(clsidKey + L"\\InprocServer32", nullptr, path);
    }
    // The filter locks its own state, and the graph may call it from any thread.
    if (SUCCEEDED(hr)) {
        hr = WriteKey(clsidKey + L"\\InprocServer32", L"ThreadingModel", L"Both");
    }
    return SUCCEEDED(hr) ? S_OK : SELFREG_E_CLASS;
}

STDAPI DllUnregisterServer() {
    const LSTATUS status = RegDeleteTreeW(HKEY_CLASSES_ROOT, ClsidKeyPath().c_str());
    return status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND ? S_OK : SELFREG_E_CLASS;
}
