#pragma once

#include <windows.h>
#include <objidl.h>

namespace TinyFramework {
namespace IO {

// An IStream over a file handle, made by CreateStreamOnFile with one reference.
//
// Who holds whom: the stream owns its handle and closes it when the last Release destroys the
// object. Its holders own counted references; the stream holds nobody. QueryInterface hands out
// the object without counting a reference for the caller (see QueryInterface): a caller that
// releases what it got from QueryInterface takes away a reference that somebody else holds.
//
// Threads and locks: no lock. AddRef and Release are atomic and may come from any thread; the
// other operations are for one thread at a time, as with any IStream, and act on the handle's
// own file position.
//
// Only the low 32 bits of seek offsets and copy counts are used. SetSize, Stat, Clone, Commit,
// Revert and the region locks answer E_NOTIMPL.
class TinyFileStream : public IStream {
public:
    // Takes the handle over.
    explicit TinyFileStream(HANDLE handle);
    TinyFileStream(const TinyFileStream&) = delete;
    TinyFileStream& operator=(const TinyFileStream&) = delete;

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

    HANDLE Handle() const { return m_handle; }

protected:
    // Only the last Release destroys a stream; it closes the handle.
    virtual ~TinyFileStream();

private:
    static constexpr ULONG kCopyBufferSize = 512;

    volatile LONG m_cRef;
    HANDLE m_handle;
};

// Opens or creates the file as the STGM_ flags of `mode` ask and makes a TinyFileStream on it,
// with one reference, in `out` (null on failure). Flags beyond STGM_CREATE, the three sharing
// modes, STGM_SHARE_DENY_NONE, STGM_WRITE and STGM_READWRITE are refused with E_INVALIDARG.
// A failed open answers the platform's last error as an HRESULT.
HRESULT CreateStreamOnFile(LPCWSTR fileName, DWORD mode, IStream** out);

}  // namespace IO
}  // namespace TinyFramework
