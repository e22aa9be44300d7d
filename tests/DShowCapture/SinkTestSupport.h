#pragma once

// Helpers of the sink filter tests: an observer that records what the sink hands over, a filter
// and a pin built on the library's own bases whose hooks record their calls, and samples for the
// situations that the platform's allocator cannot produce.

#include <windows.h>

#include <dshow.h>

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "DShowCapture/ComHelpers.h"
#include "DShowCapture/FilterBase.h"
#include "DShowCapture/InputPinBase.h"
#include "DShowCapture/PinBase.h"
#include "DShowCapture/VideoSinkFilter.h"
#include "TinyFramework/Common/TinyRefCount.h"
#include "tests/support/ComCount.h"
#include "tests/support/TestDeadlines.h"

namespace SinkTests {

using DShow::ComPtr;
using TestSupport::CountOf;

// How long a test waits for a state it expects (frames arriving). Only a hang reaches it, also
// on a machine many times slower than usual.
constexpr DWORD kStateDeadlineMs = TestSupport::kGenerousDeadlineMs;

// One call of the observer, in order of arrival.
struct ObservedCall {
    enum Kind { MediaTypeChanged, FrameReceived } kind = FrameReceived;
    GUID subtype = GUID_NULL;  // of a new media type
    const unsigned char* bits = nullptr;
    long size = 0;
    long long timestamp = 0;
    void* userData = nullptr;
    bool counterDecoded = false;
    uint32_t counter = 0;             // the virtual camera's frame counter, when it could be read
    std::vector<unsigned char> head;  // the first bytes of the frame, up to 16
};

// Records every call of the sink. Thread-safe: the sink calls it on the streaming thread.
class RecordingObserver : public DShow::FilterObserver {
public:
    void OnMediaTypeChanged(const AM_MEDIA_TYPE* mediaType, void* userData) override;
    void OnFrameReceived(const unsigned char* bits, long size, long long timestamp,
                         void* userData) override;

    // Frames are read for the virtual camera's counter as frames of this subtype.
    void SetCounterSubtype(const GUID& subtype);
    // Called on the streaming thread after the n-th frame (1-based) was recorded.
    void SetAfterFrame(long frameNumber, void (*action)(void* context), void* context);

    std::vector<ObservedCall> Calls();
    size_t FrameCount();
    // Waits until `count` frames have arrived in all; false at the deadline.
    bool WaitForFrames(size_t count, DWORD deadlineMs = kStateDeadlineMs);

private:
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::vector<ObservedCall> m_calls;
    size_t m_frames = 0;
    GUID m_counterSubtype = GUID_NULL;
    long m_actionFrame = 0;
    void (*m_action)(void*) = nullptr;
    void* m_actionContext = nullptr;
};

// Every test of the sink runs in the multithreaded apartment, as the capture library's owner
// does.
class ComTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_comInitialized = SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
    }
    void TearDown() override {
        if (m_comInitialized) {
            CoUninitialize();
        }
    }

private:
    bool m_comInitialized = false;
};

// What the recording pins and filters write down, in order.
struct HookLog {
    std::vector<std::string> entries;
};

// A pin on the library's own PinBase, with a direction of choice, that accepts one subtype,
// offers a list of types and records the filter's calls of its state hooks.
class RecordingPin : public DShow::PinBase {
public:
    RecordingPin(DShow::FilterBase* filter, DShow::FilterObserver* lock, const char* name,
                 HookLog* log, PIN_DIRECTION direction = PINDIR_INPUT);

    HRESULT CheckMediaType(const AM_MEDIA_TYPE* type) override;
    HRESULT GetMediaType(int position, AM_MEDIA_TYPE* type) override;
    HRESULT OnFilterStateChange(bool active) override;
    HRESULT OnFilterRun(DShow::RefTime start) override;
    STDMETHODIMP EnumMediaTypes(IEnumMediaTypes** enumerator) override;
    STDMETHODIMP QueryDirection(PIN_DIRECTION* direction) override;
    STDMETHODIMP ReceiveConnection(IPin* pin, const AM_MEDIA_TYPE* type) override;

