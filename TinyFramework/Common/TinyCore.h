#pragma once

// The framework's core header: who includes it sees the locks, the mutexes and semaphores, the
// native layer, the process and system services, and the timers as well.
#include "TinyFramework/Common/TinyCpuFeatures.h"
#include "TinyFramework/Common/TinyLock.h"
#include "TinyFramework/Common/TinyMemoryCopy.h"
#include "TinyFramework/Common/TinyMutex.h"
#include "TinyFramework/Common/TinyNative.h"
#include "TinyFramework/Common/TinyOSVersion.h"
#include "TinyFramework/Common/TinyProcess.h"

#include <windows.h>

#include <string>

namespace TinyFramework {

// The system's text for an error code, in a process-wide buffer that the next call overwrites.
// Not thread-safe. Each of the two functions has a buffer of its own.
const char* GetErrorText(DWORD code);
const char* GetLastErrorText();

// printf-style formatting into a narrow string, for log messages.
std::string StringPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Owns one event handle; null when empty.
class TinyEvent {
public:
    TinyEvent();
    virtual ~TinyEvent();
    TinyEvent(const TinyEvent&) = delete;
    TinyEvent& operator=(const TinyEvent&) = delete;

    HANDLE Handle() const { return m_handle; }
    operator HANDLE() const { return m_handle; }
    bool IsEmpty() const { return m_handle == nullptr; }

    // An unnamed auto-reset event, not set. A handle held before is not closed.
    BOOL Create();
    BOOL CreateEx(LPSECURITY_ATTRIBUTES security, LPCWSTR name, DWORD flags, DWORD access);
    // Always asks for EVENT_MODIFY_STATE without inheritance, whatever is passed: the handle
    // can be set, not waited on. That is all the query server needs of the parent's event.
    BOOL Open(DWORD access, BOOL inherit, LPCWSTR name);
    // NtOpenEvent of a full object-manager path with the access asked for. A held handle is not
    // closed: on success the new one replaces it, on failure it stays, and the failure's status
    // becomes the last error.
    BOOL OpenNt(DWORD access, LPCWSTR path);
    BOOL SetEvent();
    BOOL Wait();
    void Close();

private:
    HANDLE m_handle;
};

}  // namespace TinyFramework

// The timers use TinyEvent, so they come after it.
#include "TinyFramework/Common/TinyTimer.h"
