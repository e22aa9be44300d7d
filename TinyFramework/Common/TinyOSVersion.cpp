#include "TinyFramework/Common/TinyOSVersion.h"

#include "TinyFramework/Common/TinyProcess.h"

#include <cstring>
#include <cwchar>
#include <string>
#include <vector>

namespace TinyFramework {

std::atomic<DWORD> g_osMajor{0};
std::atomic<DWORD> g_osMinor{0};
std::atomic<DWORD> g_osBuild{0};
std::atomic<DWORD> g_osRevision{0};
std::atomic<BOOL> g_osVersionKnown{FALSE};

namespace {

constexpr char kVersionKeyPath[] = "SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion";
// The build number is a string value; longer ones are not read.
constexpr DWORD kBuildNumberBytes = 520;
constexpr DWORD kWindows10Major = 10;
constexpr DWORD kWindows11FirstBuild = 22000;

static_assert(sizeof(TinyOSVersion) == 284, "the version record must have the system's size");

typedef LONG(WINAPI* RtlGetVersionFunction)(TinyOSVersion*);
typedef DWORD(WINAPI* GetFileVersionInfoSizeFunction)(LPCWSTR, LPDWORD);
typedef BOOL(WINAPI* GetFileVersionInfoFunction)(LPCWSTR, DWORD, DWORD, LPVOID);
typedef BOOL(WINAPI* VerQueryValueFunction)(LPCVOID, LPCWSTR, LPVOID*, PUINT);

template <typename Function>
Function FindFunction(HMODULE module, const char* name) {
    if (module == nullptr) {
        return nullptr;
    }
    return reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(module, name)));
}

RtlGetVersionFunction FindRtlGetVersion() {
    static const RtlGetVersionFunction function =
        FindFunction<RtlGetVersionFunction>(GetModuleHandleW(L"ntdll.dll"), "RtlGetVersion");
    return function;
}

// The three entry points of the version library, found on first use and kept for the process.
struct VersionLibrary {
    GetFileVersionInfoSizeFunction getSize = nullptr;
    GetFileVersionInfoFunction getInfo = nullptr;
    VerQueryValueFunction queryValue = nullptr;

    bool IsComplete() const {
        return getSize != nullptr && getInfo != nullptr && queryValue != nullptr;
    }
};

VersionLibrary FindVersionLibrary() {
    HMODULE module = GetModuleHandleW(L"version");
    if (module == nullptr) {
        // Loaded for the life of the process: the pointers found in it are cached for good.
        TinyLibrary library;
        library.Load(L"version");
        module = library.Detach();
    }
    VersionLibrary library;
    library.getSize =
        FindFunction<GetFileVersionInfoSizeFunction>(module, "GetFileVersionInfoSizeW");
    library.getInfo = FindFunction<GetFileVersionInfoFunction>(module, "GetFileVersionInfoW");
    library.queryValue = FindFunction<VerQueryValueFunction>(module, "VerQueryValueW");
    return library;
}

const VersionLibrary& GetVersionLibrary() {
    static const VersionLibrary library = FindVersionLibrary();
    return library;
}

void ZeroRecord(TinyOSVersion* record) {
    std::memset(record, 0, sizeof(*record));
}

HKEY OpenVersionKey() {
    HKEY key = nullptr;
    if (RegOpenKeyA(HKEY_LOCAL_MACHINE, kVersionKeyPath, &key) != ERROR_SUCCESS) {
        return nullptr;
    }
    return key;
}

// Closes a registry key at the end of its scope.
class ScopedRegistryKey {
public:
    explicit ScopedRegistryKey(HKEY key) : m_key(key) {}
    ~ScopedRegistryKey() {
        if (m_key != nullptr) {
            RegCloseKey(m_key);
        }
    }
    ScopedRegistryKey(const ScopedRegistryKey&) = delete;
    ScopedRegistryKey& operator=(const ScopedRegistryKey&) = delete;

    HKEY Get() const { return m_key; }

private:
    HKEY m_key;
};

void ReadDwordValue(HKEY key, const wchar_t* name, DWORD* value) {
    DWORD data = 0;
    DWORD size = sizeof(data);
    if (RegQueryValueExW(key, name, nullptr, nullptr, reinterpret_cast<BYTE*>(&data), &size) ==
            ERROR_SUCCESS &&
        size == sizeof(data)) {
        *value = data;
    }
}

void ReadBuildNumberValue(HKEY key, DWORD* value) {
    wchar_t text[kBuildNumberBytes / sizeof(wchar_t) + 1] = {};
    DWORD size = kBuildNumberBytes;
    if (RegQueryValueExW(key, L"CurrentBuildNumber", nullptr, nullptr,
                         reinterpret_cast<BYTE*>(text), &size) == ERROR_SUCCESS) {
        *value = static_cast<DWORD>(wcstol(text, nullptr, 10));
    }
}

