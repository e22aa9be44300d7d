#include "SinkTestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>

#include "DShowCapture/MediaTypes.h"
#include "tools/VirtualCamera/Config/FramePattern.h"

namespace SinkTests {

void RecordingObserver::OnMediaTypeChanged(const AM_MEDIA_TYPE* mediaType, void* userData) {
    std::lock_guard<std::mutex> hold(m_mutex);
    ObservedCall call;
    call.kind = ObservedCall::MediaTypeChanged;
    call.subtype = mediaType->subtype;
    call.userData = userData;
    m_calls.push_back(call);
}

void RecordingObserver::OnFrameReceived(const unsigned char* bits, long size, long long timestamp,
                                        void* userData) {
    void (*action)(void*) = nullptr;
    void* context = nullptr;
    {
        std::lock_guard<std::mutex> hold(m_mutex);
        ObservedCall call;
        call.kind = ObservedCall::FrameReceived;
        call.bits = bits;
        call.size = size;
        call.timestamp = timestamp;
        call.userData = userData;
        call.head.assign(bits, bits + std::min<long>(size, 16));
        if (m_counterSubtype != GUID_NULL) {
            call.counterDecoded = VirtualCamera::DecodeFrameCounter(
                m_counterSubtype, bits, static_cast<size_t>(size), &call.counter);
        }
        m_calls.push_back(call);
        ++m_frames;
        if (m_action != nullptr && static_cast<long>(m_frames) == m_actionFrame) {
            action = m_action;
            context = m_actionContext;
        }
    }
    m_arrived.notify_all();
    if (action != nullptr) {
        action(context);
    }
}

void RecordingObserver::SetCounterSubtype(const GUID& subtype) {
    std::lock_guard<std::mutex> hold(m_mutex);
    m_counterSubtype = subtype;
}

void RecordingObserver::SetAfterFrame(long frameNumber, void (*action)(void*), void* context) {
    std::lock_guard<std::mutex> hold(m_mutex);
    m_actionFrame = frameNumber;
    m_action = action;
    m_actionContext = context;
}

std::vector<ObservedCall> RecordingObserver::Calls() {
    std::lock_guard<std::mutex> hold(m_mutex);
    return m_calls;
}

size_t RecordingObserver::FrameCount() {
    std::lock_guard<std::mutex> hold(m_mutex);
    return m_frames;
}

bool RecordingObserver::WaitForFrames(size_t count, DWORD deadlineMs) {
    std::unique_lock<std::mutex> hold(m_mutex);
    return m_arrived.wait_for(hold, std::chrono::milliseconds(deadlineMs),
                              [&] { return m_frames >= count; });
}

RecordingPin::RecordingPin(DShow::FilterBase* filter, DShow::FilterObserver* lock, const char* name,
                           HookLog* log, PIN_DIRECTION direction)
    : PinBase(filter, lock), m_pinName(name), m_log(log) {
    m_direction = direction;
}

HRESULT RecordingPin::CheckMediaType(const AM_MEDIA_TYPE* type) {
    return type->subtype == m_accepted ? S_OK : E_FAIL;
}

HRESULT RecordingPin::GetMediaType(int position, AM_MEDIA_TYPE* type) {
    if (position < 0 || position >= static_cast<int>(m_offered.size())) {
        return VFW_S_NO_MORE_ITEMS;
    }
    type->majortype = MEDIATYPE_Video;
    type->subtype = m_offered[static_cast<size_t>(position)];
    type->formattype = GUID_NULL;
    return S_OK;
}

HRESULT RecordingPin::OnFilterStateChange(bool active) {
    if (m_log != nullptr) {
        m_log->entries.push_back(m_pinName + (active ? ".active" : ".inactive"));
    }
    return m_hookResult;
}

HRESULT RecordingPin::OnFilterRun(DShow::RefTime start) {
    if (m_log != nullptr) {
        m_log->entries.push_back(m_pinName + ".run@" + std::to_string(start.GetUnits()));
    }
    return m_hookResult;
}

STDMETHODIMP RecordingPin::EnumMediaTypes(IEnumMediaTypes** enumerator) {
    ++typeEnumerations;
    return PinBase::EnumMediaTypes(enumerator);
}

STDMETHODIMP RecordingPin::QueryDirection(PIN_DIRECTION* direction) {
    ++directionQueries;
    return PinBase::QueryDirection(direction);
}

STDMETHODIMP RecordingPin::ReceiveConnection(IPin* pin, const AM_MEDIA_TYPE* type) {
    ++receivedConnections;
    return PinBase::ReceiveConnection(pin, type);
}

RecordingFilter::RecordingFilter(DShow::FilterObserver* lock, HookLog* log)
    : FilterBase(lock), m_observer(lock), m_log(log) {}

RecordingFilter::~RecordingFilter() = default;

int RecordingFilter::GetPinCount() {
    return m_reportedCount >= 0 ? m_reportedCount : static_cast<int>(m_pins.size());
}

DShow::PinBase* RecordingFilter::GetPin(int index) {
    if (index < 0 || index >= static_cast<int>(m_pins.size())) {
        return nullptr;
    }
    return m_pins[static_cast<size_t>(index)].Get();
}

STDMETHODIMP RecordingFilter::Pause() {
    ++pauseCalls;
    if (m_log != nullptr) {
        m_log->entries.push_back("filter.pause");
    }
    return FilterBase::Pause();
}

const DShow::AMOVIESETUP_FILTER* RecordingFilter::GetSetupData() {
    ++setupDataCalls;
    return m_setup;
}

RecordingPin* RecordingFilter::AddPin(const char* name, PIN_DIRECTION direction) {
    RecordingPin* pin = new RecordingPin(this, m_observer, name, m_log, direction);
    m_pins.emplace_back(pin);
    return pin;
}

void RecordingFilter::AddOwnPin(DShow::PinBase* pin) {
    m_pins.emplace_back(pin);
}

void RecordingFilter::AddMissingPin() {
    m_pins.emplace_back();
}

DShow::VideoSinkInputPin* SinkPin(DShow::VideoSinkFilter& filter) {
    return static_cast<DShow::VideoSinkInputPin*>(filter.GetPin(0));
}

VideoType::VideoType(const GUID& subtype, LONG width, LONG height, REFERENCE_TIME interval)
    : m_type() {
    m_type.majortype = MEDIATYPE_Video;
    m_type.subtype = subtype;
    m_type.formattype = FORMAT_VideoInfo;
    m_type.cbFormat = sizeof(VIDEOINFOHEADER);
    m_type.pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(m_type.cbFormat));
    ZeroMemory(m_type.pbFormat, m_type.cbFormat);
    VIDEOINFOHEADER* header = Header();
    header->AvgTimePerFrame = interval;
    header->bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
    header->bmiHeader.biWidth = width;
    header->bmiHeader.biHeight = height;
    header->bmiHeader.biPlanes = 1;
}

