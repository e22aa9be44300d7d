#include "tools/CaptureTool/Snapshot.h"

#include <windows.h>

#include <wincodec.h>
#include <wrl/client.h>

#include <algorithm>
#include <cstring>

#include "TinyFramework/Common/TinyCore.h"

namespace CaptureTool {
namespace {

using Microsoft::WRL::ComPtr;

uint8_t Clamp(int value) {
    return static_cast<uint8_t>(std::min(255, std::max(0, value)));
}

// One pixel through the BT.601 limited-range matrix in 8.8 fixed point.
void YuvToBgr(int y, int u, int v, uint8_t* bgr) {
    const int c = 298 * (y - 16) + 128;
    const int d = u - 128;
    const int e = v - 128;
    bgr[0] = Clamp((c + 516 * d) >> 8);
    bgr[1] = Clamp((c - 100 * d - 208 * e) >> 8);
    bgr[2] = Clamp((c + 409 * e) >> 8);
}

// Rows of a DIB are padded to whole 32-bit words.
UINT DibStride(int width, int bitsPerPixel) {
    return static_cast<UINT>((width * bitsPerPixel + 31) / 32 * 4);
}

// An uncompressed frame made ready for WIC: top-down rows in a WIC pixel format.
struct TopDownPicture {
    std::vector<uint8_t> bytes;
    UINT stride = 0;
    WICPixelFormatGUID pixelFormat = GUID_WICPixelFormat24bppBGR;
};

bool Fail(std::string& reason, const std::string& text) {
    reason = text;
    return false;
}

bool FailShortFrame(std::string& reason, size_t size, size_t needed) {
    return Fail(reason, "the frame holds " + std::to_string(size) + " bytes, not " +
                            std::to_string(needed));
}

bool FailHr(std::string& reason, const char* step, HRESULT hr) {
    return Fail(reason,
                TinyFramework::StringPrintf("%s failed (0x%08X)", step, static_cast<unsigned>(hr)));
}

// Copies RGB rows, turning bottom-up rows the right way up.
bool PrepareRgb(const std::vector<uint8_t>& frame, const DShow::VideoFormat& format,
                int bitsPerPixel, TopDownPicture& picture, std::string& reason) {
    const int width = format.size.cx;
    const int height = std::abs(format.size.cy);
    picture.stride = DibStride(width, bitsPerPixel);
    const size_t needed = static_cast<size_t>(picture.stride) * height;
    if (frame.size() < needed) {
        return FailShortFrame(reason, frame.size(), needed);
    }
    picture.bytes.assign(frame.begin(), frame.begin() + needed);
    if (format.GetFlip() != 0) {
        for (int row = 0; row < height; ++row) {
            memcpy(&picture.bytes[static_cast<size_t>(row) * picture.stride],
                   &frame[static_cast<size_t>(height - 1 - row) * picture.stride], picture.stride);
        }
    }
    // The fourth byte of RGB32 is padding more often than alpha: the picture is taken as opaque.
    picture.pixelFormat =
        bitsPerPixel == 32 ? GUID_WICPixelFormat32bppBGR : GUID_WICPixelFormat24bppBGR;
    return true;
}

bool PrepareYuy2(const std::vector<uint8_t>& frame, const DShow::VideoFormat& format,
                 TopDownPicture& picture, std::string& reason) {
    const int width = format.size.cx;
    const int height = std::abs(format.size.cy);
    const size_t needed = static_cast<size_t>(width) * 2 * height;
    if (frame.size() < needed) {
        return FailShortFrame(reason, frame.size(), needed);
    }
    picture.stride = static_cast<UINT>(width) * 3;
    picture.bytes.assign(static_cast<size_t>(picture.stride) * height, 0);
    Yuy2ToBgr(frame.data(), width, height, picture.bytes.data());
    picture.pixelFormat = GUID_WICPixelFormat24bppBGR;
    return true;
}

// The frame as a WIC bitmap source, before any conversion of its pixel format.
bool DecodeFrame(IWICImagingFactory* factory, const std::vector<uint8_t>& frame,
                 const DShow::VideoFormat& format, TopDownPicture& picture,
                 ComPtr<IWICBitmapSource>& source, std::string& reason) {
    HRESULT hr = S_OK;
    if (format.format == DShow::PIXEL_FORMAT_MJPEG) {
        ComPtr<IWICStream> stream;
        hr = factory->CreateStream(&stream);
        if (FAILED(hr)) {
            return FailHr(reason, "CreateStream", hr);
        }
        // The stream reads the kept bytes in place; `frame` outlives the encoding.
        hr = stream->InitializeFromMemory(const_cast<BYTE*>(frame.data()),
                                          static_cast<DWORD>(frame.size()));
        if (FAILED(hr)) {
            return FailHr(reason, "InitializeFromMemory", hr);
        }
        ComPtr<IWICBitmapDecoder> decoder;
        hr = factory->CreateDecoder(GUID_ContainerFormatJpeg, nullptr, &decoder);
        if (FAILED(hr)) {
            return FailHr(reason, "creating the JPEG decoder", hr);
        }
        hr = decoder->Initialize(stream.Get(), WICDecodeMetadataCacheOnDemand);
        if (FAILED(hr)) {
            return FailHr(reason, "decoding the JPEG frame", hr);
        }
        ComPtr<IWICBitmapFrameDecode> decoded;
        hr = decoder->GetFrame(0, &decoded);
        if (FAILED(hr)) {
            return FailHr(reason, "decoding the JPEG frame", hr);
        }
        source = decoded;
        return true;
    }
    bool prepared = false;
    switch (format.format) {
        case DShow::PIXEL_FORMAT_YUY2:
            prepared = PrepareYuy2(frame, format, picture, reason);
            break;
        case DShow::PIXEL_FORMAT_RGB24:
        case DShow::PIXEL_FORMAT_BGR24:
            prepared = PrepareRgb(frame, format, 24, picture, reason);
            break;
        case DShow::PIXEL_FORMAT_RGBA:
        case DShow::PIXEL_FORMAT_BGRA:
            prepared = PrepareRgb(frame, format, 32, picture, reason);
            break;
        default:
            return Fail(reason, std::string("no conversion from ") +
                                    DShow::GetPixelFormatName(format.format) + " frames");
    }
    if (!prepared) {
        return false;
    }
    ComPtr<IWICBitmap> bitmap;
    hr = factory->CreateBitmapFromMemory(
        static_cast<UINT>(format.size.cx), static_cast<UINT>(std::abs(format.size.cy)),
        picture.pixelFormat, picture.stride, static_cast<UINT>(picture.bytes.size()),
        picture.bytes.data(), &bitmap);
    if (FAILED(hr)) {
        return FailHr(reason, "CreateBitmapFromMemory", hr);
    }
    source = bitmap;
    return true;
}

// `source` in 24-bit BGR, converted when it is in another pixel format.
bool ToBgr24(IWICImagingFactory* factory, const ComPtr<IWICBitmapSource>& source,
             ComPtr<IWICBitmapSource>& bgr, std::string& reason) {
    WICPixelFormatGUID pixelFormat{};
    HRESULT hr = source->GetPixelFormat(&pixelFormat);
    if (FAILED(hr)) {
        return FailHr(reason, "GetPixelFormat", hr);
    }
    if (IsEqualGUID(pixelFormat, GUID_WICPixelFormat24bppBGR)) {
        bgr = source;
        return true;
    }
    ComPtr<IWICFormatConverter> converter;
    hr = factory->CreateFormatConverter(&converter);
    if (FAILED(hr)) {
        return FailHr(reason, "CreateFormatConverter", hr);
    }
    hr = converter->Initialize(source.Get(), GUID_WICPixelFormat24bppBGR, WICBitmapDitherTypeNone,
                               nullptr, 0.0, WICBitmapPaletteTypeCustom);
    if (FAILED(hr)) {
        return FailHr(reason, "converting to 24-bit BGR", hr);
    }
    bgr = converter;
    return true;
}

bool EncodePng(IWICImagingFactory* factory, IWICBitmapSource* source, IWICStream* stream,
               std::string& reason) {
    ComPtr<IWICBitmapEncoder> encoder;
    HRESULT hr = factory->CreateEncoder(GUID_ContainerFormatPng, nullptr, &encoder);
    if (FAILED(hr)) {
        return FailHr(reason, "creating the PNG encoder", hr);
    }
    hr = encoder->Initialize(stream, WICBitmapEncoderNoCache);
    if (FAILED(hr)) {
        return FailHr(reason, "starting the PNG encoder", hr);
    }
    ComPtr<IWICBitmapFrameEncode> frame;
    ComPtr<IPropertyBag2> options;
    hr = encoder->CreateNewFrame(&frame, &options);
    if (SUCCEEDED(hr)) {
        hr = frame->Initialize(options.Get());
    }
    UINT width = 0;
    UINT height = 0;
    if (SUCCEEDED(hr)) {
        hr = source->GetSize(&width, &height);
    }
    if (SUCCEEDED(hr)) {
        hr = frame->SetSize(width, height);
    }
    WICPixelFormatGUID pixelFormat = GUID_WICPixelFormat24bppBGR;
    if (SUCCEEDED(hr)) {
        hr = frame->SetPixelFormat(&pixelFormat);
    }
    if (FAILED(hr)) {
        return FailHr(reason, "setting up the PNG frame", hr);
    }
    // WriteSource converts again should the encoder have chosen another pixel format.
    hr = frame->WriteSource(source, nullptr);
    if (SUCCEEDED(hr)) {
        hr = frame->Commit();
    }
    if (SUCCEEDED(hr)) {
        hr = encoder->Commit();
    }
    return SUCCEEDED(hr) || FailHr(reason, "writing the PNG", hr);
}

bool WriteToFile(IWICImagingFactory* factory, IWICBitmapSource* source, const std::wstring& path,
                 std::string& reason) {
    ComPtr<IWICStream> stream;
    HRESULT hr = factory->CreateStream(&stream);
    if (FAILED(hr)) {
        return FailHr(reason, "CreateStream", hr);
    }
    hr = stream->InitializeFromFilename(path.c_str(), GENERIC_WRITE);
    if (FAILED(hr)) {
        const DWORD code = HRESULT_FACILITY(hr) == FACILITY_WIN32 ? HRESULT_CODE(hr) : hr;
        std::string text = TinyFramework::GetErrorText(code);
        // The system's texts end in a line break (or spaces) that has no place inside one line.
        text.erase(text.find_last_not_of(" \r\n") + 1);
        return Fail(reason, TinyFramework::StringPrintf("cannot create the file (0x%08X: %s)",
                                                        static_cast<unsigned>(hr), text.c_str()));
    }
    const bool written = EncodePng(factory, source, stream.Get(), reason);
    // The stream holds the file open: release it before removing what it began.
    stream.Reset();
    if (!written) {
        DeleteFileW(path.c_str());
    }
    return written;
}

}  // namespace

void Yuy2ToBgr(const uint8_t* yuy2, int width, int height, uint8_t* bgr) {
    const size_t inStride = static_cast<size_t>(width) * 2;
    const size_t outStride = static_cast<size_t>(width) * 3;
    for (int row = 0; row < height; ++row) {
        const uint8_t* in = yuy2 + row * inStride;
        uint8_t* out = bgr + row * outStride;
        for (int x = 0; x + 1 < width; x += 2) {
            const uint8_t* pair = in + x * 2;
            YuvToBgr(pair[0], pair[1], pair[3], out + x * 3);
            YuvToBgr(pair[2], pair[1], pair[3], out + (x + 1) * 3);
        }
    }
}

void FrameKeeper::Keep(const unsigned char* bits, long size) {
    if (bits == nullptr || size <= 0) {
        return;
    }
    TinyFramework::TinyAutoLock lock(m_lock);
    m_frame.assign(bits, bits + size);
}

std::vector<uint8_t> FrameKeeper::Frame() {
    TinyFramework::TinyAutoLock lock(m_lock);
    return m_frame;
}

bool WriteSnapshotPng(const std::vector<uint8_t>& frame, const DShow::VideoFormat& format,
                      const std::wstring& path, std::string& reason) {
    if (frame.empty()) {
        return Fail(reason, "no frame arrived");
    }
    ComPtr<IWICImagingFactory> factory;
    HRESULT hr = CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                                  IID_PPV_ARGS(&factory));
    if (FAILED(hr)) {
        return FailHr(reason, "creating the imaging factory", hr);
    }
    TopDownPicture picture;
    ComPtr<IWICBitmapSource> source;
    ComPtr<IWICBitmapSource> bgr;
    return DecodeFrame(factory.Get(), frame, format, picture, source, reason) &&
           ToBgr24(factory.Get(), source, bgr, reason) &&
           WriteToFile(factory.Get(), bgr.Get(), path, reason);
}

}  // namespace CaptureTool
