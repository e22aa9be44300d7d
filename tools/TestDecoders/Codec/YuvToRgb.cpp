#include "tools/TestDecoders/Codec/YuvToRgb.h"

namespace TestDecoders {
namespace {

// A fixed-point channel sum (scaled by 256) to a byte: rounded, then clipped. Clipping before the
// shift keeps the shift on non-negative numbers.
BYTE ToChannel(int scaledSum) {
    const int rounded = scaledSum + 128;
    if (rounded <= 0) {
        return 0;
    }
    const int value = rounded >> 8;
    return static_cast<BYTE>(value > 255 ? 255 : value);
}

}  // namespace

RgbPixel YuvToRgb(BYTE y, BYTE u, BYTE v) {
    const int c = static_cast<int>(y) - 16;
    const int d = static_cast<int>(u) - 128;
    const int e = static_cast<int>(v) - 128;
    RgbPixel pixel;
    pixel.red = ToChannel(298 * c + 409 * e);
    pixel.green = ToChannel(298 * c - 100 * d - 208 * e);
    pixel.blue = ToChannel(298 * c + 516 * d);
    return pixel;
}

}  // namespace TestDecoders
