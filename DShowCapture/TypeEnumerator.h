#pragma once

// IEnumMediaTypes over the types that a PinBase offers. It keeps a position and asks the pin's
// GetMediaType for each type as it goes; it holds no list.
//
// References (who holds whom):
//   - Counted by TinyRefCount; the COM AddRef/Release forward to it.
//   - The pin (m_pin) is counted, and released by the destructor. The pin does not point back.
//   - Each media type that Next hands out belongs to the caller (DeleteMediaType).
//
// Threads: whichever thread its one caller uses; an enumerator belongs to one caller at a time.
// Locks: none. Only the count is atomic.

#include <windows.h>

#include <dshow.h>

#include "TinyFramework/Common/TinyRefCount.h"

namespace DShow {

class PinBase;

class TypeEnumerator : public IEnumMediaTypes, public TinyFramework::TinyRefCount<TypeEnumerator> {
public:
    explicit TypeEnumerator(PinBase* pin);
    virtual ~TypeEnumerator();

    // IUnknown
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // IEnumMediaTypes
    STDMETHODIMP Next(ULONG count, AM_MEDIA_TYPE** types, ULONG* fetched) override;
    STDMETHODIMP Skip(ULONG count) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumMediaTypes** clone) override;

    // The position that Next asks the pin for next.
    ULONG GetPosition() const { return m_position; }

private:
    ULONG m_position;
    TinyFramework::TinyScopedRefPtr<PinBase> m_pin;
};

}  // namespace DShow