VideoType::~VideoType() {
    DShow::FreeMediaType(m_type);
}

AllocatorSamples::AllocatorSamples(long count, long size) {
    EXPECT_EQ(
        CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER, IID_IMemAllocator,
                         reinterpret_cast<void**>(m_allocator.GetAddressOf())),
        S_OK);
    if (!m_allocator) {
        return;
    }
    ALLOCATOR_PROPERTIES wanted = {count, size, 1, 0};
    ALLOCATOR_PROPERTIES actual = {};
    EXPECT_EQ(m_allocator->SetProperties(&wanted, &actual), S_OK);
    EXPECT_EQ(m_allocator->Commit(), S_OK);
}

AllocatorSamples::~AllocatorSamples() {
    if (m_allocator) {
        m_allocator->Decommit();
    }
}

ComPtr<IMediaSample> AllocatorSamples::Sample(long length, unsigned char firstByte) {
    ComPtr<IMediaSample> sample;
    EXPECT_EQ(m_allocator->GetBuffer(sample.GetAddressOf(), nullptr, nullptr, 0), S_OK);
    if (!sample) {
        return sample;
    }
    BYTE* data = nullptr;
    EXPECT_EQ(sample->GetPointer(&data), S_OK);
    std::memset(data, 0, static_cast<size_t>(length));
    data[0] = firstByte;
    EXPECT_EQ(sample->SetActualDataLength(length), S_OK);
    return sample;
}

