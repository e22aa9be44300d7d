#include "tools/VirtualCamera/Config/FramePattern.h"

#include <cstring>

#include "tools/VirtualCamera/Config/MediaFormats.h"

namespace VirtualCamera {
namespace {

constexpr BYTE kLumaBright = 235;
constexpr BYTE kLumaDark = 16;
constexpr BYTE kChromaNeutral = 128;
constexpr uint32_t kBarWidth = 32;
constexpr uint32_t kStepPerFrame = 4;

// Where the byte that stands for pixel i of the first row lies, and how far apart pixels are.
struct CounterLayout {
    size_t offset;
    size_t step;
    bool yuv;
};

CounterLayout CounterLayoutOf(PixelLayout layout) {
    switch (layout) {
        case PixelLayout::YUY2:
            return {0, 2, true};
        case PixelLayout::UYVY:
            return {1, 2, true};
        case PixelLayout::I420:
        case PixelLayout::YV12:
        case PixelLayout::NV12:
            return {0, 1, true};
        case PixelLayout::RGB24:
            return {0, 3, false};
        case PixelLayout::RGB32:
            return {0, 4, false};
        default:
            return {0, 2, false};
    }
}

// Luma of the bars: a ramp that scrolls to the left by kStepPerFrame pixels a frame.
BYTE BarLuma(LONG x, LONG y, uint32_t phase) {
    const uint32_t position = static_cast<uint32_t>(x) + phase * kStepPerFrame;
    const uint32_t bar = (position / kBarWidth) % 8;
    const uint32_t shade = static_cast<uint32_t>(kLumaDark) + bar * 28 + (y & 1);
    return static_cast<BYTE>(shade > kLumaBright ? kLumaBright : shade);
}

// Squares of two grey levels, scrolling like the bars.
BYTE CheckerLuma(LONG x, LONG y, uint32_t phase) {
    const uint32_t column = (static_cast<uint32_t>(x) + phase * kStepPerFrame) / kBarWidth;
    const uint32_t row = static_cast<uint32_t>(y) / kBarWidth;
    return ((column + row) & 1) ? 180 : 60;
}

BYTE ClampLuma(int32_t luma) {
    return static_cast<BYTE>(luma < kLumaDark     ? kLumaDark
                             : luma > kLumaBright ? kLumaBright
                                                  : luma);
}

// Luma of one pixel of the picture the settings ask for.
BYTE PictureLuma(const PictureSettings& picture, LONG x, LONG y, uint32_t phase) {
    int32_t luma = kNeutralBrightness;
    switch (picture.pattern) {
        case TestPattern::kMovingBars:
            luma = BarLuma(x, y, phase);
            break;
        case TestPattern::kCheckerboard:
            luma = CheckerLuma(x, y, phase);
            break;
        case TestPattern::kFlatField:
            break;
    }
    return ClampLuma(luma + picture.brightness - kNeutralBrightness);
}

BYTE ToFullRange(BYTE luma) {
    return static_cast<BYTE>((static_cast<uint32_t>(luma - kLumaDark) * 255) / 219);
}

void PaintPackedYuv(const PictureSettings& picture, bool lumaFirst, LONG width, LONG rows,
                    uint32_t phase, BYTE* data, size_t size) {
    const size_t stride = static_cast<size_t>(width) * 2;
    for (LONG y = 0; y < rows && (y + 1) * stride <= size; ++y) {
        BYTE* row = data + y * stride;
        for (LONG x = 0; x < width; ++x) {
            row[2 * x + (lumaFirst ? 0 : 1)] = PictureLuma(picture, x, y, phase);
            row[2 * x + (lumaFirst ? 1 : 0)] =
                static_cast<BYTE>(kChromaNeutral + ((x & 2) ? 40 : -40));
        }
    }
}

void PaintPlanarYuv(const PictureSettings& picture, LONG width, LONG rows, uint32_t phase,
                    BYTE* data, size_t size) {
    const size_t lumaSize = static_cast<size_t>(width) * rows;
    if (lumaSize > size) {
        return;
    }
    for (LONG y = 0; y < rows; ++y) {
        for (LONG x = 0; x < width; ++x) {
            data[y * static_cast<size_t>(width) + x] = PictureLuma(picture, x, y, phase);
        }
    }
    // Chroma planes (or the interleaved NV12 plane) take the rest; a neutral grey is valid in all.
    memset(data + lumaSize, kChromaNeutral, size - lumaSize);
}

void PaintRgb(const PictureSettings& picture, size_t bytesPerPixel, LONG width, LONG rows,
              uint32_t phase, BYTE* data, size_t size) {
    const size_t stride = ((static_cast<size_t>(width) * bytesPerPixel * 8 + 31) / 32) * 4;
    for (LONG y = 0; y < rows && (y + 1) * stride <= size; ++y) {
        BYTE* row = data + y * stride;
        for (LONG x = 0; x < width; ++x) {
            const BYTE level = ToFullRange(PictureLuma(picture, x, y, phase));
            BYTE* pixel = row + x * bytesPerPixel;
            for (size_t c = 0; c < bytesPerPixel; ++c) {
                pixel[c] = level;
            }
            if (bytesPerPixel == 4) {
                pixel[3] = 0xff;  // Opaque alpha for ARGB32.
            }
        }
    }
}

// Writes `bits` bits of `value`, most significant first, into the pixels of the first row from
// `firstPixel` on: bright for 1, dark for 0.
void WriteBits(PixelLayout layout, LONG width, int firstPixel, int bits, uint64_t value, BYTE* data,
               size_t size) {
    const CounterLayout where = CounterLayoutOf(layout);
    for (int bit = 0; bit < bits && firstPixel + bit < width; ++bit) {
        const bool one = (value >> (bits - 1 - bit)) & 1;
        const size_t position = where.offset + (firstPixel + bit) * where.step;
        const size_t pixelBytes =
            where.yuv ? 1 : (where.step == 3 || where.step == 4 ? where.step : 2);
        if (position + pixelBytes > size) {
            return;
        }
        const BYTE value8 = where.yuv ? (one ? kLumaBright : kLumaDark) : (one ? 0xff : 0x00);
        memset(data + position, value8, pixelBytes);
        if (!where.yuv && where.step == 4) {
            data[position + 3] = 0xff;
        }
    }
}

// Reads what WriteBits wrote; false when the frame is too small to hold it.
bool ReadBits(PixelLayout layout, int firstPixel, int bits, const BYTE* data, size_t size,
              uint64_t* value) {
    const CounterLayout where = CounterLayoutOf(layout);
    if (where.offset + (firstPixel + bits - 1) * where.step >= size) {
        return false;
    }
    uint64_t read = 0;
    for (int bit = 0; bit < bits; ++bit) {
        read =
            (read << 1) | (data[where.offset + (firstPixel + bit) * where.step] >= 128 ? 1u : 0u);
    }
    *value = read;
    return true;
}

const BYTE kCounterSegment[] = {0xFF, 0xD8, 0xFF, 0xFE, 0x00, 0x0A, 'V', 'C', 'A', 'M'};
const BYTE kFillTimeSegment[] = {0xFF, 0xFE, 0x00, 0x0E, 'V', 'C', 'T', 'S'};
constexpr size_t kCounterSegmentEnd = sizeof(kCounterSegment) + 4;

}  // namespace

void PaintFrame(const GUID& subtype, LONG width, LONG height, uint32_t counter, BYTE* data,
                size_t size) {
    PaintFrame(subtype, width, height, counter, PictureSettings(), data, size);
}

void PaintFrame(const GUID& subtype, LONG width, LONG height, uint32_t counter,
                const PictureSettings& picture, BYTE* data, size_t size) {
    if (!data || size == 0) {
        return;
    }
    const PixelLayout layout = LayoutOfSubtype(subtype);
    const LONG rows = height < 0 ? -height : height;
    if (width <= 0 || rows == 0) {
        memset(data, kLumaDark, size);
        return;
    }
    switch (layout) {
        case PixelLayout::YUY2:
            PaintPackedYuv(picture, true, width, rows, counter, data, size);
            break;
        case PixelLayout::UYVY:
            PaintPackedYuv(picture, false, width, rows, counter, data, size);
            break;
        case PixelLayout::I420:
        case PixelLayout::YV12:
        case PixelLayout::NV12:
            PaintPlanarYuv(picture, width, rows, counter, data, size);
            break;
        case PixelLayout::RGB24:
            PaintRgb(picture, 3, width, rows, counter, data, size);
            break;
        case PixelLayout::RGB32:
            PaintRgb(picture, 4, width, rows, counter, data, size);
            break;
        default:
            PaintRgb(picture, 2, width, rows, counter, data, size);
            break;
    }
    if (picture.frameCounter) {
        WriteBits(layout, width, 0, kCounterPixels, counter, data, size);
    }
}

bool DecodeFrameCounter(const GUID& subtype, const BYTE* data, size_t size, uint32_t* counter) {
    const PixelLayout layout = LayoutOfSubtype(subtype);
    if (layout == PixelLayout::MJPG) {
        if (size < kCounterSegmentEnd ||
            memcmp(data, kCounterSegment, sizeof(kCounterSegment)) != 0) {
            return false;
        }
        const BYTE* value = data + sizeof(kCounterSegment);
        *counter = (static_cast<uint32_t>(value[0]) << 24) |
                   (static_cast<uint32_t>(value[1]) << 16) |
                   (static_cast<uint32_t>(value[2]) << 8) | value[3];
        return true;
    }
    uint64_t value = 0;
    if (!ReadBits(layout, 0, kCounterPixels, data, size, &value)) {
        return false;
    }
    *counter = static_cast<uint32_t>(value);
    return true;
}

void WriteFillTime(const GUID& subtype, LONG width, uint64_t fillTime, BYTE* data, size_t size) {
    WriteBits(LayoutOfSubtype(subtype), width, kCounterPixels, kFillTimePixels, fillTime, data,
              size);
}

std::vector<BYTE> AddFillTimeToJpeg(const std::vector<BYTE>& jpegWithCounter, uint64_t fillTime) {
    if (jpegWithCounter.size() < kCounterSegmentEnd) {
        return jpegWithCounter;
    }
    std::vector<BYTE> stamped(jpegWithCounter.begin(),
                              jpegWithCounter.begin() + kCounterSegmentEnd);
    stamped.insert(stamped.end(), kFillTimeSegment, kFillTimeSegment + sizeof(kFillTimeSegment));
    for (int shift = 56; shift >= 0; shift -= 8) {
        stamped.push_back(static_cast<BYTE>(fillTime >> shift));
    }
    stamped.insert(stamped.end(), jpegWithCounter.begin() + kCounterSegmentEnd,
                   jpegWithCounter.end());
    return stamped;
}

bool DecodeFillTime(const GUID& subtype, const BYTE* data, size_t size, uint64_t* fillTime) {
    const PixelLayout layout = LayoutOfSubtype(subtype);
    if (layout != PixelLayout::MJPG) {
        return ReadBits(layout, kCounterPixels, kFillTimePixels, data, size, fillTime);
    }
    const size_t end = kCounterSegmentEnd + sizeof(kFillTimeSegment) + 8;
    if (size < end || memcmp(data, kCounterSegment, sizeof(kCounterSegment)) != 0 ||
        memcmp(data + kCounterSegmentEnd, kFillTimeSegment, sizeof(kFillTimeSegment)) != 0) {
        return false;
    }
    uint64_t value = 0;
    for (size_t i = end - 8; i < end; ++i) {
        value = (value << 8) | data[i];
    }
    *fillTime = value;
    return true;
}

std::vector<BYTE> AddCounterToJpeg(const std::vector<BYTE>& jpeg, uint32_t counter) {
    if (jpeg.size() < 2) {
        return jpeg;
    }
    std::vector<BYTE> framed;
    framed.reserve(jpeg.size() + 14);
    framed.insert(framed.end(), jpeg.begin(), jpeg.begin() + 2);  // SOI
    const BYTE segment[] = {0xFF,
                            0xFE,
                            0x00,
                            0x0A,
                            'V',
                            'C',
                            'A',
                            'M',
                            static_cast<BYTE>(counter >> 24),
                            static_cast<BYTE>(counter >> 16),
                            static_cast<BYTE>(counter >> 8),
                            static_cast<BYTE>(counter)};
    framed.insert(framed.end(), segment, segment + sizeof(segment));
    framed.insert(framed.end(), jpeg.begin() + 2, jpeg.end());
    return framed;
}

void PaintBgrPicture(LONG width, LONG height, uint32_t phase, BYTE* rows, size_t stride) {
    PaintBgrPicture(width, height, phase, PictureSettings(), rows, stride);
}

void PaintBgrPicture(LONG width, LONG height, uint32_t phase, const PictureSettings& picture,
                     BYTE* rows, size_t stride) {
    for (LONG y = 0; y < height; ++y) {
        BYTE* row = rows + y * stride;
        for (LONG x = 0; x < width; ++x) {
            const BYTE level = ToFullRange(PictureLuma(picture, x, y, phase));
            row[3 * x] = level;
            row[3 * x + 1] = static_cast<BYTE>(255 - level);
            row[3 * x + 2] = static_cast<BYTE>((x * 255) / (width > 1 ? width - 1 : 1));
        }
    }
}

}  // namespace VirtualCamera
