#include "tools/TestDecoders/TestDecodersSetup.h"

#include <olectl.h>

#include <fstream>
#include <iterator>

#include "tools/TestDecoders/Common/DecoderNames.h"
#include "tools/TestDecoders/Common/RegistryKey.h"

namespace TestDecoders {
namespace {

bool Fail(std::wstring* error, const std::wstring& message) {
    if (error) {
        *error = message;
    }
    return false;
}

std::wstring HexCode(HRESULT code) {
    wchar_t buffer[16] = {};
    swprintf(buffer, 16, L"0x%08lX", static_cast<unsigned long>(code));
    return buffer;
}

std::wstring ProgramDirectory() {
    std::wstring path(MAX_PATH, L'\0');
    DWORD length = 0;
    while ((length = GetModuleFileNameW(nullptr, &path[0], static_cast<DWORD>(path.size()))) ==
           path.size()) {
        path.resize(path.size() * 2);
    }
    path.resize(length);
    const size_t slash = path.find_last_of(L"\\/");
    return slash == std::wstring::npos ? std::wstring() : path.substr(0, slash + 1);
}

std::wstring SystemDirectory() {
    wchar_t buffer[MAX_PATH] = {};
    const UINT length = GetSystemDirectoryW(buffer, MAX_PATH);
    return length == 0 || length >= MAX_PATH ? std::wstring() : std::wstring(buffer, length);
}

std::wstring InstalledCodecPath() {
    const std::wstring directory = SystemDirectory();
    return directory.empty() ? std::wstring() : directory + L"\\" + kCodecFileName;
}

bool ReadFileBytes(const std::wstring& path, std::string* bytes) {
    std::ifstream file(path.c_str(), std::ios::binary);
    if (!file) {
        return false;
    }
    bytes->assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    return !file.bad();
}

bool SameContent(const std::wstring& a, const std::wstring& b) {
    std::string first;
    std::string second;
    return ReadFileBytes(a, &first) && ReadFileBytes(b, &second) && first == second;
}

bool NamesOurCodec(const std::wstring& file) {
    return _wcsicmp(FileNameOf(file).c_str(), kCodecFileName) == 0;
}

// Owns a library loaded for one call of its registration entry.
class LoadedLibrary {
public:
    explicit LoadedLibrary(const std::wstring& path) : m_module(LoadLibraryW(path.c_str())) {}
    ~LoadedLibrary() {
        if (m_module) {
            FreeLibrary(m_module);
        }
    }
    LoadedLibrary(const LoadedLibrary&) = delete;
    LoadedLibrary& operator=(const LoadedLibrary&) = delete;
    HMODULE get() const { return m_module; }

private:
    HMODULE m_module;
};

bool CallMjpegDecoderEntry(const char* entryName, std::wstring* error) {
    const std::wstring path = ProgramDirectory() + kMjpegDecoderFileName;
    LoadedLibrary library(path);
    if (!library.get()) {
        return Fail(error,
                    L"cannot load " + path + L" (error " + std::to_wstring(GetLastError()) + L")");
    }
    using Entry = HRESULT(STDAPICALLTYPE*)();
    const auto entry =
        reinterpret_cast<Entry>(reinterpret_cast<void*>(GetProcAddress(library.get(), entryName)));
    const std::wstring name(entryName, entryName + strlen(entryName));
    if (!entry) {
        return Fail(error, path + L" has no " + name);
    }
    const HRESULT hr = entry();
    if (hr == SELFREG_E_CLASS && strcmp(entryName, "DllRegisterServer") == 0) {
        return Fail(error, std::wstring(L"CLSID_MjpegDec ") + kMjpegDecoderClsidText +
                               L" belongs to another server, or cannot be written");
    }
    if (FAILED(hr)) {
        return Fail(error, name + L" of " + path + L" failed: " + HexCode(hr));
    }
    return true;
}

bool CopyCodec(std::wstring* error) {
    const std::wstring source = ProgramDirectory() + kCodecFileName;
    const std::wstring target = InstalledCodecPath();
    if (target.empty()) {
        return Fail(error, L"the system directory is not known");
    }
    if (GetFileAttributesW(source.c_str()) == INVALID_FILE_ATTRIBUTES) {
        return Fail(error, L"cannot find " + source);
    }
    // A codec file already in place stays: it may be loaded by a process right now.
    if (SameContent(source, target)) {
        return true;
    }
    if (!CopyFileW(source.c_str(), target.c_str(), FALSE)) {
        return Fail(error, L"cannot copy " + source + L" to " + target + L" (error " +
                               std::to_wstring(GetLastError()) + L")");
    }
    return true;
}

bool WriteDriverValues(std::wstring* error) {
    RegistryKey drivers;
    const LSTATUS status = drivers.Create(HKEY_LOCAL_MACHINE, kDrivers32Key, KEY_READ | KEY_WRITE);
    if (status != ERROR_SUCCESS) {
        return Fail(error, std::wstring(L"cannot open HKLM\\") + kDrivers32Key + L" (error " +
                               std::to_wstring(status) + L")");
    }
    // First make sure no value belongs to another codec, so that nothing is half written.
    for (const wchar_t* name : kCodecDriverValues) {
        std::wstring file;
        if (drivers.ReadString(name, &file) && !NamesOurCodec(file)) {
            return Fail(error, std::wstring(name) + L" names another codec: " + file);
        }
    }
    for (const wchar_t* name : kCodecDriverValues) {
        const LSTATUS written = drivers.WriteString(name, kCodecFileName);
        if (written != ERROR_SUCCESS) {
            return Fail(error, std::wstring(L"cannot write ") + name + L" (error " +
                                   std::to_wstring(written) + L")");
        }
    }
    return true;
}

bool DeleteDriverValues(std::wstring* error) {
    RegistryKey drivers;
    if (drivers.Open(HKEY_LOCAL_MACHINE, kDrivers32Key, KEY_READ | KEY_WRITE) != ERROR_SUCCESS) {
        return true;  // No key, no values.
    }
    for (const wchar_t* name : kCodecDriverValues) {
        std::wstring file;
        if (!drivers.ReadString(name, &file) || !NamesOurCodec(file)) {
            continue;
        }
        const LSTATUS status = drivers.DeleteValue(name);
        if (status != ERROR_SUCCESS) {
            return Fail(error, std::wstring(L"cannot delete ") + name + L" (error " +
                                   std::to_wstring(status) + L")");
        }
    }
    return true;
}

bool DeleteCodec(std::wstring* error) {
    const std::wstring target = InstalledCodecPath();
    if (target.empty() || DeleteFileW(target.c_str())) {
        return true;
    }
    const DWORD code = GetLastError();
    if (code == ERROR_FILE_NOT_FOUND) {
        return true;
    }
    return Fail(error, L"cannot delete " + target + L" (error " + std::to_wstring(code) + L")");
}

std::vector<DriverValue> ReadDriverValues() {
    RegistryKey drivers;
    drivers.Open(HKEY_LOCAL_MACHINE, kDrivers32Key, KEY_READ);
    std::vector<DriverValue> values;
    for (const wchar_t* name : kCodecDriverValues) {
        DriverValue value;
        value.name = name;
        drivers.ReadString(name, &value.file);
        values.push_back(value);
    }
    return values;
}

std::wstring RegisteredMjpegDecoderServer() {
    RegistryKey server;
    std::wstring path;
    if (server.Open(HKEY_CLASSES_ROOT, kMjpegDecoderServerKey, KEY_READ) == ERROR_SUCCESS) {
        server.ReadString(nullptr, &path);
    }
    return path;
}

}  // namespace

bool DecoderStatus::Installed() const {
    if (!codecCurrent || !mjpegDecoderIsOurs) {
        return false;
    }
    for (const auto& value : driverValues) {
        if (!NamesOurCodec(value.file)) {
            return false;
        }
    }
    return true;
}

bool DecoderStatus::Uninstalled() const {
    if (codecPresent || mjpegDecoderIsOurs) {
        return false;
    }
    for (const auto& value : driverValues) {
        if (NamesOurCodec(value.file)) {
            return false;
        }
    }
    return true;
}

bool IsRunningUnderWine() {
    const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    return ntdll && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

bool InstallDecoders(std::wstring* error) {
    if (!IsRunningUnderWine()) {
        return Fail(error,
                    L"refusing to install outside Wine: the decoder stand-ins are for test "
                    L"prefixes, never for a real Windows system");
    }
    return CopyCodec(error) && WriteDriverValues(error) &&
           CallMjpegDecoderEntry("DllRegisterServer", error);
}

bool UninstallDecoders(std::wstring* error) {
    // The values go first, so that no codec search finds a value whose file is gone.
    return DeleteDriverValues(error) && DeleteCodec(error) &&
           CallMjpegDecoderEntry("DllUnregisterServer", error);
}

DecoderStatus QueryDecoderStatus() {
    DecoderStatus status;
    status.codecPath = InstalledCodecPath();
    status.codecPresent = !status.codecPath.empty() &&
                          GetFileAttributesW(status.codecPath.c_str()) != INVALID_FILE_ATTRIBUTES;
    status.codecCurrent =
        status.codecPresent && SameContent(ProgramDirectory() + kCodecFileName, status.codecPath);
    status.driverValues = ReadDriverValues();
    status.mjpegDecoderServer = RegisteredMjpegDecoderServer();
    status.mjpegDecoderIsOurs =
        !status.mjpegDecoderServer.empty() &&
        _wcsicmp(FileNameOf(status.mjpegDecoderServer).c_str(), kMjpegDecoderFileName) == 0;
    return status;
}

std::wstring DescribeStatus(const DecoderStatus& status) {
    std::wstring text = L"codec           " + status.codecPath + L" (" +
                        (status.codecCurrent   ? L"current"
                         : status.codecPresent ? L"another version"
                                               : L"absent") +
                        L")\n";
    for (const auto& value : status.driverValues) {
        std::wstring padded = value.name;
        padded.resize(16, L' ');
        text += padded + (value.file.empty() ? L"(absent)" : value.file) + L"\n";
    }
    text += L"CLSID_MjpegDec  " +
            (status.mjpegDecoderServer.empty() ? std::wstring(L"(not registered)")
                                               : status.mjpegDecoderServer) +
            L"\n";
    text += L"state: ";
    text += status.Installed()     ? L"installed"
            : status.Uninstalled() ? L"not installed"
                                   : L"partly installed";
    text += L"\n";
    return text;
}

}  // namespace TestDecoders
