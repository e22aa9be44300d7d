#include "DShowCapture/MediaTypes.h"

#include <cstring>

namespace DShow {

const GUID MEDIASUBTYPE_I420 = {
    0x30323449, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};

ScopedMediaType::ScopedMediaType(ScopedMediaType&& other) noexcept : m_mediaType(other.Release()) {}

ScopedMediaType& ScopedMediaType::operator=(ScopedMediaType&& other) noexcept {
    if (this != &other) {
        Reset();
        m_mediaType = other.Release();
    }
    return *this;
}

void ScopedMediaType::Reset() {
    DeleteMediaType(m_mediaType);
    m_mediaType = nullptr;
}

AM_MEDIA_TYPE* ScopedMediaType::Release() {
    AM_MEDIA_TYPE* mediaType = m_mediaType;
    m_mediaType = nullptr;
    return mediaType;
}

AM_MEDIA_TYPE* CreateMediaType(const AM_MEDIA_TYPE* source) {
    if (source == nullptr) {
        return nullptr;
    }
    auto* target = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
    if (target == nullptr) {
        return nullptr;
    }
    if (CopyMediaType(target, source) != S_OK) {
        // The failed copy took no reference on pUnk and left no block: only the record is ours.
        CoTaskMemFree(target);
        return nullptr;
    }
    return target;
}

HRESULT CopyMediaType(AM_MEDIA_TYPE* target, const AM_MEDIA_TYPE* source) {
    *target = *source;
    if (source->cbFormat != 0) {
        target->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(source->cbFormat));
        if (target->pbFormat == nullptr) {
            target->cbFormat = 0;
            return E_OUTOFMEMORY;
        }
        memcpy(target->pbFormat, source->pbFormat, source->cbFormat);
    }
    if (target->pUnk != nullptr) {
        target->pUnk->AddRef();
    }
    return S_OK;
}

HRESULT CopyMediaTypeForHolder(AM_MEDIA_TYPE* target, const AM_MEDIA_TYPE* source) {
    const HRESULT hr = CopyMediaType(target, source);
    if (hr != S_OK) {
        target->pUnk = nullptr;
    }
    return hr;
}

void FreeMediaType(AM_MEDIA_TYPE& mediaType) {
    // The size decides, not the pointer: a record with cbFormat 0 may share another record's
    // block (see CopyMediaType), which is not ours to free.
    if (mediaType.cbFormat != 0) {
        CoTaskMemFree(mediaType.pbFormat);
        mediaType.cbFormat = 0;
        mediaType.pbFormat = nullptr;
    }
    if (mediaType.pUnk != nullptr) {
        mediaType.pUnk->Release();
        mediaType.pUnk = nullptr;
    }
}

void DeleteMediaType(AM_MEDIA_TYPE* mediaType) {
    if (mediaType == nullptr) {
        return;
    }
    FreeMediaType(*mediaType);
    CoTaskMemFree(mediaType);
}

}  // namespace DShow
