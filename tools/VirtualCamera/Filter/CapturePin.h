#pragma once
// The capture filter's single output pin: connects as a DirectShow output pin (it proposes the
// types, the input pin accepts, then an allocator is agreed on through IMemInputPin), describes
// the device's modes through IAMStreamConfig, its category through IKsPropertySet and its
// mediums through IKsPin, and runs the streaming thread. A device that changes its mode during
// a run (change_after) attaches the new type to the first sample of the new mode, and its
// connection keeps that type once the run ends.

#include <windows.h>
#include <strmif.h>
#include <wrl/client.h>

#include <atomic>
#include <vector>

#include "tools/VirtualCamera/Config/KsPin.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"
#include "tools/VirtualCamera/Filter/FrameStreamer.h"

namespace VirtualCamera {

class CaptureFilter;

class CapturePin final : public IPin, public IAMStreamConfig, public IKsPropertySet, public IKsPin {
public:
    explicit CapturePin(CaptureFilter* filter);
    ~CapturePin();

    // IUnknown: the pin lives as long as its filter, so references count on the filter.
    STDMETHODIMP QueryInterface(REFIID riid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // IPin
    STDMETHODIMP Connect(IPin* receivePin, const AM_MEDIA_TYPE* type) override;
    STDMETHODIMP ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) override;
    STDMETHODIMP Disconnect() override;
    STDMETHODIMP ConnectedTo(IPin** pin) override;
    STDMETHODIMP ConnectionMediaType(AM_MEDIA_TYPE* type) override;
    STDMETHODIMP QueryPinInfo(PIN_INFO* info) override;
    STDMETHODIMP QueryDirection(PIN_DIRECTION* direction) override;
    STDMETHODIMP QueryId(LPWSTR* id) override;
    STDMETHODIMP QueryAccept(const AM_MEDIA_TYPE* type) override;
    STDMETHODIMP EnumMediaTypes(IEnumMediaTypes** types) override;
    STDMETHODIMP QueryInternalConnections(IPin** pins, ULONG* count) override;
    STDMETHODIMP EndOfStream() override;
    STDMETHODIMP BeginFlush() override;
    STDMETHODIMP EndFlush() override;
    STDMETHODIMP NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) override;

    // IAMStreamConfig
    STDMETHODIMP SetFormat(AM_MEDIA_TYPE* type) override;
    STDMETHODIMP GetFormat(AM_MEDIA_TYPE** type) override;
    STDMETHODIMP GetNumberOfCapabilities(int* count, int* size) override;
    STDMETHODIMP GetStreamCaps(int index, AM_MEDIA_TYPE** type, BYTE* caps) override;

    // IKsPropertySet
    STDMETHODIMP Set(REFGUID set, DWORD id, void* instance, DWORD instanceSize, void* data,
                     DWORD dataSize) override;
    STDMETHODIMP Get(REFGUID set, DWORD id, void* instance, DWORD instanceSize, void* data,
                     DWORD dataSize, DWORD* returned) override;
    STDMETHODIMP QuerySupported(REFGUID set, DWORD id, DWORD* support) override;

    // IKsPin: only the mediums are meaningful for a device without a kernel driver.
    STDMETHODIMP KsQueryMediums(PKSMULTIPLE_ITEM* mediums) override;
    STDMETHODIMP KsQueryInterfaces(PKSMULTIPLE_ITEM* interfaces) override;
    STDMETHODIMP KsCreateSinkPinHandle(KSPIN_INTERFACE& pinInterface,
                                       KSPIN_MEDIUM& medium) override;
    STDMETHODIMP KsGetCurrentCommunication(KSPIN_COMMUNICATION* communication,
                                           KSPIN_INTERFACE* pinInterface,
                                           KSPIN_MEDIUM* medium) override;
    STDMETHODIMP KsPropagateAcquire() override;
    STDMETHODIMP KsDeliver(IMediaSample* sample, ULONG flags) override;
    STDMETHODIMP KsMediaSamplesCompleted(void* segment) override;
    IMemAllocator* STDMETHODCALLTYPE KsPeekAllocator(KsPeekOperation operation) override;
    STDMETHODIMP KsReceiveAllocator(IMemAllocator* allocator) override;
    STDMETHODIMP KsRenegotiateAllocator() override;
    LONG STDMETHODCALLTYPE KsIncrementPendingIoCount() override;
    LONG STDMETHODCALLTYPE KsDecrementPendingIoCount() override;
    STDMETHODIMP KsQualityNotify(ULONG proportion, REFERENCE_TIME timeDelta) override;

    // State changes driven by the filter, under the filter's lock.
    HRESULT Activate();  // Stopped -> Paused: commits the allocator.
    void Deactivate();   // -> Stopped: stops streaming, decommits the allocator.
    HRESULT StartStreaming(IReferenceClock* clock, REFERENCE_TIME start);
    void StopStreaming();  // Running -> Paused: delivery ends; the thread is collected later.
    bool IsConnected() const { return m_peer != nullptr; }

private:
    // Waits for the streaming thread of an earlier run to end.
    void FinishStreaming();
    // Stops the streaming thread and waits for it, leaving the allocator decommitted.
    void EndStreamingThread();
    std::vector<MediaType> OfferedTypes() const;
    // The media type the pin hands out for one of its modes, faults included.
    HRESULT BuildOfferedType(size_t modeIndex, AM_MEDIA_TYPE* type) const;
    HRESULT TryConnection(IPin* receivePin, const AM_MEDIA_TYPE& type);
    HRESULT DecideAllocator(IMemInputPin* input, IMemAllocator** chosen);
    HRESULT ConfigureAllocator(IMemAllocator* allocator, const ALLOCATOR_PROPERTIES& wanted,
                               IMemInputPin* input);
    void ClearConnection();
    const ModeConfig* FindMode(const AM_MEDIA_TYPE& type) const;
    DWORD FrameBytes() const;
    // The bytes of a frame of the mode the device changes to while it runs; 0 without a change.
    DWORD ChangeTargetBytes() const;
    // Fills `change` when the device changes mode during a run that starts in `current`.
    HRESULT PrepareModeChange(const ModeConfig* current, ModeChange* change) const;
    REFERENCE_TIME FrameInterval() const;
    HRESULT ReconnectWith(const AM_MEDIA_TYPE& type);

    CaptureFilter* m_filter;
    Microsoft::WRL::ComPtr<IPin> m_peer;
    Microsoft::WRL::ComPtr<IMemInputPin> m_peerInput;
    Microsoft::WRL::ComPtr<IMemAllocator> m_allocator;
    MediaType m_connectionType;
    MediaType m_selectedType;  // Set by IAMStreamConfig::SetFormat.
    bool m_hasSelectedType = false;
    std::atomic<bool> m_deviceLost{false};
    uint32_t m_nextCounter = 0;
    FrameStreamer m_streamer;
};

}  // namespace VirtualCamera
