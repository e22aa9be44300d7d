#include "tools/VirtualCamera/Filter/PicturePage.h"

#include <commctrl.h>
#include <olectl.h>

#include <cstring>
#include <string>

#include "tools/VirtualCamera/Filter/ModuleLifetime.h"

namespace VirtualCamera {
namespace {

// The page's size in dialog units; GetPageInfo gives it in pixels.
constexpr short kPageWidthDlu = 220;
constexpr short kPageHeightDlu = 62;

// Predefined window classes of a dialog template, by their ordinals.
constexpr WORD kButtonClass = 0x0080;
constexpr WORD kStaticClass = 0x0082;
constexpr WORD kComboBoxClass = 0x0085;
// A control that nothing refers to.
constexpr WORD kNoId = 0xFFFF;

// Builds a dialog template in memory, as the resource compiler would lay it out: the header, the
// font, then each control on a DWORD boundary.
class TemplateBuilder {
public:
    TemplateBuilder(DWORD style, short cx, short cy, WORD pointSize, const wchar_t* font) {
        DLGTEMPLATE header = {};
        header.style = style;
        header.cx = cx;
        header.cy = cy;
        AppendRaw(&header, sizeof(header));
        m_words.push_back(0);  // no menu
        m_words.push_back(0);  // the default dialog class
        m_words.push_back(0);  // no title
        m_words.push_back(pointSize);
        AppendText(font);
    }

    void AddControl(DWORD style, short x, short y, short cx, short cy, WORD id, WORD atom,
                    const wchar_t* text) {
        AddItemHeader(style, x, y, cx, cy, id);
        m_words.push_back(0xFFFF);
        m_words.push_back(atom);
        FinishItem(text);
    }

    void AddControl(DWORD style, short x, short y, short cx, short cy, WORD id,
                    const wchar_t* className, const wchar_t* text) {
        AddItemHeader(style, x, y, cx, cy, id);
        AppendText(className);
        FinishItem(text);
    }

    std::vector<WORD> Take() { return std::move(m_words); }

private:
    void AddItemHeader(DWORD style, short x, short y, short cx, short cy, WORD id) {
        if (m_words.size() % 2 != 0) {
            m_words.push_back(0);
        }
        DLGITEMTEMPLATE item = {};
        item.style = style | WS_CHILD | WS_VISIBLE;
        item.x = x;
        item.y = y;
        item.cx = cx;
        item.cy = cy;
        item.id = id;
        AppendRaw(&item, sizeof(item));
        ++reinterpret_cast<DLGTEMPLATE*>(m_words.data())->cdit;
    }

    void FinishItem(const wchar_t* text) {
        AppendText(text);
        m_words.push_back(0);  // no creation data
    }

    void AppendRaw(const void* data, size_t bytes) {
        const size_t at = m_words.size();
        m_words.resize(at + (bytes + 1) / 2, 0);
        memcpy(m_words.data() + at, data, bytes);
    }

    void AppendText(const wchar_t* text) {
        for (; *text != L'\0'; ++text) {
            m_words.push_back(static_cast<WORD>(*text));
        }
        m_words.push_back(0);
    }

