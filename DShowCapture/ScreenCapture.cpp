#include "DShowCapture/ScreenCapture.h"

#include <algorithm>

namespace DShow {
namespace {

// A device context made by CreateDC or CreateCompatibleDC, deleted on leaving.
class ScopedCreatedDC {
public:
    explicit ScopedCreatedDC(HDC dc) : m_dc(dc) {}
    ~ScopedCreatedDC() {
        if (m_dc != nullptr) {
            DeleteDC(m_dc);
        }
    }
    ScopedCreatedDC(const ScopedCreatedDC&) = delete;
    ScopedCreatedDC& operator=(const ScopedCreatedDC&) = delete;

    HDC Get() const { return m_dc; }

private:
    HDC m_dc;
};

RECT ClampToScreen(const RECT& rect, HDC screen) {
    RECT clamped = rect;
    clamped.left = std::max(clamped.left, 0L);
    clamped.top = std::max(clamped.top, 0L);
    clamped.right = std::min(clamped.right, static_cast<LONG>(GetDeviceCaps(screen, HORZRES)));
    clamped.bottom = std::min(clamped.bottom, static_cast<LONG>(GetDeviceCaps(screen, VERTRES)));
    return clamped;
}

}  // namespace

HBITMAP CaptureScreenRect(const RECT& rect, void* bits, BITMAPINFO* bitmapInfo) {
    if (IsRectEmpty(&rect)) {
        return nullptr;
    }
    ScopedCreatedDC screen(CreateDCW(L"DISPLAY", nullptr, nullptr, nullptr));
    ScopedCreatedDC memory(CreateCompatibleDC(screen.Get()));
    const RECT area = ClampToScreen(rect, screen.Get());
    const int width = area.right - area.left;
    const int height = area.bottom - area.top;

    HBITMAP bitmap = CreateCompatibleBitmap(screen.Get(), width, height);
    HGDIOBJ previous = SelectObject(memory.Get(), bitmap);
    BitBlt(memory.Get(), 0, 0, width, height, screen.Get(), area.left, area.top, SRCCOPY);
    // The bitmap must leave the memory context before GetDIBits may read it.
    SelectObject(memory.Get(), previous);
    GetDIBits(memory.Get(), bitmap, 0, static_cast<UINT>(height), bits, bitmapInfo, DIB_RGB_COLORS);
    return bitmap;
}

}  // namespace DShow
