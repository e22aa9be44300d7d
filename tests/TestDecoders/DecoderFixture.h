#pragma once
// Tests of the decoder stand-ins: the virtual camera's fixture (COM per test, devices removed
// after each test), with the stand-ins installed into the prefix for each suite, and removed
// again after it when they were not there before: other test programs find the prefix as it
// was, whatever order they run in.

#include <windows.h>
#include <dshow.h>

#include <string>

#include "tests/VirtualCamera/VirtualCameraFixture.h"
#include "tools/TestDecoders/TestDecodersSetup.h"

namespace DecoderTests {

using Microsoft::WRL::ComPtr;
using VirtualCameraTests::kStateDeadlineMs;

class DecoderTest : public VirtualCameraTests::VirtualCameraTest {
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();

    // Registers one camera with these settings lines; returns its instance name.
    std::wstring AddCamera(const std::wstring& settings);

private:
    static TestDecoders::ScopedDecoderInstall s_decoders;
    int m_cameras = 0;
};

// Installs the stand-ins; a test that uninstalls them puts them back with this.
void InstallOrFail();

// The codec's input formats, as biCompression names them.
inline constexpr DWORD kYuy2 = MAKEFOURCC('Y', 'U', 'Y', '2');
inline constexpr DWORD kUyvy = MAKEFOURCC('U', 'Y', 'V', 'Y');
inline constexpr DWORD kI420 = MAKEFOURCC('I', '4', '2', '0');
inline constexpr DWORD kIyuv = MAKEFOURCC('I', 'Y', 'U', 'V');
inline constexpr DWORD kYv12 = MAKEFOURCC('Y', 'V', '1', '2');
inline constexpr DWORD kNv12 = MAKEFOURCC('N', 'V', '1', '2');
inline constexpr DWORD kMjpg = MAKEFOURCC('M', 'J', 'P', 'G');

// A header of one plane with these fields, and every other field zero.
BITMAPINFOHEADER Header(DWORD compression, WORD bitCount, LONG width, LONG height);

// The open count the codec keeps (its export TestCodecOpenInstances), while the system has it
// loaded; kCodecNotLoaded once the system has unloaded it, kCodecWithoutCount when the loaded
// DLL does not export the count.
inline constexpr LONG kCodecNotLoaded = -1;
inline constexpr LONG kCodecWithoutCount = -2;
LONG CodecInstancesOpen();

using DllCanUnloadNowFunction = HRESULT(STDAPICALLTYPE*)();
// The DllCanUnloadNow a loaded module exports, or null.
DllCanUnloadNowFunction DllCanUnloadNowOf(HMODULE module);

// The first filter of the graph created from `clsid`, or null.
ComPtr<IBaseFilter> FindFilterOfClass(IFilterGraph* graph, const CLSID& clsid);
// The first pin of a filter with this direction, or null.
ComPtr<IPin> PinOf(IBaseFilter* filter, PIN_DIRECTION direction);
// Puts a new filter of class `decoderClass` into `graph` between the camera's `capturePin` and a
// sink's `sinkInput`, the way the capture library inserts a decoder: the capture pin to the
// decoder with the camera's own type, then the decoder to the sink with whatever type the two
// agree on. Call it in ASSERT_NO_FATAL_FAILURE.
void ConnectThroughDecoderOrFail(IGraphBuilder* graph, IPin* capturePin, const CLSID& decoderClass,
                                 IPin* sinkInput, ComPtr<IBaseFilter>* decoder);
// Stops the graph, and then each of its filters by itself: when a filter fails to pause, Wine's
// graph fails Run but counts itself stopped, so its Stop leaves the filters that did pause
// paused, and its release then waits forever for them to let go of their connections.
void StopGraphAndEveryFilter(IGraphBuilder* graph);
// The count of a COM object as AddRef and Release report it (both return it).
ULONG ReferenceCount(IUnknown* object);

}  // namespace DecoderTests
