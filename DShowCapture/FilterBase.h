#pragma once

// The capture library's own DirectShow filter base: graph membership, the filter state, the
// clock and the walk over the pins that a derived class supplies, on the published interfaces
// alone.
//
// References (who holds whom):
//   - A FilterBase is counted by TinyRefCount; the COM AddRef/Release of both its interfaces
//     forward to that count. It starts at 0: its creator takes the first reference.
//   - The graph holds the filter (counted, by the graph's own AddFilter). The filter points back
//     at the graph (m_graph) and at the graph's event sink (m_sink) without counting either, so
//     the graph and its filters form no cycle.
//   - The filter counts its clock (m_clock).
//   - A derived filter owns its pins through counted references; pins and enumerators point
//     back at the filter without counting it.
//   - m_lock is not owned: it is the FilterObserver the filter was made with, which outlives it.
//
// Threads:
//   - Stop, Pause, Run, SetSyncSource, JoinFilterGraph: the graph manager's thread (the owner's
//     thread, or a thread of the graph).
//   - GetState, QueryFilterInfo, FindPin, EnumPins: any thread, also the streaming thread
//     (CheckStreaming asks GetState for every sample).
//
// Locks:
//   - m_lock guards m_state, m_start, m_graph, m_sink, m_name and m_clock on every change, and
//     the clock's getter and FindPin. GetState, QueryFilterInfo, StreamTime and GetClassID read
//     without it: a 32-bit state read is atomic, and the name and graph change only while the
//     graph manager adds or removes the filter. The lock is recursive, so Run can call Pause.

#include <windows.h>

#include <dshow.h>

#include <memory>

#include "DShowCapture/ComHelpers.h"
#include "DShowCapture/FilterRegistration.h"
#include "TinyFramework/Common/TinyLock.h"
#include "TinyFramework/Common/TinyRefCount.h"

namespace DShow {

class PinBase;

// The class identifier of every filter of this library, {88CDBBDC-A73B-4AFA-ACBF-15D5E2CE12C3}.
extern const GUID CLSID_TinyCaptureFilter;

// Copies `source` into a fixed buffer of `capacity` units (FILTER_INFO, PIN_INFO), cut short
// without a word; an absent text gives an empty one.
void CopyTruncatedName(const wchar_t* source, wchar_t* target, size_t capacity);

// What the sink reports to: a new media type carried by a sample, and every frame. Its TinyLock
// is the state lock of the filter and the pin it is handed to, and it must outlive both.
//
// Threads: both operations run on the upstream filter's streaming thread, with no lock held.
class FilterObserver : public TinyFramework::TinyLock {
public:
    FilterObserver();
    virtual ~FilterObserver();

    // `mediaType` is good for the length of the call only.
    virtual void OnMediaTypeChanged(const AM_MEDIA_TYPE* mediaType, void* userData) = 0;
    // `bits` points into the sample's own buffer, good for the length of the call only.
    // `timestamp` is in nanoseconds: of stream time when the sample has a time, of the
    // monotonic clock when it has none.
    virtual void OnFrameReceived(const unsigned char* bits, long size, long long timestamp,
                                 void* userData) = 0;

    // Handed back as the last argument of both operations.
    void SetUserData(void* userData) { m_userData = userData; }
    void* GetUserData() const { return m_userData; }

protected:
    void* m_userData;
};

// A count of 100-nanosecond units, the unit of DirectShow's reference and stream times.
class RefTime {
public:
    RefTime() : m_time(0) {}
    // From milliseconds.
    explicit RefTime(LONG milliseconds)
        : m_time(static_cast<REFERENCE_TIME>(milliseconds) * 10000) {}

    // From 100-nanosecond units.
    RefTime& operator=(REFERENCE_TIME units) {
        m_time = units;
        return *this;
    }
    RefTime& operator+=(const RefTime& other) {
        m_time += other.m_time;
        return *this;
    }
    RefTime& operator-=(const RefTime& other) {
        m_time -= other.m_time;
        return *this;
    }

    REFERENCE_TIME GetUnits() const { return m_time; }
    // Rounds toward zero.
    LONG Milliseconds() const { return static_cast<LONG>(m_time / 10000); }

private:
    REFERENCE_TIME m_time;
};

class FilterBase : public IBaseFilter,
                   public IAMovieSetup,
                   public TinyFramework::TinyRefCount<FilterBase> {
public:
    // `lock` is the state lock, not owned; a null lock makes every locking operation fail with
    // E_POINTER.
    explicit FilterBase(TinyFramework::TinyLock* lock);

    // IUnknown
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // IPersist
    STDMETHODIMP GetClassID(CLSID* clsid) override;

    // IMediaFilter
    STDMETHODIMP Stop() override;
    STDMETHODIMP Pause() override;
    STDMETHODIMP Run(REFERENCE_TIME start) override;
    STDMETHODIMP GetState(DWORD milliseconds, FILTER_STATE* state) override;
    STDMETHODIMP SetSyncSource(IReferenceClock* clock) override;
    STDMETHODIMP GetSyncSource(IReferenceClock** clock) override;

    // IBaseFilter
    STDMETHODIMP EnumPins(IEnumPins** enumerator) override;
    STDMETHODIMP FindPin(LPCWSTR id, IPin** pin) override;
    STDMETHODIMP QueryFilterInfo(FILTER_INFO* info) override;
    STDMETHODIMP JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) override;
    STDMETHODIMP QueryVendorInfo(LPWSTR* info) override;

    virtual ~FilterBase();

    // The pins of the derived class, by index. GetPin gives no reference to the caller, and null
    // for an index out of range.
    virtual int GetPinCount() = 0;
    virtual PinBase* GetPin(int index) = 0;

    // The clock's present time less the start of the last Run. VFW_E_NO_CLOCK without a clock.
    virtual HRESULT StreamTime(RefTime& time);
    // The record that Register writes to the filter mapper; none here.
    virtual const AMOVIESETUP_FILTER* GetSetupData();

    // IAMovieSetup
    STDMETHODIMP Register() override;
    STDMETHODIMP Unregister() override;

    // Asks the graph to reconnect `pin`, with `mediaType` where the graph can take one.
    HRESULT ReconnectPin(IPin* pin, const AM_MEDIA_TYPE* mediaType);

protected:
    // Registers (or only unregisters) `setup` through the filter mapper: the result of creating
    // the mapper or of the registering routine.
    HRESULT RegisterWithMapper(const AMOVIESETUP_FILTER* setup, bool registerIt);

    FILTER_STATE m_state;
    std::unique_ptr<WCHAR[]> m_name;  // null until JoinFilterGraph names the filter
    GUID m_clsid;
    RefTime m_start;
    IFilterGraph* m_graph;            // not counted
    IMediaEventSink* m_sink;          // not counted
    TinyFramework::TinyLock* m_lock;  // not owned
    ComPtr<IReferenceClock> m_clock;
};

}  // namespace DShow