    // The pin counts as connected to `peer` without a negotiation (null: unconnected).
    void PretendConnected(IPin* peer) { m_connected = peer; }
    void SetAcceptedSubtype(const GUID& subtype) { m_accepted = subtype; }
    // Types that GetMediaType offers, by position.
    void AddOfferedSubtype(const GUID& subtype) { m_offered.push_back(subtype); }
    // What the two state hooks answer.
    void SetHookResult(HRESULT hr) { m_hookResult = hr; }
    const AM_MEDIA_TYPE& StoredMediaType() const { return m_mediaType; }
    LONG RefCount() const { return m_cRef.load(); }

    int directionQueries = 0;
    int typeEnumerations = 0;
    int receivedConnections = 0;

private:
    std::string m_pinName;
    HookLog* m_log;
    GUID m_accepted = MEDIASUBTYPE_YUY2;
    std::vector<GUID> m_offered;
    HRESULT m_hookResult = S_OK;
};

// A filter on the library's own FilterBase with any number of RecordingPins (a null entry
// stands for a pin that went missing), which records Pause and exposes its fields to tests.
class RecordingFilter : public DShow::FilterBase {
public:
    explicit RecordingFilter(DShow::FilterObserver* lock, HookLog* log = nullptr);
    ~RecordingFilter() override;

    int GetPinCount() override;
    DShow::PinBase* GetPin(int index) override;
    STDMETHODIMP Pause() override;
    const DShow::AMOVIESETUP_FILTER* GetSetupData() override;

    // Adds a pin and returns it; the filter holds it.
    RecordingPin* AddPin(const char* name, PIN_DIRECTION direction = PINDIR_INPUT);
    // Adds a pin of another class, made on this filter; the filter takes the first reference.
    void AddOwnPin(DShow::PinBase* pin);
    // A null pin: one that went missing.
    void AddMissingPin();
    // Makes GetPinCount report more pins than there are.
    void SetReportedPinCount(int count) { m_reportedCount = count; }
    void SetSetupData(const DShow::AMOVIESETUP_FILTER* setup) { m_setup = setup; }

    int pauseCalls = 0;
    int setupDataCalls = 0;
    REFERENCE_TIME StartTime() const { return m_start.GetUnits(); }
    IFilterGraph* Graph() const { return m_graph; }
    IMediaEventSink* EventSink() const { return m_sink; }
    const WCHAR* Name() const { return m_name.get(); }
    FILTER_STATE State() const { return m_state; }
    LONG RefCount() const { return m_cRef.load(); }

private:
    DShow::FilterObserver* m_observer;
    HookLog* m_log;
    std::vector<TinyFramework::TinyScopedRefPtr<DShow::PinBase>> m_pins;
    int m_reportedCount = -1;
    const DShow::AMOVIESETUP_FILTER* m_setup = nullptr;
};

// A VideoSinkFilter that says when it is destroyed.
class WatchedSinkFilter : public DShow::VideoSinkFilter {
public:
    WatchedSinkFilter(DShow::FilterObserver* observer, bool* destroyed)
        : VideoSinkFilter(observer), m_destroyed(destroyed) {}
    ~WatchedSinkFilter() override { *m_destroyed = true; }
    LONG RefCount() const { return m_cRef.load(); }
    IFilterGraph* Graph() const { return m_graph; }
    const WCHAR* Name() const { return m_name.get(); }

private:
    bool* m_destroyed;
};

// A sink input pin that says that it never blocks in Receive.
class NonBlockingPin : public DShow::VideoSinkInputPin {
public:
    using VideoSinkInputPin::VideoSinkInputPin;
    STDMETHODIMP ReceiveCanBlock() override { return S_FALSE; }
};

