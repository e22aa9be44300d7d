#include "TinyFramework/Common/TinyDebug.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <vector>

#include "TinyFramework/Common/TinyLock.h"
#include "TinyFramework/Common/TinyLogging_win32.h"

#include <sddl.h>

namespace TinyFramework {
namespace {

constexpr int kThreadTraceLimit = 4096;
// TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY.
constexpr DWORD kAdjustTokenAccess = 40;
// TokenIsAppContainer and TokenAppContainerSid of TOKEN_INFORMATION_CLASS.
constexpr int kTokenIsAppContainer = 29;
constexpr int kTokenAppContainerSid = 31;
// Room for the SID of an app container (up to 12 sub-authorities) and the pointer before it.
constexpr DWORD kAppContainerSubAuthorities = 12;
constexpr DWORD kAppContainerExtraBytes = 8;

// An access token of a process, closed at the end of the scope.
class ProcessToken {
public:
    ProcessToken(HANDLE process, DWORD access) : m_token(nullptr) {
        if (!OpenProcessToken(process, access, &m_token)) {
            m_token = nullptr;
        }
    }
    ~ProcessToken() {
        if (m_token != nullptr) {
            CloseHandle(m_token);
        }
    }
    ProcessToken(const ProcessToken&) = delete;
    ProcessToken& operator=(const ProcessToken&) = delete;

