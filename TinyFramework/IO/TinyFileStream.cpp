#include "TinyFramework/IO/TinyFileStream.h"

#include "TinyFramework/Common/TinyDebug.h"
#include "TinyFramework/Common/TinyTextConversion.h"

#include <new>
#include <string>

namespace TinyFramework {
namespace IO {

namespace {

// The STGM_ flags that CreateStreamOnFile understands: STGM_CREATE, the sharing modes
// (STGM_SHARE_EXCLUSIVE, STGM_SHARE_DENY_WRITE, STGM_SHARE_DENY_READ, STGM_SHARE_DENY_NONE),
// STGM_READWRITE and STGM_WRITE.
constexpr DWORD kKnownModeFlags = 0x1073;
constexpr DWORD kShareModeMask = 0x70;

DWORD ShareOfMode(DWORD mode) {
    switch (mode & kShareModeMask) {
        case STGM_SHARE_EXCLUSIVE:
            return 0;
        case STGM_SHARE_DENY_WRITE:
            return FILE_SHARE_READ;
        case STGM_SHARE_DENY_READ:
            return FILE_SHARE_WRITE;
        default:
            return FILE_SHARE_READ | FILE_SHARE_WRITE;
    }
}

DWORD AccessOfMode(DWORD mode) {
    if ((mode & STGM_READWRITE) != 0) {
        return GENERIC_READ | GENERIC_WRITE;
    }
    return (mode & STGM_WRITE) != 0 ? GENERIC_WRITE : GENERIC_READ;
}

}  // namespace

TinyFileStream::TinyFileStream(HANDLE handle) : m_cRef(1), m_handle(handle) {}

TinyFileStream::~TinyFileStream() {
    if (m_handle != INVALID_HANDLE_VALUE && m_handle != nullptr) {
        CloseHandle(m_handle);
    }
}

HRESULT STDMETHODCALLTYPE TinyFileStream::QueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (iid == IID_IStream || iid == IID_IUnknown) {
        // No reference is counted for the caller, unlike every other COM object here: the
        // programs built on this stream never release what QueryInterface gave them, and a
        // count taken here would be one that nobody drops, keeping the stream and its file
        // open for ever.
        *object = static_cast<IStream*>(this);
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE TinyFileStream::AddRef() {
    return static_cast<ULONG>(InterlockedIncrement(&m_cRef));
}

ULONG STDMETHODCALLTYPE TinyFileStream::Release() {
    if (InterlockedDecrement(&m_cRef) == 0) {
        delete this;
        return 0;
    }
    // A fresh read, as a hint only: another thread may have moved the count since.
    return static_cast<ULONG>(m_cRef);
}

HRESULT STDMETHODCALLTYPE TinyFileStream::Read(void* buffer, ULONG count, ULONG* read) {
    if (buffer == nullptr) {
        return E_INVALIDARG;
    }
    DWORD done = 0;
    const BOOL succeeded = ReadFile(m_handle, buffer, count, &done, nullptr);
    if (read != nullptr) {
        *read = done;
    }
    return succeeded ? S_OK : S_FALSE;
}

HRESULT STDMETHODCALLTYPE TinyFileStream::Write(const void* buffer, ULONG count, ULONG* written) {
    if (buffer == nullptr) {
        return E_INVALIDARG;
    }
    DWORD done = 0;
    const BOOL succeeded = WriteFile(m_handle, buffer, count, &done, nullptr);
    if (written != nullptr) {
        *written = done;
    }
    return succeeded ? S_OK : S_FALSE;
}

HRESULT STDMETHODCALLTYPE TinyFileStream::Seek(LARGE_INTEGER offset, DWORD origin,
                                               ULARGE_INTEGER* newPosition) {
    if (origin != STREAM_SEEK_SET && origin != STREAM_SEEK_CUR && origin != STREAM_SEEK_END) {
        return E_INVALIDARG;
    }
    // Files of this stream stay below 4 GiB: the low half alone moves, as a signed distance,
    // and a failed move shows only as INVALID_SET_FILE_POINTER in the new position.
    const DWORD position =
        SetFilePointer(m_handle, static_cast<LONG>(offset.LowPart), nullptr, origin);
    if (newPosition != nullptr) {
        newPosition->LowPart = position;
        newPosition->HighPart = 0;
    }
    return S_OK;
}

HRESULT STDMETHODCALLTYPE TinyFileStream::SetSize(ULARGE_INTEGER) {
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE TinyFileStream::CopyTo(IStream* target, ULARGE_INTEGER count,
                                                 ULARGE_INTEGER* read, ULARGE_INTEGER* written) {
    if (read != nullptr) {
        read->QuadPart = 0;
    }
    if (written != nullptr) {
        written->QuadPart = 0;
    }
    // Only the low half counts, as for Seek.
    ULONG remaining = count.LowPart;
    if (remaining == 0) {
        return S_OK;
    }
    BYTE buffer[kCopyBufferSize];
    HRESULT result = S_OK;
    ULONG put = 0;
    do {
        const ULONG chunk = remaining < kCopyBufferSize ? remaining : kCopyBufferSize;
        ULONG got = 0;
        result = Read(buffer, chunk, &got);
        if (read != nullptr) {
            read->QuadPart += got;
        }
        if (FAILED(result) || got == 0) {
            break;
        }
        put = 0;
        result = target->Write(buffer, got, &put);
        if (written != nullptr) {
            written->QuadPart += put;
        }
        remaining -= got;
    } while (SUCCEEDED(result) && put > 0 && remaining > 0);
    return result;
}

HRESULT STDMETHODCALLTYPE TinyFileStream::Commit(DWORD) {
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE TinyFileStream::Revert() {
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE TinyFileStream::LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) {
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE TinyFileStream::UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) {
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE TinyFileStream::Stat(STATSTG*, DWORD) {
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE TinyFileStream::Clone(IStream**) {
    return E_NOTIMPL;
}

HRESULT CreateStreamOnFile(LPCWSTR fileName, DWORD mode, IStream** out) {
    *out = nullptr;
    if ((mode & ~kKnownModeFlags) != 0) {
        // The misspelt name is the one that people searching debugger output know.
        TraceA("CreateSreamOnFile: Invalid STGM_ mode");
        return E_INVALIDARG;
    }
    DWORD access = 0;
    DWORD share = 0;
    DWORD disposition = 0;
    DWORD attributes = 0;
    if ((mode & STGM_CREATE) != 0) {
        // A file made anew keeps the attributes of the one it replaces.
        const DWORD existing = GetFileAttributesW(fileName);
        attributes = existing != INVALID_FILE_ATTRIBUTES ? existing : 0;
        access = GENERIC_READ | GENERIC_WRITE;
        share = FILE_SHARE_READ | FILE_SHARE_WRITE;
        disposition = CREATE_ALWAYS;
    } else {
        access = AccessOfMode(mode);
        share = ShareOfMode(mode);
        disposition = OPEN_EXISTING;
    }
    const HANDLE handle =
        CreateFileW(fileName, access, share, nullptr, disposition, attributes, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        // The trace is narrow; the name goes into it as UTF-8.
        const std::string name = ToUtf8(fileName != nullptr ? fileName : L"");
        TraceA("CreateSreamOnFile: CreateFileW() failed %s", name.c_str());
        return HRESULT_FROM_WIN32(error);
    }
    TinyFileStream* stream = new (std::nothrow) TinyFileStream(handle);
    if (stream == nullptr) {
        CloseHandle(handle);
        return E_OUTOFMEMORY;
    }
    *out = stream;
    return S_OK;
}

}  // namespace IO
}  // namespace TinyFramework
