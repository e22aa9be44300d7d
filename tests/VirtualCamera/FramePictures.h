#pragma once
// Pictures of the virtual camera's frames, for tests that check what reaches them downstream of
// the camera: the camera's own reference for a frame number, worked out in the test process with
// the camera's painter, and the pictures of what a decoder or a JPEG image makes of a frame.
//
// Every picture is held as top-down rows of red, green and blue bytes, so that a decoded frame
// and the reference compare pixel for pixel whatever the row order of the buffer they came from.

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace VirtualCameraTests {

struct RgbPicture {
    LONG width = 0;
    LONG rows = 0;
    std::vector<BYTE> rgb;  // 3 bytes a pixel: red, green, blue; the top row first

    const BYTE* At(LONG x, LONG y) const { return &rgb[(static_cast<size_t>(y) * width + x) * 3]; }
};

// The bytes of uncompressed frame `counter` of a mode exactly as the camera sends them: its
// painter over a buffer of the mode's image size. Empty for MJPG, whose bytes come from the
// platform's JPEG encoder.
std::vector<BYTE> ReferenceFrameBytes(const GUID& subtype, LONG width, LONG height,
                                      uint32_t counter);

// The picture the camera shows in frame `counter` of a mode of `width` x `rows`:
// - YUY2, UYVY, I420, IYUV, YV12, NV12: the painted frame converted with BT.601 limited range in
//   floating point (coefficients to six places), each channel rounded and clipped; the chroma of
//   a pixel is the sample the layout assigns it, with no interpolation;
// - MJPG: the picture the camera hands to its JPEG encoder for that frame.
// Empty for other subtypes.
RgbPicture ReferencePicture(const GUID& subtype, LONG width, LONG rows, uint32_t counter);

// How many different pictures the camera's MJPG frames cycle through: frame n shows the picture
// of frame n modulo this.
uint32_t JpegPictureCount();

// A 32-bit BGRX DIB of `width` x `height` (a positive height is bottom-up) as a picture; empty
// when `size` is too small for it.
RgbPicture PictureOfRgb32(const BYTE* bits, size_t size, LONG width, LONG height);

// A JPEG image decoded by the platform's imaging codecs. Call on a thread in a COM apartment.
bool PictureOfJpeg(const BYTE* data, size_t size, RgbPicture* picture);

// The camera's frame counter read back from a decoded picture: pixel i of the top row stands for
// bit 31 - i, set when the pixel's luma is bright.
uint32_t CounterOfPicture(const RgbPicture& picture);

struct PictureDifference {
    int largest = 0;    // the largest difference of one channel anywhere
    double mean = 0.0;  // the mean difference of a channel over the whole picture
    std::string where;  // where the largest difference is, for a failure message
};
PictureDifference ComparePictures(const RgbPicture& actual, const RgbPicture& expected);

}  // namespace VirtualCameraTests
