#include "GrabberSink.h"

#include <uuids.h>

#include <chrono>

#include "DecoderFixture.h"

namespace DecoderTests {

STDMETHODIMP GrabberCallback::QueryInterface(REFIID riid, void** object) {
    if (!object) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_ISampleGrabberCB) {
        *object = static_cast<ISampleGrabberCB*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) GrabberCallback::Release() {
    const ULONG remaining = --m_references;
    if (remaining == 0) delete this;
    return remaining;
}

STDMETHODIMP GrabberCallback::SampleCB(double, IMediaSample* sample) {
    GrabbedFrame frame;
    BYTE* data = nullptr;
    const long length = sample->GetActualDataLength();
    if (SUCCEEDED(sample->GetPointer(&data)) && data && length > 0) {
        frame.bytes.assign(data, data + length);
    }
    LONGLONG stop = 0;
    frame.hasMediaTime = sample->GetMediaTime(&frame.mediaStart, &stop) == S_OK;
    std::lock_guard<std::mutex> lock(m_lock);
    m_frames.push_back(std::move(frame));
    m_arrived.notify_all();
    return S_OK;
}

STDMETHODIMP GrabberCallback::BufferCB(double, BYTE*, LONG) {
    return E_NOTIMPL;
}

bool GrabberCallback::WaitForFrames(size_t count, DWORD timeoutMs) {
    std::unique_lock<std::mutex> lock(m_lock);
    return m_arrived.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                              [&] { return m_frames.size() >= count; });
}

std::vector<GrabbedFrame> GrabberCallback::Frames() {
    std::lock_guard<std::mutex> lock(m_lock);
    return m_frames;
}

HRESULT GrabberSink::Create(IGraphBuilder* graph) {
    HRESULT hr = CoCreateInstance(kSampleGrabberClsid, nullptr, CLSCTX_INPROC_SERVER,
                                  IID_PPV_ARGS(&m_filter));
    if (FAILED(hr)) return hr;
    hr = m_filter.As(&m_grabber);
    if (FAILED(hr)) return hr;
    AM_MEDIA_TYPE type = {};
    type.majortype = MEDIATYPE_Video;
    type.subtype = MEDIASUBTYPE_RGB32;
    type.formattype = FORMAT_VideoInfo;
    hr = m_grabber->SetMediaType(&type);
    if (FAILED(hr)) return hr;
    // Adopts the creator's reference: MinGW's ComPtr::Attach would add one of its own.
    *m_callback.ReleaseAndGetAddressOf() = new GrabberCallback();
    hr = m_grabber->SetCallback(m_callback.Get(), 0);
    if (FAILED(hr)) return hr;
    return graph->AddFilter(m_filter.Get(), L"Grabber");
}

ComPtr<IPin> GrabberSink::InputPin() const {
    return PinOf(m_filter.Get(), PINDIR_INPUT);
}

VirtualCamera::MediaType GrabberSink::ConnectedType() const {
    VirtualCamera::MediaType type;
    m_grabber->GetConnectedMediaType(type.get());
    return type;
}

}  // namespace DecoderTests
