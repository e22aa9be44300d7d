// The virtual camera's property page, driven in this process as a property frame would drive it:
// created by its class, given the camera, activated on a window, its controls changed by
// messages, and applied to a running stream whose next frames change.

#include <windows.h>

#include <commctrl.h>
#include <dshow.h>
#include <ocidl.h>

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "DisplaySupport.h"
#include "DShowCapture/ComHelpers.h"
#include "VirtualCameraFixture.h"
#include "tests/support/ComCount.h"
#include "tools/VirtualCamera/Config/PictureSettings.h"

using namespace VirtualCamera;
using VirtualCameraTests::CaptureGraph;
using VirtualCameraTests::ComPtr;
using VirtualCameraTests::ReceivedFrame;

namespace {

using TestSupport::CountOf;

constexpr LONG kWidth = 160;
constexpr LONG kHeight = 120;
const wchar_t kMode[] = L"mode = YUY2 videoinfo 160 120 333333\n";

// The luma bytes of a YUY2 frame.
std::vector<BYTE> LumaOf(const ReceivedFrame& frame) {
    std::vector<BYTE> luma;
    for (size_t i = 0; i < frame.bytes.size(); i += 2) {
        luma.push_back(frame.bytes[i]);
    }
    return luma;
}

class CameraPicturePage : public VirtualCameraTests::VirtualCameraTest {
protected:
    void SetUp() override {
        VirtualCameraTest::SetUp();
        ASSERT_TRUE(DisplayTests::HasDisplay())
            << "these tests open windows: run them in a display (scripts/with-display.sh)";
    }

    std::wstring AddCamera() {
        const std::wstring name = UniqueName();
        AddDevices(L"[device " + name + L"]\n" + kMode);
        return name;
    }

    static ComPtr<IPropertyPage> CreatePage() {
        ComPtr<IPropertyPage> page;
        EXPECT_EQ(
            CoCreateInstance(CLSID_VirtualCameraPicturePage, nullptr, CLSCTX_INPROC_SERVER,
                             IID_IPropertyPage, reinterpret_cast<void**>(page.GetAddressOf())),
            S_OK);
        return page;
    }

    // Gives the page `camera` and activates it on `host`; returns the page's window.
    static HWND ActivateOn(IPropertyPage* page, IBaseFilter* camera, HWND host) {
        IUnknown* objects[] = {camera};
        EXPECT_EQ(page->SetObjects(1, objects), S_OK);
        RECT rect = {0, 0, 400, 150};
        EXPECT_EQ(page->Activate(host, &rect, TRUE), S_OK);
        EXPECT_EQ(page->Show(SW_SHOW), S_OK);
        return GetWindow(host, GW_CHILD);
    }

    static PictureSettings PictureOf(IBaseFilter* camera) {
        ComPtr<IVirtualCameraPicture> picture;
        PictureSettings settings;
        EXPECT_EQ(camera->QueryInterface(IID_IVirtualCameraPicture,
                                         reinterpret_cast<void**>(picture.GetAddressOf())),
                  S_OK);
        if (picture) {
            EXPECT_EQ(picture->GetPicture(&settings), S_OK);
        }
        return settings;
    }

