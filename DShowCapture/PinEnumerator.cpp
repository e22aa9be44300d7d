#include "DShowCapture/PinEnumerator.h"

#include <new>

#include "DShowCapture/FilterBase.h"
#include "DShowCapture/PinBase.h"

namespace DShow {

PinEnumerator::PinEnumerator(FilterBase* filter)
    : m_position(0), m_count(filter->GetPinCount()), m_filter(filter) {}

PinEnumerator::~PinEnumerator() = default;

STDMETHODIMP PinEnumerator::QueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (iid == IID_IUnknown || iid == IID_IEnumPins) {
        *object = static_cast<IEnumPins*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) PinEnumerator::AddRef() {
    return static_cast<ULONG>(TinyRefCount::AddRef());
}

STDMETHODIMP_(ULONG) PinEnumerator::Release() {
    return static_cast<ULONG>(TinyRefCount::Release());
}

STDMETHODIMP PinEnumerator::Next(ULONG count, IPin** pins, ULONG* fetched) {
    if (fetched != nullptr) {
        *fetched = 0;
    } else if (count > 1) {
        // Without `fetched` the caller could not tell how many of several pins it got.
        return E_INVALIDARG;
    }
    ULONG delivered = 0;
    while (delivered < count) {
        if (m_count <= static_cast<LONG>(m_position)) {
            break;
        }
        const ULONG index = m_position++;
        PinBase* pin = m_filter->GetPin(static_cast<int>(index));
        if (pin == nullptr) {
            // The filter lost a pin since this enumerator counted them. The pins already stored
            // keep their references: they are the caller's, as with any Next.
            return VFW_E_ENUM_OUT_OF_SYNC;
        }
        pin->AddRef();
        pins[delivered++] = pin;
    }
    if (fetched != nullptr) {
        *fetched = delivered;
    }
    return delivered == count ? S_OK : S_FALSE;
}

STDMETHODIMP PinEnumerator::Skip(ULONG count) {
    // Skipping to the end or past it rewinds: a caller that skips over every pin starts again.
    if (static_cast<ULONG>(m_count - static_cast<LONG>(m_position)) <= count) {
        m_position = 0;
        return S_FALSE;
    }
    m_position += count;
    return S_OK;
}

STDMETHODIMP PinEnumerator::Reset() {
    m_position = 0;
    return S_OK;
}

STDMETHODIMP PinEnumerator::Clone(IEnumPins** clone) {
    // The output pointer is not checked: callers always give one.
    PinEnumerator* copy = new (std::nothrow) PinEnumerator(m_filter);
    if (copy == nullptr) {
        return E_OUTOFMEMORY;
    }
    copy->AddRef();
    copy->m_position = m_position;
    *clone = copy;
    return S_OK;
}

}  // namespace DShow
