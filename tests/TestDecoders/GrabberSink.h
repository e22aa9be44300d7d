#pragma once
// The platform's sample grabber (qedit's CLSID_SampleGrabber) as the end of a test graph: it
// takes only RGB32, and a callback object of the test copies every sample it passes.
//
// References: the grabber holds the callback through SetCallback (counted) until the grabber
// goes; the GrabberSink holds both. The callback runs on the streaming thread of the filter in
// front of the grabber; its frame list is guarded by its own mutex.

#include <windows.h>
#include <dshow.h>
#include <qedit.h>
#include <wrl/client.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "tools/VirtualCamera/Config/MediaFormats.h"

namespace DecoderTests {

using Microsoft::WRL::ComPtr;

// {C1F400A0-3F08-11D3-9F0B-006008039E37}
inline constexpr GUID kSampleGrabberClsid = {
    0xc1f400a0, 0x3f08, 0x11d3, {0x9f, 0x0b, 0x00, 0x60, 0x08, 0x03, 0x9e, 0x37}};

struct GrabbedFrame {
    std::vector<BYTE> bytes;
    bool hasMediaTime = false;
    LONGLONG mediaStart = 0;
};

class GrabberCallback final : public ISampleGrabberCB {
public:
    STDMETHODIMP QueryInterface(REFIID riid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_references; }
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP SampleCB(double time, IMediaSample* sample) override;
    STDMETHODIMP BufferCB(double time, BYTE* buffer, LONG length) override;

    bool WaitForFrames(size_t count, DWORD timeoutMs);
    std::vector<GrabbedFrame> Frames();

private:
    ~GrabberCallback() = default;
    std::atomic<ULONG> m_references{1};
    std::mutex m_lock;
    std::condition_variable m_arrived;
    std::vector<GrabbedFrame> m_frames;
};

class GrabberSink {
public:
    // Creates the grabber, asks it for RGB32 video and adds it to `graph`.
    HRESULT Create(IGraphBuilder* graph);
    IBaseFilter* Filter() const { return m_filter.Get(); }
    ComPtr<IPin> InputPin() const;
    // The type the grabber's input connected with.
    VirtualCamera::MediaType ConnectedType() const;
    bool WaitForFrames(size_t count, DWORD timeoutMs) {
        return m_callback->WaitForFrames(count, timeoutMs);
    }
    std::vector<GrabbedFrame> Frames() { return m_callback->Frames(); }
    GrabberCallback* Callback() const { return m_callback.Get(); }

private:
    ComPtr<IBaseFilter> m_filter;
    ComPtr<ISampleGrabber> m_grabber;
    ComPtr<GrabberCallback> m_callback;
};

}  // namespace DecoderTests
