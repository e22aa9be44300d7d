#pragma once

// IEnumPins over the pins of a FilterBase. It keeps a position and asks the filter for each pin
// as it goes; it holds no list, and so it cannot tell when the filter's pins changed, except
// that a missing pin ends Next with VFW_E_ENUM_OUT_OF_SYNC.
//
// References (who holds whom):
//   - Counted by TinyRefCount; the COM AddRef/Release forward to it.
//   - The filter (m_filter) is not counted: an enumerator must not outlive its filter.
//   - Each pin that Next hands out carries a reference for the caller.
//
// Threads: whichever thread its one caller uses; an enumerator belongs to one caller at a time.
// Locks: none. Only the count is atomic.

#include <windows.h>

#include <dshow.h>

#include "TinyFramework/Common/TinyRefCount.h"

namespace DShow {

class FilterBase;

class PinEnumerator : public IEnumPins, public TinyFramework::TinyRefCount<PinEnumerator> {
public:
    // Reads the filter's pin count once, here.
    explicit PinEnumerator(FilterBase* filter);
    virtual ~PinEnumerator();

    // IUnknown
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // IEnumPins
    STDMETHODIMP Next(ULONG count, IPin** pins, ULONG* fetched) override;
    STDMETHODIMP Skip(ULONG count) override;
    STDMETHODIMP Reset() override;
    STDMETHODIMP Clone(IEnumPins** clone) override;

    // The index of the pin that Next fetches next.
    ULONG GetPosition() const { return m_position; }

private:
    ULONG m_position;
    LONG m_count;
    FilterBase* m_filter;  // not counted
};

}  // namespace DShow
