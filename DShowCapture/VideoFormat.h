#pragma once

#include "protocol/QueryProtocol.h"

#include <windows.h>

#include <cstdint>
#include <string>

namespace DShow {

// A width and a height in pixels. Signed: a top-down frame carries a negative height.
struct TinySize {
    TinySize() = default;
    TinySize(int32_t width, int32_t height) : cx(width), cy(height) {}

    int32_t cx = 0;
    int32_t cy = 0;
};

// Pixel formats of a video mode. The numbers travel to the parent process as they are, so they
// are the protocol's own numbers and must never be renumbered. Every number from 0 to
// PIXEL_FORMAT_MAX is a valid format; only the listed ones have a name, the others (4, 7, 8,
// 14..23, 25..28) are valid but nameless.
enum VideoPixelFormat : int32_t {
    PIXEL_FORMAT_UNKNOWN = QueryProtocol::kPixelFormatUnknown,
    PIXEL_FORMAT_I420 = QueryProtocol::kPixelFormatI420,
    PIXEL_FORMAT_YV12 = QueryProtocol::kPixelFormatYv12,
    PIXEL_FORMAT_NV12 = QueryProtocol::kPixelFormatNv12,
    PIXEL_FORMAT_UYVY = QueryProtocol::kPixelFormatUyvy,
    PIXEL_FORMAT_YUY2 = QueryProtocol::kPixelFormatYuy2,
    PIXEL_FORMAT_RGB24 = QueryProtocol::kPixelFormatRgb24,
    PIXEL_FORMAT_RGBA = QueryProtocol::kPixelFormatRgba,
    PIXEL_FORMAT_BGR24 = QueryProtocol::kPixelFormatBgr24,
    PIXEL_FORMAT_BGRA = QueryProtocol::kPixelFormatBgra,
    PIXEL_FORMAT_MJPEG = QueryProtocol::kPixelFormatMjpeg,
    PIXEL_FORMAT_NV12_MS = QueryProtocol::kPixelFormatNv12Ms,
    PIXEL_FORMAT_MAX = QueryProtocol::kPixelFormatMax,
};

// Display names of the pixel formats; "" for a nameless or out-of-range value.
const char* GetPixelFormatName(VideoPixelFormat format);
const wchar_t* GetPixelFormatWideName(VideoPixelFormat format);

// The pixel format that the format listing reports for a media subtype, or PIXEL_FORMAT_UNKNOWN.
// Deliberately not the inverse of the name table: YV12 is not mapped, and ARGB32 maps to the
// nameless value 7.
VideoPixelFormat GetVideoPixelFormat(const GUID& subtype);

// One video mode: what a capture pin offers, what a caller asks for, what a graph carries.
// A plain value: no virtual functions, no owned storage, copied byte by byte.
class VideoFormat {
public:
    VideoFormat() = default;
    // Sets every rate to `rate` and every size to `size`; the flip mark keeps its default.
    VideoFormat(const TinySize& size, float rate, VideoPixelFormat format);

    void Reset();

    int32_t GetFlip() const { return m_flip; }
    float GetRate() const { return rate; }
    const TinySize& GetSize() const { return size; }
    const TinySize& GetScale() const { return scale; }
    float GetMinRate() const { return minRate; }
    float GetMaxRate() const { return maxRate; }
    const TinySize& GetMinSize() const { return minSize; }
    const TinySize& GetMaxSize() const { return maxSize; }
    VideoPixelFormat GetFormat() const { return format; }

    // Marks the rows as stored bottom-up. Only Reset() clears the mark.
    void SetFlip() { m_flip = 1; }
    void SetRate(float value) { rate = value; }
    void SetSize(int32_t cx, int32_t cy) { size = TinySize(cx, cy); }
    void SetSize(const TinySize& value) { size = value; }
    void SetScale(int32_t cx, int32_t cy) { scale = TinySize(cx, cy); }
    void SetScale(const TinySize& value) { scale = value; }
    void SetMinRate(float value) { minRate = value; }
    void SetMaxRate(float value) { maxRate = value; }
    void SetMinSize(int32_t cx, int32_t cy) { minSize = TinySize(cx, cy); }
    void SetMinSize(const TinySize& value) { minSize = value; }
    void SetMaxSize(int32_t cx, int32_t cy) { maxSize = TinySize(cx, cy); }
    void SetMaxSize(const TinySize& value) { maxSize = value; }
    void SetFormat(VideoPixelFormat value) { format = value; }

    // "name,width*height,rate", e.g. "YUY2,640*480,30.000".
    std::string ToString() const;
    std::wstring ToWideString() const;

    // Whether the size, the rate and the format lie in the ranges a capture graph can handle.
    bool IsValid() const;

private:
    // First in the record, and private so that only SetFlip and Reset write it: the mark is
    // either set (1) by code that knows the rows come bottom-up, or cleared with the rest.
    int32_t m_flip = 0;

public:
    // The rest of the record, public and in its order: plain values.
    float rate = 0.0f;
    TinySize size;
    TinySize scale;
    float minRate = 0.0f;
    float maxRate = 0.0f;
    TinySize minSize;
    TinySize maxSize;
    VideoPixelFormat format = PIXEL_FORMAT_UNKNOWN;
};

// The one ordering of modes: same pixel format and strictly smaller in both dimensions. It is
// not a strict weak order (different formats and crossing sizes are unordered), so the order a
// sort produces with it depends on the sort algorithm; see PlatformSort.
bool FormatLess(const VideoFormat& a, const VideoFormat& b);

}  // namespace DShow
