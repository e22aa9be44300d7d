#pragma once
// The colour conversion of the test codec: 8-bit YUV of BT.601 in limited ("studio") range to
// 8-bit RGB, the conversion capture devices mean when they deliver YUY2, UYVY, I420, IYUV, YV12
// or NV12.
//
// Limited range puts black at Y = 16 and white at Y = 235, and the colour differences U (Cb) and
// V (Cr) around 128 within 16..240. With C = Y - 16, D = U - 128 and E = V - 128:
//
//   R = 1.164 C           + 1.596 E
//   G = 1.164 C - 0.391 D - 0.813 E
//   B = 1.164 C + 2.018 D
//
// computed in fixed point with the coefficients scaled by 256 and rounded (298, 409, 100, 208,
// 516), the sum rounded by adding 128 before the shift, and each channel clipped to 0..255:
//
//   R = clip((298 C         + 409 E + 128) >> 8)
//   G = clip((298 C - 100 D - 208 E + 128) >> 8)
//   B = clip((298 C + 516 D         + 128) >> 8)
//
// So Y 16 is RGB 0, Y 235 with neutral colour (U = V = 128) is RGB 255, and values outside the
// limited range clip rather than wrap.

#include <windows.h>

namespace TestDecoders {

struct RgbPixel {
    BYTE red;
    BYTE green;
    BYTE blue;
};

RgbPixel YuvToRgb(BYTE y, BYTE u, BYTE v);

}  // namespace TestDecoders
