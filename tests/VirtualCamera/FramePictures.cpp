#include "FramePictures.h"

#include <wincodec.h>
#include <wrl/client.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "tools/VirtualCamera/Config/FramePattern.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"
#include "tools/VirtualCamera/Filter/JpegEncoder.h"

namespace VirtualCameraTests {
namespace {

using Microsoft::WRL::ComPtr;

// The camera's JPEG encoder moves the bars by this many of the painter's steps from one of its
// pictures to the next (JpegEncoder::Encode), so that the motion stays visible over its few
// pictures.
constexpr uint32_t kPainterStepsPerJpegPicture = 4;

BYTE Clip(double value) {
    const long rounded = std::lround(value);
    return static_cast<BYTE>(std::min(255L, std::max(0L, rounded)));
}

struct YuvSample {
    int y;
    int u;
    int v;
};

// The Y, U and V of one pixel of a painted frame, read by each layout's own definition.
YuvSample SampleAt(VirtualCamera::PixelLayout layout, const std::vector<BYTE>& frame, LONG width,
                   LONG rows, LONG x, LONG row) {
    const size_t lumaBytes = static_cast<size_t>(width) * rows;
    const size_t luma = static_cast<size_t>(row) * width + x;
    const size_t quarter = static_cast<size_t>(row / 2) * (width / 2) + x / 2;
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
            return {frame[luma], frame[lumaBytes + lumaBytes / 4 + quarter],
                    frame[lumaBytes + quarter]};
        case VirtualCamera::PixelLayout::NV12: {
            const size_t pair = lumaBytes + static_cast<size_t>(row / 2) * width + (x / 2) * 2;
            return {frame[luma], frame[pair], frame[pair + 1]};
        }
        default:  // I420 and IYUV
            return {frame[luma], frame[lumaBytes + quarter],
                    frame[lumaBytes + lumaBytes / 4 + quarter]};
    }
}

bool IsYuv(VirtualCamera::PixelLayout layout) {
    switch (layout) {
        case VirtualCamera::PixelLayout::YUY2:
        case VirtualCamera::PixelLayout::UYVY:
        case VirtualCamera::PixelLayout::I420:
        case VirtualCamera::PixelLayout::YV12:
        case VirtualCamera::PixelLayout::NV12:
            return true;
        default:
            return false;
    }
}

RgbPicture YuvPicture(const GUID& subtype, LONG width, LONG rows, uint32_t counter) {
    const std::vector<BYTE> frame = ReferenceFrameBytes(subtype, width, rows, counter);
    const VirtualCamera::PixelLayout layout = VirtualCamera::LayoutOfSubtype(subtype);
    RgbPicture picture;
    picture.width = width;
    picture.rows = rows;
    picture.rgb.reserve(static_cast<size_t>(width) * rows * 3);
    for (LONG row = 0; row < rows; ++row) {
        for (LONG x = 0; x < width; ++x) {
            const YuvSample sample = SampleAt(layout, frame, width, rows, x, row);
            const double c = 1.164383 * (sample.y - 16);
            const double d = sample.u - 128;
            const double e = sample.v - 128;
            picture.rgb.push_back(Clip(c + 1.596027 * e));
            picture.rgb.push_back(Clip(c - 0.391762 * d - 0.812968 * e));
            picture.rgb.push_back(Clip(c + 2.017232 * d));
        }
    }
    return picture;
}

RgbPicture JpegSourcePicture(LONG width, LONG rows, uint32_t counter) {
    const uint32_t picture = counter % JpegPictureCount();
    const size_t stride = static_cast<size_t>(width) * 3;
    std::vector<BYTE> bgr(stride * rows);
    VirtualCamera::PaintBgrPicture(width, rows, picture * kPainterStepsPerJpegPicture, bgr.data(),
                                   stride);
    RgbPicture result;
    result.width = width;
    result.rows = rows;
    result.rgb.reserve(bgr.size());
    for (size_t i = 0; i < bgr.size(); i += 3) {
        result.rgb.push_back(bgr[i + 2]);
        result.rgb.push_back(bgr[i + 1]);
        result.rgb.push_back(bgr[i]);
    }
    return result;
}

}  // namespace

std::vector<BYTE> ReferenceFrameBytes(const GUID& subtype, LONG width, LONG height,
                                      uint32_t counter) {
    if (VirtualCamera::LayoutOfSubtype(subtype) == VirtualCamera::PixelLayout::MJPG) {
        return std::vector<BYTE>();
    }
    std::vector<BYTE> frame(VirtualCamera::ImageSize(subtype, width, height));
    VirtualCamera::PaintFrame(subtype, width, height, counter, frame.data(), frame.size());
    return frame;
}

RgbPicture ReferencePicture(const GUID& subtype, LONG width, LONG rows, uint32_t counter) {
    const VirtualCamera::PixelLayout layout = VirtualCamera::LayoutOfSubtype(subtype);
    if (layout == VirtualCamera::PixelLayout::MJPG) {
        return JpegSourcePicture(width, rows, counter);
    }
    return IsYuv(layout) ? YuvPicture(subtype, width, rows, counter) : RgbPicture();
}

