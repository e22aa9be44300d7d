#pragma once
// What a decoded RGB frame of the virtual camera should look like, worked out independently of
// the codec: the camera's own painter gives the YUV frame, and a floating-point BT.601
// limited-range conversion of it gives the expected RGB.

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace DecoderTests {

struct Rgb {
    int red;
    int green;
    int blue;
};

// The reference conversion, with the BT.601 coefficients to six places.
Rgb ReferenceYuvToRgb(int y, int u, int v);

// The picture of one frame as rows of RGB, top row first.
struct Picture {
    LONG width = 0;
    LONG rows = 0;
    std::vector<Rgb> pixels;
    const Rgb& At(LONG x, LONG y) const { return pixels[static_cast<size_t>(y) * width + x]; }
};

// What the camera shows in frame `counter` of a YUV mode, converted by the reference.
Picture ExpectedYuvPicture(const GUID& subtype, LONG width, LONG rows, uint32_t counter);
// What the camera encodes into the JPEG of frame `counter` of an MJPG mode.
Picture ExpectedJpegPicture(LONG width, LONG rows, uint32_t counter);

// Reads an RGB32 DIB of `width` x `height` (a positive height is bottom-up).
Picture PictureOfRgb32(const std::vector<BYTE>& bits, LONG width, LONG height);

// The camera's frame counter, read from the top row of a decoded picture: pixel i of the first
// 32 stands for bit 31 - i, set when the pixel's luma is bright.
uint32_t CounterOfPicture(const Picture& picture);

struct Difference {
    int largest = 0;    // Largest difference of one channel anywhere.
    double mean = 0.0;  // Mean difference of a channel over the whole picture.
    std::string where;  // Where the largest difference is, for a failure message.
};
Difference ComparePictures(const Picture& actual, const Picture& expected);

}  // namespace DecoderTests
