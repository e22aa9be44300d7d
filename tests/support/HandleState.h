#pragma once

#include <windows.h>

namespace TestSupport {

// Whether `handle` is still an open handle of this process: what a test checks after the object
// that held it closed it, or handed it over and must not have closed it.
inline bool IsOpenHandle(HANDLE handle) {
    DWORD flags = 0;
    return GetHandleInformation(handle, &flags) != FALSE;
}

}  // namespace TestSupport
