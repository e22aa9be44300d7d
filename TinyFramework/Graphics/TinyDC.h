#pragma once

#include "TinyFramework/Graphics/TinyHandle.h"

#include <windows.h>

namespace TinyFramework {

// A device context and the drawing calls on it, each forwarding to the platform's call of the
// same name with the context as its first argument. Results are the platform's: an empty object
// makes every call fail without touching anything.
//
// The context is one the object created (CreateDC, CreateCompatibleDC) and deletes on
// destruction, or one attached from elsewhere, which destruction deletes as well: Detach it
// first to keep it. Not copyable; no lock, like every device context.
class TinyDC : public TinyHandleHDC {
    DECLARE_DYNAMIC(TinyDC)

public:
    TinyDC() = default;
    ~TinyDC() override;

    // A context created before is deleted once the new one stands.
    BOOL CreateDC(LPCWSTR driver, LPCWSTR device, LPCWSTR output, const DEVMODEW* mode);
    BOOL CreateCompatibleDC(HDC reference);
    // Leaves the map and deletes the context; FALSE on an empty object.
    BOOL DeleteDC();

    HGDIOBJ SelectObject(HGDIOBJ object);
    HGDIOBJ SelectStockObject(int index);
    int SelectClipRgn(HRGN region);
    int SaveDC();
    BOOL RestoreDC(int saved);

    BOOL MoveTo(int x, int y);
    BOOL LineTo(int x, int y);
    BOOL Rectangle(int left, int top, int right, int bottom);
    BOOL Rectangle(const RECT& rect);
    BOOL Ellipse(int left, int top, int right, int bottom);
    BOOL Ellipse(const RECT& rect);
    BOOL FillRect(const RECT& rect, HBRUSH brush);
    // The rectangle in one colour without a brush. The background colour is set back after.
    BOOL FillSolidRect(const RECT& rect, COLORREF color);
    BOOL FillRgn(HRGN region, HBRUSH brush);
    COLORREF SetPixel(int x, int y, COLORREF color);
    COLORREF GetPixel(int x, int y) const;
    BOOL BitBlt(int x, int y, int cx, int cy, HDC source, int sourceX, int sourceY, DWORD rop);

    // `length` in characters; -1 for DrawText means a terminated string.
    BOOL TextOut(int x, int y, LPCWSTR text, int length);
    int DrawText(LPCWSTR text, int length, RECT* rect, UINT format);
    BOOL GetTextExtent(LPCWSTR text, int length, SIZE* size) const;
    COLORREF SetTextColor(COLORREF color);
    COLORREF SetBkColor(COLORREF color);
    int SetBkMode(int mode);
};

// A memory context compatible with a reference context, with a bitmap selected into it for the
// object's life. The bitmap stays the caller's: on destruction the context's own bitmap goes
// back in, which frees the caller's for another context, and the context is deleted.
class TinyMemDC : public TinyDC {
    DECLARE_DYNAMIC(TinyMemDC)

public:
    TinyMemDC() = default;
    ~TinyMemDC() override;

    // `reference` may be null for the screen's format. FALSE, with the object empty, when the
    // context cannot be made or the bitmap cannot be selected (it is in another context, or of
    // another format).
    BOOL Create(HDC reference, HBITMAP bitmap);
    // Selects the original bitmap back, then deletes the context.
    BOOL DeleteDC();

private:
    // The kind of context is fixed by the class, so the general creation calls are closed:
    // a context made through them would skip this class's own release on destruction.
    using TinyDC::CreateCompatibleDC;
    using TinyDC::CreateDC;

    HGDIOBJ m_originalBitmap = nullptr;
};

// The context of a whole window, frame included (GetWindowDC), given back on destruction.
class TinyWindowDC : public TinyDC {
    DECLARE_DYNAMIC(TinyWindowDC)

public:
    TinyWindowDC() = default;
    ~TinyWindowDC() override;

    // A null window means the whole screen.
    BOOL GetWindowDC(HWND window);
    BOOL ReleaseDC();

private:
    // The kind of context is fixed by the class, so the general creation calls are closed:
    // a context made through them would skip this class's own release on destruction.
    using TinyDC::CreateCompatibleDC;
    using TinyDC::CreateDC;
    // A window's context is given back, never deleted.
    using TinyDC::DeleteDC;

    HWND m_window = nullptr;
};

// The context of a window's client area (GetDC), given back on destruction.
class TinyClientDC : public TinyDC {
    DECLARE_DYNAMIC(TinyClientDC)

public:
    TinyClientDC() = default;
    ~TinyClientDC() override;

    // A null window means the whole screen.
    BOOL GetDC(HWND window);
    BOOL ReleaseDC();

private:
    // The kind of context is fixed by the class, so the general creation calls are closed:
    // a context made through them would skip this class's own release on destruction.
    using TinyDC::CreateCompatibleDC;
    using TinyDC::CreateDC;
    // A window's context is given back, never deleted.
    using TinyDC::DeleteDC;

    HWND m_window = nullptr;
};

}  // namespace TinyFramework
