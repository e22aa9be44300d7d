#pragma once

#include <windows.h>

#include "TinyFramework/Common/TinyCallback.h"
#include "TinyFramework/Common/TinyRefCount.h"

#include <atomic>
#include <cstdint>

namespace TinyFramework {
namespace IO {

class TinyPipe;
class AsyncResult;

// What an overlapped pipe operation hands its caller on completion: the error code and the
// operation's result record. Runs on a thread-pool thread.
using AsyncCallback = Callback<void(int, AsyncResult*)>;

// The result record of one overlapped operation. Its lifetime is not governed by its reference
// count, which stays 0: Begin... creates it with new and the completion routine destroys it
// through the virtual destructor once the caller's callback has returned. A record is therefore
// valid only inside that callback.
class AsyncResult : public TinyRefCount<AsyncResult, DefaultReferenceTraits<AsyncResult>> {
public:
    AsyncResult();
    virtual ~AsyncResult();

    // Records alive in the process: created by a Begin... and not yet destroyed by a completion.
    // A failed Begin... leaves its record alive for good. For diagnostics and tests.
    static int32_t LiveCount();

    // The caller's value, handed to Begin...; not used by the pipe.
    LPVOID m_asyncState;
    // The thread-pool wait that completes the operation: INVALID_HANDLE_VALUE until registered,
    // null once the completion routine has unregistered it.
    HANDLE m_waitHandle;
};

class PipeAsyncResult : public AsyncResult {
public:
    PipeAsyncResult();

    DWORD m_bytesTransferred;
};

// The record of one outstanding overlapped operation on a pipe; its address is handed to the
// system as the OVERLAPPED, and as the parameter of the thread-pool wait on its event.
//
// Threads: the caller's thread writes it in Begin...; a thread-pool thread reads it and clears
// m_result in the completion routine. No lock guards it: the caller keeps one operation per record
// at a time, the wait fires once (WT_EXECUTEONLYONCE), and m_result, the token of an unfinished
// operation, is atomic so that the two threads agree on who clears it.
struct PER_IO_CONTEXT : OVERLAPPED {
    static constexpr int32_t kOperationConnect = 1;
    static constexpr int32_t kOperationRead = 16;
    static constexpr int32_t kOperationWrite = 17;

    PER_IO_CONTEXT();
    PER_IO_CONTEXT(const PER_IO_CONTEXT&) = delete;
    PER_IO_CONTEXT& operator=(const PER_IO_CONTEXT&) = delete;
    // Destroys the callback only: the event outlives the record (see TinyPipe's constructor).
    ~PER_IO_CONTEXT() = default;

    // Cancels the operation of this record on `handle`, whichever thread started it.
    BOOL Cancel(HANDLE handle);

    // Written by the thread that starts an operation and by the thread-pool thread that
    // completes it: atomic.
    std::atomic<int32_t> m_complete;
    std::atomic<int32_t> m_pending;
    int32_t m_operation;
    TinyPipe* m_owner;
    // Non-null exactly while the operation is unfinished.
    std::atomic<AsyncResult*> m_result;
    // Stays here after completion until the next Begin... replaces it.
    AsyncCallback m_callback;
};

// One end of a named pipe. Not copyable; the handle is closed by Close and by the destructor.
//
// Overlapped operations (BeginRead, BeginWrite, TinyPipeServer::BeginConnect): each direction has
// one record, so one operation per direction at a time is the caller's duty; a second Begin on a
// busy record overwrites it. The operation completes through a thread-pool wait on the record's
// event, and the caller's callback runs on that pool thread, never on the caller's. The pipe holds
// the callback (moved in) and the result record (until the completion destroys it); the records
// hold their pipe by a plain pointer. Nothing here waits for an armed operation: the owner must
// have seen every operation end (AsyncResult::LiveCount back where it was) before destroying the
// pipe. There is no lock in these classes.
class TinyPipe {
public:
    TinyPipe();
    virtual ~TinyPipe();
    TinyPipe(const TinyPipe&) = delete;
    TinyPipe& operator=(const TinyPipe&) = delete;

    virtual BOOL IsByteMode() const = 0;
    virtual void Close();
    virtual DWORD GetPipeProcessId() const = 0;
    virtual DWORD GetPipeSessionId() const = 0;
    virtual BOOL CancelIo();

    HANDLE Handle() const { return m_handle; }
    operator HANDLE() const { return m_handle; }
    BOOL Attach(HANDLE handle);
    HANDLE Detach();
    BOOL IsEmpty() const;

    DWORD GetAvailable() const;
    BOOL Flush();
    int32_t Read(void* buffer, DWORD size);
    int32_t Write(const void* buffer, DWORD size);

