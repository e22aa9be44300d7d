#pragma once
// The virtual camera's property page: the test pattern, its brightness and the frame counter of
// the picture, applied to the running stream. The property frame of the platform creates it by
// its class (CLSID_VirtualCameraPicturePage, registered by DllRegisterServer next to the filter)
// when it shows the pages that the filter's ISpecifyPropertyPages names.
//
// References (who holds whom):
//   - The frame holds the page (counted) while it shows it, and the page holds the frame's page
//     site (counted) from SetPageSite until SetPageSite(null) or its end.
//   - The page holds the filter through its IVirtualCameraPicture (counted) from SetObjects
//     until SetObjects(0, ...) or its end; the filter does not know the page.
//   - The page owns its dialog window from Activate until Deactivate (or its end).
//
// Threads: every IPropertyPage call comes on the frame's thread, which also owns the page's
// window and runs its dialog procedure; Apply hands the values to the filter from there. The
// streaming thread reads them on its own, from the filter (PictureControl.h).
//
// Locks: none of its own. The page's members are touched on the frame's thread only; the filter
// guards the values it is given.

#include <windows.h>
#include <ocidl.h>
#include <wrl/client.h>

#include <vector>

#include "tools/VirtualCamera/Config/PictureSettings.h"
#include "tools/VirtualCamera/Filter/ComObject.h"

namespace VirtualCamera {

class PicturePage final : public SingleInterfaceObject<IPropertyPage, &IID_IPropertyPage> {
public:
    PicturePage();

    // IPropertyPage
    STDMETHODIMP SetPageSite(IPropertyPageSite* site) override;
    STDMETHODIMP Activate(HWND parent, LPCRECT rect, BOOL modal) override;
    STDMETHODIMP Deactivate() override;
    STDMETHODIMP GetPageInfo(PROPPAGEINFO* info) override;
    STDMETHODIMP SetObjects(ULONG count, IUnknown** objects) override;
    STDMETHODIMP Show(UINT command) override;
    STDMETHODIMP Move(LPCRECT rect) override;
    STDMETHODIMP IsPageDirty() override;
    STDMETHODIMP Apply() override;
    STDMETHODIMP Help(LPCOLESTR helpDirectory) override;
    STDMETHODIMP TranslateAccelerator(MSG* message) override;

private:
    ~PicturePage() override;

    static INT_PTR CALLBACK DialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
    INT_PTR OnMessage(UINT message, WPARAM wParam, LPARAM lParam);
    // Puts `settings` into the controls, and reads them back.
    void ShowSettings(const PictureSettings& settings);
    PictureSettings ReadControls() const;
    void ShowBrightnessValue(int brightness);
    void MarkDirty();

    Microsoft::WRL::ComPtr<IPropertyPageSite> m_site;
    Microsoft::WRL::ComPtr<IVirtualCameraPicture> m_picture;
    // The values the page shows while it has no window, and starts its window with.
    PictureSettings m_settings;
    HWND m_window = nullptr;
    bool m_dirty = false;
    std::vector<WORD> m_template;
};

}  // namespace VirtualCamera
