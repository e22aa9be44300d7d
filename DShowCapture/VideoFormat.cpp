#include "DShowCapture/VideoFormat.h"

#include <cmath>
#include <cstdio>
#include <cwchar>

#include "DShowCapture/MediaTypes.h"

namespace DShow {
namespace {

// MEDIASUBTYPE_ARGB32 is listed under this nameless value, so its text form starts with a comma.
constexpr VideoPixelFormat kArgb32PixelFormat = static_cast<VideoPixelFormat>(7);

struct SubtypeMapping {
    const GUID* subtype;
    VideoPixelFormat format;
};

// Searched from the top; the first equal subtype wins.
const SubtypeMapping kSubtypeMappings[] = {
    {&MEDIASUBTYPE_I420, PIXEL_FORMAT_I420},    {&MEDIASUBTYPE_IYUV, PIXEL_FORMAT_I420},
    {&MEDIASUBTYPE_NV12, PIXEL_FORMAT_NV12},    {&MEDIASUBTYPE_RGB24, PIXEL_FORMAT_RGB24},
    {&MEDIASUBTYPE_RGB32, PIXEL_FORMAT_RGBA},   {&MEDIASUBTYPE_YUY2, PIXEL_FORMAT_YUY2},
    {&MEDIASUBTYPE_MJPG, PIXEL_FORMAT_MJPEG},   {&MEDIASUBTYPE_UYVY, PIXEL_FORMAT_UYVY},
    {&MEDIASUBTYPE_ARGB32, kArgb32PixelFormat},
};

constexpr int32_t kMaxDimension = 32767;
constexpr uint32_t kMaxPixelCount = 0xFFFFFFF;
constexpr float kMaxRate = 1000.0f;

}  // namespace

const char* GetPixelFormatName(VideoPixelFormat format) {
    return QueryProtocol::PixelFormatNameOf(format);
}

const wchar_t* GetPixelFormatWideName(VideoPixelFormat format) {
    return QueryProtocol::PixelFormatWideNameOf(format);
}

VideoPixelFormat GetVideoPixelFormat(const GUID& subtype) {
    for (const SubtypeMapping& mapping : kSubtypeMappings) {
        if (IsEqualGUID(*mapping.subtype, subtype)) {
            return mapping.format;
        }
    }
    return PIXEL_FORMAT_UNKNOWN;
}

VideoFormat::VideoFormat(const TinySize& frameSize, float frameRate, VideoPixelFormat pixelFormat)
    : rate(frameRate),
      size(frameSize),
      minRate(frameRate),
      maxRate(frameRate),
      minSize(frameSize),
      maxSize(frameSize),
      format(pixelFormat) {}

void VideoFormat::Reset() {
    *this = VideoFormat();
}

std::string VideoFormat::ToString() const {
    char text[128];
    snprintf(text, sizeof(text), "%s,%d*%d,%.3f", GetPixelFormatName(format), size.cx, size.cy,
             static_cast<double>(rate));
    return text;
}

std::wstring VideoFormat::ToWideString() const {
    wchar_t text[128];
    // %ls rather than %s: MinGW's printf family may follow either the C standard or the
    // Microsoft meaning of %s in a wide format; %ls is a wide string in both.
    swprintf(text, sizeof(text) / sizeof(text[0]), L"%ls,%d*%d,%.3f",
             GetPixelFormatWideName(format), size.cx, size.cy, static_cast<double>(rate));
    return text;
}

bool VideoFormat::IsValid() const {
    if (size.cx >= kMaxDimension || size.cy >= kMaxDimension) {
        return false;
    }
    // The product is taken in 32 bits as the platform computes buffer sizes: it may wrap.
    const uint32_t pixels = static_cast<uint32_t>(size.cx) * static_cast<uint32_t>(size.cy);
    if (pixels > kMaxPixelCount) {
        return false;
    }
    if (rate < 0.0f || std::isnan(rate)) {
        return false;
    }
    if (!(rate < kMaxRate)) {
        return false;
    }
    return static_cast<uint32_t>(format) <= static_cast<uint32_t>(PIXEL_FORMAT_MAX);
}

bool FormatLess(const VideoFormat& a, const VideoFormat& b) {
    return a.format == b.format && a.size.cx < b.size.cx && a.size.cy < b.size.cy;
}

}  // namespace DShow
