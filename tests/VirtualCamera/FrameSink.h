#pragma once
// A minimal rendering filter for tests: one input pin that accepts any video type and records
// every sample it receives (frame counter, fill time, stream times, size, flags, media type,
// arrival time). A sample that brings a new media type changes the type the frames after it
// are read with, as in a real renderer.

#include <windows.h>
#include <strmif.h>
#include <wrl/client.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <vector>

#include "tools/VirtualCamera/Config/MediaFormats.h"

namespace VirtualCameraTests {

struct ReceivedFrame {
    bool counterDecoded = false;
    uint32_t counter = 0;
    bool fillTimeDecoded = false;
    uint64_t fillTime = 0;
    // IMediaSample::GetMediaType: S_OK with the type a sample brings when the stream changes.
    HRESULT mediaTypeResult = E_FAIL;
    VirtualCamera::MediaType mediaType;
    bool hasTime = false;
    REFERENCE_TIME start = 0;
    REFERENCE_TIME stop = 0;
    long actualLength = 0;
    long bufferSize = 0;
    bool discontinuity = false;
    bool syncPoint = false;
    bool validJpeg = false;
    LONGLONG arrivalMicroseconds = 0;
    std::vector<BYTE> bytes;  // The sample's data, when the sink keeps it.
};

class FrameSinkPin;

class FrameSink final : public IBaseFilter {
public:
    FrameSink();

    STDMETHODIMP QueryInterface(REFIID riid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP GetClassID(CLSID* clsid) override;
    STDMETHODIMP Stop() override;
    STDMETHODIMP Pause() override;
    STDMETHODIMP Run(REFERENCE_TIME start) override;
    STDMETHODIMP GetState(DWORD timeoutMs, FILTER_STATE* state) override;
    STDMETHODIMP SetSyncSource(IReferenceClock* clock) override;
    STDMETHODIMP GetSyncSource(IReferenceClock** clock) override;
    STDMETHODIMP EnumPins(IEnumPins** pins) override;
    STDMETHODIMP FindPin(LPCWSTR id, IPin** pin) override;
    STDMETHODIMP QueryFilterInfo(FILTER_INFO* info) override;
    STDMETHODIMP JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) override;
    STDMETHODIMP QueryVendorInfo(LPWSTR* info) override;

    IPin* InputPin();
    // Waits until `count` frames have arrived in total; false on timeout.
    bool WaitForFrames(size_t count, DWORD timeoutMs);
    std::vector<ReceivedFrame> Frames();
    size_t FrameCount();
    // The type the camera connected with (valid while connected).
    VirtualCamera::MediaType ConnectedType();
    bool NotifiedAllocator() const;
    // Whether QueryAccept takes a new type while connected (a source asks before it changes).
    void AcceptNewTypes(bool accept);
    // Whether each frame keeps a copy of the sample's data (off at first).
    void KeepBytes(bool keep) { keepBytes_ = keep; }

    void Record(IMediaSample* sample);
    FILTER_STATE CurrentState() const { return state_; }

private:
    ~FrameSink();
    std::atomic<ULONG> references_{1};
    std::unique_ptr<FrameSinkPin> pin_;
    FILTER_STATE state_ = State_Stopped;
    std::atomic<bool> keepBytes_{false};
    IFilterGraph* graph_ = nullptr;
    Microsoft::WRL::ComPtr<IReferenceClock> clock_;
    std::mutex framesLock_;
    std::condition_variable framesArrived_;
    std::vector<ReceivedFrame> frames_;
    LARGE_INTEGER frequency_ = {};
};

}  // namespace VirtualCameraTests
