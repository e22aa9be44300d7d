#include "TinyFramework/IO/TinyPipe.h"

#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/Common/TinyLogging_win32.h"

#include <cstring>
#include <cwchar>

namespace TinyFramework {
namespace IO {

namespace {

void LogFailure(const char* file, int line, const char* call, DWORD error) {
    LogMessage(file, line).stream() << StringPrintf("Failed to %s(%s)", call, GetErrorText(error));
}

#define LOG_CALL_FAILURE(call, error) LogFailure(__FILE__, __LINE__, call, error)

HANDLE CreateContextEvent() {
    return CreateEventW(nullptr, FALSE, FALSE, nullptr);
}

}  // namespace

PER_IO_CONTEXT::PER_IO_CONTEXT()
    : OVERLAPPED(),
      m_complete(0),
      m_pending(0),
      m_operation(0),
      m_owner(nullptr),
      m_result(nullptr) {
    hEvent = INVALID_HANDLE_VALUE;
}

TinyPipe::TinyPipe() : m_handle(INVALID_HANDLE_VALUE) {
    // Never closed, not even by the destructor: an overlapped operation that is still pending
    // when the pipe goes away is completed by the system later and sets its record's event then.
    // A closed handle there, perhaps reused for another object by that time, would be set by
    // mistake; an event that lives as long as the process is always safe to set.
    m_readContext.hEvent = CreateContextEvent();
    m_writeContext.hEvent = CreateContextEvent();
}

// Not virtual dispatch: a server destroyed without Close neither flushes nor disconnects.
TinyPipe::~TinyPipe() {
    TinyPipe::Close();
}

BOOL TinyPipe::Attach(HANDLE handle) {
    m_handle = handle;
    return TRUE;
}

HANDLE TinyPipe::Detach() {
    HANDLE handle = m_handle;
    m_handle = nullptr;
    return handle;
}

BOOL TinyPipe::IsEmpty() const {
    return m_handle == nullptr || m_handle == INVALID_HANDLE_VALUE;
}

void TinyPipe::Close() {
    if (m_handle != nullptr) {
        CloseHandle(m_handle);
    }
    m_handle = INVALID_HANDLE_VALUE;
}

BOOL TinyPipe::CancelIo() {
    if (IsEmpty()) {
        return FALSE;
    }
    LogMessage(LOG_INFO).stream() << "[TinyPipe] CancelIo";
    return ::CancelIo(m_handle);
}

DWORD TinyPipe::GetAvailable() const {
    if (IsEmpty()) {
        return 0;
    }
    DWORD available = 0;
    if (!PeekNamedPipe(m_handle, nullptr, 0, nullptr, &available, nullptr)) {
        return 0;
    }
    return available;
}

BOOL TinyPipe::Flush() {
    if (IsEmpty()) {
        return FALSE;
    }
    return FlushFileBuffers(m_handle);
}

int32_t TinyPipe::Read(void* buffer, DWORD size) {
    if (IsEmpty()) {
        return 0;
    }
    SetLastError(0);
    DWORD count = 0;
    if (!ReadFile(m_handle, buffer, size, &count, nullptr)) {
        LogMessage(__FILE__, __LINE__).stream()
            << StringPrintf("Failed to ReadFile(%d)", static_cast<int>(GetLastError()));
    }
    return static_cast<int32_t>(count);
}

int32_t TinyPipe::Write(const void* buffer, DWORD size) {
    if (IsEmpty()) {
        return 0;
    }
    SetLastError(0);
    DWORD count = 0;
    if (!WriteFile(m_handle, buffer, size, &count, nullptr)) {
        LOG_CALL_FAILURE("WriteFile", GetLastError());
    }
    return static_cast<int32_t>(count);
}

TinyPipeServer::TinyPipeServer() : m_connected(0), m_created(0), m_byteMode(1), m_strictConnect(0) {
    std::memset(m_name, 0, sizeof(m_name));
    std::memset(static_cast<OVERLAPPED*>(&m_connectContext), 0, sizeof(OVERLAPPED));
    m_connectContext.hEvent = CreateContextEvent();
}

TinyPipeServer::~TinyPipeServer() = default;

void TinyPipeServer::Close() {
    Disconnect();
    TinyPipe::Close();
}

DWORD TinyPipeServer::GetPipeProcessId() const {
    ULONG id = 0;
    GetNamedPipeServerProcessId(m_handle, &id);
    return id;
}

DWORD TinyPipeServer::GetPipeSessionId() const {
    ULONG id = 0;
    GetNamedPipeServerSessionId(m_handle, &id);
    return id;
}

BOOL TinyPipeServer::Create(LPCWSTR name) {
    m_strictConnect = 0;
    SECURITY_DESCRIPTOR descriptor;
    if (!InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION)) {
        LOG_CALL_FAILURE("InitializeSecurityDescriptor", GetLastError());
    } else if (!SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE)) {
        LOG_CALL_FAILURE("SetSecurityDescriptorDacl", GetLastError());
    } else {
        SECURITY_ATTRIBUTES attributes;
        attributes.nLength = sizeof(attributes);
        attributes.lpSecurityDescriptor = &descriptor;
        attributes.bInheritHandle = TRUE;
        SetLastError(0);
        const HANDLE pipe = CreateNamedPipeW(name, kOpenMode, kPipeMode, kInstances, kBufferSize,
                                             kBufferSize, kDefaultTimeout, &attributes);
        // Only a pipe replaces what the object holds: after a failure, Close below finds the
        // earlier handle, if any, and closes it, rather than an invalid one in its place.
        if (pipe != INVALID_HANDLE_VALUE) {
            m_handle = pipe;
            m_created = 1;
            m_byteMode = 1;
            // The caller keeps the name under the buffer's length.
            std::wcscpy(m_name, name);
            return TRUE;
        }
        LOG_CALL_FAILURE("CreateNamedPipe", GetLastError());
    }
    Close();
    return FALSE;
}

