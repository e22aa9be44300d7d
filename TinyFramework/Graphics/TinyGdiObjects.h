#pragma once

#include "TinyFramework/Graphics/TinyHandle.h"

#include <windows.h>

namespace TinyFramework {

// The drawing tools: pens, brushes, bitmaps, palettes and regions. Each owns one platform object,
// made by one of its Create calls and registered under its handle, and deletes it on destruction
// (or DeleteObject), leaving the map first. A Create on an object that holds a handle deletes the
// old one once the new one stands. Calls forward to the platform's calls of the same name; an
// empty object makes them fail. Not copyable; no lock.

class TinyPen : public TinyHandleHPEN {
    DECLARE_DYNAMIC(TinyPen)

public:
    TinyPen() = default;
    ~TinyPen() override;

    BOOL CreatePen(int style, int width, COLORREF color);
    BOOL CreatePenIndirect(const LOGPEN& pen);
    BOOL DeleteObject();
    BOOL GetLogPen(LOGPEN* pen) const;
};

class TinyBrush : public TinyHandleHBRUSH {
    DECLARE_DYNAMIC(TinyBrush)

public:
    TinyBrush() = default;
    ~TinyBrush() override;

    BOOL CreateSolidBrush(COLORREF color);
    BOOL CreateHatchBrush(int hatch, COLORREF color);
    // The bitmap is copied into the brush: it may be deleted afterwards.
    BOOL CreatePatternBrush(HBITMAP bitmap);
    BOOL CreateBrushIndirect(const LOGBRUSH& brush);
    BOOL DeleteObject();
    BOOL GetLogBrush(LOGBRUSH* brush) const;
};

// A bitmap, device-dependent or a DIB section whose pixels the program reads and writes.
class TinyBitmap : public TinyHandleHBITMAP {
    DECLARE_DYNAMIC(TinyBitmap)

public:
    TinyBitmap() = default;
    ~TinyBitmap() override;

    BOOL CreateBitmap(int cx, int cy, UINT planes, UINT bitsPerPixel, const void* bits);
    BOOL CreateCompatibleBitmap(HDC reference, int cx, int cy);
    // A DIB section of 32 bits per pixel (blue, green, red, unused), rows from the top down and
    // zeroed: pixel (x, y) is GetBits()[y * cx + x].
    BOOL CreateDIBSection(int cx, int cy);
    BOOL DeleteObject();

    BOOL GetBitmap(BITMAP* bitmap) const;
    // The pixels of a DIB section made by CreateDIBSection; null for any other bitmap. Call
    // GdiFlush before reading what GDI has drawn.
    DWORD* GetBits() const { return m_bits; }

private:
    DWORD* m_bits = nullptr;
};

class TinyPalette : public TinyHandleHPALETTE {
    DECLARE_DYNAMIC(TinyPalette)

public:
    TinyPalette() = default;
    ~TinyPalette() override;

    BOOL CreatePalette(const LOGPALETTE* palette);
    BOOL CreateHalftonePalette(HDC reference);
    BOOL DeleteObject();

    // The number of entries; 0 on an empty object.
    int GetEntryCount() const;
    UINT GetPaletteEntries(UINT start, UINT count, PALETTEENTRY* entries) const;
    UINT SetPaletteEntries(UINT start, UINT count, const PALETTEENTRY* entries);
};

class TinyRgn : public TinyHandleHRGN {
    DECLARE_DYNAMIC(TinyRgn)

public:
    TinyRgn() = default;
    ~TinyRgn() override;

    BOOL CreateRectRgn(int left, int top, int right, int bottom);
    BOOL CreateRectRgnIndirect(const RECT& rect);
    BOOL CreateEllipticRgn(int left, int top, int right, int bottom);
    BOOL CreateEllipticRgnIndirect(const RECT& rect);
    BOOL DeleteObject();

    // Sets this region, which must exist, to the combination of two others (RGN_AND, RGN_OR,
    // RGN_XOR, RGN_DIFF, RGN_COPY). Returns the platform's region type, ERROR (0) on failure.
    int CombineRgn(HRGN first, HRGN second, int mode);
    BOOL PtInRegion(int x, int y) const;
    BOOL EqualRgn(HRGN other) const;
    int OffsetRgn(int x, int y);
    int GetRgnBox(RECT* box) const;
};

}  // namespace TinyFramework
