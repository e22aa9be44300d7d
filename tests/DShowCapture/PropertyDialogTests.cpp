// Property dialogs on threads of their own, with the virtual camera's real property frame in a
// virtual display: one dialog thread per filter, found in the registry and by its windows;
// closed by CloseProperty, by the person (the frame's close box and Cancel) and by
// Uninitialize; and what a failing frame leaves behind.

#include <windows.h>

#include <dshow.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "CaptureTestSupport.h"
#include "DShowCapture/DShowPropertyDlg.h"
#include "DisplaySupport.h"
#include "FakeCom.h"
#include "TinyFramework/Common/TinyLock.h"
#include "tools/VirtualCamera/Config/PictureSettings.h"

using namespace DShow;
using namespace CaptureTests;
using DisplayTests::ThreadHandle;

namespace {

const wchar_t kCameraModes[] = L"mode = YUY2 videoinfo 160 120 333333\n";
const char kShowPrefix[] = "[DShowPropertyDlg] ShowProperty ThreadID(";
const char kExitPrefix[] = "[DShowPropertyDlg] Exit ThreadID(";

std::string ShowRecord(DWORD threadId) {
    return kShowPrefix + std::to_string(threadId) + ")";
}

std::string ExitRecord(DWORD threadId) {
    return kExitPrefix + std::to_string(threadId) + ")";
}

size_t RegistryEntries() {
    TinyFramework::TinyAutoLock lock(g_propertyDialogRegistry);
    return g_propertyDialogRegistry.Threads().size();
}

// The dialog thread registered for `filter`; 0 when there is none.
DWORD RegisteredThread(IBaseFilter* filter) {
    TinyFramework::TinyAutoLock lock(g_propertyDialogRegistry);
    const auto found = g_propertyDialogRegistry.Threads().find(filter);
    return found == g_propertyDialogRegistry.Threads().end() ? 0 : found->second;
}

// The records of the dialogs, in order; other components log too.
std::vector<std::string> DialogMessages(const TestSupport::LogCapture& log) {
    std::vector<std::string> messages;
    for (const std::string& message : log.Messages()) {
        if (message.rfind("[DShowPropertyDlg]", 0) == 0) {
            messages.push_back(message);
        }
    }
    return messages;
}

class PropertyDialog : public CaptureTest {
protected:
    void SetUp() override {
        CaptureTest::SetUp();
        ASSERT_TRUE(DisplayTests::HasDisplay())
            << "these tests open windows: run them in a display (scripts/with-display.sh)";
        ASSERT_EQ(RegistryEntries(), 0u) << "a dialog of an earlier test is still registered";
    }

    // Builds the graph of a new camera and gives its capture filter.
    ComPtr<IBaseFilter> InitializeCamera(TestableCapture& capture) {
        const VideoDevice device = AddCamera(kCameraModes);
        EXPECT_TRUE(capture.Initialize(device));
        return capture.CaptureFilter();
    }

    // Shows the filter's frame through the registry's own entry point and waits until its window
    // is on the screen; gives the dialog thread's id (0 on failure).
    static DWORD ShowAndWaitForFrame(const ComPtr<IBaseFilter>& filter, HWND* frame) {
        EXPECT_TRUE(ShowProperty(filter, nullptr));
        const DWORD threadId = RegisteredThread(filter.Get());
        EXPECT_NE(threadId, 0u);
        *frame = DisplayTests::WaitForWindowOfThread(threadId);
        EXPECT_NE(*frame, nullptr) << "no frame window on the dialog thread";
        return threadId;
    }

