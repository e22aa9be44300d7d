#pragma once

#include <windows.h>

#include <dshow.h>

namespace DShow {

// Subtypes that the MinGW-w64 headers do not declare.
// {30323449-0000-0010-8000-00AA00389B71}
extern const GUID MEDIASUBTYPE_I420;

// Owns one AM_MEDIA_TYPE from the task allocator, or nothing.
class ScopedMediaType {
public:
    ScopedMediaType() = default;
    ~ScopedMediaType() { Reset(); }
    ScopedMediaType(const ScopedMediaType&) = delete;
    ScopedMediaType& operator=(const ScopedMediaType&) = delete;
    ScopedMediaType(ScopedMediaType&& other) noexcept;
    ScopedMediaType& operator=(ScopedMediaType&& other) noexcept;

    // Deletes the held record, if any.
    void Reset();

    AM_MEDIA_TYPE* Get() const { return m_mediaType; }
    AM_MEDIA_TYPE* operator->() const { return m_mediaType; }
    // Where a platform call stores a new record. Reset() first if something is held, or the
    // held record leaks.
    AM_MEDIA_TYPE** Receive() { return &m_mediaType; }
    // Gives up ownership without freeing.
    AM_MEDIA_TYPE* Release();

private:
    AM_MEDIA_TYPE* m_mediaType = nullptr;
};

// A copy of `source` on the task allocator, or null when `source` is null or memory runs out.
AM_MEDIA_TYPE* CreateMediaType(const AM_MEDIA_TYPE* source);
// Copies the record and its format block; adds a reference to pUnk. With cbFormat 0 the target
// shares the source's pbFormat pointer. E_OUTOFMEMORY leaves the target with cbFormat 0 and an
// unreferenced copy of pUnk.
HRESULT CopyMediaType(AM_MEDIA_TYPE* target, const AM_MEDIA_TYPE* source);
// CopyMediaType over a record whose holder frees it later (FreeMediaType): a failed copy takes
// no reference on the pUnk that came along with the fields, so that pointer is cleared here and
// the later free cannot release a reference it never had.
HRESULT CopyMediaTypeForHolder(AM_MEDIA_TYPE* target, const AM_MEDIA_TYPE* source);
// Frees the format block (only when cbFormat is non-zero) and releases pUnk; the record stays.
void FreeMediaType(AM_MEDIA_TYPE& mediaType);
// FreeMediaType, then frees the record itself. Null is ignored.
void DeleteMediaType(AM_MEDIA_TYPE* mediaType);

}  // namespace DShow
