#pragma once

// The capture library's own DirectShow pin base: the connection protocol of IPin, and a stub of
// IQualityControl. A derived class says which media types it offers (GetMediaType) and accepts
// (CheckMediaType); this class negotiates and keeps the connection.
//
// The protocol is deliberately simpler than what IPin permits: no step of Connect,
// ReceiveConnection or Disconnect asks whether the filter is stopped, and most hooks are empty.
// The capture graph only ever connects a stopped graph, and the owner reads the filter's state
// itself where it matters (CheckStreaming).
//
// References (who holds whom):
//   - A PinBase is counted by TinyRefCount of its own, not shared with its filter: a reference
//     to the pin does not keep the filter alive. IPin and IQualityControl forward to that count.
//   - The filter holds the pin (counted); the pin points back at the filter (m_filter) without
//     counting it.
//   - The pin counts its peer (m_connected) while connected; the peer counts this pin the same
//     way, and Disconnect on both sides breaks that cycle.
//   - The quality sink (m_qualitySink) is not counted.
//   - A TypeEnumerator counts the pin it enumerates.
//
// Threads:
//   - Connect, ReceiveConnection, Disconnect, QueryAccept, EnumMediaTypes: the graph manager's
//     thread, or the peer's thread while it connects.
//   - BeginFlush, EndFlush, NewSegment, EndOfStream: the upstream filter's streaming or control
//     thread.
//
// Locks:
//   - m_lock is the filter's lock (the same FilterObserver). It guards ReceiveConnection,
//     Disconnect, ConnectionMediaType, BeginFlush, EndFlush and SetSink. Connect takes no lock:
//     the negotiation calls out to the peer, which may answer by calling this pin back (also
//     from a thread of its own), and the peer's own lock must never wait on this one.
//     ConnectedTo, QueryPinInfo, NewSegment and the reads of m_flushing take no lock.

#include <windows.h>

#include <dshow.h>

#include "DShowCapture/ComHelpers.h"
#include "DShowCapture/FilterBase.h"
#include "TinyFramework/Common/TinyLock.h"
#include "TinyFramework/Common/TinyRefCount.h"

namespace DShow {

// The name, and id, of every pin of this library.
extern const wchar_t kTinyPinName[];

class PinBase : public IPin, public IQualityControl, public TinyFramework::TinyRefCount<PinBase> {
public:
    // `filter` is not counted; `lock` is the filter's lock and must not be null.
    PinBase(FilterBase* filter, TinyFramework::TinyLock* lock);

    // IUnknown
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // IPin
    STDMETHODIMP Connect(IPin* pin, const AM_MEDIA_TYPE* type) override;
    STDMETHODIMP ReceiveConnection(IPin* pin, const AM_MEDIA_TYPE* type) override;
    STDMETHODIMP Disconnect() override;
    STDMETHODIMP ConnectedTo(IPin** pin) override;
    STDMETHODIMP ConnectionMediaType(AM_MEDIA_TYPE* type) override;
    STDMETHODIMP QueryPinInfo(PIN_INFO* info) override;
    STDMETHODIMP QueryDirection(PIN_DIRECTION* direction) override;
    STDMETHODIMP QueryId(LPWSTR* id) override;
    STDMETHODIMP QueryAccept(const AM_MEDIA_TYPE* type) override;
    STDMETHODIMP EnumMediaTypes(IEnumMediaTypes** enumerator) override;
    STDMETHODIMP QueryInternalConnections(IPin** pins, ULONG* count) override;
    STDMETHODIMP EndOfStream() override;
    STDMETHODIMP BeginFlush() override;
    STDMETHODIMP EndFlush() override;
    STDMETHODIMP NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) override;

    virtual ~PinBase();

    // S_OK when the pin takes `type`; anything else refuses it.
    virtual HRESULT CheckMediaType(const AM_MEDIA_TYPE* type) = 0;
    // The offered type at `position`, filled into `type`; a result other than S_OK ends the list.
    virtual HRESULT GetMediaType(int position, AM_MEDIA_TYPE* type) = 0;
    // Keeps the type of the connection.
    virtual HRESULT SetMediaType(const AM_MEDIA_TYPE* type);
    // VFW_E_INVALID_DIRECTION for a peer that points the same way.
    virtual HRESULT CheckConnect(IPin* pin);
    // Hooks of the pin's life. BreakConnect, PinHookA, PinHookB, Inactive and PinHookC are
    // called by nothing in this library: the filter's state changes reach the pins only through
    // OnFilterStateChange and OnFilterRun, and a pin that needs the state asks its filter.
    virtual HRESULT BreakConnect();
    virtual HRESULT PinHookA();
    virtual HRESULT PinHookB();
    virtual HRESULT Inactive();
    virtual HRESULT PinHookC();
    virtual HRESULT CompleteConnect(IPin* pin);
    virtual HRESULT OnDisconnect();
    virtual HRESULT OnFilterStateChange(bool active);
    virtual HRESULT OnFilterRun(RefTime start);

    // IQualityControl. Present, but not offered through QueryInterface: nobody upstream can ask
    // this pin for it, and quality messages are not acted upon.
    STDMETHODIMP Notify(IBaseFilter* sender, Quality quality) override;
    STDMETHODIMP SetSink(IQualityControl* sink) override;

    bool IsConnected() const { return m_connected != nullptr; }
    bool IsFlushing() const { return m_flushing != 0; }
    bool IsReadOnly() const { return m_readOnly != 0; }
    double CurrentRate() const { return m_rate; }
    // Asks the filter; false for a pin without one.
    bool IsStopped() const;

protected:
    // One connection attempt with a fully given type.
    HRESULT AttemptConnection(IPin* pin, const AM_MEDIA_TYPE* type);
    // Tries the types of one enumerator, each that matches the partly given `type` (if any).
    HRESULT TryMediaTypes(IPin* pin, const AM_MEDIA_TYPE* type, IEnumMediaTypes* enumerator);
    // Drops the peer after a failed attempt.
    void ClearConnection();

    LONG m_flushing;
    LONG m_readOnly;
    double m_rate;
    const wchar_t* m_name;
    AM_MEDIA_TYPE m_mediaType;  // owned: its format block and pUnk are freed with the pin
    PIN_DIRECTION m_direction;
    RefTime m_segmentStart;
    RefTime m_segmentStop;
    IQualityControl* m_qualitySink;   // not counted
    FilterBase* m_filter;             // not counted
    TinyFramework::TinyLock* m_lock;  // not owned
    ComPtr<IPin> m_connected;
};

// Whether two media types agree in every field that both give: a null major type, subtype or
// format type on either side matches anything. Equal format types need equal format blocks.
bool MediaTypesMatch(const AM_MEDIA_TYPE& a, const AM_MEDIA_TYPE& b);

}  // namespace DShow
