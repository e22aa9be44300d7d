#pragma once
// Shared test scaffolding: COM per test, devices registered per test and removed afterwards,
// and short-cuts to the device enumerator, the camera filter and its pin.

#include <windows.h>
#include <dshow.h>
#include <wrl/client.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FrameSink.h"

namespace VirtualCameraTests {

using Microsoft::WRL::ComPtr;

// How long a test waits for a state it expects (frames arriving, a graph event, a child program
// ending). Only a hang reaches it, also on a machine that runs many times slower than usual.
inline constexpr DWORD kStateDeadlineMs = 60000;

// The null renderer of the DirectShow editing services (qedit),
// {C1F400A4-3F08-11D3-9F0B-006008039E37}.
inline constexpr GUID kNullRendererClsid = {
    0xc1f400a4, 0x3f08, 0x11d3, {0x9f, 0x0b, 0x00, 0x60, 0x08, 0x03, 0x9e, 0x37}};

// A value read from a device's property bag, with the type the bag returned.
struct BagValue {
    bool present = false;
    VARTYPE type = VT_EMPTY;
    std::wstring text;
    LONG number = 0;
};

// A graph of one virtual camera and a FrameSink.
struct CaptureGraph {
    ComPtr<IGraphBuilder> graph;
    ComPtr<IMediaControl> control;
    ComPtr<IMediaEvent> events;
    ComPtr<IBaseFilter> camera;
    ComPtr<FrameSink> sink;
    ~CaptureGraph();
};

class VirtualCameraTest : public ::testing::Test {
protected:
    static void SetUpTestSuite();
    void SetUp() override;
    void TearDown() override;

    // Registers the devices of a description; they are removed when the test ends.
    void AddDevices(const std::wstring& description);
    // A per-test instance name, so tests never see each other's devices.
    std::wstring UniqueName(const std::wstring& suffix = L"") const;
    // Registers one device of `settings` under a per-test name of its own and returns the name.
    std::wstring AddDevice(const std::wstring& settings);

    ComPtr<IMoniker> FindMoniker(const std::wstring& instanceName);
    HRESULT BindFilter(const std::wstring& instanceName, ComPtr<IBaseFilter>* filter);
    ComPtr<IBaseFilter> BindFilterOrFail(const std::wstring& instanceName);
    BagValue ReadBag(const std::wstring& instanceName, const wchar_t* property);
    ComPtr<IPin> OutputPin(IBaseFilter* filter);
    ComPtr<IAMStreamConfig> StreamConfig(const std::wstring& instanceName);

    // Builds camera -> FrameSink (connected directly); the camera keeps its first mode unless
    // `modeIndex` picks another through SetFormat first.
    void BuildGraph(const std::wstring& instanceName, CaptureGraph* graph, int modeIndex = -1);
    // Drops the queued events and returns the codes seen.
    std::vector<long> DrainEvents(IMediaEvent* events);
    // Waits for one event code; false on timeout.
    bool WaitForEvent(IMediaEvent* events, long code, DWORD timeoutMs, LONG_PTR* param1 = nullptr);
    // Runs the graph until `frames` more frames arrived, stops it and returns all frames so far.
    static std::vector<ReceivedFrame> RunFor(CaptureGraph* graph, size_t frames);

private:
    bool comInitialized_ = false;
    std::vector<std::wstring> addedDevices_;
    int deviceCount_ = 0;
};

LONGLONG NowMilliseconds();

// Runs a program from the test's own directory; returns its exit code, or -1.
DWORD RunProgram(const std::wstring& program, const std::wstring& arguments,
                 DWORD timeoutMs = 2 * kStateDeadlineMs, const std::string& input = std::string(),
                 std::string* output = nullptr);

}  // namespace VirtualCameraTests
