#pragma once

#include <windows.h>
#include <objidl.h>

#include <cstddef>

namespace TinyFramework {
namespace IO {

// An IStream over one growable block of the local heap (LocalAlloc, LocalReAlloc, LocalFree),
// made by CreateStreamOnMemory with one reference.
//
// Who holds whom: the stream owns its block; its holders own counted references (QueryInterface
// counts one for the caller); the stream holds nobody. The last Release frees the block and the
// object.
//
// Threads and locks: no lock. AddRef and Release are atomic and may come from any thread; the
// other operations are for one thread at a time, as with any IStream.
//
// Sizes and positions are 32-bit; only the low halves of offsets and sizes count. Write grows
// the block with a reserve of 4096 bytes, SetSize grows it exactly; both zero-fill what lies
// between the old end and the new data. A seek beyond the end is allowed. Commit, Revert, the
// region locks and Clone answer E_NOTIMPL.
class TinyMemoryStream : public IStream {
public:
    static constexpr ULONG kWriteReserve = 4096;

    TinyMemoryStream(const TinyMemoryStream&) = delete;
    TinyMemoryStream& operator=(const TinyMemoryStream&) = delete;

    // IUnknown
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    // ISequentialStream
    HRESULT STDMETHODCALLTYPE Read(void* buffer, ULONG count, ULONG* read) override;
    HRESULT STDMETHODCALLTYPE Write(const void* buffer, ULONG count, ULONG* written) override;

    // IStream
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER offset, DWORD origin,
                                   ULARGE_INTEGER* newPosition) override;
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER size) override;
    HRESULT STDMETHODCALLTYPE CopyTo(IStream* target, ULARGE_INTEGER count, ULARGE_INTEGER* read,
                                     ULARGE_INTEGER* written) override;
    HRESULT STDMETHODCALLTYPE Commit(DWORD flags) override;
    HRESULT STDMETHODCALLTYPE Revert() override;
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count,
                                         DWORD lockType) override;
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER offset, ULARGE_INTEGER count,
                                           DWORD lockType) override;
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* stat, DWORD flags) override;
    HRESULT STDMETHODCALLTYPE Clone(IStream** stream) override;

    // The block and its bookkeeping, for the program that wants the bytes without a copy.
    const BYTE* Data() const { return m_data; }
    ULONG Capacity() const { return m_capacity; }
    ULONG Size() const { return m_size; }
    ULONG Position() const { return m_position; }

protected:
    virtual ~TinyMemoryStream();

private:
    friend HRESULT CreateStreamOnMemory(const void* data, ULONG size, IStream** out);

    TinyMemoryStream();

    // Objects live in the local heap, zero-filled, and go back by way of the C runtime's free
    // where that is the same heap; see the definition.
    static void* operator new(size_t size) noexcept;
    static void operator delete(void* object) noexcept;

    // Makes the block exactly `size` bytes long, keeping its content and zero-filling the rest.
    bool Grow(ULONG size);

    volatile LONG m_cRef;
    BYTE* m_data;
    ULONG m_capacity;
    ULONG m_size;
    ULONG m_position;
};

// Makes a TinyMemoryStream with one reference, holding a copy of `size` bytes of `data` (none
// when either is null or zero), positioned at 0, in `out`. E_OUTOFMEMORY when the object cannot
// be made. When the copy's block cannot be made, the answer is S_OK and `out` is left as it
// was: a caller sets it to null before and tests it after.
HRESULT CreateStreamOnMemory(const void* data, ULONG size, IStream** out);

}  // namespace IO
}  // namespace TinyFramework
