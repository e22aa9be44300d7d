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

namespace {
// Result records alive: created by a Begin... and not yet destroyed by its completion.
std::atomic<int32_t> g_liveAsyncResults{0};
}  // namespace

AsyncResult::AsyncResult() : m_asyncState(nullptr), m_waitHandle(INVALID_HANDLE_VALUE) {
    g_liveAsyncResults.fetch_add(1);
}

AsyncResult::~AsyncResult() {
    g_liveAsyncResults.fetch_sub(1);
}

int32_t AsyncResult::LiveCount() {
    return g_liveAsyncResults.load();
}

PipeAsyncResult::PipeAsyncResult() : m_bytesTransferred(0) {}

PER_IO_CONTEXT::PER_IO_CONTEXT()
    : OVERLAPPED(),
      m_complete(0),
      m_pending(0),
      m_operation(0),
      m_owner(nullptr),
      m_result(nullptr) {
    hEvent = INVALID_HANDLE_VALUE;
}

BOOL PER_IO_CONTEXT::Cancel(HANDLE handle) {
    if (handle == nullptr) {
        return FALSE;
    }
    LogMessage(LOG_INFO).stream() << "[PER_IO_CONTEXT] CancelIoEx";
    return CancelIoEx(handle, this);
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

BOOL TinyPipe::BeginRead(void* buffer, DWORD size, AsyncCallback&& callback, LPVOID state) {
    return BeginTransfer(m_readContext, PER_IO_CONTEXT::kOperationRead, buffer, size, callback,
                         state);
}

BOOL TinyPipe::BeginWrite(const void* buffer, DWORD size, AsyncCallback&& callback, LPVOID state) {
    // WriteFile takes the buffer as const; the common path passes it on untouched.
    return BeginTransfer(m_writeContext, PER_IO_CONTEXT::kOperationWrite, const_cast<void*>(buffer),
                         size, callback, state);
}

DWORD TinyPipe::EndRead(AsyncResult* result) {
    return static_cast<PipeAsyncResult*>(result)->m_bytesTransferred;
}

DWORD TinyPipe::EndWrite(AsyncResult* result) {
    return static_cast<PipeAsyncResult*>(result)->m_bytesTransferred;
}

void TinyPipe::PrepareContext(PER_IO_CONTEXT& context, int32_t operation, AsyncCallback& callback,
                              LPVOID state) {
    context.m_operation = operation;
    context.m_owner = this;
    auto* result = new PipeAsyncResult();
    context.m_result.store(result);
    result->m_asyncState = state;
    context.m_callback = std::move(callback);
    ResetEvent(context.hEvent);
}

bool TinyPipe::RegisterCompletion(PER_IO_CONTEXT& context, WAITORTIMERCALLBACK routine,
                                  DWORD* error) {
    // The event cannot be set before the I/O call that follows, so the routine never runs
    // before the wait handle has been stored in the record.
    AsyncResult* result = context.m_result.load();
    if (RegisterWaitForSingleObject(&result->m_waitHandle, context.hEvent, routine, &context,
                                    INFINITE, WT_EXECUTEONLYONCE)) {
        return true;
    }
    *error = GetLastError();
    LOG_CALL_FAILURE("RegisterWaitForSingleObject", *error);
    return false;
}

BOOL TinyPipe::FailBegin(PER_IO_CONTEXT& context, AsyncCallback& callback, DWORD error) {
    context.Cancel(m_handle);
    // `callback` is the caller's object, which PrepareContext has emptied, so this branch never
    // runs: a failed start reports by its false result alone. It stays so that no failure is
    // ever reported twice, once by the result and once by the callback.
    if (!callback.IsNull()) {
        callback.Run(static_cast<int>(error), context.m_result.load());
    }
    // The record is not freed here: only the completion routine frees records, so a routine that
    // still fires on this record's wait finds no token and touches nothing of a freed one. The
    // wait, if it was registered, stays registered on the event.
    context.m_result.store(nullptr);
    Close();
    return FALSE;
}

void TinyPipe::ReleaseWait(PER_IO_CONTEXT& context, AsyncResult* result) {
    if (result->m_waitHandle != nullptr) {
        // From inside the wait's own routine: returns at once (with ERROR_IO_PENDING).
        UnregisterWait(result->m_waitHandle);
        result->m_waitHandle = nullptr;
    }
    ResetEvent(context.hEvent);
}

void TinyPipe::RunCallback(PER_IO_CONTEXT& context, int error, AsyncResult* result) {
    // Run from a copy: the callback may start the next operation on this record, and that
    // Begin... replaces the record's callback, perhaps dropping the last reference to what this
    // one bound, while this one still runs.
    const AsyncCallback callback = context.m_callback;
    if (!callback.IsNull()) {
        callback.Run(error, result);
    }
}

void TinyPipe::FinishOperation(PER_IO_CONTEXT& context, AsyncResult* result) {
    // The callback may already have started the next operation on this record, from inside
    // itself or from a thread that it woke. The token is then that operation's and stays; this
    // routine clears only its own and destroys the record it began with, so the next operation
    // keeps its record and its completion. A caller sees the same as when nothing overlaps.
    AsyncResult* own = result;
    context.m_result.compare_exchange_strong(own, nullptr);
    delete result;
}

BOOL TinyPipe::BeginTransfer(PER_IO_CONTEXT& context, int32_t operation, void* buffer, DWORD size,
                             AsyncCallback& callback, LPVOID state) {
    if (IsEmpty()) {
        return FALSE;
    }
    PrepareContext(context, operation, callback, state);
    DWORD error = 0;
    if (!RegisterCompletion(context, &TinyPipe::OnTransferCompleted, &error)) {
        return FailBegin(context, callback, error);
    }
    SetLastError(0);
    // Done at once or later, the system sets the event and the completion routine runs.
    const BOOL done = operation == PER_IO_CONTEXT::kOperationRead
                          ? ReadFile(m_handle, buffer, size, nullptr, &context)
                          : WriteFile(m_handle, buffer, size, nullptr, &context);
    if (done) {
        return TRUE;
    }
    error = GetLastError();
    // A message longer than the buffer is under way as well: its rest waits for the next read,
    // and the completion reports the code.
    if (error == ERROR_MORE_DATA || error == ERROR_IO_PENDING) {
        return TRUE;
    }
    if (operation == PER_IO_CONTEXT::kOperationRead) {
        LogMessage(__FILE__, __LINE__).stream() << StringPrintf(
            "Failed to ReadFileEx(%d,%s)", static_cast<int>(error), GetErrorText(error));
    } else {
        LOG_CALL_FAILURE("WriteFile", error);
    }
    return FailBegin(context, callback, error);
}

VOID CALLBACK TinyPipe::OnTransferCompleted(PVOID parameter, BOOLEAN /*timedOut*/) {
    auto* context = static_cast<PER_IO_CONTEXT*>(parameter);
    if (context == nullptr) {
        return;
    }
    AsyncResult* result = context->m_result.load();
    if (result == nullptr) {
        return;  // a failed start cleared the token: nothing here is ours
    }
    ReleaseWait(*context, result);
    if (context->m_operation == PER_IO_CONTEXT::kOperationRead ||
        context->m_operation == PER_IO_CONTEXT::kOperationWrite) {
        auto* transfer = static_cast<PipeAsyncResult*>(result);
        transfer->m_bytesTransferred = 0;
        if (!GetOverlappedResult(context->m_owner->Handle(), context, &transfer->m_bytesTransferred,
                                 FALSE)) {
            transfer->m_bytesTransferred = 0;
        }
        context->m_complete.store(context->Internal != STATUS_PENDING ? 1 : 0);
        // Taken whether the call failed or not: after a success it is what the calls above left
        // (the unregistering's ERROR_IO_PENDING). Callers judge success by the byte count, and
        // handing them a different code now would change what they judge by.
        const int error = static_cast<int>(GetLastError());
        RunCallback(*context, error, result);
    }
    FinishOperation(*context, result);
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

BOOL TinyPipeServer::BeginConnect(AsyncCallback&& callback, LPVOID state) {
    PrepareContext(m_connectContext, PER_IO_CONTEXT::kOperationConnect, callback, state);
    m_connected.exchange(0);
    DWORD error = 0;
    if (!RegisterCompletion(m_connectContext, &TinyPipeServer::OnConnectCompleted, &error)) {
        return FailBegin(m_connectContext, callback, error);
    }
    SetLastError(0);
    // On this class's own handle, which is synchronous, this blocks until a client is there.
    if (ConnectNamedPipe(m_handle, &m_connectContext)) {
        return TRUE;
    }
    error = GetLastError();
    if (error == ERROR_IO_PENDING) {
        m_connectContext.m_pending.store(1);
        return TRUE;
    }
    if (error == ERROR_PIPE_CONNECTED) {
        // The client came first and the system will not set the event: set it here, so that
        // the completion runs as for any other connect.
        SetEvent(m_connectContext.hEvent);
        return TRUE;
    }
    LOG_CALL_FAILURE("ConnectNamedPipe", GetLastError());
    return FailBegin(m_connectContext, callback, error);
}

VOID CALLBACK TinyPipeServer::OnConnectCompleted(PVOID parameter, BOOLEAN /*timedOut*/) {
    auto* context = static_cast<PER_IO_CONTEXT*>(parameter);
    if (context == nullptr) {
        return;
    }
    AsyncResult* result = context->m_result.load();
    if (result == nullptr) {
        return;  // a failed start cleared the token: nothing here is ours
    }
    ReleaseWait(*context, result);
    if (context->m_operation == PER_IO_CONTEXT::kOperationConnect) {
        int error = 0;
        if (context->m_pending.exchange(0) != 0) {
            DWORD count = 0;
            GetOverlappedResult(context->m_owner->Handle(), context, &count, FALSE);
            context->m_complete.store(context->Internal != STATUS_PENDING ? 1 : 0);
            // As for transfers: the thread's last error, also after a success.
            error = static_cast<int>(GetLastError());
        } else {
            context->m_complete.store(1);
        }
        auto* server = static_cast<TinyPipeServer*>(context->m_owner);
        server->m_connected.exchange(error == 0 ? 1 : 0);
        RunCallback(*context, error, result);
    }
    FinishOperation(*context, result);
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