    std::vector<WORD> m_words;
};

std::vector<WORD> BuildPageTemplate() {
    TemplateBuilder page(DS_SETFONT | DS_CONTROL | WS_CHILD, kPageWidthDlu, kPageHeightDlu, 8,
                         L"MS Shell Dlg");
    page.AddControl(SS_LEFT, 7, 10, 58, 8, kNoId, kStaticClass, L"Test &pattern:");
    page.AddControl(CBS_DROPDOWNLIST | WS_VSCROLL | WS_TABSTOP, 68, 8, 110, 80, kPatternComboId,
                    kComboBoxClass, L"");
    page.AddControl(SS_LEFT, 7, 28, 58, 8, kNoId, kStaticClass, L"&Brightness:");
    page.AddControl(TBS_HORZ | TBS_NOTICKS | WS_TABSTOP, 64, 25, 118, 15, kBrightnessSliderId,
                    TRACKBAR_CLASSW, L"");
    page.AddControl(SS_LEFT, 186, 28, 26, 8, kBrightnessValueId, kStaticClass, L"");
    page.AddControl(BS_AUTOCHECKBOX | WS_TABSTOP, 7, 46, 160, 10, kFrameCounterCheckId,
                    kButtonClass, L"Frame &counter in the picture");
    return page.Take();
}

// The page's size in pixels, from the dialog units and the system's dialog base units.
SIZE PageSizeInPixels() {
    const LONG base = GetDialogBaseUnits();
    return SIZE{MulDiv(kPageWidthDlu, LOWORD(base), 4), MulDiv(kPageHeightDlu, HIWORD(base), 8)};
}

wchar_t* CopyToTaskMemory(const wchar_t* text) {
    const size_t bytes = (wcslen(text) + 1) * sizeof(wchar_t);
    auto* copy = static_cast<wchar_t*>(CoTaskMemAlloc(bytes));
    if (copy) {
        memcpy(copy, text, bytes);
    }
    return copy;
}

}  // namespace

PicturePage::PicturePage() : m_template(BuildPageTemplate()) {}

PicturePage::~PicturePage() {
    // A frame deactivates its pages before it lets them go; this covers one that did not.
    if (m_window) {
        DestroyWindow(m_window);
    }
}

STDMETHODIMP PicturePage::SetPageSite(IPropertyPageSite* site) {
    if (site && m_site) {
        return E_UNEXPECTED;
    }
    m_site = site;
    return S_OK;
}

STDMETHODIMP PicturePage::Activate(HWND parent, LPCRECT rect, BOOL) {
    if (m_window) {
        return E_UNEXPECTED;
    }
    INITCOMMONCONTROLSEX controls = {sizeof(controls), ICC_BAR_CLASSES};
    InitCommonControlsEx(&controls);
    m_window = CreateDialogIndirectParamW(
        ModuleHandle(), reinterpret_cast<const DLGTEMPLATE*>(m_template.data()), parent,
        &PicturePage::DialogProc, reinterpret_cast<LPARAM>(this));
    if (!m_window) {
        const DWORD error = GetLastError();
        return error ? HRESULT_FROM_WIN32(error) : E_FAIL;
    }
    if (rect) {
        Move(rect);
    }
    ShowSettings(m_settings);
    m_dirty = false;
    return S_OK;
}

STDMETHODIMP PicturePage::Deactivate() {
    if (!m_window) {
        return E_UNEXPECTED;
    }
    // What the person changed and did not apply stays with the page for its next activation.
    m_settings = ReadControls();
    DestroyWindow(m_window);
    m_window = nullptr;
    return S_OK;
}

STDMETHODIMP PicturePage::GetPageInfo(PROPPAGEINFO* info) {
    if (!info) {
        return E_POINTER;
    }
    info->cb = sizeof(PROPPAGEINFO);
    info->pszTitle = CopyToTaskMemory(kPicturePageTitle);
    if (!info->pszTitle) {
        return E_OUTOFMEMORY;
    }
    info->size = PageSizeInPixels();
    info->pszDocString = nullptr;
    info->pszHelpFile = nullptr;
    info->dwHelpContext = 0;
    return S_OK;
}

STDMETHODIMP PicturePage::SetObjects(ULONG count, IUnknown** objects) {
    if (count == 0) {
        m_picture.Reset();
        return S_OK;
    }
    if (!objects || !objects[0]) {
        return E_POINTER;
    }
    // One camera at a time: the page edits the first object it is given.
    Microsoft::WRL::ComPtr<IVirtualCameraPicture> picture;
    HRESULT hr = objects[0]->QueryInterface(IID_IVirtualCameraPicture,
                                            reinterpret_cast<void**>(picture.GetAddressOf()));
    if (FAILED(hr)) {
        return hr;
    }
    PictureSettings settings;
    hr = picture->GetPicture(&settings);
    if (FAILED(hr)) {
        return hr;
    }
    m_picture = picture;
    m_settings = settings;
    m_dirty = false;
    if (m_window) {
        ShowSettings(m_settings);
    }
    return S_OK;
}

STDMETHODIMP PicturePage::Show(UINT command) {
    if (!m_window) {
        return E_UNEXPECTED;
    }
    ShowWindow(m_window, static_cast<int>(command));
    return S_OK;
}

STDMETHODIMP PicturePage::Move(LPCRECT rect) {
    if (!rect) {
        return E_POINTER;
    }
    if (!m_window) {
        return E_UNEXPECTED;
    }
    MoveWindow(m_window, rect->left, rect->top, rect->right - rect->left, rect->bottom - rect->top,
               TRUE);
    return S_OK;
}

STDMETHODIMP PicturePage::IsPageDirty() {
    return m_dirty ? S_OK : S_FALSE;
}

STDMETHODIMP PicturePage::Apply() {
    if (!m_picture) {
        return E_UNEXPECTED;
    }
    const PictureSettings settings = m_window ? ReadControls() : m_settings;
    const HRESULT hr = m_picture->SetPicture(&settings);
    if (FAILED(hr)) {
        return hr;
    }
    m_settings = settings;
    m_dirty = false;
    return S_OK;
}

STDMETHODIMP PicturePage::Help(LPCOLESTR) {
    return E_NOTIMPL;
}

STDMETHODIMP PicturePage::TranslateAccelerator(MSG* message) {
    if (!message) {
        return E_POINTER;
    }
    // The page's own keys (tab between its controls, the mnemonics of its labels).
    return m_window && IsDialogMessageW(m_window, message) ? S_OK : S_FALSE;
}

INT_PTR CALLBACK PicturePage::DialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    if (message == WM_INITDIALOG) {
        SetWindowLongPtrW(window, DWLP_USER, lParam);
        auto* page = reinterpret_cast<PicturePage*>(lParam);
        page->m_window = window;
    }
    auto* page = reinterpret_cast<PicturePage*>(GetWindowLongPtrW(window, DWLP_USER));
    return page ? page->OnMessage(message, wParam, lParam) : FALSE;
}

