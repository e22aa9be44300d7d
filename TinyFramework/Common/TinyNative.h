#pragma once

#include <windows.h>
#include <winternl.h>

namespace TinyFramework {

// The native calls of "ntdll" that the framework needs, so that named kernel objects can be
// reached by a full object-manager path, such as "\BaseNamedObjects\name" for a global name or
// "\Sessions\1\BaseNamedObjects\name" for a name of session 1, rather than through the Win32
// name prefixes. Each entry point is looked up once per process, on first use, and kept; the
// functions may be called from any thread.

// The attributes of one object path as the native open and create calls take them: length 48, no
// root directory, attributes 0 (so a create of an existing name fails), no security descriptor and
// no quality of service. Holds the counted name it points to, so it cannot be copied; `path` must
// outlive it.
class TinyObjectAttributes {
public:
    explicit TinyObjectAttributes(const wchar_t* path);
    TinyObjectAttributes(const TinyObjectAttributes&) = delete;
    TinyObjectAttributes& operator=(const TinyObjectAttributes&) = delete;

    OBJECT_ATTRIBUTES* Get() { return &m_attributes; }
    const UNICODE_STRING& Name() const { return m_name; }

private:
    UNICODE_STRING m_name;
    OBJECT_ATTRIBUTES m_attributes;
};

// "RtlInitUnicodeString"; does nothing where it is missing.
void InitUnicodeString(UNICODE_STRING* out, const wchar_t* text);
// The thread's last error from a status, by "RtlNtStatusToDosError"; nothing where it is missing.
void SetLastStatus(NTSTATUS status);

// These return -1 where the entry point is missing.
NTSTATUS NtOpenMutant(HANDLE* out, ACCESS_MASK access, OBJECT_ATTRIBUTES* attributes);
NTSTATUS NtOpenEvent(HANDLE* out, ACCESS_MASK access, OBJECT_ATTRIBUTES* attributes);
NTSTATUS NtOpenSection(HANDLE* out, ACCESS_MASK access, OBJECT_ATTRIBUTES* attributes);
NTSTATUS NtQuerySystemInformation(SYSTEM_INFORMATION_CLASS informationClass, void* buffer,
                                  ULONG size, ULONG* returned);

}  // namespace TinyFramework
