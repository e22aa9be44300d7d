#pragma once
// IKsPin as published for kernel-streaming proxy pins. MinGW's <ksproxy.h> declares it only for
// code built on the DirectShow base classes (__STREAMS__), so it is declared here in the same
// method order, for the SDK's IID_IKsPin. Only KsQueryMediums matters to the virtual camera and
// its users.

#include <windows.h>
#include <strmif.h>
#include <ks.h>
// IID_IKsPin
#include <uuids.h>

namespace VirtualCamera {

enum KsPeekOperation { KsPeekOperation_PeekOnly, KsPeekOperation_AddRef };

struct IKsPin : public IUnknown {
    // *mediums: a KSMULTIPLE_ITEM header followed by REGPINMEDIUM entries, freed by the caller
    // with CoTaskMemFree.
    virtual HRESULT STDMETHODCALLTYPE KsQueryMediums(PKSMULTIPLE_ITEM* mediums) = 0;
    virtual HRESULT STDMETHODCALLTYPE KsQueryInterfaces(PKSMULTIPLE_ITEM* interfaces) = 0;
    virtual HRESULT STDMETHODCALLTYPE KsCreateSinkPinHandle(KSPIN_INTERFACE& pinInterface,
                                                            KSPIN_MEDIUM& medium) = 0;
    virtual HRESULT STDMETHODCALLTYPE KsGetCurrentCommunication(KSPIN_COMMUNICATION* communication,
                                                                KSPIN_INTERFACE* pinInterface,
                                                                KSPIN_MEDIUM* medium) = 0;
    virtual HRESULT STDMETHODCALLTYPE KsPropagateAcquire() = 0;
    virtual HRESULT STDMETHODCALLTYPE KsDeliver(IMediaSample* sample, ULONG flags) = 0;
    virtual HRESULT STDMETHODCALLTYPE KsMediaSamplesCompleted(void* streamSegment) = 0;
    virtual IMemAllocator* STDMETHODCALLTYPE KsPeekAllocator(KsPeekOperation operation) = 0;
    virtual HRESULT STDMETHODCALLTYPE KsReceiveAllocator(IMemAllocator* allocator) = 0;
    virtual HRESULT STDMETHODCALLTYPE KsRenegotiateAllocator() = 0;
    virtual LONG STDMETHODCALLTYPE KsIncrementPendingIoCount() = 0;
    virtual LONG STDMETHODCALLTYPE KsDecrementPendingIoCount() = 0;
    virtual HRESULT STDMETHODCALLTYPE KsQualityNotify(ULONG proportion,
                                                      REFERENCE_TIME timeDelta) = 0;
};

}  // namespace VirtualCamera
