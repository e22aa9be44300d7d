#include "TinyFramework/Graphics/TinyGdiObjects.h"

namespace TinyFramework {

IMPLEMENT_DYNAMIC(TinyPen, TinyHandleHPEN)
IMPLEMENT_DYNAMIC(TinyBrush, TinyHandleHBRUSH)
IMPLEMENT_DYNAMIC(TinyBitmap, TinyHandleHBITMAP)
IMPLEMENT_DYNAMIC(TinyPalette, TinyHandleHPALETTE)
IMPLEMENT_DYNAMIC(TinyRgn, TinyHandleHRGN)

namespace {

// Leaves the map, then deletes the platform's object.
template <typename Wrapper>
BOOL DeleteAttached(Wrapper& wrapper) {
    HGDIOBJ object = wrapper.Detach();
    return object != nullptr ? ::DeleteObject(object) : FALSE;
}

// Takes a newly created object in place of the old one.
template <typename Wrapper, typename HandleType>
BOOL Replace(Wrapper& wrapper, HandleType created) {
    if (created == nullptr) {
        return FALSE;
    }
    wrapper.DeleteObject();
    return wrapper.Attach(created);
}

// The platform's description of an object, TRUE when it filled the whole record.
template <typename Record>
BOOL GetRecord(HGDIOBJ object, Record* record) {
    return ::GetObjectW(object, sizeof(Record), record) == static_cast<int>(sizeof(Record));
}

}  // namespace

TinyPen::~TinyPen() {
    DeleteObject();
}

BOOL TinyPen::CreatePen(int style, int width, COLORREF color) {
    return Replace(*this, ::CreatePen(style, width, color));
}

BOOL TinyPen::CreatePenIndirect(const LOGPEN& pen) {
    return Replace(*this, ::CreatePenIndirect(&pen));
}

BOOL TinyPen::DeleteObject() {
    return DeleteAttached(*this);
}

BOOL TinyPen::GetLogPen(LOGPEN* pen) const {
    return GetRecord(m_handle, pen);
}

TinyBrush::~TinyBrush() {
    DeleteObject();
}

BOOL TinyBrush::CreateSolidBrush(COLORREF color) {
    return Replace(*this, ::CreateSolidBrush(color));
}

BOOL TinyBrush::CreateHatchBrush(int hatch, COLORREF color) {
    return Replace(*this, ::CreateHatchBrush(hatch, color));
}

BOOL TinyBrush::CreatePatternBrush(HBITMAP bitmap) {
    return Replace(*this, ::CreatePatternBrush(bitmap));
}

BOOL TinyBrush::CreateBrushIndirect(const LOGBRUSH& brush) {
    return Replace(*this, ::CreateBrushIndirect(&brush));
}

BOOL TinyBrush::DeleteObject() {
    return DeleteAttached(*this);
}

BOOL TinyBrush::GetLogBrush(LOGBRUSH* brush) const {
    return GetRecord(m_handle, brush);
}

TinyBitmap::~TinyBitmap() {
    DeleteObject();
}

BOOL TinyBitmap::CreateBitmap(int cx, int cy, UINT planes, UINT bitsPerPixel, const void* bits) {
    return Replace(*this, ::CreateBitmap(cx, cy, planes, bitsPerPixel, bits));
}

BOOL TinyBitmap::CreateCompatibleBitmap(HDC reference, int cx, int cy) {
    return Replace(*this, ::CreateCompatibleBitmap(reference, cx, cy));
}

BOOL TinyBitmap::CreateDIBSection(int cx, int cy) {
    BITMAPINFO info = {};
    info.bmiHeader.biSize = sizeof(info.bmiHeader);
    info.bmiHeader.biWidth = cx;
    info.bmiHeader.biHeight = -cy;  // negative: the first row in memory is the top one
    info.bmiHeader.biPlanes = 1;
    info.bmiHeader.biBitCount = 32;
    info.bmiHeader.biCompression = BI_RGB;
    void* bits = nullptr;
    HBITMAP created = ::CreateDIBSection(nullptr, &info, DIB_RGB_COLORS, &bits, nullptr, 0);
    if (!Replace(*this, created)) {
        return FALSE;
    }
    m_bits = static_cast<DWORD*>(bits);
    return TRUE;
}

BOOL TinyBitmap::DeleteObject() {
    m_bits = nullptr;
    return DeleteAttached(*this);
}

BOOL TinyBitmap::GetBitmap(BITMAP* bitmap) const {
    return GetRecord(m_handle, bitmap);
}

TinyPalette::~TinyPalette() {
    DeleteObject();
}

BOOL TinyPalette::CreatePalette(const LOGPALETTE* palette) {
    return Replace(*this, ::CreatePalette(palette));
}

BOOL TinyPalette::CreateHalftonePalette(HDC reference) {
    return Replace(*this, ::CreateHalftonePalette(reference));
}

BOOL TinyPalette::DeleteObject() {
    return DeleteAttached(*this);
}

int TinyPalette::GetEntryCount() const {
    WORD count = 0;
    if (::GetObjectW(m_handle, sizeof(count), &count) != static_cast<int>(sizeof(count))) {
        return 0;
    }
    return count;
}

UINT TinyPalette::GetPaletteEntries(UINT start, UINT count, PALETTEENTRY* entries) const {
    return ::GetPaletteEntries(m_handle, start, count, entries);
}

UINT TinyPalette::SetPaletteEntries(UINT start, UINT count, const PALETTEENTRY* entries) {
    return ::SetPaletteEntries(m_handle, start, count, entries);
}

TinyRgn::~TinyRgn() {
    DeleteObject();
}

BOOL TinyRgn::CreateRectRgn(int left, int top, int right, int bottom) {
    return Replace(*this, ::CreateRectRgn(left, top, right, bottom));
}

BOOL TinyRgn::CreateRectRgnIndirect(const RECT& rect) {
    return Replace(*this, ::CreateRectRgnIndirect(&rect));
}

BOOL TinyRgn::CreateEllipticRgn(int left, int top, int right, int bottom) {
    return Replace(*this, ::CreateEllipticRgn(left, top, right, bottom));
}

BOOL TinyRgn::CreateEllipticRgnIndirect(const RECT& rect) {
    return Replace(*this, ::CreateEllipticRgnIndirect(&rect));
}

BOOL TinyRgn::DeleteObject() {
    return DeleteAttached(*this);
}

int TinyRgn::CombineRgn(HRGN first, HRGN second, int mode) {
    return ::CombineRgn(m_handle, first, second, mode);
}

BOOL TinyRgn::PtInRegion(int x, int y) const {
    return ::PtInRegion(m_handle, x, y);
}

BOOL TinyRgn::EqualRgn(HRGN other) const {
    return ::EqualRgn(m_handle, other);
}

int TinyRgn::OffsetRgn(int x, int y) {
    return ::OffsetRgn(m_handle, x, y);
}

int TinyRgn::GetRgnBox(RECT* box) const {
    return ::GetRgnBox(m_handle, box);
}

}  // namespace TinyFramework
