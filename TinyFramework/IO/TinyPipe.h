#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>

namespace TinyFramework {
namespace IO {

class TinyPipe;
class AsyncResult;

// The record of one outstanding overlapped operation on a pipe; its address is handed to the
// system as the OVERLAPPED. The overlapped operations that fill it are built on top of the
// synchronous pipe; here it only exists, with its event, from the pipe's construction on.
struct PER_IO_CONTEXT : OVERLAPPED {
    PER_IO_CONTEXT();
    PER_IO_CONTEXT(const PER_IO_CONTEXT&) = delete;
    PER_IO_CONTEXT& operator=(const PER_IO_CONTEXT&) = delete;

    // Written by the thread that starts an operation and by the thread-pool thread that
    // completes it: atomic.
    std::atomic<int32_t> m_complete;
    std::atomic<int32_t> m_pending;
    int32_t m_operation;
    TinyPipe* m_owner;
    AsyncResult* m_result;
};

// One end of a named pipe. Not copyable; the handle is closed by Close and by the destructor.
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

protected:
    HANDLE m_handle;
    PER_IO_CONTEXT m_readContext;
    PER_IO_CONTEXT m_writeContext;
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

private:
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
