#include "TinyFramework/Graphics/TinyDC.h"

namespace TinyFramework {

IMPLEMENT_DYNAMIC(TinyDC, TinyHandleHDC)
IMPLEMENT_DYNAMIC(TinyMemDC, TinyDC)
IMPLEMENT_DYNAMIC(TinyWindowDC, TinyDC)
IMPLEMENT_DYNAMIC(TinyClientDC, TinyDC)

TinyDC::~TinyDC() {
    DeleteDC();
}

BOOL TinyDC::CreateDC(LPCWSTR driver, LPCWSTR device, LPCWSTR output, const DEVMODEW* mode) {
    HDC created = ::CreateDCW(driver, device, output, mode);
    if (created == nullptr) {
        return FALSE;
    }
    DeleteDC();
    return Attach(created);
}

BOOL TinyDC::CreateCompatibleDC(HDC reference) {
    HDC created = ::CreateCompatibleDC(reference);
    if (created == nullptr) {
        return FALSE;
    }
    DeleteDC();
    return Attach(created);
}

BOOL TinyDC::DeleteDC() {
    HDC dc = Detach();
    return dc != nullptr ? ::DeleteDC(dc) : FALSE;
}

HGDIOBJ TinyDC::SelectObject(HGDIOBJ object) {
    return ::SelectObject(m_handle, object);
}

HGDIOBJ TinyDC::SelectStockObject(int index) {
    return ::SelectObject(m_handle, ::GetStockObject(index));
}

int TinyDC::SelectClipRgn(HRGN region) {
    return ::SelectClipRgn(m_handle, region);
}

int TinyDC::SaveDC() {
    return ::SaveDC(m_handle);
}

BOOL TinyDC::RestoreDC(int saved) {
    return ::RestoreDC(m_handle, saved);
}

BOOL TinyDC::MoveTo(int x, int y) {
    return ::MoveToEx(m_handle, x, y, nullptr);
}

BOOL TinyDC::LineTo(int x, int y) {
    return ::LineTo(m_handle, x, y);
}

BOOL TinyDC::Rectangle(int left, int top, int right, int bottom) {
    return ::Rectangle(m_handle, left, top, right, bottom);
}

BOOL TinyDC::Rectangle(const RECT& rect) {
    return Rectangle(rect.left, rect.top, rect.right, rect.bottom);
}

BOOL TinyDC::Ellipse(int left, int top, int right, int bottom) {
    return ::Ellipse(m_handle, left, top, right, bottom);
}

BOOL TinyDC::Ellipse(const RECT& rect) {
    return Ellipse(rect.left, rect.top, rect.right, rect.bottom);
}

BOOL TinyDC::FillRect(const RECT& rect, HBRUSH brush) {
    return ::FillRect(m_handle, &rect, brush) != 0;
}

BOOL TinyDC::FillSolidRect(const RECT& rect, COLORREF color) {
    // An opaque text output of no characters paints its rectangle in the background colour.
    const COLORREF previous = ::SetBkColor(m_handle, color);
    if (previous == CLR_INVALID) {
        return FALSE;
    }
    const BOOL painted = ::ExtTextOutW(m_handle, 0, 0, ETO_OPAQUE, &rect, nullptr, 0, nullptr);
    ::SetBkColor(m_handle, previous);
    return painted;
}

BOOL TinyDC::FillRgn(HRGN region, HBRUSH brush) {
    return ::FillRgn(m_handle, region, brush);
}

COLORREF TinyDC::SetPixel(int x, int y, COLORREF color) {
    return ::SetPixel(m_handle, x, y, color);
}

COLORREF TinyDC::GetPixel(int x, int y) const {
    return ::GetPixel(m_handle, x, y);
}

BOOL TinyDC::BitBlt(int x, int y, int cx, int cy, HDC source, int sourceX, int sourceY, DWORD rop) {
    return ::BitBlt(m_handle, x, y, cx, cy, source, sourceX, sourceY, rop);
}

BOOL TinyDC::TextOut(int x, int y, LPCWSTR text, int length) {
    return ::TextOutW(m_handle, x, y, text, length);
}

int TinyDC::DrawText(LPCWSTR text, int length, RECT* rect, UINT format) {
    return ::DrawTextW(m_handle, text, length, rect, format);
}

BOOL TinyDC::GetTextExtent(LPCWSTR text, int length, SIZE* size) const {
    return ::GetTextExtentPoint32W(m_handle, text, length, size);
}

COLORREF TinyDC::SetTextColor(COLORREF color) {
    return ::SetTextColor(m_handle, color);
}

COLORREF TinyDC::SetBkColor(COLORREF color) {
    return ::SetBkColor(m_handle, color);
}

int TinyDC::SetBkMode(int mode) {
    return ::SetBkMode(m_handle, mode);
}

TinyMemDC::~TinyMemDC() {
    DeleteDC();
}

BOOL TinyMemDC::Create(HDC reference, HBITMAP bitmap) {
    DeleteDC();
    if (!CreateCompatibleDC(reference)) {
        return FALSE;
    }
    m_originalBitmap = SelectObject(bitmap);
    if (m_originalBitmap == nullptr) {
        TinyDC::DeleteDC();
        return FALSE;
    }
    return TRUE;
}

BOOL TinyMemDC::DeleteDC() {
    if (m_originalBitmap != nullptr) {
        SelectObject(m_originalBitmap);
        m_originalBitmap = nullptr;
    }
    return TinyDC::DeleteDC();
}

TinyWindowDC::~TinyWindowDC() {
    ReleaseDC();
}

BOOL TinyWindowDC::GetWindowDC(HWND window) {
    // The old context goes back first: the platform may hand the same one out again.
    ReleaseDC();
    HDC dc = ::GetWindowDC(window);
    if (dc == nullptr) {
        return FALSE;
    }
    m_window = window;
    return Attach(dc);
}

BOOL TinyWindowDC::ReleaseDC() {
    HDC dc = Detach();
    HWND window = m_window;
    m_window = nullptr;
    return dc != nullptr ? ::ReleaseDC(window, dc) != 0 : FALSE;
}

TinyClientDC::~TinyClientDC() {
    ReleaseDC();
}

BOOL TinyClientDC::GetDC(HWND window) {
    // The old context goes back first: the platform may hand the same one out again.
    ReleaseDC();
    HDC dc = ::GetDC(window);
    if (dc == nullptr) {
        return FALSE;
    }
    m_window = window;
    return Attach(dc);
}

BOOL TinyClientDC::ReleaseDC() {
    HDC dc = Detach();
    HWND window = m_window;
    m_window = nullptr;
    return dc != nullptr ? ::ReleaseDC(window, dc) != 0 : FALSE;
}

}  // namespace TinyFramework