    static bool WaitForMessage(const TestSupport::LogCapture& log, const std::string& message) {
        return DisplayTests::WaitUntil([&] { return log.Contains(message); });
    }
};

TEST_F(PropertyDialog, ShowPropertyBeforeInitializeIsTrueWithNoThreadAndNoRecord) {
    TestSupport::LogCapture log;
    TestableCapture capture;
    EXPECT_EQ(capture.ShowProperty(nullptr), TRUE);
    EXPECT_EQ(RegistryEntries(), 0u);
    EXPECT_FALSE(capture.IsPropertyShown());
    EXPECT_EQ(log.Messages(), std::vector<std::string>());
}

TEST_F(PropertyDialog, ShowOpensTheFrameOnTheRegisteredThreadItLogs) {
    TestableCapture capture;
    const ComPtr<IBaseFilter> camera = InitializeCamera(capture);
    ASSERT_TRUE(camera);
    FILTER_INFO info = {};
    ASSERT_EQ(camera->QueryFilterInfo(&info), S_OK);
    if (info.pGraph) info.pGraph->Release();
    TestSupport::LogCapture log;

    EXPECT_EQ(capture.ShowProperty(nullptr), TRUE);
    const DWORD threadId = RegisteredThread(camera.Get());
    ASSERT_NE(threadId, 0u);
    ThreadHandle thread(threadId);
    EXPECT_NE(threadId, GetCurrentThreadId());
    EXPECT_TRUE(capture.IsPropertyShown());
    EXPECT_TRUE(IsPropertyShown(camera.Get()));
    EXPECT_EQ(DialogMessages(log), std::vector<std::string>{ShowRecord(threadId)});
    const HWND frame = DisplayTests::WaitForWindowOfThread(threadId);
    ASSERT_NE(frame, nullptr);
    // The caption names the filter as the graph knows it.
    EXPECT_NE(DisplayTests::WindowText(frame).find(info.achName), std::wstring::npos);
    EXPECT_NE(DisplayTests::FindDescendant(frame, VirtualCamera::kPatternComboId), nullptr);

    CloseProperty(camera);
    EXPECT_TRUE(thread.WaitForEnd());
}

TEST_F(PropertyDialog, ShowTwiceFromOneThreadKeepsOneFrameOnOneThreadWithOneRecord) {
    TestableCapture capture;
    const ComPtr<IBaseFilter> camera = InitializeCamera(capture);
    ASSERT_TRUE(camera);
    TestSupport::LogCapture log;
    EXPECT_EQ(capture.ShowProperty(nullptr), TRUE);
    const DWORD threadId = RegisteredThread(camera.Get());
    ASSERT_NE(threadId, 0u);
    ThreadHandle thread(threadId);
    ASSERT_NE(DisplayTests::WaitForWindowOfThread(threadId), nullptr);

    EXPECT_EQ(capture.ShowProperty(nullptr), TRUE);

    EXPECT_EQ(RegistryEntries(), 1u);
    EXPECT_EQ(RegisteredThread(camera.Get()), threadId);
    EXPECT_EQ(DialogMessages(log), std::vector<std::string>{ShowRecord(threadId)});
    EXPECT_EQ(DisplayTests::VisibleWindowsOfThread(threadId).size(), 1u);
    CloseProperty(camera);
    EXPECT_TRUE(thread.WaitForEnd());
}

TEST_F(PropertyDialog, ClosePropertyEndsTheThreadWhichLogsAndLeavesTheRegistry) {
    TestableCapture capture;
    const ComPtr<IBaseFilter> camera = InitializeCamera(capture);
    ASSERT_TRUE(camera);
    const ULONG referencesBefore = CountOf(camera.Get());
    TestSupport::LogCapture log;
    HWND frame = nullptr;
    const DWORD threadId = ShowAndWaitForFrame(camera, &frame);
    ThreadHandle thread(threadId);
    ASSERT_TRUE(thread.IsOpen());

    CloseProperty(camera);

    ASSERT_TRUE(thread.WaitForEnd());
    EXPECT_EQ(DialogMessages(log),
              (std::vector<std::string>{ShowRecord(threadId), ExitRecord(threadId)}));
    EXPECT_FALSE(IsPropertyShown(camera.Get()));
    EXPECT_EQ(RegistryEntries(), 0u);
    EXPECT_FALSE(IsWindow(frame));
    // The thread's reference, the frame's and the page's have all gone back.
    EXPECT_EQ(CountOf(camera.Get()), referencesBefore);
}

TEST_F(PropertyDialog, ClosingTheFrameByItsCloseBoxEndsTheThread) {
    TestableCapture capture;
    const ComPtr<IBaseFilter> camera = InitializeCamera(capture);
    ASSERT_TRUE(camera);
    TestSupport::LogCapture log;
    HWND frame = nullptr;
    const DWORD threadId = ShowAndWaitForFrame(camera, &frame);
    ThreadHandle thread(threadId);
    ASSERT_NE(frame, nullptr);

    ASSERT_TRUE(PostMessageW(frame, WM_CLOSE, 0, 0));

    ASSERT_TRUE(thread.WaitForEnd());
    EXPECT_TRUE(log.Contains(ExitRecord(threadId)));
    EXPECT_FALSE(capture.IsPropertyShown());
    EXPECT_EQ(RegistryEntries(), 0u);
}

TEST_F(PropertyDialog, AfterThePersonCancelsTheFrameShowPropertyOpensANewOneOnANewThread) {
    TestableCapture capture;
    const ComPtr<IBaseFilter> camera = InitializeCamera(capture);
    ASSERT_TRUE(camera);
    TestSupport::LogCapture log;
    EXPECT_EQ(capture.ShowProperty(nullptr), TRUE);
    const DWORD firstId = RegisteredThread(camera.Get());
    // Held open, the first thread's id cannot go to the second one.
    ThreadHandle first(firstId);
    const HWND frame = DisplayTests::WaitForWindowOfThread(firstId);
    ASSERT_NE(frame, nullptr);
    const HWND cancel = GetDlgItem(frame, IDCANCEL);
    ASSERT_NE(cancel, nullptr);

    ASSERT_TRUE(PostMessageW(cancel, BM_CLICK, 0, 0));
    ASSERT_TRUE(first.WaitForEnd());
    EXPECT_EQ(RegistryEntries(), 0u);

    EXPECT_EQ(capture.ShowProperty(nullptr), TRUE);
    const DWORD secondId = RegisteredThread(camera.Get());
    ThreadHandle second(secondId);
    EXPECT_NE(secondId, 0u);
    EXPECT_NE(secondId, firstId);
    EXPECT_EQ(
        DialogMessages(log),
        (std::vector<std::string>{ShowRecord(firstId), ExitRecord(firstId), ShowRecord(secondId)}));
    EXPECT_NE(DisplayTests::WaitForWindowOfThread(secondId), nullptr);
    CloseProperty(camera);
    EXPECT_TRUE(second.WaitForEnd());
}

TEST_F(PropertyDialog, ClosePropertyOfAFilterWithoutDialogDoesNothing) {
    TestableCapture capture;
    const ComPtr<IBaseFilter> camera = InitializeCamera(capture);
    ASSERT_TRUE(camera);
    const ComPtr<IBaseFilter> sink = capture.Sink();
    ASSERT_TRUE(sink);
    TestSupport::LogCapture log;

    // With nothing open at all.
    CloseProperty(sink);
    CloseProperty(static_cast<IBaseFilter*>(nullptr));
    EXPECT_EQ(RegistryEntries(), 0u);
    EXPECT_EQ(DialogMessages(log), std::vector<std::string>());

    // With another filter's dialog open: that one stays.
    HWND frame = nullptr;
    const DWORD threadId = ShowAndWaitForFrame(camera, &frame);
    ThreadHandle thread(threadId);
    CloseProperty(sink);
    // A message that the frame's thread answers only after what was posted before it.
    DWORD_PTR answer = 0;
    ASSERT_NE(SendMessageTimeoutW(frame, WM_NULL, 0, 0, SMTO_NORMAL, DisplayTests::kStateDeadlineMs,
                                  &answer),
              0);
    EXPECT_FALSE(thread.WaitForEnd(0));
    EXPECT_EQ(RegisteredThread(camera.Get()), threadId);
    EXPECT_TRUE(IsWindowVisible(frame));
    EXPECT_EQ(DialogMessages(log), std::vector<std::string>{ShowRecord(threadId)});
    CloseProperty(camera);
    EXPECT_TRUE(thread.WaitForEnd());
}

TEST_F(PropertyDialog, ANewFilterAtTheAddressOfAClosedOneMeetsNoStaleEntry) {
    AddCamera(kCameraModes);
    // Filters bound by the test stand in no graph: the frame's caption is the device's name and
    // there is no graph reference to give back.
    ComPtr<IBaseFilter> camera = BindFilterOrFail(LastCameraName());
    ASSERT_TRUE(camera);
    IBaseFilter* const address = camera.Get();
    TestSupport::LogCapture log;
    HWND frame = nullptr;
    const DWORD firstId = ShowAndWaitForFrame(camera, &frame);
    ThreadHandle first(firstId);
    CloseProperty(camera);
    ASSERT_TRUE(first.WaitForEnd());
    ASSERT_FALSE(IsPropertyShown(address));
    camera.Reset();

    // The heap hands the freed block to the next filter of that size, sooner or later.
    std::vector<ComPtr<IBaseFilter>> others;
    ComPtr<IBaseFilter> again;
    for (int attempt = 0; attempt < 32 && !again; ++attempt) {
        ComPtr<IBaseFilter> bound = BindFilterOrFail(LastCameraName());
        ASSERT_TRUE(bound);
        if (bound.Get() == address) {
            again = bound;
        } else {
            others.push_back(bound);
        }
    }
    ASSERT_TRUE(again) << "no new filter came to lie at the old address";

    EXPECT_FALSE(IsPropertyShown(again.Get()));
    EXPECT_TRUE(ShowProperty(again, nullptr));
    const DWORD secondId = RegisteredThread(again.Get());
    ThreadHandle second(secondId);
    EXPECT_NE(secondId, 0u);
    EXPECT_NE(secondId, firstId);
    EXPECT_NE(DisplayTests::WaitForWindowOfThread(secondId), nullptr);
    EXPECT_EQ(DialogMessages(log).back(), ShowRecord(secondId));
    CloseProperty(again);
    EXPECT_TRUE(second.WaitForEnd());
}

TEST_F(PropertyDialog, UninitializeClosesAnOpenFrameAndTheFilterGetsEveryReferenceBack) {
    TestableCapture capture;
    const ComPtr<IBaseFilter> camera = InitializeCamera(capture);
    ASSERT_TRUE(camera);
    TestSupport::LogCapture log;
    EXPECT_EQ(capture.ShowProperty(nullptr), TRUE);
    const DWORD threadId = RegisteredThread(camera.Get());
    ThreadHandle thread(threadId);
    ASSERT_NE(DisplayTests::WaitForWindowOfThread(threadId), nullptr);

    capture.Uninitialize();

    ASSERT_TRUE(thread.WaitForEnd());
    EXPECT_TRUE(log.Contains(ExitRecord(threadId)));
    EXPECT_EQ(RegistryEntries(), 0u);
    EXPECT_TRUE(DisplayTests::WindowsOfThread(threadId).empty());
    // The graph, the capture object, the dialog thread and the frame have let go: the test's own
    // reference is the last one.
    EXPECT_EQ(CountOf(camera.Get()), 1u);
}

TEST_F(PropertyDialog, AFilterWithoutPropertyPagesCostsOneThreadAndOneRecord) {
    TestableCapture capture;
    ASSERT_TRUE(InitializeCamera(capture));
    // The library's own sink offers no property pages.
    const ComPtr<IBaseFilter> sink = capture.Sink();
    ASSERT_TRUE(sink);
    const ULONG referencesBefore = CountOf(sink.Get());
    TestSupport::LogCapture log;

    EXPECT_TRUE(ShowProperty(sink, nullptr));

    const std::vector<std::string> shown = log.RecordsContaining(kShowPrefix);
    ASSERT_EQ(shown.size(), 1u);
    const DWORD threadId = static_cast<DWORD>(strtoul(
        shown[0].substr(shown[0].find(kShowPrefix) + strlen(kShowPrefix)).c_str(), nullptr, 10));
    ASSERT_TRUE(WaitForMessage(log, ExitRecord(threadId)));
    const std::vector<std::string> failures =
        log.RecordsContaining("Failed to QueryInterface ISpecifyPropertyPages(0x80004002)");
    ASSERT_EQ(failures.size(), 1u);
    EXPECT_NE(failures[0].find(":ERROR]"), std::string::npos);
    EXPECT_EQ(log.Messages().size(), 3u);
    EXPECT_EQ(RegistryEntries(), 0u);
    EXPECT_TRUE(DisplayTests::WaitUntil([&] { return CountOf(sink.Get()) == referencesBefore; }));
}

TEST_F(PropertyDialog, TheOpenFrameHoldsTheCamerasPageAndItsPictureIsSaved) {
    TestableCapture capture;
    const ComPtr<IBaseFilter> camera = InitializeCamera(capture);
    ASSERT_TRUE(camera);
    HWND frame = nullptr;
    const DWORD threadId = ShowAndWaitForFrame(camera, &frame);
    ThreadHandle thread(threadId);
    ASSERT_NE(frame, nullptr);
    // The page is in the frame once its last control is.
    ASSERT_TRUE(DisplayTests::WaitUntil([&] {
        return DisplayTests::FindDescendant(frame, VirtualCamera::kFrameCounterCheckId) != nullptr;
    }));
    const HWND combo = DisplayTests::FindDescendant(frame, VirtualCamera::kPatternComboId);
    ASSERT_NE(combo, nullptr);
    DWORD_PTR selected = 99;
    ASSERT_NE(SendMessageTimeoutW(combo, CB_GETCURSEL, 0, 0, SMTO_NORMAL,
                                  DisplayTests::kStateDeadlineMs, &selected),
              0);
    EXPECT_EQ(selected, 0u);
    EXPECT_EQ(DisplayTests::WindowText(
                  DisplayTests::FindDescendant(frame, VirtualCamera::kBrightnessValueId)),
              L"128");

    const std::wstring path = DisplayTests::ArtifactsFolder() + L"\\property-frame.png";
    DeleteFileW(path.c_str());
    std::string error;
    EXPECT_TRUE(DisplayTests::SaveWindowPicture(frame, path, error)) << error;
    EXPECT_NE(GetFileAttributesW(path.c_str()), INVALID_FILE_ATTRIBUTES);

    CloseProperty(camera);
    EXPECT_TRUE(thread.WaitForEnd());
}

// A driver whose filter faults when it is referenced: a crash that no platform filter produces
// on request. It faults in AddRef once armed, which ShowProperty calls on the caller's thread
// when it hands the dialog thread its reference.
class FaultingFilter final : public IBaseFilter {
public:
    bool armed = false;

