#pragma once

#include <windows.h>

#include <atomic>

namespace TinyFramework {

// The working record of a version source, shaped as the system's own version record.
typedef OSVERSIONINFOEXW TinyOSVersion;

// The version the process settled on, computed once by GetWindowsVersion. g_osRevision is also
// written by every GetVersionFromFile. Atomic because the first computation has no lock: two
// threads may both do it, and both write the same numbers.
extern std::atomic<DWORD> g_osMajor;
extern std::atomic<DWORD> g_osMinor;
extern std::atomic<DWORD> g_osBuild;
extern std::atomic<DWORD> g_osRevision;
extern std::atomic<BOOL> g_osVersionKnown;

// RtlGetVersion of ntdll: true when it succeeded for an NT platform.
BOOL GetVersionFromSystem(TinyOSVersion* record);
// The version resource of a file (the kernel's): major, minor and build in the record, the
// revision in g_osRevision.
BOOL GetVersionFromFile(LPCWSTR path, TinyOSVersion* record);
// The version values of HKLM\SOFTWARE\Microsoft\Windows NT\CurrentVersion; a missing value
// leaves its field 0. True when the key opened.
BOOL GetVersionFromRegistry(TinyOSVersion* record);
// The same values read from an open key, for a key the caller provides.
void GetVersionFromRegistryKey(HKEY key, TinyOSVersion* record);
// "UBR" of the same key: the update revision of Windows 10 and later.
BOOL GetUpdateRevisionFromRegistry(DWORD* revision);

struct TinyOSVersionNumbers {
    DWORD major = 0;
    DWORD minor = 0;
    DWORD build = 0;
    DWORD revision = 0;
};

// Where the decision gets its three versions and the update revision. GetWindowsVersion uses
// the real sources; tests hand in their own, since one machine shows only one combination.
struct TinyOSVersionSources {
    // Record A: what the system says of itself.
    BOOL (*fromSystem)(TinyOSVersion* record);
    // Record B: the kernel file; `revision` receives its revision when the file was read.
    BOOL (*fromKernelFile)(TinyOSVersion* record, DWORD* revision);
    // Record C: the registry.
    BOOL (*fromRegistry)(TinyOSVersion* record);
    // "UBR", only asked for when the winner's major is 10.
    BOOL (*updateRevision)(DWORD* revision);
};

// The real sources: RtlGetVersion, the kernel file, the registry and its "UBR".
const TinyOSVersionSources& GetSystemVersionSources();

// The platform can lie about its version, so all three are asked and the highest wins: B
// replaces A if above it, then C replaces A if above it ("above" by major, minor, build; a tie
// keeps A). The revision is the kernel file's, raised to "UBR" when the winner's major is 10.
// `revision` is the revision known before (g_osRevision).
TinyOSVersionNumbers DecideWindowsVersion(const TinyOSVersionSources& sources, DWORD revision);

// The process's version, decided once with the real sources.
void GetWindowsVersion(DWORD* major, DWORD* minor, DWORD* build, DWORD* revision);

// The predicates over a version...
BOOL IsWindows7(const TinyOSVersionNumbers& version);
BOOL IsWindows8(const TinyOSVersionNumbers& version);
BOOL IsWindows81(const TinyOSVersionNumbers& version);
BOOL IsWindows10(const TinyOSVersionNumbers& version);
BOOL IsWindows11RTM(const TinyOSVersionNumbers& version);
BOOL IsWindows7OrLater(const TinyOSVersionNumbers& version);
BOOL IsWindows8OrLater(const TinyOSVersionNumbers& version);
BOOL IsWindows10OrLater(const TinyOSVersionNumbers& version);
BOOL IsWindows11OrLater(const TinyOSVersionNumbers& version);

// 6.1 with service pack 1, over a record of the system's own answer.
BOOL IsWindows7SP1(const TinyOSVersion& system);

// ...and over the process's version (GetWindowsVersion).
BOOL IsWindows7();
// From RtlGetVersion alone.
BOOL IsWindows7SP1();
BOOL IsWindows8();
BOOL IsWindows81();
BOOL IsWindows10();
BOOL IsWindows11RTM();
BOOL IsWindows7OrLater();
BOOL IsWindows8OrLater();
BOOL IsWindows10OrLater();
BOOL IsWindows11OrLater();

}  // namespace TinyFramework
