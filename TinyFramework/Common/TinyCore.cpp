#include "TinyFramework/Common/TinyCore.h"

#include "TinyFramework/Common/TinyLogging_win32.h"

#include <cstdarg>
#include <vector>

namespace TinyFramework {

namespace {

// From the system, ignoring inserts, lines cut at 255 characters.
constexpr DWORD kErrorTextFlags =
    FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_MAX_WIDTH_MASK;
constexpr DWORD kErrorTextLanguage = MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT);
constexpr DWORD kErrorTextSize = 1024;

char g_errorText[kErrorTextSize];
char g_lastErrorText[kErrorTextSize];

const char* FormatSystemText(DWORD code, char* buffer) {
    buffer[0] = '\0';
    FormatMessageA(kErrorTextFlags, nullptr, code, kErrorTextLanguage, buffer, kErrorTextSize,
                   nullptr);
    return buffer;
}

}  // namespace

const char* GetErrorText(DWORD code) {
    return FormatSystemText(code, g_errorText);
}

const char* GetLastErrorText() {
    return FormatSystemText(GetLastError(), g_lastErrorText);
}

std::string StringPrintf(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list copy;
    va_copy(copy, arguments);
    const int length = vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string text;
    if (length > 0) {
        std::vector<char> buffer(static_cast<size_t>(length) + 1);
        vsnprintf(buffer.data(), buffer.size(), format, arguments);
        text.assign(buffer.data(), static_cast<size_t>(length));
    }
    va_end(arguments);
    return text;
}

TinyEvent::TinyEvent() : m_handle(nullptr) {}

TinyEvent::~TinyEvent() {
    Close();
}

BOOL TinyEvent::Create() {
    m_handle = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    return m_handle != nullptr;
}

BOOL TinyEvent::CreateEx(LPSECURITY_ATTRIBUTES security, LPCWSTR name, DWORD flags, DWORD access) {
    m_handle = CreateEventExW(security, name, flags, access);
    return m_handle != nullptr;
}

BOOL TinyEvent::Open(DWORD /*access*/, BOOL /*inherit*/, LPCWSTR name) {
    // The parent creates the event and the query server only ever sets it, so the right to set
    // it is all that is asked for, whatever a caller passes: an event whose owner grants no more
    // than that still opens. Not inheritable, so no process the server might start holds it.
    m_handle = OpenEventW(EVENT_MODIFY_STATE, FALSE, name);
    return m_handle != nullptr;
}

BOOL TinyEvent::OpenNt(DWORD access, LPCWSTR path) {
    TinyObjectAttributes attributes(path);
    HANDLE opened = nullptr;
    const NTSTATUS status = NtOpenEvent(&opened, access, attributes.Get());
    if (status < 0) {
        SetLastStatus(status);
        return FALSE;
    }
    m_handle = opened;
    return TRUE;
}

BOOL TinyEvent::SetEvent() {
    if (m_handle == nullptr) {
        return FALSE;
    }
    return ::SetEvent(m_handle);
}

BOOL TinyEvent::Wait() {
    if (m_handle == nullptr) {
        return FALSE;
    }
    const DWORD result = WaitForSingleObject(m_handle, INFINITE);
    if (result == WAIT_OBJECT_0) {
        return TRUE;
    }
    if (result == WAIT_ABANDONED) {
        LogMessage(LOG_INFO).stream() << "WAIT_ABANDONED(EVENT)";
        return TRUE;
    }
    return FALSE;
}

void TinyEvent::Close() {
    if (m_handle != nullptr) {
        CloseHandle(m_handle);
        m_handle = nullptr;
    }
}

}  // namespace TinyFramework