AM_MEDIA_TYPE* NewVideoType(const GUID& subtype, LONG width, LONG height) {
    VideoType type(subtype, width, height);
    return DShow::CreateMediaType(type.Get());
}

ScriptedSample::ScriptedSample() = default;

STDMETHODIMP ScriptedSample::QueryInterface(REFIID iid, void** object) {
    if (iid == IID_IUnknown || iid == IID_IMediaSample ||
        (offersSample2 && iid == IID_IMediaSample2)) {
        *object = static_cast<IMediaSample2*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) ScriptedSample::AddRef() {
    return static_cast<ULONG>(InterlockedIncrement(&m_refs));
}

STDMETHODIMP_(ULONG) ScriptedSample::Release() {
    const LONG refs = InterlockedDecrement(&m_refs);
    if (refs == 0) {
        delete this;
    }
    return static_cast<ULONG>(refs);
}

STDMETHODIMP ScriptedSample::GetPointer(BYTE** data) {
    *data = nullPointer || pointerResult != S_OK ? nullptr : buffer;
    return pointerResult;
}

STDMETHODIMP_(long) ScriptedSample::GetSize() {
    return static_cast<long>(sizeof(buffer));
}

STDMETHODIMP ScriptedSample::GetTime(REFERENCE_TIME* startTime, REFERENCE_TIME* stopTime) {
    if (SUCCEEDED(timeResult)) {
        *startTime = start;
        *stopTime = stop;
    }
    return timeResult;
}

STDMETHODIMP ScriptedSample::SetTime(REFERENCE_TIME*, REFERENCE_TIME*) {
    return E_NOTIMPL;
}

STDMETHODIMP ScriptedSample::IsSyncPoint() {
    return syncPoint ? S_OK : S_FALSE;
}

STDMETHODIMP ScriptedSample::SetSyncPoint(BOOL) {
    return E_NOTIMPL;
}

STDMETHODIMP ScriptedSample::IsPreroll() {
    return preroll ? S_OK : S_FALSE;
}

STDMETHODIMP ScriptedSample::SetPreroll(BOOL) {
    return E_NOTIMPL;
}

STDMETHODIMP_(long) ScriptedSample::GetActualDataLength() {
    return actualLength;
}

STDMETHODIMP ScriptedSample::SetActualDataLength(long) {
    return E_NOTIMPL;
}

STDMETHODIMP ScriptedSample::GetMediaType(AM_MEDIA_TYPE** type) {
    *type = typeResult == S_OK ? NewVideoType(MEDIASUBTYPE_YUY2, 16, 16) : nullptr;
    return typeResult;
}

STDMETHODIMP ScriptedSample::SetMediaType(AM_MEDIA_TYPE*) {
    return E_NOTIMPL;
}

STDMETHODIMP ScriptedSample::IsDiscontinuity() {
    return discontinuity ? S_OK : S_FALSE;
}

STDMETHODIMP ScriptedSample::SetDiscontinuity(BOOL) {
    return E_NOTIMPL;
}

STDMETHODIMP ScriptedSample::GetMediaTime(LONGLONG*, LONGLONG*) {
    return VFW_E_MEDIA_TIME_NOT_SET;
}

STDMETHODIMP ScriptedSample::SetMediaTime(LONGLONG*, LONGLONG*) {
    return E_NOTIMPL;
}

STDMETHODIMP ScriptedSample::GetProperties(DWORD size, BYTE* properties) {
    if (SUCCEEDED(propertiesResult)) {
        ZeroMemory(properties, size);
    }
    return propertiesResult;
}

STDMETHODIMP ScriptedSample::SetProperties(DWORD, const BYTE*) {
    return E_NOTIMPL;
}

}  // namespace SinkTests
