#pragma once
// Tests of the decoder stand-ins: the virtual camera's fixture (COM per test, devices removed
// after each test), with the stand-ins installed into the prefix for each suite, and removed
// again after it when they were not there before: other test programs find the prefix as it
// was, whatever order they run in.

#include <windows.h>
#include <dshow.h>

#include <string>

#include "tests/VirtualCamera/VirtualCameraFixture.h"

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
    static bool s_installedBefore;
    int m_cameras = 0;
};

// Installs the stand-ins; a test that uninstalls them puts them back with this.
void InstallOrFail();

// The first filter of the graph created from `clsid`, or null.
ComPtr<IBaseFilter> FindFilterOfClass(IFilterGraph* graph, const CLSID& clsid);
// The first pin of a filter with this direction, or null.
ComPtr<IPin> PinOf(IBaseFilter* filter, PIN_DIRECTION direction);
// Stops the graph, and then each of its filters by itself: when a filter fails to pause, Wine's
// graph fails Run but counts itself stopped, so its Stop leaves the filters that did pause
// paused, and its release then waits forever for them to let go of their connections.
void StopGraphAndEveryFilter(IGraphBuilder* graph);
// The count of a COM object as AddRef and Release report it (both return it).
ULONG ReferenceCount(IUnknown* object);

}  // namespace DecoderTests