BOOL TinyPipeServer::Connect() {
    SetLastError(0);
    m_connected.exchange(0);
    if (ConnectNamedPipe(m_handle, nullptr)) {
        const DWORD error = GetLastError();
        if (error != ERROR_PIPE_CONNECTED && m_strictConnect != 0) {
            LogMessage(__FILE__, __LINE__).stream() << GetErrorText(error);
            return FALSE;
        }
        m_connected.exchange(1);
        return TRUE;
    }
    // A client that came before this call makes it fail with ERROR_PIPE_CONNECTED; the
    // synchronous path takes that for a failure like any other, and the query server then drops
    // its reply. Its parents are built around exactly that: a parent that opened the pipe too
    // early sees the server's event set a second time, takes the reply as lost and asks again.
    // Accepting the early client here would change what those parents see.
    LOG_CALL_FAILURE("ConnectNamedPipe", GetLastError());
    return FALSE;
}

BOOL TinyPipeServer::Disconnect() {
    if (IsEmpty()) {
        return FALSE;
    }
    FlushFileBuffers(m_handle);
    if (DisconnectNamedPipe(m_handle)) {
        m_connected.exchange(0);
        return TRUE;
    }
    LOG_CALL_FAILURE("DisconnectNamedPipe", GetLastError());
    return FALSE;
}

BOOL TinyPipeServer::IsConnected() {
    // A read-modify-write that leaves the value as it is.
    uint8_t value = m_connected.load();
    while (!m_connected.compare_exchange_weak(value, value)) {
    }
    return value != 0;
}

TinyPipeClient::TinyPipeClient() : m_reserved(0), m_byteMode(1) {
    std::memset(m_name, 0, sizeof(m_name));
}

TinyPipeClient::~TinyPipeClient() = default;

DWORD TinyPipeClient::GetPipeProcessId() const {
    ULONG id = 0;
    GetNamedPipeClientSessionId(m_handle, &id);
    return id;
}

DWORD TinyPipeClient::GetPipeSessionId() const {
    ULONG id = 0;
    GetNamedPipeClientProcessId(m_handle, &id);
    return id;
}

BOOL TinyPipeClient::Open(LPCWSTR name, BOOL byteMode, BOOL overlapped) {
    DWORD readMode = 0;
    SetLastError(0);
    for (;;) {
        if (!WaitNamedPipeW(name, kWaitTimeout)) {
            const DWORD error = GetLastError();
            if (error == 0 || error == ERROR_FILE_NOT_FOUND) {
                Sleep(1);  // not there yet: the server has still to create it
                continue;
            }
        }
        const DWORD flags = overlapped ? kOverlappedFlags : kFlags;
        const HANDLE pipe =
            CreateFileW(name, kDesiredAccess, 0, nullptr, OPEN_EXISTING, flags, nullptr);
        // Only an open pipe replaces what the object holds, as in TinyPipeServer::Create.
        if (pipe != INVALID_HANDLE_VALUE) {
            m_handle = pipe;
            break;
        }
        const DWORD error = GetLastError();
        if (error == ERROR_PIPE_BUSY) {
            Sleep(1);  // another client took the instance first: wait for it again
            continue;
        }
        LOG_CALL_FAILURE("CreateFile", error);
        Close();
        return FALSE;
    }
    if (!byteMode) {
        readMode = PIPE_READMODE_MESSAGE;
    }
    SetLastError(0);
    if (!SetNamedPipeHandleState(m_handle, &readMode, nullptr, nullptr)) {
        LOG_CALL_FAILURE("SetNamedPipeHandleState", GetLastError());
        Close();
        return FALSE;
    }
    m_byteMode = byteMode;
    std::wcscpy(m_name, name);
    return TRUE;
}

}  // namespace IO
}  // namespace TinyFramework
