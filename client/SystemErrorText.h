#pragma once

#include <windows.h>

#include <string>

namespace QueryClient {

// The system's text of a Win32 error code in UTF-8, without the line end the system appends;
// "unknown error" when the system has no text for it. Each call formats into a buffer of its own,
// so any thread may call it while others do.
std::string SystemErrorText(DWORD error);

// "<call> failed with error <code>: <text>", the one form of a failed system call in a detail.
std::string DescribeFailure(const char* call, DWORD error);

}  // namespace QueryClient
