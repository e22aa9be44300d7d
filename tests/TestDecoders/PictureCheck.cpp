#include "PictureCheck.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "tools/VirtualCamera/Config/FramePattern.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"

namespace DecoderTests {
namespace {

int Clip(double value) {
    const long rounded = std::lround(value);
    return static_cast<int>(std::min(255L, std::max(0L, rounded)));
}

// The Y, U and V of one pixel of a camera frame, read by the layouts' own definitions.
struct YuvSample {
    int y;
    int u;
    int v;
};

YuvSample SampleAt(VirtualCamera::PixelLayout layout, const std::vector<BYTE>& frame, LONG width,
                   LONG rows, LONG x, LONG row) {
    const size_t lumaBytes = static_cast<size_t>(width) * rows;
    const size_t chromaIndex = static_cast<size_t>(row / 2) * (width / 2) + x / 2;
    switch (layout) {
        case VirtualCamera::PixelLayout::YUY2: {
            const BYTE* pair = &frame[static_cast<size_t>(row) * width * 2 + (x / 2) * 4];
            return {pair[(x % 2) * 2], pair[1], pair[3]};
        }
        case VirtualCamera::PixelLayout::UYVY: {
            const BYTE* pair = &frame[static_cast<size_t>(row) * width * 2 + (x / 2) * 4];
            return {pair[1 + (x % 2) * 2], pair[0], pair[2]};
        }
        case VirtualCamera::PixelLayout::YV12:
            return {frame[static_cast<size_t>(row) * width + x],
                    frame[lumaBytes + lumaBytes / 4 + chromaIndex], frame[lumaBytes + chromaIndex]};
        case VirtualCamera::PixelLayout::NV12: {
            const size_t pair = lumaBytes + static_cast<size_t>(row / 2) * width + (x / 2) * 2;
            return {frame[static_cast<size_t>(row) * width + x], frame[pair], frame[pair + 1]};
        }
        default:  // I420 and IYUV
            return {frame[static_cast<size_t>(row) * width + x], frame[lumaBytes + chromaIndex],
                    frame[lumaBytes + lumaBytes / 4 + chromaIndex]};
    }
}

}  // namespace

Rgb ReferenceYuvToRgb(int y, int u, int v) {
    const double c = 1.164383 * (y - 16);
    const double d = u - 128;
    const double e = v - 128;
    return {Clip(c + 1.596027 * e), Clip(c - 0.391762 * d - 0.812968 * e), Clip(c + 2.017232 * d)};
}

Picture ExpectedYuvPicture(const GUID& subtype, LONG width, LONG rows, uint32_t counter) {
    std::vector<BYTE> frame(VirtualCamera::ImageSize(subtype, width, rows));
    VirtualCamera::PaintFrame(subtype, width, rows, counter, frame.data(), frame.size());
    const VirtualCamera::PixelLayout layout = VirtualCamera::LayoutOfSubtype(subtype);
    Picture picture;
    picture.width = width;
    picture.rows = rows;
    for (LONG row = 0; row < rows; ++row) {
        for (LONG x = 0; x < width; ++x) {
            const YuvSample sample = SampleAt(layout, frame, width, rows, x, row);
            picture.pixels.push_back(ReferenceYuvToRgb(sample.y, sample.u, sample.v));
        }
    }
    return picture;
}

Picture ExpectedJpegPicture(LONG width, LONG rows, uint32_t counter) {
    // The camera encodes each of its phases once: frame n shows phase n % kPhases, which moves
    // the bars by four of the painter's steps.
    const uint32_t phase = counter % 16;
    const size_t stride = static_cast<size_t>(width) * 3;
    std::vector<BYTE> bgr(stride * rows);
    VirtualCamera::PaintBgrPicture(width, rows, phase * 4, bgr.data(), stride);
    Picture picture;
    picture.width = width;
    picture.rows = rows;
    for (size_t i = 0; i < bgr.size(); i += 3) {
        picture.pixels.push_back({bgr[i + 2], bgr[i + 1], bgr[i]});
    }
    return picture;
}

Picture PictureOfRgb32(const std::vector<BYTE>& bits, LONG width, LONG height) {
    Picture picture;
    picture.width = width;
    picture.rows = height < 0 ? -height : height;
    const size_t stride = static_cast<size_t>(width) * 4;
    if (bits.size() < stride * picture.rows) return picture;
    for (LONG row = 0; row < picture.rows; ++row) {
        const LONG memoryRow = height > 0 ? picture.rows - 1 - row : row;
        const BYTE* line = &bits[memoryRow * stride];
        for (LONG x = 0; x < width; ++x) {
            picture.pixels.push_back({line[x * 4 + 2], line[x * 4 + 1], line[x * 4]});
        }
    }
    return picture;
}

uint32_t CounterOfPicture(const Picture& picture) {
    uint32_t counter = 0;
    for (LONG x = 0; x < VirtualCamera::kCounterPixels && x < picture.width; ++x) {
        const Rgb& pixel = picture.At(x, 0);
        const int luma = (299 * pixel.red + 587 * pixel.green + 114 * pixel.blue) / 1000;
        counter = (counter << 1) | (luma >= 128 ? 1u : 0u);
    }
    return counter;
}

Difference ComparePictures(const Picture& actual, const Picture& expected) {
    Difference difference;
    if (actual.width != expected.width || actual.rows != expected.rows ||
        actual.pixels.size() != expected.pixels.size()) {
        difference.largest = 256;
        difference.where = "the pictures differ in size";
        return difference;
    }
    double total = 0.0;
    for (LONG row = 0; row < actual.rows; ++row) {
        for (LONG x = 0; x < actual.width; ++x) {
            const Rgb& a = actual.At(x, row);
            const Rgb& e = expected.At(x, row);
            const int channels[3] = {std::abs(a.red - e.red), std::abs(a.green - e.green),
                                     std::abs(a.blue - e.blue)};
            for (int channel : channels) {
                total += channel;
                if (channel > difference.largest) {
                    difference.largest = channel;
                    difference.where =
                        "at x " + std::to_string(x) + ", row " + std::to_string(row) + ": got " +
                        std::to_string(a.red) + "," + std::to_string(a.green) + "," +
                        std::to_string(a.blue) + ", expected " + std::to_string(e.red) + "," +
                        std::to_string(e.green) + "," + std::to_string(e.blue);
                }
            }
        }
    }
    difference.mean = total / (3.0 * actual.pixels.size());
    return difference;
}

}  // namespace DecoderTests