// The sink's input pin as its class, for the operations beyond IPin.
DShow::VideoSinkInputPin* SinkPin(DShow::VideoSinkFilter& filter);

// A VIDEOINFOHEADER video type, owning its format block.
class VideoType {
public:
    VideoType(const GUID& subtype, LONG width, LONG height, REFERENCE_TIME interval = 333333);
    ~VideoType();
    VideoType(const VideoType&) = delete;
    VideoType& operator=(const VideoType&) = delete;

    AM_MEDIA_TYPE* Get() { return &m_type; }
    VIDEOINFOHEADER* Header() { return reinterpret_cast<VIDEOINFOHEADER*>(m_type.pbFormat); }

private:
    AM_MEDIA_TYPE m_type;
};

// A sample of the platform's memory allocator, committed and ready to be filled.
class AllocatorSamples {
public:
    // `count` buffers of `size` bytes.
    AllocatorSamples(long count, long size);
    ~AllocatorSamples();
    IMemAllocator* Allocator() { return m_allocator.Get(); }
    // A sample with `length` bytes of data, starting with `firstByte`.
    ComPtr<IMediaSample> Sample(long length, unsigned char firstByte = 0);

private:
    ComPtr<IMemAllocator> m_allocator;
};

// A sample that the platform's allocator cannot produce: one without IMediaSample2, or with
// calls that fail on demand. Every answer is set by the test.
class ScriptedSample : public IMediaSample2 {
public:
    ScriptedSample();

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    STDMETHODIMP GetPointer(BYTE** buffer) override;
    STDMETHODIMP_(long) GetSize() override;
    STDMETHODIMP GetTime(REFERENCE_TIME* start, REFERENCE_TIME* stop) override;
    STDMETHODIMP SetTime(REFERENCE_TIME* start, REFERENCE_TIME* stop) override;
    STDMETHODIMP IsSyncPoint() override;
    STDMETHODIMP SetSyncPoint(BOOL syncPoint) override;
    STDMETHODIMP IsPreroll() override;
    STDMETHODIMP SetPreroll(BOOL preroll) override;
    STDMETHODIMP_(long) GetActualDataLength() override;
    STDMETHODIMP SetActualDataLength(long length) override;
    STDMETHODIMP GetMediaType(AM_MEDIA_TYPE** type) override;
    STDMETHODIMP SetMediaType(AM_MEDIA_TYPE* type) override;
    STDMETHODIMP IsDiscontinuity() override;
    STDMETHODIMP SetDiscontinuity(BOOL discontinuity) override;
    STDMETHODIMP GetMediaTime(LONGLONG* start, LONGLONG* end) override;
    STDMETHODIMP SetMediaTime(LONGLONG* start, LONGLONG* end) override;
    STDMETHODIMP GetProperties(DWORD size, BYTE* properties) override;
    STDMETHODIMP SetProperties(DWORD size, const BYTE* properties) override;

    LONG RefCount() const { return m_refs; }

    bool offersSample2 = false;       // answers IID_IMediaSample2
    HRESULT propertiesResult = S_OK;  // of GetProperties
    HRESULT pointerResult = S_OK;     // of GetPointer
    bool nullPointer = false;         // GetPointer gives null
    HRESULT typeResult = S_FALSE;     // of GetMediaType; S_OK hands out a YUY2 type
    HRESULT timeResult = VFW_E_SAMPLE_TIME_NOT_SET;
    REFERENCE_TIME start = 0;
    REFERENCE_TIME stop = 0;
    bool syncPoint = false;
    bool preroll = false;
    bool discontinuity = false;
    unsigned char buffer[64] = {};
    long actualLength = 32;

private:
    virtual ~ScriptedSample() = default;
    LONG m_refs = 1;
};

// A type that a sample hands out: a task-allocated VIDEOINFOHEADER type of `subtype`.
AM_MEDIA_TYPE* NewVideoType(const GUID& subtype, LONG width, LONG height);

}  // namespace SinkTests
