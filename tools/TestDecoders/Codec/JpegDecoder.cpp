#include "tools/TestDecoders/Codec/JpegDecoder.h"

#include <objbase.h>
#include <wincodec.h>
#include <wrl/client.h>

using Microsoft::WRL::ComPtr;

namespace TestDecoders {
namespace {

// COM for one call on a thread of the codec's caller. A thread that is in an apartment already
// keeps it (a single-threaded one answers RPC_E_CHANGED_MODE, and WIC works there too).
class ComForThisCall {
public:
    ComForThisCall() : m_result(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    ~ComForThisCall() {
        if (SUCCEEDED(m_result)) {
            CoUninitialize();
        }
    }
    ComForThisCall(const ComForThisCall&) = delete;
    ComForThisCall& operator=(const ComForThisCall&) = delete;
    bool Usable() const { return SUCCEEDED(m_result) || m_result == RPC_E_CHANGED_MODE; }

private:
    HRESULT m_result;
};

HRESULT OpenFrame(IWICImagingFactory* factory, const BYTE* data, DWORD size,
                  ComPtr<IWICBitmapFrameDecode>* frame) {
    ComPtr<IWICStream> stream;
    HRESULT hr = factory->CreateStream(&stream);
    if (SUCCEEDED(hr)) {
        // WIC only reads from the memory; the parameter is merely not declared const.
        hr = stream->InitializeFromMemory(const_cast<BYTE*>(data), size);
    }
    ComPtr<IWICBitmapDecoder> decoder;
    if (SUCCEEDED(hr)) {
        hr = factory->CreateDecoderFromStream(stream.Get(), &GUID_ContainerFormatJpeg,
                                              WICDecodeMetadataCacheOnDemand, &decoder);
    }
    if (SUCCEEDED(hr)) {
        hr = decoder->GetFrame(0, frame->ReleaseAndGetAddressOf());
    }
    return hr;
}

}  // namespace

size_t JpegScratchStride(LONG width) {
    return ((static_cast<size_t>(width) * 3 + 3) / 4) * 4;
}

JpegResult DecodeJpegToBgr(const BYTE* data, DWORD size, LONG width, LONG rows,
                           std::vector<BYTE>* pixels) {
    ComForThisCall com;
    if (!com.Usable()) {
        return JpegResult::Undecodable;
    }
    ComPtr<IWICImagingFactory> factory;
    if (FAILED(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                                IID_PPV_ARGS(&factory)))) {
        return JpegResult::Undecodable;
    }
    ComPtr<IWICBitmapFrameDecode> frame;
    if (FAILED(OpenFrame(factory.Get(), data, size, &frame))) {
        return JpegResult::Undecodable;
    }
    UINT frameWidth = 0;
    UINT frameRows = 0;
    if (FAILED(frame->GetSize(&frameWidth, &frameRows))) {
        return JpegResult::Undecodable;
    }
    if (frameWidth != static_cast<UINT>(width) || frameRows != static_cast<UINT>(rows)) {
        return JpegResult::SizeMismatch;
    }
    ComPtr<IWICFormatConverter> converter;
    HRESULT hr = factory->CreateFormatConverter(&converter);
    if (SUCCEEDED(hr)) {
        hr =
            converter->Initialize(frame.Get(), GUID_WICPixelFormat24bppBGR, WICBitmapDitherTypeNone,
                                  nullptr, 0.0, WICBitmapPaletteTypeCustom);
    }
    const size_t stride = JpegScratchStride(width);
    pixels->resize(stride * static_cast<size_t>(rows));
    if (SUCCEEDED(hr)) {
        hr = converter->CopyPixels(nullptr, static_cast<UINT>(stride),
                                   static_cast<UINT>(pixels->size()), pixels->data());
    }
    return SUCCEEDED(hr) ? JpegResult::Decoded : JpegResult::Undecodable;
}

}  // namespace TestDecoders
