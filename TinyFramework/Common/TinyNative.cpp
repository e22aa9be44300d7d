#include "TinyFramework/Common/TinyNative.h"

#include <cstring>

namespace TinyFramework {

namespace {

typedef VOID(NTAPI* InitUnicodeStringEntry)(UNICODE_STRING* out, PCWSTR text);
typedef ULONG(NTAPI* StatusToErrorEntry)(NTSTATUS status);
typedef NTSTATUS(NTAPI* OpenObjectEntry)(HANDLE* out, ACCESS_MASK access,
                                         OBJECT_ATTRIBUTES* attributes);
typedef NTSTATUS(NTAPI* QuerySystemInformationEntry)(SYSTEM_INFORMATION_CLASS informationClass,
                                                     void* buffer, ULONG size, ULONG* returned);

// What the native calls answer when their entry point is missing: negative, so a failure.
constexpr NTSTATUS kMissingEntry = -1;

HMODULE Ntdll() {
    static const HMODULE module = GetModuleHandleW(L"ntdll.dll");
    return module;
}

// Null when ntdll or the entry point is missing. Each caller keeps the result in a static of its
// own, so the lookup happens once per entry point and process.
template <typename Entry>
Entry FindNtdllEntry(const char* name) {
    const HMODULE module = Ntdll();
    if (module == nullptr) {
        return nullptr;
    }
    return reinterpret_cast<Entry>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}

NTSTATUS OpenObject(OpenObjectEntry open, HANDLE* out, ACCESS_MASK access,
                    OBJECT_ATTRIBUTES* attributes) {
    if (open == nullptr) {
        return kMissingEntry;
    }
    return open(out, access, attributes);
}

}  // namespace

TinyObjectAttributes::TinyObjectAttributes(const wchar_t* path) {
    // Zeroed first: where the string routine is missing the name stays empty, never garbage.
    std::memset(&m_name, 0, sizeof(m_name));
    std::memset(&m_attributes, 0, sizeof(m_attributes));
    InitUnicodeString(&m_name, path);
    m_attributes.Length = sizeof(OBJECT_ATTRIBUTES);
    m_attributes.RootDirectory = nullptr;
    m_attributes.ObjectName = &m_name;
    m_attributes.Attributes = 0;
    m_attributes.SecurityDescriptor = nullptr;
    m_attributes.SecurityQualityOfService = nullptr;
}

static_assert(sizeof(OBJECT_ATTRIBUTES) == 48, "the native calls take attributes of length 48");

void InitUnicodeString(UNICODE_STRING* out, const wchar_t* text) {
    static const auto init = FindNtdllEntry<InitUnicodeStringEntry>("RtlInitUnicodeString");
    if (init != nullptr) {
        init(out, text);
    }
}

void SetLastStatus(NTSTATUS status) {
    static const auto translate = FindNtdllEntry<StatusToErrorEntry>("RtlNtStatusToDosError");
    if (translate != nullptr) {
        SetLastError(translate(status));
    }
}

NTSTATUS NtOpenMutant(HANDLE* out, ACCESS_MASK access, OBJECT_ATTRIBUTES* attributes) {
    static const auto open = FindNtdllEntry<OpenObjectEntry>("NtOpenMutant");
    return OpenObject(open, out, access, attributes);
}

NTSTATUS NtOpenEvent(HANDLE* out, ACCESS_MASK access, OBJECT_ATTRIBUTES* attributes) {
    static const auto open = FindNtdllEntry<OpenObjectEntry>("NtOpenEvent");
    return OpenObject(open, out, access, attributes);
}

NTSTATUS NtOpenSection(HANDLE* out, ACCESS_MASK access, OBJECT_ATTRIBUTES* attributes) {
    static const auto open = FindNtdllEntry<OpenObjectEntry>("NtOpenSection");
    return OpenObject(open, out, access, attributes);
}

NTSTATUS NtQuerySystemInformation(SYSTEM_INFORMATION_CLASS informationClass, void* buffer,
                                  ULONG size, ULONG* returned) {
    static const auto query =
        FindNtdllEntry<QuerySystemInformationEntry>("NtQuerySystemInformation");
    if (query == nullptr) {
        return kMissingEntry;
    }
    return query(informationClass, buffer, size, returned);
}

}  // namespace TinyFramework