    // The controls, changed the way a person's input changes them: the value first, then the
    // notification that the control sends its dialog.
    static void ChoosePattern(HWND pageWindow, TestPattern pattern) {
        const HWND combo = GetDlgItem(pageWindow, kPatternComboId);
        SendMessageW(combo, CB_SETCURSEL, static_cast<WPARAM>(pattern), 0);
        SendMessageW(pageWindow, WM_COMMAND, MAKEWPARAM(kPatternComboId, CBN_SELCHANGE),
                     reinterpret_cast<LPARAM>(combo));
    }
    static void SlideBrightness(HWND pageWindow, int brightness) {
        const HWND slider = GetDlgItem(pageWindow, kBrightnessSliderId);
        SendMessageW(slider, TBM_SETPOS, TRUE, brightness);
        SendMessageW(pageWindow, WM_HSCROLL, MAKEWPARAM(TB_THUMBPOSITION, brightness),
                     reinterpret_cast<LPARAM>(slider));
    }
    static void ClickFrameCounter(HWND pageWindow) {
        SendMessageW(GetDlgItem(pageWindow, kFrameCounterCheckId), BM_CLICK, 0, 0);
    }
};

TEST_F(CameraPicturePage, TheRegisteredClassMakesAPageThatDescribesItself) {
    ComPtr<IPropertyPage> page = CreatePage();
    ASSERT_TRUE(page);
    PROPPAGEINFO info = {};
    ASSERT_EQ(page->GetPageInfo(&info), S_OK);
    EXPECT_EQ(info.cb, sizeof(PROPPAGEINFO));
    ASSERT_NE(info.pszTitle, nullptr);
    EXPECT_EQ(std::wstring(info.pszTitle), L"Test Picture");
    EXPECT_GT(info.size.cx, 0);
    EXPECT_GT(info.size.cy, 0);
    EXPECT_EQ(info.pszDocString, nullptr);
    EXPECT_EQ(info.pszHelpFile, nullptr);
    CoTaskMemFree(info.pszTitle);
    EXPECT_EQ(page->Help(nullptr), E_NOTIMPL);
    EXPECT_EQ(page->Apply(), E_UNEXPECTED);  // no camera given yet
    EXPECT_EQ(page->Show(SW_SHOW), E_UNEXPECTED);
    EXPECT_EQ(page->Deactivate(), E_UNEXPECTED);
    EXPECT_EQ(CountOf(page.Get()), 1u);
}

TEST_F(CameraPicturePage, AnObjectThatIsNoCameraIsRefused) {
    ComPtr<IPropertyPage> page = CreatePage();
    ASSERT_TRUE(page);
    ComPtr<VirtualCameraTests::FrameSink> sink =
        DShow::AdoptReference(new VirtualCameraTests::FrameSink());
    IUnknown* objects[] = {static_cast<IBaseFilter*>(sink.Get())};
    EXPECT_EQ(page->SetObjects(1, objects), E_NOINTERFACE);
    EXPECT_EQ(page->Apply(), E_UNEXPECTED);
    EXPECT_EQ(CountOf(sink.Get()), 1u);
}

TEST_F(CameraPicturePage, ActivatedOnAWindowItShowsTheCamerasPicture) {
    const std::wstring name = AddCamera();
    ComPtr<IBaseFilter> camera = BindFilterOrFail(name);
    ASSERT_TRUE(camera);
    const ULONG cameraReferences = CountOf(camera.Get());
    DisplayTests::HostWindow host(500, 250);
    ASSERT_NE(host.Get(), nullptr);
    ComPtr<IPropertyPage> page = CreatePage();
    ASSERT_TRUE(page);

    const HWND window = ActivateOn(page.Get(), camera.Get(), host.Get());

    ASSERT_NE(window, nullptr);
    EXPECT_TRUE(IsWindowVisible(window));
    const HWND combo = GetDlgItem(window, kPatternComboId);
    ASSERT_NE(combo, nullptr);
    EXPECT_EQ(SendMessageW(combo, CB_GETCOUNT, 0, 0), 3);
    EXPECT_EQ(SendMessageW(combo, CB_GETCURSEL, 0, 0), 0);
    wchar_t item[64] = {};
    SendMessageW(combo, CB_GETLBTEXT, 2, reinterpret_cast<LPARAM>(item));
    EXPECT_EQ(std::wstring(item), L"Checkerboard");
    const HWND slider = GetDlgItem(window, kBrightnessSliderId);
    EXPECT_EQ(SendMessageW(slider, TBM_GETRANGEMIN, 0, 0), 0);
    EXPECT_EQ(SendMessageW(slider, TBM_GETRANGEMAX, 0, 0), 255);
    EXPECT_EQ(SendMessageW(slider, TBM_GETPOS, 0, 0), 128);
    EXPECT_EQ(DisplayTests::WindowText(GetDlgItem(window, kBrightnessValueId)), L"128");
    EXPECT_EQ(IsDlgButtonChecked(window, kFrameCounterCheckId), BST_CHECKED);
    EXPECT_EQ(page->IsPageDirty(), S_FALSE);
    EXPECT_EQ(page->Activate(host.Get(), nullptr, TRUE), E_UNEXPECTED);

    EXPECT_EQ(page->Deactivate(), S_OK);
    EXPECT_EQ(GetWindow(host.Get(), GW_CHILD), nullptr);
    EXPECT_EQ(page->SetObjects(0, nullptr), S_OK);
    EXPECT_EQ(CountOf(camera.Get()), cameraReferences);
}

TEST_F(CameraPicturePage, ApplyTurnsTheRunningStreamIntoAFlatFieldWithoutCounter) {
    const std::wstring name = AddCamera();
    CaptureGraph graph;
    BuildGraph(name, &graph);
    graph.sink->KeepBytes(true);
    ASSERT_EQ(graph.control->Run(), S_OK);
    ASSERT_TRUE(graph.sink->WaitForFrames(3, DisplayTests::kStateDeadlineMs));
    const ULONG cameraReferences = CountOf(graph.camera.Get());
    DisplayTests::HostWindow host(500, 250);
    ComPtr<IPropertyPage> page = CreatePage();
    ASSERT_TRUE(page);
    const HWND window = ActivateOn(page.Get(), graph.camera.Get(), host.Get());
    ASSERT_NE(window, nullptr);

    ChoosePattern(window, TestPattern::kFlatField);
    SlideBrightness(window, 200);
    ClickFrameCounter(window);
    EXPECT_EQ(DisplayTests::WindowText(GetDlgItem(window, kBrightnessValueId)), L"200");
    EXPECT_EQ(page->IsPageDirty(), S_OK);
    // Nothing changes before Apply.
    EXPECT_EQ(PictureOf(graph.camera.Get()), PictureSettings());
    const size_t framesBefore = graph.sink->FrameCount();

    ASSERT_EQ(page->Apply(), S_OK);

    EXPECT_EQ(page->IsPageDirty(), S_FALSE);
    const PictureSettings applied = PictureOf(graph.camera.Get());
    EXPECT_EQ(applied.pattern, TestPattern::kFlatField);
    EXPECT_EQ(applied.brightness, 200);
    EXPECT_EQ(applied.frameCounter, FALSE);
    // One frame may have been painted before Apply and still be on its way; the ones after it
    // show the new picture.
    ASSERT_TRUE(graph.sink->WaitForFrames(framesBefore + 3, DisplayTests::kStateDeadlineMs));
    const std::vector<ReceivedFrame> frames = graph.sink->Frames();
    graph.control->Stop();
    EXPECT_TRUE(frames.front().counterDecoded);
    const std::vector<BYTE> lumaBefore = LumaOf(frames.front());
    EXPECT_GT(std::set<BYTE>(lumaBefore.begin(), lumaBefore.end()).size(), 2u);
    const ReceivedFrame& last = frames.back();
    ASSERT_EQ(last.bytes.size(), static_cast<size_t>(kWidth * kHeight * 2));
    const std::vector<BYTE> luma = LumaOf(last);
    EXPECT_EQ(std::set<BYTE>(luma.begin(), luma.end()), std::set<BYTE>{200});

    EXPECT_EQ(page->Deactivate(), S_OK);
    page.Reset();
    EXPECT_EQ(CountOf(graph.camera.Get()), cameraReferences);
}

TEST_F(CameraPicturePage, ACheckerboardDarkenedByTheSliderKeepsItsCounter) {
    const std::wstring name = AddCamera();
    CaptureGraph graph;
    BuildGraph(name, &graph);
    graph.sink->KeepBytes(true);
    ASSERT_EQ(graph.control->Run(), S_OK);
    ASSERT_TRUE(graph.sink->WaitForFrames(1, DisplayTests::kStateDeadlineMs));
    DisplayTests::HostWindow host(500, 250);
    ComPtr<IPropertyPage> page = CreatePage();
    ASSERT_TRUE(page);
    const HWND window = ActivateOn(page.Get(), graph.camera.Get(), host.Get());
    ASSERT_NE(window, nullptr);

    ChoosePattern(window, TestPattern::kCheckerboard);
    SlideBrightness(window, 100);
    const size_t framesBefore = graph.sink->FrameCount();
    ASSERT_EQ(page->Apply(), S_OK);

    ASSERT_TRUE(graph.sink->WaitForFrames(framesBefore + 3, DisplayTests::kStateDeadlineMs));
    const std::vector<ReceivedFrame> frames = graph.sink->Frames();
    graph.control->Stop();
    const ReceivedFrame& last = frames.back();
    EXPECT_TRUE(last.counterDecoded);
    EXPECT_EQ(last.counter, frames[frames.size() - 2].counter + 1);
    // Past the counter's pixels, only the squares' two levels, each 28 below its usual 60 and
    // 180.
    const std::vector<BYTE> luma = LumaOf(last);
    ASSERT_EQ(luma.size(), static_cast<size_t>(kWidth * kHeight));
    EXPECT_EQ(std::set<BYTE>(luma.begin() + kWidth, luma.end()), (std::set<BYTE>{32, 152}));
    EXPECT_EQ(page->Deactivate(), S_OK);
}

}  // namespace
