// The in-process server entry points of TestMjpegDecoder.dll: the class object of
// CLSID_MjpegDec and the registration of that class to this DLL.
//
// Registration never takes the class from another server: where CLSID_MjpegDec belongs to a
// real MJPEG decompressor (Windows registers one), DllRegisterServer refuses and
// DllUnregisterServer leaves it as it is. A registration of a file of this DLL's name (another
// build of it) counts as this DLL's own.

#include <windows.h>
#include <olectl.h>
#include <uuids.h>

#include <new>
#include <string>

#include "tools/TestDecoders/Common/DecoderNames.h"
#include "tools/TestDecoders/Common/RegistryKey.h"
#include "tools/TestDecoders/MjpegDecoder/MjpegDecoderFactory.h"

namespace TestDecoders {
namespace {

HMODULE g_module = nullptr;

std::wstring ThisModulePath() {
    std::wstring path(MAX_PATH, L'\0');
    while (true) {
        const DWORD length =
            GetModuleFileNameW(g_module, &path[0], static_cast<DWORD>(path.size()));
        if (length == 0) {
            return std::wstring();
        }
        // A path that fills the buffer may have been cut: try again with twice the room.
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

enum class ClassOwner { Nobody, ThisDll, Another };

ClassOwner OwnerOfMjpegDecoderClass() {
    RegistryKey server;
    if (server.Open(HKEY_CLASSES_ROOT, kMjpegDecoderServerKey, KEY_READ) != ERROR_SUCCESS) {
        return ClassOwner::Nobody;
    }
    std::wstring path;
    if (!server.ReadString(nullptr, &path)) {
        return ClassOwner::Nobody;
    }
    return _wcsicmp(FileNameOf(path).c_str(), kMjpegDecoderFileName) == 0 ? ClassOwner::ThisDll
                                                                          : ClassOwner::Another;
}

HRESULT WriteRegistration(const std::wstring& modulePath) {
    RegistryKey classKey;
    if (classKey.Create(HKEY_CLASSES_ROOT, kMjpegDecoderClassKey, KEY_WRITE) != ERROR_SUCCESS ||
        classKey.WriteString(nullptr, kMjpegDecoderName) != ERROR_SUCCESS) {
        return SELFREG_E_CLASS;
    }
    RegistryKey server;
    if (server.Create(HKEY_CLASSES_ROOT, kMjpegDecoderServerKey, KEY_WRITE) != ERROR_SUCCESS ||
        server.WriteString(nullptr, modulePath) != ERROR_SUCCESS ||
        // The filters come from the platform's AVI decompressor, whose own model is "Both".
        server.WriteString(L"ThreadingModel", L"Both") != ERROR_SUCCESS) {
        return SELFREG_E_CLASS;
    }
    return S_OK;
}

}  // namespace
}  // namespace TestDecoders

using namespace TestDecoders;

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
    if (reason == DLL_PROCESS_ATTACH) {
        g_module = instance;
        DisableThreadLibraryCalls(instance);
    }
    return TRUE;
}

STDAPI DllGetClassObject(REFCLSID clsid, REFIID riid, void** object) {
    if (!object) {
        return E_POINTER;
    }
    *object = nullptr;
    if (!IsEqualCLSID(clsid, CLSID_MjpegDec)) {
        return CLASS_E_CLASSNOTAVAILABLE;
    }
    auto* factory = new (std::nothrow) MjpegDecoderFactory();
    if (!factory) {
        return E_OUTOFMEMORY;
    }
    const HRESULT hr = factory->QueryInterface(riid, object);
    factory->Release();
    return hr;
}

STDAPI DllCanUnloadNow() {
    return MjpegDecoderModuleCanUnload() ? S_OK : S_FALSE;
}

STDAPI DllRegisterServer() {
    if (OwnerOfMjpegDecoderClass() == ClassOwner::Another) {
        return SELFREG_E_CLASS;
    }
    const std::wstring path = ThisModulePath();
    if (path.empty()) {
        return SELFREG_E_CLASS;
    }
    return WriteRegistration(path);
}

// S_FALSE when there was nothing of this DLL's to remove.
STDAPI DllUnregisterServer() {
    if (OwnerOfMjpegDecoderClass() != ClassOwner::ThisDll) {
        return S_FALSE;
    }
    const LSTATUS status = RegDeleteTreeW(HKEY_CLASSES_ROOT, kMjpegDecoderClassKey);
    return status == ERROR_SUCCESS || status == ERROR_FILE_NOT_FOUND ? S_OK : SELFREG_E_CLASS;
}
