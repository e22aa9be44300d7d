#include "TinyFramework/IO/TinyMemoryStream.h"

#include "TinyFramework/Common/TinyDebug.h"

#include <malloc.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace TinyFramework {
namespace IO {

namespace {

// Whether the C runtime's free gives memory back to the heap that fixed local blocks come
// from, the process heap. That holds for the runtimes that allocate from the process heap, but
// not for one with a heap of its own (msvcrt.dll under Wine, for one): there free refuses the
// block and it leaks, or worse, a runtime might take it as its own.
bool RuntimeFreesLocalBlocks() {
    return reinterpret_cast<HANDLE>(_get_heap_handle()) == GetProcessHeap();
}

}  // namespace

void* TinyMemoryStream::operator new(size_t size) noexcept {
    return LocalAlloc(LPTR, size);
}

void TinyMemoryStream::operator delete(void* object) noexcept {
    // Streams have always been given back with the runtime's free, although they are made with
    // LocalAlloc; that pairing is kept wherever it is sound. Where the runtime keeps a heap of
    // its own, free cannot take a local block, and the block goes back to its own heap.
    if (RuntimeFreesLocalBlocks()) {
        free(object);
    } else {
        LocalFree(object);
    }
}

TinyMemoryStream::TinyMemoryStream()
    : m_cRef(1), m_data(nullptr), m_capacity(0), m_size(0), m_position(0) {}

// The block is freed by the last Release, before the object goes.
TinyMemoryStream::~TinyMemoryStream() {}

bool TinyMemoryStream::Grow(ULONG size) {
    if (m_data != nullptr) {
        void* block = LocalReAlloc(m_data, size, LMEM_MOVEABLE | LMEM_ZEROINIT);
        if (block == nullptr) {
            TraceA("Stream Realloc Failed!");
            return false;
        }
        m_data = static_cast<BYTE*>(block);
    } else {
        void* block = LocalAlloc(LPTR, size);
        if (block == nullptr) {
            return false;
        }
        m_data = static_cast<BYTE*>(block);
    }
    m_capacity = size;
    return true;
}

HRESULT STDMETHODCALLTYPE TinyMemoryStream::QueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (iid == IID_IStream || iid == IID_IUnknown) {
        *object = static_cast<IStream*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

ULONG STDMETHODCALLTYPE TinyMemoryStream::AddRef() {
    return static_cast<ULONG>(InterlockedIncrement(&m_cRef));
}

ULONG STDMETHODCALLTYPE TinyMemoryStream::Release() {
    if (InterlockedDecrement(&m_cRef) == 0) {
        if (m_data != nullptr) {
            LocalFree(m_data);
            m_data = nullptr;
        }
        delete this;
        return 0;
    }
    // A fresh read, as a hint only: another thread may have moved the count since.
    return static_cast<ULONG>(m_cRef);
}

HRESULT STDMETHODCALLTYPE TinyMemoryStream::Read(void* buffer, ULONG count, ULONG* read) {
    ULONG taken = 0;
    if (count > 0 && m_position < m_size) {
        const ULONG left = m_size - m_position;
        taken = count < left ? count : left;
        memcpy(buffer, m_data + m_position, taken);
        m_position += taken;
    }
    if (read != nullptr) {
        *read = taken;
    }
    return S_OK;
}

HRESULT STDMETHODCALLTYPE TinyMemoryStream::Write(const void* buffer, ULONG count, ULONG* written) {
    if (count == 0) {
        if (written != nullptr) {
            *written = 0;
        }
        return S_OK;
    }
    const uint64_t end = static_cast<uint64_t>(m_position) + count;
    if (end > m_capacity) {
        // A block with its reserve beyond 32 bits cannot be had, as if memory ran out.
        const uint64_t wanted = end + kWriteReserve;
        if (wanted > 0xFFFFFFFFu || !Grow(static_cast<ULONG>(wanted))) {
            return STG_E_INSUFFICIENTMEMORY;
        }
    }
    if (m_position > m_size) {
        memset(m_data + m_size, 0, m_position - m_size);
    }
    memcpy(m_data + m_position, buffer, count);
    m_position = static_cast<ULONG>(end);
    if (m_size < m_position) {
        m_size = m_position;
    }
    if (written != nullptr) {
        *written = count;
    }
    return S_OK;
}

HRESULT STDMETHODCALLTYPE TinyMemoryStream::Seek(LARGE_INTEGER offset, DWORD origin,
                                                 ULARGE_INTEGER* newPosition) {
    int64_t base = 0;
    switch (origin) {
        case STREAM_SEEK_SET:
            base = 0;
            break;
        case STREAM_SEEK_CUR:
            base = m_position;
            break;
        case STREAM_SEEK_END:
            base = m_size;
            break;
        default:
            return STG_E_INVALIDPARAMETER;
    }
    const int64_t target = base + static_cast<LONG>(offset.LowPart);
    // A position that 32 bits cannot hold is refused like one before the start.
    if (target < 0 || target > 0xFFFFFFFF) {
        return STG_E_INVALIDFUNCTION;
    }
    m_position = static_cast<ULONG>(target);
    if (newPosition != nullptr) {
        newPosition->QuadPart = m_position;
    }
    return S_OK;
}

HRESULT STDMETHODCALLTYPE TinyMemoryStream::SetSize(ULARGE_INTEGER size) {
    const ULONG newSize = size.LowPart;
    if (newSize > m_size) {
        if (newSize > m_capacity && !Grow(newSize)) {
            return STG_E_INSUFFICIENTMEMORY;
        }
        memset(m_data + m_size, 0, newSize - m_size);
    }
    m_size = newSize;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE TinyMemoryStream::CopyTo(IStream* target, ULARGE_INTEGER count,
                                                   ULARGE_INTEGER* read, ULARGE_INTEGER* written) {
    ULONG amount = m_position < m_size ? m_size - m_position : 0;
    if (count.QuadPart < amount) {
        amount = count.LowPart;
    }
    HRESULT result = S_OK;
    ULONG put = 0;
    if (amount > 0) {
        result = target->Write(m_data + m_position, amount, &put);
        // The whole amount counts as read, whatever the target took: the rest of a short
        // write is not offered again.
        m_position += amount;
    }
    if (read != nullptr) {
        read->QuadPart = amount;
    }
    if (written != nullptr) {
        written->QuadPart = put;
    }
    return result;
}

HRESULT STDMETHODCALLTYPE TinyMemoryStream::Commit(DWORD) {
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE TinyMemoryStream::Revert() {
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE TinyMemoryStream::LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) {
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE TinyMemoryStream::UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) {
    return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE TinyMemoryStream::Stat(STATSTG* stat, DWORD) {
    memset(stat, 0, sizeof(*stat));
    stat->type = STGTY_STREAM;
    stat->cbSize.QuadPart = m_size;
    stat->grfMode = STGM_READWRITE;
    return S_OK;
}

HRESULT STDMETHODCALLTYPE TinyMemoryStream::Clone(IStream** stream) {
    *stream = nullptr;
    return E_NOTIMPL;
}

HRESULT CreateStreamOnMemory(const void* data, ULONG size, IStream** out) {
    TinyMemoryStream* stream = new TinyMemoryStream();
    if (stream == nullptr) {
        return E_OUTOFMEMORY;
    }
    if (data != nullptr && size != 0) {
        if (!stream->Grow(size)) {
            // The failure is reported by `out` staying as it was, not by the result: the
            // callers of this function test both, and the pair is kept as they know it.
            delete stream;
            return S_OK;
        }
        stream->m_size = size;
        memcpy(stream->m_data, data, size);
    }
    *out = stream;
    return S_OK;
}

}  // namespace IO
}  // namespace TinyFramework
