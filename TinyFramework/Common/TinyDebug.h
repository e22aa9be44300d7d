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

}  // namespace TinyFramework
