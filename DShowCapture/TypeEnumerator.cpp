#include "DShowCapture/TypeEnumerator.h"

#include <new>

#include "DShowCapture/MediaTypes.h"
#include "DShowCapture/PinBase.h"

namespace DShow {

namespace {

// The size of a VIDEOINFOHEADER: what Skip announces to GetMediaType for its scratch record.
constexpr ULONG kScratchFormatSize = sizeof(VIDEOINFOHEADER);
static_assert(kScratchFormatSize == 88, "VIDEOINFOHEADER is 88 bytes on x64");

}  // namespace

TypeEnumerator::TypeEnumerator(PinBase* pin) : m_position(0), m_pin(pin) {}

TypeEnumerator::~TypeEnumerator() = default;

STDMETHODIMP TypeEnumerator::QueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (iid == IID_IUnknown || iid == IID_IEnumMediaTypes) {
        *object = static_cast<IEnumMediaTypes*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) TypeEnumerator::AddRef() {
    return static_cast<ULONG>(TinyRefCount::AddRef());
}

STDMETHODIMP_(ULONG) TypeEnumerator::Release() {
    return static_cast<ULONG>(TinyRefCount::Release());
}

STDMETHODIMP TypeEnumerator::Next(ULONG count, AM_MEDIA_TYPE** types, ULONG* fetched) {
    if (fetched != nullptr) {
        *fetched = 0;
    } else if (count > 1) {
        // Without `fetched` the caller could not tell how many of several types it got.
        return E_INVALIDARG;
    }
    ULONG delivered = 0;
    while (delivered < count) {
        auto* type = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
        if (type == nullptr) {
            // All or nothing: the types of this call go back, as the caller cannot be told of
            // them.
            for (ULONG index = 0; index < delivered; ++index) {
                DeleteMediaType(types[index]);
                types[index] = nullptr;
            }
            return E_OUTOFMEMORY;
        }
        ZeroMemory(type, sizeof(*type));
        // The position moves also past the end: Reset brings it back.
        const ULONG position = m_position++;
        if (m_pin->GetMediaType(static_cast<int>(position), type) != S_OK) {
            DeleteMediaType(type);
            break;
        }
        types[delivered++] = type;
    }
    if (fetched != nullptr) {
        *fetched = delivered;
    }
    return delivered == count ? S_OK : S_FALSE;
}

STDMETHODIMP TypeEnumerator::Skip(ULONG count) {
    if (count == 0) {
        return S_OK;
    }
    // Unlike the pin enumerator this one stays where it lands, and says what the pin says of
    // the last type skipped over (for the sink: E_FAIL past the end).
    m_position += count;
    AM_MEDIA_TYPE scratch = {};
    scratch.cbFormat = kScratchFormatSize;
    const HRESULT hr = m_pin->GetMediaType(static_cast<int>(m_position - 1), &scratch);
    FreeMediaType(scratch);
    return hr;
}

STDMETHODIMP TypeEnumerator::Reset() {
    m_position = 0;
    return S_OK;
}

STDMETHODIMP TypeEnumerator::Clone(IEnumMediaTypes** clone) {
    // The output pointer is not checked: callers always give one.
    TypeEnumerator* copy = new (std::nothrow) TypeEnumerator(m_pin.Get());
    if (copy == nullptr) {
        return E_OUTOFMEMORY;
    }
    copy->AddRef();
    copy->m_position = m_position;
    *clone = copy;
    return S_OK;
}

}  // namespace DShow