// "Above" compares major, then minor, then build; equal is not above.
bool IsAbove(const TinyOSVersion& candidate, const TinyOSVersion& current) {
    if (candidate.dwMajorVersion != current.dwMajorVersion) {
        return candidate.dwMajorVersion > current.dwMajorVersion;
    }
    if (candidate.dwMinorVersion != current.dwMinorVersion) {
        return candidate.dwMinorVersion > current.dwMinorVersion;
    }
    return candidate.dwBuildNumber > current.dwBuildNumber;
}

std::wstring KernelFilePath() {
    // A 64-bit process finds the kernel by its bare name in the system folder; a 32-bit one on a
    // 64-bit system names the folder, which the system redirects to the 64-bit one.
    if (IsNotWow64(GetCurrentProcess())) {
        return L"ntoskrnl.exe";
    }
    wchar_t folder[MAX_PATH] = {};
    const UINT length = GetSystemDirectoryW(folder, MAX_PATH);
    return std::wstring(folder, length < MAX_PATH ? length : 0) + L"\\ntoskrnl.exe";
}

BOOL GetVersionFromKernelFile(TinyOSVersion* record, DWORD* revision) {
    if (!GetVersionFromFile(KernelFilePath().c_str(), record)) {
        return FALSE;
    }
    *revision = g_osRevision;
    return TRUE;
}

TinyOSVersionNumbers GetProcessVersion() {
    DWORD major = 0;
    DWORD minor = 0;
    DWORD build = 0;
    DWORD revision = 0;
    GetWindowsVersion(&major, &minor, &build, &revision);
    TinyOSVersionNumbers version;
    version.major = major;
    version.minor = minor;
    version.build = build;
    version.revision = revision;
    return version;
}

}  // namespace

BOOL GetVersionFromSystem(TinyOSVersion* record) {
    ZeroRecord(record);
    record->dwOSVersionInfoSize = sizeof(*record);
    const RtlGetVersionFunction rtlGetVersion = FindRtlGetVersion();
    if (rtlGetVersion == nullptr) {
        return FALSE;
    }
    return rtlGetVersion(record) == 0 && record->dwPlatformId == VER_PLATFORM_WIN32_NT;
}

BOOL GetVersionFromFile(LPCWSTR path, TinyOSVersion* record) {
    ZeroRecord(record);
    const VersionLibrary& library = GetVersionLibrary();
    if (!library.IsComplete()) {
        return FALSE;
    }
    DWORD handle = 0;
    const DWORD size = library.getSize(path, &handle);
    if (size == 0) {
        return FALSE;
    }
    std::vector<BYTE> block(size);
    if (!library.getInfo(path, 0, size, block.data())) {
        return FALSE;
    }
    void* value = nullptr;
    UINT length = 0;
    if (!library.queryValue(block.data(), L"\\", &value, &length) || value == nullptr ||
        length < sizeof(VS_FIXEDFILEINFO)) {
        return FALSE;
    }
    const VS_FIXEDFILEINFO* fixed = static_cast<const VS_FIXEDFILEINFO*>(value);
    record->dwMajorVersion = HIWORD(fixed->dwFileVersionMS);
    record->dwMinorVersion = LOWORD(fixed->dwFileVersionMS);
    record->dwBuildNumber = HIWORD(fixed->dwFileVersionLS);
    g_osRevision = LOWORD(fixed->dwFileVersionLS);
    return TRUE;
}

BOOL GetVersionFromRegistry(TinyOSVersion* record) {
    ZeroRecord(record);
    // Left open, as this reader has always done: only the update-revision read closes the key
    // it opens. GetWindowsVersion reads the registry once per process, so that costs one handle;
    // a direct caller pays one per call.
    const HKEY key = OpenVersionKey();
    if (key == nullptr) {
        return FALSE;
    }
    GetVersionFromRegistryKey(key, record);
    return TRUE;
}

void GetVersionFromRegistryKey(HKEY key, TinyOSVersion* record) {
    ReadDwordValue(key, L"CurrentMajorVersionNumber", &record->dwMajorVersion);
    ReadDwordValue(key, L"CurrentMinorVersionNumber", &record->dwMinorVersion);
    ReadBuildNumberValue(key, &record->dwBuildNumber);
}

BOOL GetUpdateRevisionFromRegistry(DWORD* revision) {
    ScopedRegistryKey key(OpenVersionKey());
    if (key.Get() == nullptr) {
        return FALSE;
    }
    DWORD value = 0;
    DWORD size = sizeof(value);
    if (RegQueryValueExA(key.Get(), "UBR", nullptr, nullptr, reinterpret_cast<BYTE*>(&value),
                         &size) != ERROR_SUCCESS ||
        size != sizeof(value)) {
        return FALSE;
    }
    *revision = value;
    return TRUE;
}