uint32_t JpegPictureCount() {
    return VirtualCamera::JpegEncoder::kPhases;
}

RgbPicture PictureOfRgb32(const BYTE* bits, size_t size, LONG width, LONG height) {
    RgbPicture picture;
    const LONG rows = height < 0 ? -height : height;
    const size_t stride = static_cast<size_t>(width) * 4;
    if (width <= 0 || size < stride * rows) {
        return picture;
    }
    picture.width = width;
    picture.rows = rows;
    picture.rgb.reserve(static_cast<size_t>(width) * rows * 3);
    for (LONG row = 0; row < rows; ++row) {
        const LONG memoryRow = height > 0 ? rows - 1 - row : row;
        const BYTE* line = bits + memoryRow * stride;
        for (LONG x = 0; x < width; ++x) {
            picture.rgb.push_back(line[x * 4 + 2]);
            picture.rgb.push_back(line[x * 4 + 1]);
            picture.rgb.push_back(line[x * 4]);
        }
    }
    return picture;
}

bool PictureOfJpeg(const BYTE* data, size_t size, RgbPicture* picture) {
    ComPtr<IWICImagingFactory> factory;
    ComPtr<IWICStream> stream;
    ComPtr<IWICBitmapDecoder> decoder;
    ComPtr<IWICBitmapFrameDecode> frame;
    ComPtr<IWICFormatConverter> converter;
    HRESULT hr = CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                                  IID_PPV_ARGS(&factory));
    if (SUCCEEDED(hr)) {
        hr = factory->CreateStream(&stream);
    }
    if (SUCCEEDED(hr)) {
        // WIC only reads the memory; the parameter is merely not declared const.
        hr = stream->InitializeFromMemory(const_cast<BYTE*>(data), static_cast<DWORD>(size));
    }
    if (SUCCEEDED(hr)) {
        hr = factory->CreateDecoderFromStream(stream.Get(), &GUID_ContainerFormatJpeg,
                                              WICDecodeMetadataCacheOnDemand, &decoder);
    }
    if (SUCCEEDED(hr)) {
        hr = decoder->GetFrame(0, &frame);
    }
    if (SUCCEEDED(hr)) {
        hr = factory->CreateFormatConverter(&converter);
    }
    if (SUCCEEDED(hr)) {
        hr =
            converter->Initialize(frame.Get(), GUID_WICPixelFormat24bppRGB, WICBitmapDitherTypeNone,
                                  nullptr, 0.0, WICBitmapPaletteTypeCustom);
    }
    UINT width = 0;
    UINT rows = 0;
    if (SUCCEEDED(hr)) {
        hr = converter->GetSize(&width, &rows);
    }
    if (FAILED(hr)) {
        return false;
    }
    picture->width = static_cast<LONG>(width);
    picture->rows = static_cast<LONG>(rows);
    picture->rgb.assign(static_cast<size_t>(width) * rows * 3, 0);
    return SUCCEEDED(converter->CopyPixels(
        nullptr, width * 3, static_cast<UINT>(picture->rgb.size()), picture->rgb.data()));
}

uint32_t CounterOfPicture(const RgbPicture& picture) {
    uint32_t counter = 0;
    for (LONG x = 0; x < VirtualCamera::kCounterPixels && x < picture.width; ++x) {
        const BYTE* pixel = picture.At(x, 0);
        const int luma = (299 * pixel[0] + 587 * pixel[1] + 114 * pixel[2]) / 1000;
        counter = (counter << 1) | (luma >= 128 ? 1u : 0u);
    }
    return counter;
}

PictureDifference ComparePictures(const RgbPicture& actual, const RgbPicture& expected) {
    PictureDifference difference;
    if (actual.width != expected.width || actual.rows != expected.rows ||
        actual.rgb.size() != expected.rgb.size() || actual.rgb.empty()) {
        difference.largest = 256;
        difference.mean = 256.0;
        difference.where = "the pictures differ in size";
        return difference;
    }
    double total = 0.0;
    for (size_t i = 0; i < actual.rgb.size(); ++i) {
        const int channel = std::abs(actual.rgb[i] - expected.rgb[i]);
        total += channel;
        if (channel > difference.largest) {
            const size_t pixel = i / 3;
            difference.largest = channel;
            difference.where = "channel " + std::to_string(i % 3) + " at x " +
                               std::to_string(pixel % actual.width) + ", row " +
                               std::to_string(pixel / actual.width) + ": got " +
                               std::to_string(actual.rgb[i]) + ", expected " +
                               std::to_string(expected.rgb[i]);
        }
    }
    difference.mean = total / static_cast<double>(actual.rgb.size());
    return difference;
}

}  // namespace VirtualCameraTests
