#include "tools/VirtualCamera/Filter/JpegEncoder.h"

#include "tools/VirtualCamera/Config/FramePattern.h"

using Microsoft::WRL::ComPtr;

namespace VirtualCamera {
namespace {

HRESULT ReadStream(IStream* stream, std::vector<BYTE>* bytes) {
    HGLOBAL memory = nullptr;
    HRESULT hr = GetHGlobalFromStream(stream, &memory);
    if (FAILED(hr)) {
        return hr;
    }
    STATSTG stat = {};
    hr = stream->Stat(&stat, STATFLAG_NONAME);
    if (FAILED(hr)) {
        return hr;
    }
    const void* data = GlobalLock(memory);
    if (!data) {
        return E_FAIL;
    }
    const auto* begin = static_cast<const BYTE*>(data);
    bytes->assign(begin, begin + stat.cbSize.QuadPart);
    GlobalUnlock(memory);
    return S_OK;
}

}  // namespace

HRESULT JpegEncoder::EnsureFactory() {
    if (m_factory) {
        return S_OK;
    }
    return CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER,
                            IID_PPV_ARGS(&m_factory));
}

const std::vector<BYTE>& JpegEncoder::PictureFor(uint32_t frameCounter,
                                                 const PictureSettings& picture) {
    if (picture != m_cachedPicture) {
        m_cache.clear();
        m_cachedPicture = picture;
    }
    const uint32_t phase = frameCounter % kPhases;
    auto found = m_cache.find(phase);
    if (found != m_cache.end()) {
        return found->second;
    }
    std::vector<BYTE> jpeg;
    if (FAILED(Encode(phase, &jpeg))) {
        return m_empty;
    }
    return m_cache.emplace(phase, std::move(jpeg)).first->second;
}

HRESULT JpegEncoder::Encode(uint32_t phase, std::vector<BYTE>* jpeg) {
    if (m_width <= 0 || m_height == 0) {
        return E_INVALIDARG;
    }
    const LONG rows = m_height < 0 ? -m_height : m_height;
    HRESULT hr = EnsureFactory();
    if (FAILED(hr)) {
        return hr;
    }
    ComPtr<IStream> stream;
    hr = CreateStreamOnHGlobal(nullptr, TRUE, &stream);
    if (FAILED(hr)) {
        return hr;
    }
    ComPtr<IWICBitmapEncoder> encoder;
    hr = m_factory->CreateEncoder(GUID_ContainerFormatJpeg, nullptr, &encoder);
    if (FAILED(hr)) {
        return hr;
    }
    hr = encoder->Initialize(stream.Get(), WICBitmapEncoderNoCache);
    if (FAILED(hr)) {
        return hr;
    }
    ComPtr<IWICBitmapFrameEncode> frame;
    ComPtr<IPropertyBag2> options;
    hr = encoder->CreateNewFrame(&frame, &options);
    if (FAILED(hr)) {
        return hr;
    }
    hr = frame->Initialize(options.Get());
    if (FAILED(hr)) {
        return hr;
    }
    hr = frame->SetSize(static_cast<UINT>(m_width), static_cast<UINT>(rows));
    if (FAILED(hr)) {
        return hr;
    }
    WICPixelFormatGUID format = GUID_WICPixelFormat24bppBGR;
    hr = frame->SetPixelFormat(&format);
    if (FAILED(hr)) {
        return hr;
    }
    if (!IsEqualGUID(format, GUID_WICPixelFormat24bppBGR)) {
        return E_FAIL;
    }
    const size_t stride = ((static_cast<size_t>(m_width) * 3 + 3) / 4) * 4;
    std::vector<BYTE> pixels(stride * rows);
    // Each cached phase moves the bars by four steps so the motion stays visible.
    PaintBgrPicture(m_width, rows, phase * 4, m_cachedPicture, pixels.data(), stride);
    hr = frame->WritePixels(static_cast<UINT>(rows), static_cast<UINT>(stride),
                            static_cast<UINT>(pixels.size()), pixels.data());
    if (FAILED(hr)) {
        return hr;
    }
    hr = frame->Commit();
    if (FAILED(hr)) {
        return hr;
    }
    hr = encoder->Commit();
    if (FAILED(hr)) {
        return hr;
    }
    return ReadStream(stream.Get(), jpeg);
}

}  // namespace VirtualCamera