const TinyOSVersionSources& GetSystemVersionSources() {
    static const TinyOSVersionSources sources = {&GetVersionFromSystem, &GetVersionFromKernelFile,
                                                 &GetVersionFromRegistry,
                                                 &GetUpdateRevisionFromRegistry};
    return sources;
}

TinyOSVersionNumbers DecideWindowsVersion(const TinyOSVersionSources& sources, DWORD revision) {
    // A source that fails leaves its record zero, and zero never wins.
    TinyOSVersion winner = {};
    TinyOSVersion kernelFile = {};
    TinyOSVersion registry = {};
    sources.fromSystem(&winner);
    sources.fromKernelFile(&kernelFile, &revision);
    sources.fromRegistry(&registry);
    if (IsAbove(kernelFile, winner)) {
        winner = kernelFile;
    }
    if (IsAbove(registry, winner)) {
        winner = registry;
    }
    TinyOSVersionNumbers version;
    version.major = winner.dwMajorVersion;
    version.minor = winner.dwMinorVersion;
    version.build = winner.dwBuildNumber;
    version.revision = revision;
    DWORD updateRevision = 0;
    if (version.major == kWindows10Major && sources.updateRevision(&updateRevision) &&
        updateRevision > version.revision) {
        version.revision = updateRevision;
    }
    return version;
}

void GetWindowsVersion(DWORD* major, DWORD* minor, DWORD* build, DWORD* revision) {
    if (!g_osVersionKnown) {
        const TinyOSVersionNumbers version =
            DecideWindowsVersion(GetSystemVersionSources(), g_osRevision);
        g_osMajor = version.major;
        g_osMinor = version.minor;
        g_osBuild = version.build;
        g_osRevision = version.revision;
        g_osVersionKnown = TRUE;
    }
    *major = g_osMajor;
    *minor = g_osMinor;
    *build = g_osBuild;
    *revision = g_osRevision;
}

BOOL IsWindows7(const TinyOSVersionNumbers& version) {
    return version.major == 6 && version.minor == 1;
}

BOOL IsWindows7SP1(const TinyOSVersion& system) {
    return system.dwMajorVersion == 6 && system.dwMinorVersion == 1 &&
           system.wServicePackMajor == 1;
}

BOOL IsWindows8(const TinyOSVersionNumbers& version) {
    return version.major == 6 && version.minor == 2;
}

BOOL IsWindows81(const TinyOSVersionNumbers& version) {
    return version.major == 6 && version.minor == 3;
}

BOOL IsWindows10(const TinyOSVersionNumbers& version) {
    return version.major == kWindows10Major;
}

BOOL IsWindows11RTM(const TinyOSVersionNumbers& version) {
    return version.major == kWindows10Major && version.build == kWindows11FirstBuild;
}

BOOL IsWindows7OrLater(const TinyOSVersionNumbers& version) {
    return version.major > 6 || (version.major == 6 && version.minor > 0);
}

BOOL IsWindows8OrLater(const TinyOSVersionNumbers& version) {
    return version.major > 6 || (version.major == 6 && version.minor >= 2);
}

BOOL IsWindows10OrLater(const TinyOSVersionNumbers& version) {
    return version.major >= kWindows10Major;
}

BOOL IsWindows11OrLater(const TinyOSVersionNumbers& version) {
    return version.major >= kWindows10Major && version.build >= kWindows11FirstBuild;
}

BOOL IsWindows7() {
    return IsWindows7(GetProcessVersion());
}

BOOL IsWindows7SP1() {
    TinyOSVersion system;
    GetVersionFromSystem(&system);
    return IsWindows7SP1(system);
}

BOOL IsWindows8() {
    return IsWindows8(GetProcessVersion());
}

BOOL IsWindows81() {
    return IsWindows81(GetProcessVersion());
}

BOOL IsWindows10() {
    return IsWindows10(GetProcessVersion());
}

BOOL IsWindows11RTM() {
    return IsWindows11RTM(GetProcessVersion());
}

BOOL IsWindows7OrLater() {
    return IsWindows7OrLater(GetProcessVersion());
}

BOOL IsWindows8OrLater() {
    return IsWindows8OrLater(GetProcessVersion());
}

BOOL IsWindows10OrLater() {
    return IsWindows10OrLater(GetProcessVersion());
}

BOOL IsWindows11OrLater() {
    return IsWindows11OrLater(GetProcessVersion());
}

}  // namespace TinyFramework
