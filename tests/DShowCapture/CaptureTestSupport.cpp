#include "CaptureTestSupport.h"

#include <chrono>

#include "DShowCapture/MediaTypes.h"
#include "TinyFramework/Common/TinyCallback.h"
#include "tools/VirtualCamera/Config/FramePattern.h"

namespace CaptureTests {

void TestableCapture::OnFrameReceived(const unsigned char* bits, long size, long long timestamp,
                                      void* userData) {
    {
        std::lock_guard<std::mutex> hold(m_mutex);
        ++m_deliveries;
    }
    m_arrived.notify_all();
    VideoCapture::OnFrameReceived(bits, size, timestamp, userData);
}

bool TestableCapture::WaitForDeliveries(long count) {
    std::unique_lock<std::mutex> hold(m_mutex);
    return m_arrived.wait_for(hold, std::chrono::milliseconds(kStateDeadlineMs),
                              [&] { return m_deliveries >= count; });
}

std::vector<ComPtr<IBaseFilter>> TestableCapture::Filters() const {
    std::vector<ComPtr<IBaseFilter>> filters;
    ComPtr<IEnumFilters> enumerator;
    if (Graph() == nullptr || FAILED(Graph()->EnumFilters(enumerator.GetAddressOf()))) {
        return filters;
    }
    ComPtr<IBaseFilter> filter;
    while (enumerator->Next(1, filter.ReleaseAndGetAddressOf(), nullptr) == S_OK) {
        filters.push_back(filter);
    }
    return filters;
}

ComPtr<IBaseFilter> TestableCapture::Sink() const {
    ComPtr<IBaseFilter> sink;
    if (Graph() != nullptr) {
        Graph()->FindFilterByName(L"Tiny Capture Filter", sink.GetAddressOf());
    }
    return sink;
}

ComPtr<IPin> TestableCapture::SinkPeer() const {
    ComPtr<IPin> peer;
    ComPtr<IBaseFilter> sink = Sink();
    ComPtr<IPin> input;
    if (sink && sink->FindPin(L"Tiny Video Capture", input.GetAddressOf()) == S_OK) {
        input->ConnectedTo(peer.GetAddressOf());
    }
    return peer;
}

GUID TestableCapture::SinkSubtype() const {
    GUID subtype = GUID_NULL;
    ComPtr<IBaseFilter> sink = Sink();
    ComPtr<IPin> input;
    AM_MEDIA_TYPE type = {};
    if (sink && sink->FindPin(L"Tiny Video Capture", input.GetAddressOf()) == S_OK &&
        input->ConnectionMediaType(&type) == S_OK) {
        subtype = type.subtype;
        DShow::FreeMediaType(type);
    }
    return subtype;
}

void FrameLog::Take(const unsigned char* bits, long size, long long timestamp, void* userData) {
    Frame frame;
    frame.size = size;
    frame.timestamp = timestamp;
    frame.userData = userData;
    if (size >= 2) {
        frame.head[0] = bits[0];
        frame.head[1] = bits[1];
    }
    frame.counterDecoded = VirtualCamera::DecodeFrameCounter(
        m_subtype, bits, static_cast<size_t>(size), &frame.counter);
    {
        std::lock_guard<std::mutex> hold(m_mutex);
        m_frames.push_back(frame);
    }
    m_arrived.notify_all();
}

DShow::VideoCapture::FrameCallback FrameLog::Callback() {
    return TinyFramework::BindCallback<void(const unsigned char*, long, long long, void*)>(
        &FrameLog::Take, this);
}

bool FrameLog::WaitForFrames(size_t count) {
    std::unique_lock<std::mutex> hold(m_mutex);
    return m_arrived.wait_for(hold, std::chrono::milliseconds(kStateDeadlineMs),
                              [&] { return m_frames.size() >= count; });
}

std::vector<Frame> FrameLog::Frames() {
    std::lock_guard<std::mutex> hold(m_mutex);
    return m_frames;
}

DShow::VideoDevice CaptureTest::AddCamera(const std::wstring& lines) {
    const std::wstring name = UniqueName(std::to_wstring(++m_cameras));
    m_lastName = name;
    const std::wstring path = L"\\\\?\\capturetest#" + name;
    AddDevices(L"[device " + name + L"]\nFriendlyName = Capture Test Camera\nDevicePath = " + path +
               L"\n" + lines);
    return DShow::VideoDevice(std::wstring(L"Capture Test Camera"), std::wstring(path));
}

bool CaptureTest::CaptureConnectionInterval(TestableCapture& capture, REFERENCE_TIME* interval) {
    ComPtr<IPin> peer = capture.SinkPeer();
    AM_MEDIA_TYPE type = {};
    if (!peer || peer->ConnectionMediaType(&type) != S_OK) {
        return false;
    }
    const bool whole = type.formattype == FORMAT_VideoInfo && type.pbFormat != nullptr &&
                       type.cbFormat >= sizeof(VIDEOINFOHEADER);
    if (whole) {
        *interval = reinterpret_cast<VIDEOINFOHEADER*>(type.pbFormat)->AvgTimePerFrame;
    }
    DShow::FreeMediaType(type);
    return whole;
}

STDMETHODIMP ScriptedMediaControl::QueryInterface(REFIID iid, void** object) {
    if (iid == IID_IUnknown || iid == IID_IDispatch || iid == IID_IMediaControl) {
        *object = static_cast<IMediaControl*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) ScriptedMediaControl::Release() {
    const ULONG refs = --m_refs;
    if (refs == 0) {
        delete this;
    }
    return refs;
}

STDMETHODIMP ScriptedMediaControl::GetState(LONG timeout, OAFilterState* state) {
    lastTimeout = timeout;
    if (SUCCEEDED(stateResult)) {
        *state = this->state;
    }
    return stateResult;
}

STDMETHODIMP ScriptedMediaEvent::QueryInterface(REFIID iid, void** object) {
    if (iid == IID_IUnknown || iid == IID_IDispatch || iid == IID_IMediaEvent) {
        *object = static_cast<IMediaEvent*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) ScriptedMediaEvent::Release() {
    const ULONG refs = --m_refs;
    if (refs == 0) {
        delete this;
    }
    return refs;
}

STDMETHODIMP ScriptedMediaEvent::GetEvent(long* code, LONG_PTR* param1, LONG_PTR* param2,
                                          long /*timeout*/) {
    ++getEventCalls;
    if (m_next >= script.size()) {
        return E_ABORT;
    }
    const Answer& answer = script[m_next++];
    if (SUCCEEDED(answer.result)) {
        *code = answer.code;
        *param1 = answer.param1;
        *param2 = answer.param2;
    }
    return answer.result;
}

STDMETHODIMP ScriptedMediaEvent::FreeEventParams(long code, LONG_PTR param1, LONG_PTR param2) {
    freed.push_back({code, param1, param2});
    return S_OK;
}

}  // namespace CaptureTests