    STDMETHODIMP QueryInterface(REFIID iid, void** object) override {
        if (iid == IID_IUnknown || iid == IID_IBaseFilter) {
            *object = static_cast<IBaseFilter*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override {
        if (armed) {
            RaiseException(EXCEPTION_ACCESS_VIOLATION, 0, 0, nullptr);
        }
        return ++m_refs;
    }
    STDMETHODIMP_(ULONG) Release() override { return --m_refs; }  // lives on the test's stack
    STDMETHODIMP GetClassID(CLSID*) override { return E_NOTIMPL; }
    STDMETHODIMP Stop() override { return E_NOTIMPL; }
    STDMETHODIMP Pause() override { return E_NOTIMPL; }
    STDMETHODIMP Run(REFERENCE_TIME) override { return E_NOTIMPL; }
    STDMETHODIMP GetState(DWORD, FILTER_STATE*) override { return E_NOTIMPL; }
    STDMETHODIMP SetSyncSource(IReferenceClock*) override { return E_NOTIMPL; }
    STDMETHODIMP GetSyncSource(IReferenceClock**) override { return E_NOTIMPL; }
    STDMETHODIMP EnumPins(IEnumPins**) override { return E_NOTIMPL; }
    STDMETHODIMP FindPin(LPCWSTR, IPin**) override { return E_NOTIMPL; }
    STDMETHODIMP QueryFilterInfo(FILTER_INFO*) override { return E_NOTIMPL; }
    STDMETHODIMP JoinFilterGraph(IFilterGraph*, LPCWSTR) override { return E_NOTIMPL; }
    STDMETHODIMP QueryVendorInfo(LPWSTR*) override { return E_NOTIMPL; }

private:
    ULONG m_refs = 0;
};

TEST_F(PropertyDialog, AFaultInTheDriverMakesShowPropertyFalseAndIsLogged) {
    FaultingFilter filter;
    TestableCapture capture;
    capture.CaptureFilter() = &filter;
    filter.armed = true;
    TestSupport::LogCapture log;

    EXPECT_EQ(capture.ShowProperty(nullptr), FALSE);

    filter.armed = false;
    EXPECT_EQ(RegistryEntries(), 0u);
    // One record: the exception's backtrace, at ERROR; no dialog record.
    const std::vector<std::string> records = log.Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_NE(records[0].find(":ERROR]"), std::string::npos) << records[0];
    capture.CaptureFilter().Reset();
}

// The frame's own steps, on the test's thread. A GetPages that fails, or gives no page, is what
// no platform filter does on request: the fake filter stands in for such a driver.
TEST_F(PropertyDialog, AFrameWhoseGetPagesFailsLogsTheCodeAndShowsNothing) {
    auto filter = FakeCom::Own(new FakeCom::FakeFilter());
    filter->hasPropertyPages = true;
    filter->getPagesResult = E_OUTOFMEMORY;
    TestSupport::LogCapture log;
    EXPECT_FALSE(ShowPropertyFrame(filter.Get(), nullptr));
    EXPECT_EQ(log.Messages(),
              std::vector<std::string>{"Failed to QueryInterface GetPages(0x8007000E)"});
    EXPECT_EQ(filter->RefCount(), 1u);
}

TEST_F(PropertyDialog, AFrameWithoutPagesShowsNothingAndLogsNothing) {
    auto filter = FakeCom::Own(new FakeCom::FakeFilter());
    filter->hasPropertyPages = true;
    TestSupport::LogCapture log;
    EXPECT_FALSE(ShowPropertyFrame(filter.Get(), nullptr));
    EXPECT_EQ(log.Messages(), std::vector<std::string>());
    EXPECT_EQ(filter->RefCount(), 1u);
}

TEST_F(PropertyDialog, TheRegistryAddsOneEntryPerFilterAndRemovesIt) {
    auto filter = FakeCom::Own(new FakeCom::FakeFilter());
    IBaseFilter* key = filter.Get();
    AddPropertyThread(key, 7);
    AddPropertyThread(key, 8);
    EXPECT_TRUE(IsPropertyShown(key));
    EXPECT_EQ(RegisteredThread(key), 7u);
    EXPECT_EQ(RegistryEntries(), 1u);
    RemovePropertyThread(key);
    RemovePropertyThread(key);
    EXPECT_FALSE(IsPropertyShown(key));
    EXPECT_EQ(RegistryEntries(), 0u);
    // The key holds no reference.
    EXPECT_EQ(filter->RefCount(), 1u);
}

}  // namespace
