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

BYTE ToFullRange(BYTE luma) {
    return static_cast<BYTE>((static_cast<uint32_t>(luma - kLumaDark) * 255) / 219);
}

void PaintPackedYuv(bool lumaFirst, LONG width, LONG rows, uint32_t phase, BYTE* data,
                    size_t size) {
    const size_t stride = static_cast<size_t>(width) * 2;
    for (LONG y = 0; y < rows && (y + 1) * stride <= size; ++y) {
        BYTE* row = data + y * stride;
        for (LONG x = 0; x < width; ++x) {
            row[2 * x + (lumaFirst ? 0 : 1)] = BarLuma(x, y, phase);
            row[2 * x + (lumaFirst ? 1 : 0)] =
                static_cast<BYTE>(kChromaNeutral + ((x & 2) ? 40 : -40));
        }
    }
}

void PaintPlanarYuv(LONG width, LONG rows, uint32_t phase, BYTE* data, size_t size) {
    const size_t lumaSize = static_cast<size_t>(width) * rows;
    if (lumaSize > size) {
        return;
    }
    for (LONG y = 0; y < rows; ++y) {
        for (LONG x = 0; x < width; ++x) {
            data[y * static_cast<size_t>(width) + x] = BarLuma(x, y, phase);
        }
    }
    // Chroma planes (or the interleaved NV12 plane) take the rest; a neutral grey is valid in all.
    memset(data + lumaSize, kChromaNeutral, size - lumaSize);
}

void PaintRgb(size_t bytesPerPixel, LONG width, LONG rows, uint32_t phase, BYTE* data,
              size_t size) {
    const size_t stride = ((static_cast<size_t>(width) * bytesPerPixel * 8 + 31) / 32) * 4;
    for (LONG y = 0; y < rows && (y + 1) * stride <= size; ++y) {
        BYTE* row = data + y * stride;
        for (LONG x = 0; x < width; ++x) {
            const BYTE level = ToFullRange(BarLuma(x, y, phase));
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

void WriteCounter(PixelLayout layout, LONG width, uint32_t counter, BYTE* data, size_t size) {
    const CounterLayout where = CounterLayoutOf(layout);
    for (int bit = 0; bit < kCounterPixels && bit < width; ++bit) {
        const bool one = (counter >> (31 - bit)) & 1;
        const size_t position = where.offset + bit * where.step;
        const size_t pixelBytes =
            where.yuv ? 1 : (where.step == 3 || where.step == 4 ? where.step : 2);
        if (position + pixelBytes > size) {
            return;
        }
        const BYTE value = where.yuv ? (one ? kLumaBright : kLumaDark) : (one ? 0xff : 0x00);
        memset(data + position, value, pixelBytes);
        if (!where.yuv && where.step == 4) {
            data[position + 3] = 0xff;
        }
    }
}

}  // namespace

void PaintFrame(const GUID& subtype, LONG width, LONG height, uint32_t counter, BYTE* data,
                size_t size) {
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
            PaintPackedYuv(true, width, rows, counter, data, size);
            break;
        case PixelLayout::UYVY:
            PaintPackedYuv(false, width, rows, counter, data, size);
            break;
        case PixelLayout::I420:
        case PixelLayout::YV12:
        case PixelLayout::NV12:
            PaintPlanarYuv(width, rows, counter, data, size);
            break;
        case PixelLayout::RGB24:
            PaintRgb(3, width, rows, counter, data, size);
            break;
        case PixelLayout::RGB32:
            PaintRgb(4, width, rows, counter, data, size);
            break;
        default:
            PaintRgb(2, width, rows, counter, data, size);
            break;
    }
    WriteCounter(layout, width, counter, data, size);
}

bool DecodeFrameCounter(const GUID& subtype, const BYTE* data, size_t size, uint32_t* counter) {
    const PixelLayout layout = LayoutOfSubtype(subtype);
    if (layout == PixelLayout::MJPG) {
        static const BYTE kHeader[] = {0xFF, 0xD8, 0xFF, 0xFE, 0x00, 0x0A, 'V', 'C', 'A', 'M'};
        if (size < sizeof(kHeader) + 4 || memcmp(data, kHeader, sizeof(kHeader)) != 0) {
            return false;
        }
        const BYTE* value = data + sizeof(kHeader);
        *counter = (static_cast<uint32_t>(value[0]) << 24) |
                   (static_cast<uint32_t>(value[1]) << 16) |
                   (static_cast<uint32_t>(value[2]) << 8) | value[3];
        return true;
    }
    const CounterLayout where = CounterLayoutOf(layout);
    if (where.offset + (kCounterPixels - 1) * where.step >= size) {
        return false;
    }
    uint32_t value = 0;
    for (int bit = 0; bit < kCounterPixels; ++bit) {
        value = (value << 1) | (data[where.offset + bit * where.step] >= 128 ? 1u : 0u);
    }
    *counter = value;
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
    for (LONG y = 0; y < height; ++y) {
        BYTE* row = rows + y * stride;
        for (LONG x = 0; x < width; ++x) {
            const BYTE level = ToFullRange(BarLuma(x, y, phase));
            row[3 * x] = level;
            row[3 * x + 1] = static_cast<BYTE>(255 - level);
            row[3 * x + 2] = static_cast<BYTE>((x * 255) / (width > 1 ? width - 1 : 1));
        }
    }
}

}  // namespace VirtualCamera
