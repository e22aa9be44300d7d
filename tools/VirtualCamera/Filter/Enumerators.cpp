#include "tools/VirtualCamera/Filter/Enumerators.h"

#include <new>

namespace VirtualCamera {

PinEnumerator::PinEnumerator(std::vector<Microsoft::WRL::ComPtr<IPin>> pins, ULONG position)
    : pins_(std::move(pins)), position_(position) {}

STDMETHODIMP PinEnumerator::QueryInterface(REFIID riid, void** object) {
    if (!object) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IEnumPins) {
        *object = static_cast<IEnumPins*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) PinEnumerator::AddRef() {
    return ++references_;
}

STDMETHODIMP_(ULONG) PinEnumerator::Release() {
    const ULONG remaining = --references_;
    if (remaining == 0) delete this;
    return remaining;
}

STDMETHODIMP PinEnumerator::Next(ULONG count, IPin** pins, ULONG* fetched) {
    if (!pins) return E_POINTER;
    if (count > 1 && !fetched) return E_INVALIDARG;
    ULONG copied = 0;
    while (copied < count && position_ < pins_.size()) {
        pins[copied] = pins_[position_].Get();
        pins[copied]->AddRef();
        ++copied;
        ++position_;
    }
    if (fetched) *fetched = copied;
    return copied == count ? S_OK : S_FALSE;
}

STDMETHODIMP PinEnumerator::Skip(ULONG count) {
    const ULONG available = static_cast<ULONG>(pins_.size()) - position_;
    if (count > available) {
        position_ = static_cast<ULONG>(pins_.size());
        return S_FALSE;
    }
    position_ += count;
    return S_OK;
}

STDMETHODIMP PinEnumerator::Reset() {
    position_ = 0;
    return S_OK;
}

STDMETHODIMP PinEnumerator::Clone(IEnumPins** clone) {
    if (!clone) return E_POINTER;
    *clone = new (std::nothrow) PinEnumerator(pins_, position_);
    return *clone ? S_OK : E_OUTOFMEMORY;
}

MediaTypeEnumerator::MediaTypeEnumerator(std::vector<MediaType> types, ULONG position)
    : types_(std::move(types)), position_(position) {}

STDMETHODIMP MediaTypeEnumerator::QueryInterface(REFIID riid, void** object) {
    if (!object) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IEnumMediaTypes) {
        *object = static_cast<IEnumMediaTypes*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) MediaTypeEnumerator::AddRef() {
    return ++references_;
}

STDMETHODIMP_(ULONG) MediaTypeEnumerator::Release() {
    const ULONG remaining = --references_;
    if (remaining == 0) delete this;
    return remaining;
}

STDMETHODIMP MediaTypeEnumerator::Next(ULONG count, AM_MEDIA_TYPE** types, ULONG* fetched) {
    if (!types) return E_POINTER;
    if (count > 1 && !fetched) return E_INVALIDARG;
    ULONG copied = 0;
    while (copied < count && position_ < types_.size()) {
        AM_MEDIA_TYPE* copy = CreateMediaTypeCopy(*types_[position_]);
        if (!copy) break;
        types[copied++] = copy;
        ++position_;
    }
    if (fetched) *fetched = copied;
    return copied == count ? S_OK : S_FALSE;
}

STDMETHODIMP MediaTypeEnumerator::Skip(ULONG count) {
    const ULONG available = static_cast<ULONG>(types_.size()) - position_;
    if (count > available) {
        position_ = static_cast<ULONG>(types_.size());
        return S_FALSE;
    }
    position_ += count;
    return S_OK;
}

STDMETHODIMP MediaTypeEnumerator::Reset() {
    position_ = 0;
    return S_OK;
}

STDMETHODIMP MediaTypeEnumerator::Clone(IEnumMediaTypes** clone) {
    if (!clone) return E_POINTER;
    *clone = new (std::nothrow) MediaTypeEnumerator(types_, position_);
    return *clone ? S_OK : E_OUTOFMEMORY;
}

}  // namespace VirtualCamera
