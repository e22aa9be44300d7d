#pragma once

#include <windows.h>

namespace DShow {

// A new bitmap (owned by the caller) of `rect` of the screen, clipped to the screen; its pixels
// are also stored in `bits` in the layout that `bitmapInfo` describes. Null for an empty rect.
HBITMAP CaptureScreenRect(const RECT& rect, void* bits, BITMAPINFO* bitmapInfo);

}  // namespace DShow
