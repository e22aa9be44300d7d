#pragma once

// Helpers of the VideoCapture tests: a capture object that opens its test seams, a receiver of
// the frame callback, virtual cameras by mode lines, and stand-ins for the two graph interfaces
// whose failures Wine's graph never produces.

#include <windows.h>

#include <dshow.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "DShowCapture/VideoCapture.h"
#include "VirtualCameraFixture.h"
#include "tests/support/ComCount.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestDeadlines.h"

namespace CaptureTests {

using DShow::ComPtr;
using TestSupport::CountOf;

// How long a test waits for frames or an event. Only a hang reaches it, also on a machine many
// times slower than usual or fully loaded.
constexpr DWORD kStateDeadlineMs = TestSupport::kGenerousDeadlineMs;

// VideoCapture with its seams open, and a count of the frames the sink handed it (before the
// callback test), so a test can see frames flow with no callback set.
class TestableCapture : public DShow::VideoCapture {
public:
    using VideoCapture::Builder;
    using VideoCapture::CaptureFilter;
    using VideoCapture::Graph;
    using VideoCapture::MediaControl;
    using VideoCapture::MediaEvent;

    void OnFrameReceived(const unsigned char* bits, long size, long long timestamp,
                         void* userData) override;
    // Waits until `count` frames reached OnFrameReceived; false at the deadline.
    bool WaitForDeliveries(long count);

    // The filters of the graph, in the graph's order.
    std::vector<ComPtr<IBaseFilter>> Filters() const;
    // The sink, found by its name in the graph.
    ComPtr<IBaseFilter> Sink() const;
    // The pin connected to the sink's input pin, or null.
    ComPtr<IPin> SinkPeer() const;
    // The media type on the sink's input pin; subtype GUID_NULL when not connected.
    GUID SinkSubtype() const;

private:
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    long m_deliveries = 0;
};

// One frame as the callback saw it.
struct Frame {
    long size = 0;
    long long timestamp = 0;
    void* userData = nullptr;
    bool counterDecoded = false;
    uint32_t counter = 0;
    unsigned char head[2] = {};
};

// The receiver of the capture callback. Thread-safe: frames come on the streaming thread.
class FrameLog {
public:
    // Frames are read for the virtual camera's counter as frames of this subtype.
    explicit FrameLog(const GUID& subtype) : m_subtype(subtype) {}
    void Take(const unsigned char* bits, long size, long long timestamp, void* userData);
    DShow::VideoCapture::FrameCallback Callback();
    bool WaitForFrames(size_t count);
    std::vector<Frame> Frames();

private:
    GUID m_subtype;
    std::mutex m_mutex;
    std::condition_variable m_arrived;
    std::vector<Frame> m_frames;
};

class CaptureTest : public VirtualCameraTests::VirtualCameraTest {
protected:
    // Registers a camera with the given mode and fault lines and returns the
    // device to ask for, found by its DevicePath.
    DShow::VideoDevice AddCamera(const std::wstring& lines);
    // The instance name of the camera AddCamera registered last.
    const std::wstring& LastCameraName() const { return m_lastName; }
    // The connection type of the capture filter's output pin (the capture format in force).
    static bool CaptureConnectionInterval(TestableCapture& capture, REFERENCE_TIME* interval);

private:
    int m_cameras = 0;
    std::wstring m_lastName;
};

// A graph control whose every answer the test sets. Wine's graph answers S_OK to Run even when
// a filter refuses to run, and never fails Stop, Pause or GetState: these answers need a stand-in.
class ScriptedMediaControl final : public IMediaControl {
public:
    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_refs; }
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                        UINT*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP Run() override { return runResult; }
    STDMETHODIMP Pause() override { return pauseResult; }
    STDMETHODIMP Stop() override { return stopResult; }
    STDMETHODIMP GetState(LONG timeout, OAFilterState* state) override;
    STDMETHODIMP RenderFile(BSTR) override { return E_NOTIMPL; }
    STDMETHODIMP AddSourceFilter(BSTR, IDispatch**) override { return E_NOTIMPL; }
    STDMETHODIMP get_FilterCollection(IDispatch**) override { return E_NOTIMPL; }
    STDMETHODIMP get_RegFilterCollection(IDispatch**) override { return E_NOTIMPL; }
    STDMETHODIMP StopWhenReady() override { return E_NOTIMPL; }

    HRESULT runResult = S_OK;
    HRESULT pauseResult = S_OK;
    HRESULT stopResult = S_OK;
    HRESULT stateResult = S_OK;
    OAFilterState state = State_Stopped;
    LONG lastTimeout = -1;

private:
    ULONG m_refs = 1;
};

// An event queue that plays a script of answers. Wine's queue only ever fails GetEvent with
// E_ABORT (empty), so a failure of another kind needs a stand-in.
class ScriptedMediaEvent final : public IMediaEvent {
public:
    struct Answer {
        HRESULT result;
        long code;
        LONG_PTR param1;
        LONG_PTR param2;
    };
    struct Freed {
        long code;
        LONG_PTR param1;
        LONG_PTR param2;
    };

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override { return ++m_refs; }
    STDMETHODIMP_(ULONG) Release() override;
    STDMETHODIMP GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
    STDMETHODIMP GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
    STDMETHODIMP GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                        UINT*) override {
        return E_NOTIMPL;
    }
    STDMETHODIMP GetEventHandle(OAEVENT*) override { return E_NOTIMPL; }
    // Plays the next answer; a failure leaves the three values alone. E_ABORT once the script
    // is played.
    STDMETHODIMP GetEvent(long* code, LONG_PTR* param1, LONG_PTR* param2, long timeout) override;
    STDMETHODIMP WaitForCompletion(long, long*) override { return E_NOTIMPL; }
    STDMETHODIMP CancelDefaultHandling(long) override { return E_NOTIMPL; }
    STDMETHODIMP RestoreDefaultHandling(long) override { return E_NOTIMPL; }
    STDMETHODIMP FreeEventParams(long code, LONG_PTR param1, LONG_PTR param2) override;

    std::vector<Answer> script;
    std::vector<Freed> freed;
    int getEventCalls = 0;

private:
    size_t m_next = 0;
    ULONG m_refs = 1;
};

}  // namespace CaptureTests
