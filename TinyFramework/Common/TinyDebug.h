#pragma once

#include <windows.h>

namespace TinyFramework {

// Messages for a person at a debugger, printf-style, ending in OutputDebugString. Each call is
// serialised by a process-wide lock so that lines from several threads never interleave.
// The narrow form grows a buffer to what the format needs and drops it after the call.
void TraceA(const char* format, ...);
// The wide form keeps one buffer for the life of the process and grows it as needed.
void TraceW(const wchar_t* format, ...);
// Prefixed "[thread id] " and cut to 4096 characters. The narrow one has a lock of its own.
void TraceThreadA(const char* format, ...);
void TraceThreadW(const wchar_t* format, ...);

// Switch "SeDebugPrivilege" or "SeIncreaseBasePriorityPrivilege" on (enable != 0) or off in the
// token of this process. 0 when the token cannot be opened or the change fails (logged).
BOOL EnableDebugPrivilege(BOOL enable);
BOOL EnableBasePriorityPrivilege(BOOL enable);
// Switches one privilege of a token opened with TOKEN_ADJUST_PRIVILEGES; 1 on success, 0 with an
// ERROR record otherwise.
BOOL AdjustPrivilege(HANDLE token, LPCWSTR name, BOOL enable);
// Whether the process runs in an app container: *isAppContainer is 0 unless the token says so.
// FALSE when the token cannot be asked.
BOOL IsAppContainer(HANDLE process, BOOL* isAppContainer);
// The app container's SID of the process as a string, to be freed with LocalFree; null when the
// process has none or a step fails.
LPWSTR GetAppContainerSid(HANDLE process);

}  // namespace TinyFramework