INT_PTR PicturePage::OnMessage(UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_INITDIALOG: {
            const HWND combo = GetDlgItem(m_window, kPatternComboId);
            for (int32_t pattern = 0; pattern < kPatternCount; ++pattern) {
                SendMessageW(
                    combo, CB_ADDSTRING, 0,
                    reinterpret_cast<LPARAM>(PatternName(static_cast<TestPattern>(pattern))));
            }
            SendDlgItemMessageW(m_window, kBrightnessSliderId, TBM_SETRANGE, FALSE,
                                MAKELPARAM(kMinBrightness, kMaxBrightness));
            SendDlgItemMessageW(m_window, kBrightnessSliderId, TBM_SETPAGESIZE, 0, 16);
            return TRUE;
        }
        case WM_COMMAND:
            if ((LOWORD(wParam) == kPatternComboId && HIWORD(wParam) == CBN_SELCHANGE) ||
                (LOWORD(wParam) == kFrameCounterCheckId && HIWORD(wParam) == BN_CLICKED)) {
                MarkDirty();
                return TRUE;
            }
            return FALSE;
        case WM_HSCROLL:
            if (reinterpret_cast<HWND>(lParam) == GetDlgItem(m_window, kBrightnessSliderId)) {
                ShowBrightnessValue(static_cast<int>(
                    SendDlgItemMessageW(m_window, kBrightnessSliderId, TBM_GETPOS, 0, 0)));
                MarkDirty();
                return TRUE;
            }
            return FALSE;
        default:
            return FALSE;
    }
}

void PicturePage::ShowSettings(const PictureSettings& settings) {
    SendDlgItemMessageW(m_window, kPatternComboId, CB_SETCURSEL,
                        static_cast<WPARAM>(settings.pattern), 0);
    SendDlgItemMessageW(m_window, kBrightnessSliderId, TBM_SETPOS, TRUE, settings.brightness);
    ShowBrightnessValue(settings.brightness);
    CheckDlgButton(m_window, kFrameCounterCheckId,
                   settings.frameCounter ? BST_CHECKED : BST_UNCHECKED);
}

PictureSettings PicturePage::ReadControls() const {
    PictureSettings settings;
    const LRESULT pattern = SendDlgItemMessageW(m_window, kPatternComboId, CB_GETCURSEL, 0, 0);
    settings.pattern = pattern >= 0 && pattern < kPatternCount ? static_cast<TestPattern>(pattern)
                                                               : m_settings.pattern;
    settings.brightness =
        static_cast<int32_t>(SendDlgItemMessageW(m_window, kBrightnessSliderId, TBM_GETPOS, 0, 0));
    settings.frameCounter =
        IsDlgButtonChecked(m_window, kFrameCounterCheckId) == BST_CHECKED ? TRUE : FALSE;
    return settings;
}

void PicturePage::ShowBrightnessValue(int brightness) {
    SetDlgItemTextW(m_window, kBrightnessValueId, std::to_wstring(brightness).c_str());
}

void PicturePage::MarkDirty() {
    m_dirty = true;
    if (m_site) {
        m_site->OnStatusChange(PROPPAGESTATUS_DIRTY | PROPPAGESTATUS_VALIDATE);
    }
}

}  // namespace VirtualCamera