    bool IsOpen() const { return m_token != nullptr; }
    HANDLE Handle() const { return m_token; }

private:
    HANDLE m_token;
};

BOOL EnableProcessPrivilege(LPCWSTR name, BOOL enable) {
    const ProcessToken token(GetCurrentProcess(), kAdjustTokenAccess);
    if (!token.IsOpen()) {
        return FALSE;
    }
    return AdjustPrivilege(token.Handle(), name, enable);
}

// Function-local statics: trace calls may come from other statics' constructors.
TinyLock& CommonTraceLock() {
    static TinyLock lock;
    return lock;
}

TinyLock& ThreadTraceLockA() {
    static TinyLock lock;
    return lock;
}

// The wide buffer of TraceW outlives each call: it is made once and only ever grows.
std::vector<wchar_t>& WideTraceBuffer() {
    static std::vector<wchar_t> buffer(256);
    return buffer;
}

void VTraceA(const char* format, va_list args) {
    va_list measure;
    va_copy(measure, args);
    const int needed = vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    if (needed < 0) {
        return;
    }
    std::vector<char> buffer(static_cast<size_t>(needed) + 1);
    vsnprintf(buffer.data(), buffer.size(), format, args);
    OutputDebugStringA(buffer.data());
}

void VTraceW(const wchar_t* format, va_list args) {
    std::vector<wchar_t>& buffer = WideTraceBuffer();
    for (;;) {
        va_list attempt;
        va_copy(attempt, args);
        // The wide formatter reports no needed size, only failure, so the buffer doubles
        // until the text fits.
        const int written = _vsnwprintf(buffer.data(), buffer.size() - 1, format, attempt);
        va_end(attempt);
        if (written >= 0 && static_cast<size_t>(written) < buffer.size() - 1) {
            buffer[static_cast<size_t>(written)] = L'\0';
            break;
        }
        if (buffer.size() >= (1u << 24)) {
            buffer[buffer.size() - 1] = L'\0';
            break;
        }
        buffer.resize(buffer.size() * 2);
    }
    OutputDebugStringW(buffer.data());
}

}  // namespace

void TraceA(const char* format, ...) {
    TinyAutoLock guard(CommonTraceLock());
    va_list args;
    va_start(args, format);
    VTraceA(format, args);
    va_end(args);
}

void TraceW(const wchar_t* format, ...) {
    TinyAutoLock guard(CommonTraceLock());
    va_list args;
    va_start(args, format);
    VTraceW(format, args);
    va_end(args);
}

void TraceThreadA(const char* format, ...) {
    TinyAutoLock guard(ThreadTraceLockA());
    char text[kThreadTraceLimit + 1] = {};
    int prefix = snprintf(text, sizeof(text), "[%d] ", static_cast<int>(GetCurrentThreadId()));
    if (prefix < 0) {
        prefix = 0;
    }
    va_list args;
    va_start(args, format);
    vsnprintf(text + prefix, sizeof(text) - static_cast<size_t>(prefix), format, args);
    va_end(args);
    OutputDebugStringA(text);
}

void TraceThreadW(const wchar_t* format, ...) {
    TinyAutoLock guard(CommonTraceLock());
    wchar_t text[kThreadTraceLimit + 1] = {};
    int prefix =
        _snwprintf(text, kThreadTraceLimit, L"[%d] ", static_cast<int>(GetCurrentThreadId()));
    if (prefix < 0) {
        prefix = 0;
    }
    va_list args;
    va_start(args, format);
    _vsnwprintf(text + prefix, static_cast<size_t>(kThreadTraceLimit - prefix), format, args);
    va_end(args);
    text[kThreadTraceLimit] = L'\0';
    OutputDebugStringW(text);
}

BOOL EnableDebugPrivilege(BOOL enable) {
    return EnableProcessPrivilege(L"SeDebugPrivilege", enable);
}

BOOL EnableBasePriorityPrivilege(BOOL enable) {
    return EnableProcessPrivilege(L"SeIncreaseBasePriorityPrivilege", enable);
}

BOOL AdjustPrivilege(HANDLE token, LPCWSTR name, BOOL enable) {
    TOKEN_PRIVILEGES privileges = {};
    // The error is read before the record is made, which may touch it.
    if (!LookupPrivilegeValueW(nullptr, name, &privileges.Privileges[0].Luid)) {
        const DWORD error = GetLastError();
        TINY_LOG_ERROR() << "Failed to LookupPrivilegeValue"
                         << "(" << error << ")";
        return FALSE;
    }
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = enable != 0 ? SE_PRIVILEGE_ENABLED : 0;
    if (!AdjustTokenPrivileges(token, FALSE, &privileges, sizeof(privileges), nullptr, nullptr)) {
        const DWORD error = GetLastError();
        TINY_LOG_ERROR() << "Failed to AdjustTokenPrivileges"
                         << "(" << error << ")";
        return FALSE;
    }
    return TRUE;
}

BOOL IsAppContainer(HANDLE process, BOOL* isAppContainer) {
    *isAppContainer = FALSE;
    const ProcessToken token(process, TOKEN_QUERY);
    if (!token.IsOpen()) {
        return FALSE;
    }
    DWORD value = 0;
    DWORD returned = 0;
    if (!GetTokenInformation(token.Handle(),
                             static_cast<TOKEN_INFORMATION_CLASS>(kTokenIsAppContainer), &value,
                             sizeof(value), &returned)) {
        return FALSE;
    }
    *isAppContainer = value != 0 ? TRUE : FALSE;
    return TRUE;
}

LPWSTR GetAppContainerSid(HANDLE process) {
    const ProcessToken token(process, TOKEN_QUERY);
    if (!token.IsOpen()) {
        return nullptr;
    }
    const DWORD size = GetSidLengthRequired(kAppContainerSubAuthorities) + kAppContainerExtraBytes;
    std::vector<unsigned char> buffer(size);
    DWORD returned = 0;
    if (!GetTokenInformation(token.Handle(),
                             static_cast<TOKEN_INFORMATION_CLASS>(kTokenAppContainerSid),
                             buffer.data(), size, &returned)) {
        return nullptr;
    }
    // The information starts with a pointer to the SID, which lies further on in the buffer.
    PSID sid = nullptr;
    memcpy(&sid, buffer.data(), sizeof(sid));
    LPWSTR text = nullptr;
    if (sid == nullptr || !ConvertSidToStringSidW(sid, &text)) {
        return nullptr;
    }
    return text;
}

}  // namespace TinyFramework
