#pragma once
// IKsPin as published for kernel-streaming proxy pins. MinGW's <ksproxy.h> declares it only for
// code built on the DirectShow base classes (__STREAMS__), so it is declared here with the same
// IID and method order. Only KsQueryMediums matters to the virtual camera and its users.

#include <windows.h>
#include <strmif.h>
#include <ks.h>

namespace VirtualCamera {

// {B61178D1-A2D9-11CF-9E53-00AA00A216A1}
inline constexpr GUID IID_IKsPin = {
    0xb61178d1, 0xa2d9, 0x11cf, {0x9e, 0x53, 0x00, 0xaa, 0x00, 0xa2, 0x16, 0xa1}};

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
