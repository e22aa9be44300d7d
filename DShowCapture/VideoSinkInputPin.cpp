#include "DShowCapture/VideoSinkInputPin.h"

#include <cstdint>
#include <cstdlib>

#include "DShowCapture/MediaTypes.h"

namespace DShow {

namespace {

constexpr REFERENCE_TIME kUnitsPerSecond = 10000000;

// How a frame's byte size follows from its width and height.
enum class ImageLayout {
    Planar12,  // width x height x 3 / 2
    Packed16,  // width x height x 2
    RgbRows,   // rows rounded up to whole 32-bit words
};

// What the pin offers for a requested pixel format.
struct OfferRow {
    VideoPixelFormat format;
    DWORD compression;
    WORD bitCount;
    ImageLayout layout;
    const GUID* subtype;
};

// The requested formats that the pin can offer. Its numbers for RGB (7, 9, 10) are those of
// the format listing, while CheckMediaType answers 11 and 12 for the same subtypes: an owner
// that asks for 11, 12 or 13 gets no offer, though the pin accepts those subtypes when the peer
// proposes them.
const OfferRow kOfferRows[] = {
    {PIXEL_FORMAT_I420, MAKEFOURCC('I', '4', '2', '0'), 12, ImageLayout::Planar12,
     &MEDIASUBTYPE_I420},
    {PIXEL_FORMAT_NV12, MAKEFOURCC('N', 'V', '1', '2'), 12, ImageLayout::Planar12,
     &MEDIASUBTYPE_NV12},
    {PIXEL_FORMAT_YUY2, MAKEFOURCC('Y', 'U', 'Y', '2'), 16, ImageLayout::Packed16,
     &MEDIASUBTYPE_YUY2},
    {static_cast<VideoPixelFormat>(7), MAKEFOURCC('A', 'R', 'G', 'B'), 32, ImageLayout::RgbRows,
     &MEDIASUBTYPE_ARGB32},
    {PIXEL_FORMAT_RGB24, BI_RGB, 24, ImageLayout::RgbRows, &MEDIASUBTYPE_RGB24},
    {PIXEL_FORMAT_RGBA, BI_RGB, 32, ImageLayout::RgbRows, &MEDIASUBTYPE_RGB32},
};

const OfferRow* FindOfferRow(VideoPixelFormat format) {
    for (const OfferRow& row : kOfferRows) {
        if (row.format == format) {
            return &row;
        }
    }
    return nullptr;
}

DWORD ImageSize(const OfferRow& row, LONG width, LONG height) {
    const int64_t w = width;
    const int64_t h = height;
    switch (row.layout) {
        case ImageLayout::Planar12:
            return static_cast<DWORD>(w * h * 3 / 2);
        case ImageLayout::Packed16:
            return static_cast<DWORD>(w * h * 2);
        case ImageLayout::RgbRows:
            return static_cast<DWORD>((w * row.bitCount + 31) / 32 * h * 4);
    }
    return 0;
}

// What the pin accepts, in the order it is judged.
struct AcceptRow {
    const GUID* subtype;
    VideoPixelFormat format;
    bool bottomUp;  // RGB rows come bottom-up: the owner is told through the flip mark
};

const AcceptRow kAcceptRows[] = {
    {&MEDIASUBTYPE_RGB24, PIXEL_FORMAT_BGR24, true}, {&MEDIASUBTYPE_RGB32, PIXEL_FORMAT_BGRA, true},
    {&MEDIASUBTYPE_ARGB32, PIXEL_FORMAT_BGRA, true}, {&MEDIASUBTYPE_I420, PIXEL_FORMAT_I420, false},
    {&MEDIASUBTYPE_NV12, PIXEL_FORMAT_NV12, false},  {&MEDIASUBTYPE_YUY2, PIXEL_FORMAT_YUY2, false},
};

}  // namespace

VideoSinkInputPin::VideoSinkInputPin(FilterBase* filter, FilterObserver* observer)
    : InputPinBase(filter, observer), m_mjpegDecEnabled(0) {}

VideoSinkInputPin::~VideoSinkInputPin() = default;

void VideoSinkInputPin::SetFormat(const VideoFormat& format) {
    m_requestedFormat = format;
    m_currentFormat.SetSize(0, 0);
    m_currentFormat.SetRate(0.0f);
    m_currentFormat.SetFormat(PIXEL_FORMAT_UNKNOWN);
}

HRESULT VideoSinkInputPin::CheckMediaType(const AM_MEDIA_TYPE* type) {
    if (type->majortype != MEDIATYPE_Video) {
        return E_INVALIDARG;
    }
    if (type->formattype != FORMAT_VideoInfo) {
        return E_INVALIDARG;
    }
    if (type->pbFormat == nullptr) {
        return E_INVALIDARG;
    }
    const auto* header = reinterpret_cast<const VIDEOINFOHEADER*>(type->pbFormat);
    // Size and rate are recorded before the subtype is judged: what the owner reads after a
    // refused type is that type's size and rate. The size is not compared with the request,
    // so any size of an accepted subtype connects.
    m_currentFormat.SetSize(header->bmiHeader.biWidth, std::abs(header->bmiHeader.biHeight));
    if (header->AvgTimePerFrame >= 1) {
        // Whole frames per second: 333667 (29.97 fps) gives 29.
        m_currentFormat.SetRate(static_cast<float>(kUnitsPerSecond / header->AvgTimePerFrame));
    } else {
        m_currentFormat.SetRate(m_requestedFormat.rate);
    }
    if (type->subtype == MEDIASUBTYPE_MJPG && m_mjpegDecEnabled == 0) {
        m_currentFormat.SetFormat(PIXEL_FORMAT_MJPEG);
        return S_OK;
    }
    for (const AcceptRow& row : kAcceptRows) {
        if (type->subtype == *row.subtype) {
            m_currentFormat.SetFormat(row.format);
            if (row.bottomUp) {
                m_currentFormat.SetFlip();
            }
            return S_OK;
        }
    }
    return E_FAIL;
}

HRESULT VideoSinkInputPin::GetMediaType(int position, AM_MEDIA_TYPE* type) {
    // One type only; the end of the list is a failure, which the enumerator takes as the end.
    if (position != 0) {
        return E_FAIL;
    }
    // A block that the caller brings is used whatever its size: callers here bring either none
    // or one of a whole VIDEOINFOHEADER.
    if (type->pbFormat == nullptr || type->cbFormat == 0) {
        type->cbFormat = sizeof(VIDEOINFOHEADER);
        type->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(type->cbFormat));
    }
    auto* header = reinterpret_cast<VIDEOINFOHEADER*>(type->pbFormat);
    ZeroMemory(header, sizeof(VIDEOINFOHEADER));
    header->bmiHeader.biSize = sizeof(BITMAPINFOHEADER);
    header->bmiHeader.biPlanes = 1;
    const float rate = m_requestedFormat.rate;
    if (rate > 0.0f) {
        // In single precision, as the rate is kept: 30.0 gives 333333.
        header->AvgTimePerFrame = static_cast<REFERENCE_TIME>(1e7f / rate);
    }
    type->majortype = MEDIATYPE_Video;
    type->bTemporalCompression = FALSE;
    type->formattype = FORMAT_VideoInfo;
    const OfferRow* row = FindOfferRow(m_requestedFormat.format);
    if (row == nullptr) {
        return E_FAIL;
    }
    const TinySize& size = m_requestedFormat.size;
    header->bmiHeader.biWidth = size.cx;
    header->bmiHeader.biHeight = size.cy;
    header->bmiHeader.biCompression = row->compression;
    header->bmiHeader.biBitCount = row->bitCount;
    header->bmiHeader.biSizeImage = ImageSize(*row, size.cx, size.cy);
    type->subtype = *row->subtype;
    type->bFixedSizeSamples = TRUE;
    type->lSampleSize = header->bmiHeader.biSizeImage;
    return S_OK;
}

}  // namespace DShow