    // True when the operation is under way or done; its end comes through `callback` on a pool
    // thread. A false result is the only report of a failed start: the callback is not run then,
    // and the pipe is closed.
    BOOL BeginRead(void* buffer, DWORD size, AsyncCallback&& callback, LPVOID state);
    BOOL BeginWrite(const void* buffer, DWORD size, AsyncCallback&& callback, LPVOID state);
    // The bytes of the operation; `result` is valid only inside the callback.
    DWORD EndRead(AsyncResult* result);
    DWORD EndWrite(AsyncResult* result);

protected:
    // The first steps of every Begin...: the record's operation, owner, a new result record and
    // the caller's callback (moved out of `callback`), and the event reset.
    void PrepareContext(PER_IO_CONTEXT& context, int32_t operation, AsyncCallback& callback,
                        LPVOID state);
    // Registers the one-shot thread-pool wait on the record's event; logs a failure.
    static bool RegisterCompletion(PER_IO_CONTEXT& context, WAITORTIMERCALLBACK routine,
                                   DWORD* error);
    // The end of a failed Begin...: cancel, the (never taken) callback branch, the record's token
    // cleared without freeing it, the pipe closed. Always FALSE.
    BOOL FailBegin(PER_IO_CONTEXT& context, AsyncCallback& callback, DWORD error);
    // Ends an operation on the pool thread: clears the record's token and destroys the result.
    static void FinishOperation(PER_IO_CONTEXT& context, AsyncResult* result);
    // Runs the record's callback, if any, with the operation's end.
    static void RunCallback(PER_IO_CONTEXT& context, int error, AsyncResult* result);
    // Unregisters the wait of `result` from inside its own routine, and resets the event.
    static void ReleaseWait(PER_IO_CONTEXT& context, AsyncResult* result);

    HANDLE m_handle;
    PER_IO_CONTEXT m_readContext;
    PER_IO_CONTEXT m_writeContext;

private:
    BOOL BeginTransfer(PER_IO_CONTEXT& context, int32_t operation, void* buffer, DWORD size,
                       AsyncCallback& callback, LPVOID state);
    static VOID CALLBACK OnTransferCompleted(PVOID parameter, BOOLEAN timedOut);
};

// The server end: creates the pipe (one instance, open to everybody) and accepts its client.
class TinyPipeServer : public TinyPipe {
public:
    // Not overlapped: the server's handle is a synchronous one.
    static constexpr DWORD kOpenMode = PIPE_ACCESS_DUPLEX | FILE_FLAG_WRITE_THROUGH;
    static constexpr DWORD kPipeMode = PIPE_TYPE_BYTE | PIPE_READMODE_BYTE | PIPE_WAIT;
    static constexpr DWORD kInstances = 1;
    static constexpr DWORD kBufferSize = 16384;
    static constexpr DWORD kDefaultTimeout = 3000;
    static constexpr size_t kNameLength = 260;

    TinyPipeServer();
    ~TinyPipeServer() override;

    BOOL IsByteMode() const override { return m_byteMode; }
    void Close() override;
    DWORD GetPipeProcessId() const override;
    DWORD GetPipeSessionId() const override;

    BOOL Create(LPCWSTR name);
    BOOL Connect();
    BOOL Disconnect();
    BOOL IsConnected();
    const wchar_t* GetName() const { return m_name; }

    // True when the connect is under way or done (a client that came first counts as done); the
    // end comes through `callback` on a pool thread. On this class's own (synchronous) handle
    // the call blocks until a client is there.
    BOOL BeginConnect(AsyncCallback&& callback, LPVOID state);

private:
    static VOID CALLBACK OnConnectCompleted(PVOID parameter, BOOLEAN timedOut);

    // Written with atomic exchanges only: also from the pool thread of a connect completion.
    std::atomic<uint8_t> m_connected;
    int32_t m_created;
    wchar_t m_name[kNameLength];
    int32_t m_byteMode;
    PER_IO_CONTEXT m_connectContext;
    // Switches on the report of an unexpected last error after a successful connect. Nothing in
    // this program sets it.
    int32_t m_strictConnect;
};

// The client end: opens a pipe that a server created, waiting for it as long as it takes.
class TinyPipeClient : public TinyPipe {
public:
    static constexpr DWORD kDesiredAccess = GENERIC_READ | GENERIC_WRITE;
    static constexpr DWORD kFlags = FILE_FLAG_WRITE_THROUGH | FILE_FLAG_NO_BUFFERING;
    static constexpr DWORD kOverlappedFlags = kFlags | FILE_FLAG_OVERLAPPED;
    static constexpr DWORD kWaitTimeout = 3000;
    static constexpr size_t kNameLength = 260;

    TinyPipeClient();
    ~TinyPipeClient() override;

    BOOL IsByteMode() const override { return m_byteMode; }
    // Crossed on purpose: through TinyPipe, a client's process id is its session id and the
    // other way round. Code built on this class reads a client's ids through the base class in
    // this order; putting the two right would hand that code the wrong value from each.
    DWORD GetPipeProcessId() const override;
    DWORD GetPipeSessionId() const override;

    BOOL Open(LPCWSTR name, BOOL byteMode, BOOL overlapped);
    const wchar_t* GetName() const { return m_name; }

private:
    int32_t m_reserved;
    wchar_t m_name[kNameLength];
    int32_t m_byteMode;
};

}  // namespace IO
}  // namespace TinyFramework
