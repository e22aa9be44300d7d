// The in-process COM server entry points of VirtualCamera.dll: class factories for the capture
// filter and its property page, and self-registration of both classes.

#include <windows.h>
#include <olectl.h>

#include <atomic>
#include <new>
#include <string>

#include "tools/VirtualCamera/Config/DeviceConfig.h"
#include "tools/VirtualCamera/Config/Guids.h"
#include "tools/VirtualCamera/Config/PictureSettings.h"
#include "tools/VirtualCamera/Config/SystemHelpers.h"
#include "tools/VirtualCamera/Filter/CaptureFilter.h"
#include "tools/VirtualCamera/Filter/ComObject.h"
#include "tools/VirtualCamera/Filter/ModuleLifetime.h"
#include "tools/VirtualCamera/Filter/PicturePage.h"

namespace VirtualCamera {
namespace {

// Makes the objects of one class. `Object` starts with one reference, its creator's.
template <class Object>
class ClassFactory final : public SingleInterfaceObject<IClassFactory, &IID_IClassFactory> {
public:
    STDMETHODIMP CreateInstance(IUnknown* outer, REFIID riid, void** object) override {
        if (!object) {
            return E_POINTER;
        }
        *object = nullptr;
        if (outer) {
            return CLASS_E_NOAGGREGATION;
        }
        auto* created = new (std::nothrow) Object();
        if (!created) {
            return E_OUTOFMEMORY;
        }
        const HRESULT hr = created->QueryInterface(riid, object);
        created->Release();
        return hr;
    }
    STDMETHODIMP LockServer(BOOL lock) override {
        ModuleLock(lock != FALSE);
        return S_OK;
    }

private:
    ~ClassFactory() override = default;
};

template <class Object>
HRESULT GetFactory(REFIID riid, void** object) {
    auto* factory = new (std::nothrow) ClassFactory<Object>();
    if (!factory) {
        return E_OUTOFMEMORY;
    }
    const HRESULT hr = factory->QueryInterface(riid, object);
    factory->Release();
    return hr;
}

std::wstring ClsidKeyPath(REFCLSID clsid) {
    return L"CLSID\\" + GuidToString(clsid);
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
    if (IsEqualCLSID(clsid, CLSID_VirtualCameraFilter)) {
        return GetFactory<CaptureFilter>(riid, object);
    }
    if (IsEqualCLSID(clsid, CLSID_VirtualCameraPicturePage)) {
        return GetFactory<PicturePage>(riid, object);
    }
    return CLASS_E_CLASSNOTAVAILABLE;
}

STDAPI DllCanUnloadNow() {
    return ModuleCanUnload() ? S_OK : S_FALSE;
}

namespace {

HRESULT RegisterComClass(REFCLSID clsid, const wchar_t* name, const std::wstring& path) {
    const std::wstring clsidKey = ClsidKeyPath(clsid);
    HRESULT hr = WriteKey(clsidKey, nullptr, name);
    if (SUCCEEDED(hr)) {
        hr = WriteKey(clsidKey + L"\\InprocServer32", nullptr, path);
    }
    // Both classes lock what they share: the graph may call the filter from any thread, and the
    // property frame creates the page on its dialog thread, which need not have entered COM.
    if (SUCCEEDED(hr)) {
        hr = WriteKey(clsidKey + L"\\InprocServer32", L"ThreadingModel", L"Both");
    }
    return hr;
}

bool RemoveComClass(REFCLSID clsid) {
    const LSTATUS status = RegDeleteTreeW(HKEY_CLASSES_ROOT, ClsidKeyPath(clsid).c_str());
    return status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND;
}

}  // namespace

STDAPI DllRegisterServer() {
    const std::wstring path = ModuleFilePath(ModuleHandle());
    if (path.empty()) {
        return SELFREG_E_CLASS;
    }
    HRESULT hr = RegisterComClass(CLSID_VirtualCameraFilter, L"Virtual Camera", path);
    if (SUCCEEDED(hr)) {
        hr = RegisterComClass(CLSID_VirtualCameraPicturePage, L"Virtual Camera Picture Page", path);
    }
    return SUCCEEDED(hr) ? S_OK : SELFREG_E_CLASS;
}

STDAPI DllUnregisterServer() {
    const bool filterRemoved = RemoveComClass(CLSID_VirtualCameraFilter);
    const bool pageRemoved = RemoveComClass(CLSID_VirtualCameraPicturePage);
    return filterRemoved && pageRemoved ? S_OK : SELFREG_E_CLASS;
}
