#pragma once
// The moving test picture the virtual camera sends, and the frame counter it carries. The picture
// is the moving bars unless a person chose another pattern, brightness or no counter through the
// camera's property page (PictureSettings.h).
//
// Uncompressed frames: the first 32 pixels of the first row in memory (the bytes at the start of
// the buffer, whatever the row order) hold the frame number, most significant bit first. A pixel
// stands for 1 when it is bright and 0 when it is dark, judged on one byte per pixel:
//   YUY2: byte 2*i (Y)        UYVY: byte 2*i+1 (Y)      I420/IYUV/YV12/NV12: byte i (Y plane)
//   RGB24: byte 3*i           RGB32/ARGB32: byte 4*i    RGB565 and other 16-bit: byte 2*i
// Bright is 235 (YUV) or 255 (RGB), dark 16 or 0; a decoder compares against 128. A frame
// narrower than 32 pixels carries only the high-order bits that fit; decode wide frames only.
//
// MJPG frames: a JPEG comment segment right after SOI: FF D8 FF FE 00 0A 'V' 'C' 'A' 'M' followed
// by the frame number as 4 bytes, most significant first.
//
// Fill time (a device setting, off by default): the performance counter (QueryPerformanceCounter)
// read when the frame was finished, just before it goes downstream, for measuring how long a
// frame takes to reach its consumer. Uncompressed frames carry its 64 bits in the 64 pixels of
// the first row after the counter's 32 (pixels 32 to 95), most significant first, the same way
// as the counter; a frame narrower than 96 pixels carries only what fits. MJPG frames carry it
// in a second comment segment right after the counter's: FF FE 00 0E 'V' 'C' 'T' 'S' and the 8
// bytes, most significant first.

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/VirtualCamera/Config/PictureSettings.h"

namespace VirtualCamera {

inline constexpr int kCounterPixels = 32;
inline constexpr int kFillTimePixels = 64;

// Fills an uncompressed frame: bars that move one step per frame, and the counter.
void PaintFrame(const GUID& subtype, LONG width, LONG height, uint32_t counter, BYTE* data,
                size_t size);
// The same with the picture a person chose: pattern, brightness, and the counter or none.
void PaintFrame(const GUID& subtype, LONG width, LONG height, uint32_t counter,
                const PictureSettings& picture, BYTE* data, size_t size);

// Reads the counter back from an uncompressed frame or an MJPG frame.
bool DecodeFrameCounter(const GUID& subtype, const BYTE* data, size_t size, uint32_t* counter);

// Inserts the counter segment right after the SOI marker of a JPEG image.
std::vector<BYTE> AddCounterToJpeg(const std::vector<BYTE>& jpeg, uint32_t counter);

// Writes the fill time into an uncompressed frame, next to its counter.
void WriteFillTime(const GUID& subtype, LONG width, uint64_t fillTime, BYTE* data, size_t size);
// Inserts the fill-time segment after the counter segment of a JPEG that has one.
std::vector<BYTE> AddFillTimeToJpeg(const std::vector<BYTE>& jpegWithCounter, uint64_t fillTime);
// Reads the fill time back from an uncompressed frame at least 96 pixels wide, or an MJPG frame.
bool DecodeFillTime(const GUID& subtype, const BYTE* data, size_t size, uint64_t* fillTime);

// Writes the moving bars (without counter) as 24-bit BGR top-down rows of `stride` bytes.
void PaintBgrPicture(LONG width, LONG height, uint32_t phase, BYTE* rows, size_t stride);
void PaintBgrPicture(LONG width, LONG height, uint32_t phase, const PictureSettings& picture,
                     BYTE* rows, size_t stride);

}  // namespace VirtualCamera
