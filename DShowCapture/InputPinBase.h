#pragma once

// A PinBase that receives samples through IMemInputPin: it negotiates the allocator, takes
// each sample apart and hands a new media type and every frame to a FilterObserver. This is
// where frames enter the library's side of a capture graph.
//
// References (who holds whom):
//   - Counted by PinBase's TinyRefCount; IMemInputPin's AddRef/Release forward to it, and its
//     QueryInterface gives the same IUnknown (the IPin) as PinBase's.
//   - The pin counts its allocator (m_allocator) once it has one; it keeps it until it dies.
//   - The observer (m_observer, also m_lock) is not counted and must outlive the pin.
//   - A sample is held only for the length of Receive; its buffer is never copied or kept.
//
// Threads:
//   - Receive, ReceiveMultiple, ReceiveCanBlock: the upstream pin's streaming thread. The
//     observer's operations run on it too.
//   - GetAllocator, NotifyAllocator, GetAllocatorRequirements: the upstream pin's thread while
//     it connects (the graph manager's thread).
//
// Locks:
//   - m_lock (the observer) guards GetAllocator and NotifyAllocator (m_allocator, m_readOnly).
//   - Receive takes no lock, and none is held while the observer runs: m_sampleProperties is
//     written without one, as a pin has a single streaming thread.

#include <windows.h>

#include <dshow.h>

#include "DShowCapture/ComHelpers.h"
#include "DShowCapture/FilterBase.h"
#include "DShowCapture/PinBase.h"

namespace DShow {

class InputPinBase : public PinBase, public IMemInputPin {
public:
    // `observer` is both the lock and the receiver of frames; neither it nor `filter` is counted.
    InputPinBase(FilterBase* filter, FilterObserver* observer);
    ~InputPinBase() override;

    // IUnknown, for both interfaces.
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // IMemInputPin
    STDMETHODIMP GetAllocator(IMemAllocator** allocator) override;
    STDMETHODIMP NotifyAllocator(IMemAllocator* allocator, BOOL readOnly) override;
    STDMETHODIMP GetAllocatorRequirements(ALLOCATOR_PROPERTIES* properties) override;
    STDMETHODIMP Receive(IMediaSample* sample) override;
    STDMETHODIMP ReceiveMultiple(IMediaSample** samples, long count, long* processed) override;
    STDMETHODIMP ReceiveCanBlock() override;

    HRESULT BreakConnect() override;
    HRESULT Inactive() override;

    // VFW_E_WRONG_STATE while the filter is stopped, S_FALSE while flushing, else S_OK. A
    // paused filter streams as a running one does.
    virtual HRESULT CheckStreaming();

    // With 0 the pin offers no allocator and keeps none: the upstream pin brings its own.
    void SetUseAllocator(LONG useAllocator) { m_useAllocator = useAllocator; }
    // The properties of the last sample, filled for every sample and read by no decision here.
    const AM_SAMPLE2_PROPERTIES* GetSampleProperties() const { return &m_sampleProperties; }
    // Hands a quality message on: to the quality sink, else to the peer's IQualityControl.
    HRESULT PassNotify(Quality& quality);

protected:
    // Fills m_sampleProperties through IMediaSample2, or call by call without it.
    HRESULT ReadSampleProperties(IMediaSample* sample);
    void ReadSamplePropertiesByHand(IMediaSample* sample);
    // Nanoseconds of stream time from the sample's start time, or of the monotonic clock for a
    // sample without one.
    static long long TimestampOf(IMediaSample* sample);

    LONG m_useAllocator;
    AM_SAMPLE2_PROPERTIES m_sampleProperties;
    ComPtr<IMemAllocator> m_allocator;
    FilterObserver* m_observer;  // not counted
};

}  // namespace DShow
