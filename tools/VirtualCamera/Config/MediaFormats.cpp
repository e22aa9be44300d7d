#include "tools/VirtualCamera/Config/MediaFormats.h"

#include <amvideo.h>
#include <dvdmedia.h>
#include <uuids.h>

#include <cwctype>

namespace VirtualCamera {
namespace {

// FourCC subtypes share the base {XXXXXXXX-0000-0010-8000-00AA00389B71}.
GUID FourCCSubtype(DWORD fourcc) {
    GUID guid = {0, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xaa, 0x00, 0x38, 0x9b, 0x71}};
    guid.Data1 = fourcc;
    return guid;
}

constexpr DWORD MakeFourCC(char a, char b, char c, char d) {
    return static_cast<DWORD>(static_cast<BYTE>(a)) |
           (static_cast<DWORD>(static_cast<BYTE>(b)) << 8) |
           (static_cast<DWORD>(static_cast<BYTE>(c)) << 16) |
           (static_cast<DWORD>(static_cast<BYTE>(d)) << 24);
}

struct NamedSubtype {
    const wchar_t* name;
    GUID subtype;
};

const NamedSubtype kNamedSubtypes[] = {
    {L"YUY2", FourCCSubtype(MakeFourCC('Y', 'U', 'Y', '2'))},
    {L"UYVY", FourCCSubtype(MakeFourCC('U', 'Y', 'V', 'Y'))},
    {L"I420", FourCCSubtype(MakeFourCC('I', '4', '2', '0'))},
    {L"IYUV", FourCCSubtype(MakeFourCC('I', 'Y', 'U', 'V'))},
    {L"YV12", FourCCSubtype(MakeFourCC('Y', 'V', '1', '2'))},
    {L"NV12", FourCCSubtype(MakeFourCC('N', 'V', '1', '2'))},
    {L"MJPG", FourCCSubtype(MakeFourCC('M', 'J', 'P', 'G'))},
    {L"RGB24", MEDIASUBTYPE_RGB24},
    {L"RGB32", MEDIASUBTYPE_RGB32},
    {L"ARGB32", MEDIASUBTYPE_ARGB32},
    {L"RGB565", MEDIASUBTYPE_RGB565},
};

bool EqualsNoCase(const std::wstring& a, const wchar_t* b) {
    return _wcsicmp(a.c_str(), b) == 0;
}

DWORD Stride(LONG width, WORD bitCount) {
    // RGB rows are padded to whole DWORDs; the YUV layouts here have no padding at even widths.
    const ULONGLONG bits = static_cast<ULONGLONG>(width) * bitCount;
    return static_cast<DWORD>(((bits + 31) / 32) * 4);
}

void FillBitmapHeader(const ModeConfig& mode, BITMAPINFOHEADER* header) {
    header->biSize = sizeof(BITMAPINFOHEADER);
    header->biWidth = mode.width;
    header->biHeight = mode.height;
    header->biPlanes = 1;
    header->biBitCount = BitCountOfSubtype(mode.subtype);
    header->biCompression = CompressionOfSubtype(mode.subtype);
    header->biSizeImage = ImageSize(mode.subtype, mode.width, mode.height);
}

// RGB565 needs its channel masks right after the bitmap header (BI_BITFIELDS).
void FillColorMasks(const GUID& subtype, BYTE* afterHeader) {
    if (subtype != MEDIASUBTYPE_RGB565) {
        return;
    }
    const DWORD masks[3] = {0xF800, 0x07E0, 0x001F};
    CopyMemory(afterHeader, masks, sizeof(masks));
}

ULONG ExtraBytesOf(const GUID& subtype) {
    return subtype == MEDIASUBTYPE_RGB565 ? 3 * sizeof(DWORD) : 0;
}

HRESULT AllocateFormat(AM_MEDIA_TYPE* type, ULONG size) {
    type->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(size));
    if (!type->pbFormat) {
        return E_OUTOFMEMORY;
    }
    ZeroMemory(type->pbFormat, size);
    type->cbFormat = size;
    return S_OK;
}

// Allocates a format block that starts with a header of type `Header` (VIDEOINFOHEADER or
// VIDEOINFOHEADER2) and fills what both kinds of header share.
template <class Header>
HRESULT BuildVideoHeader(const ModeConfig& mode, AM_MEDIA_TYPE* type, Header** header) {
    const HRESULT hr = AllocateFormat(type, sizeof(Header) + ExtraBytesOf(mode.subtype));
    if (FAILED(hr)) {
        return hr;
    }
    *header = reinterpret_cast<Header*>(type->pbFormat);
    FillBitmapHeader(mode, &(*header)->bmiHeader);
    FillColorMasks(mode.subtype, type->pbFormat + sizeof(Header));
    (*header)->AvgTimePerFrame = mode.avgTimePerFrame;
    return S_OK;
}

HRESULT BuildVideoInfo(const ModeConfig& mode, AM_MEDIA_TYPE* type) {
    VIDEOINFOHEADER* info = nullptr;
    const HRESULT hr = BuildVideoHeader(mode, type, &info);
    if (FAILED(hr)) {
        return hr;
    }
    if (mode.avgTimePerFrame > 0) {
        info->dwBitRate =
            static_cast<DWORD>(static_cast<ULONGLONG>(info->bmiHeader.biSizeImage) * 8 * 10000000 /
                               static_cast<ULONGLONG>(mode.avgTimePerFrame));
    }
    type->formattype = FORMAT_VideoInfo;
    return S_OK;
}

HRESULT BuildVideoInfo2(const ModeConfig& mode, AM_MEDIA_TYPE* type) {
    VIDEOINFOHEADER2* info = nullptr;
    const HRESULT hr = BuildVideoHeader(mode, type, &info);
    if (FAILED(hr)) {
        return hr;
    }
    info->dwPictAspectRatioX = static_cast<DWORD>(mode.width > 0 ? mode.width : 1);
    info->dwPictAspectRatioY = static_cast<DWORD>(mode.height != 0 ? labs(mode.height) : 1);
    type->formattype = FORMAT_VideoInfo2;
    return S_OK;
}

// The size of the header a format type's block starts with; 0 for a type without one.
ULONG HeaderSizeOf(const GUID& formatType) {
    if (IsEqualGUID(formatType, FORMAT_VideoInfo)) {
        return sizeof(VIDEOINFOHEADER);
    }
    if (IsEqualGUID(formatType, FORMAT_VideoInfo2)) {
        return sizeof(VIDEOINFOHEADER2);
    }
    return 0;
}

}  // namespace

bool IsFourCCSubtype(const GUID& subtype) {
    const GUID base = FourCCSubtype(subtype.Data1);
    return IsEqualGUID(base, subtype) != FALSE;
}

bool SubtypeFromName(const std::wstring& name, GUID* subtype) {
    for (const auto& named : kNamedSubtypes) {
        if (EqualsNoCase(name, named.name)) {
            *subtype = named.subtype;
            return true;
        }
    }
    if (!name.empty() && name.front() == L'{') {
        return ParseGuid(name, subtype);
    }
    if (name.size() != 4) {
        return false;
    }
    for (wchar_t c : name) {
        if (c < 0x20 || c > 0x7e) {
            return false;
        }
    }
    *subtype = FourCCSubtype(MakeFourCC(static_cast<char>(name[0]), static_cast<char>(name[1]),
                                        static_cast<char>(name[2]), static_cast<char>(name[3])));
    return true;
}

std::wstring SubtypeName(const GUID& subtype) {
    for (const auto& named : kNamedSubtypes) {
        if (IsEqualGUID(named.subtype, subtype)) {
            return named.name;
        }
    }
    if (IsFourCCSubtype(subtype)) {
        std::wstring name;
        for (int i = 0; i < 4; ++i) {
            name += static_cast<wchar_t>((subtype.Data1 >> (8 * i)) & 0xff);
        }
        return name;
    }
    return GuidToString(subtype);
}

PixelLayout LayoutOfSubtype(const GUID& subtype) {
    const std::wstring name = SubtypeName(subtype);
    if (name == L"YUY2") {
        return PixelLayout::YUY2;
    }
    if (name == L"UYVY") {
        return PixelLayout::UYVY;
    }
    if (name == L"I420" || name == L"IYUV") {
        return PixelLayout::I420;
    }
    if (name == L"YV12") {
        return PixelLayout::YV12;
    }
    if (name == L"NV12") {
        return PixelLayout::NV12;
    }
    if (name == L"RGB24") {
        return PixelLayout::RGB24;
    }
    if (name == L"RGB32" || name == L"ARGB32") {
        return PixelLayout::RGB32;
    }
    if (name == L"RGB565") {
        return PixelLayout::RGB565;
    }
    if (name == L"MJPG") {
        return PixelLayout::MJPG;
    }
    return PixelLayout::Other;
}

WORD BitCountOfSubtype(const GUID& subtype) {
    switch (LayoutOfSubtype(subtype)) {
        case PixelLayout::I420:
        case PixelLayout::YV12:
        case PixelLayout::NV12:
            return 12;
        case PixelLayout::RGB24:
        case PixelLayout::MJPG:
            return 24;
        case PixelLayout::RGB32:
            return 32;
        default:
            return 16;
    }
}

DWORD CompressionOfSubtype(const GUID& subtype) {
    switch (LayoutOfSubtype(subtype)) {
        case PixelLayout::RGB24:
        case PixelLayout::RGB32:
            return BI_RGB;
        case PixelLayout::RGB565:
            return BI_BITFIELDS;
        default:
            return IsFourCCSubtype(subtype) ? subtype.Data1 : BI_RGB;
    }
}

DWORD ImageSize(const GUID& subtype, LONG width, LONG height) {
    if (width <= 0 || height == 0) {
        return 0;
    }
    const ULONGLONG rows = static_cast<ULONGLONG>(labs(height));
    switch (LayoutOfSubtype(subtype)) {
        case PixelLayout::I420:
        case PixelLayout::YV12:
        case PixelLayout::NV12:
            return static_cast<DWORD>(static_cast<ULONGLONG>(width) * rows * 3 / 2);
        case PixelLayout::MJPG:
            // Generous room for a JPEG of a synthetic picture plus the markers.
            return static_cast<DWORD>(static_cast<ULONGLONG>(width) * rows * 3 + 4096);
        default:
            return static_cast<DWORD>(Stride(width, BitCountOfSubtype(subtype)) * rows);
    }
}

HRESULT BuildMediaType(const ModeConfig& mode, AM_MEDIA_TYPE* type) {
    ZeroMemory(type, sizeof(*type));
    type->majortype = MEDIATYPE_Video;
    type->subtype = mode.subtype;
    const bool compressed = LayoutOfSubtype(mode.subtype) == PixelLayout::MJPG;
    type->bFixedSizeSamples = compressed ? FALSE : TRUE;
    type->bTemporalCompression = FALSE;
    type->lSampleSize = compressed ? 0 : ImageSize(mode.subtype, mode.width, mode.height);
    switch (mode.format) {
        case FormatBlock::VideoInfo:
            return BuildVideoInfo(mode, type);
        case FormatBlock::VideoInfo2:
            return BuildVideoInfo2(mode, type);
        case FormatBlock::None:
            type->formattype = FORMAT_None;
            return S_OK;
    }
    return E_UNEXPECTED;
}

HRESULT TruncateFormatHeader(AM_MEDIA_TYPE* type) {
    const ULONG headerSize = HeaderSizeOf(type->formattype);
    if (headerSize == 0 || type->pbFormat == nullptr) {
        return S_OK;
    }
    // A block of its own size, so that a reader that trusts the header reads past the block.
    const ULONG shortSize = headerSize - 1;
    auto* block = static_cast<BYTE*>(CoTaskMemAlloc(shortSize));
    if (!block) {
        return E_OUTOFMEMORY;
    }
    CopyMemory(block, type->pbFormat, shortSize);
    CoTaskMemFree(type->pbFormat);
    type->pbFormat = block;
    type->cbFormat = shortSize;
    return S_OK;
}

void FreeMediaType(AM_MEDIA_TYPE* type) {
    if (type->cbFormat != 0 || type->pbFormat) {
        CoTaskMemFree(type->pbFormat);
    }
    type->cbFormat = 0;
    type->pbFormat = nullptr;
    if (type->pUnk) {
        type->pUnk->Release();
        type->pUnk = nullptr;
    }
}

HRESULT CopyMediaType(AM_MEDIA_TYPE* target, const AM_MEDIA_TYPE& source) {
    *target = source;
    target->pbFormat = nullptr;
    target->cbFormat = 0;
    if (source.cbFormat != 0 && source.pbFormat) {
        const HRESULT hr = AllocateFormat(target, source.cbFormat);
        if (FAILED(hr)) {
            return hr;
        }
        CopyMemory(target->pbFormat, source.pbFormat, source.cbFormat);
    }
    if (target->pUnk) {
        target->pUnk->AddRef();
    }
    return S_OK;
}

AM_MEDIA_TYPE* CreateMediaTypeCopy(const AM_MEDIA_TYPE& source) {
    auto* copy = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
    if (!copy) {
        return nullptr;
    }
    if (FAILED(CopyMediaType(copy, source))) {
        CoTaskMemFree(copy);
        return nullptr;
    }
    return copy;
}

void DeleteMediaType(AM_MEDIA_TYPE* type) {
    if (!type) {
        return;
    }
    FreeMediaType(type);
    CoTaskMemFree(type);
}

bool MediaTypesEqual(const AM_MEDIA_TYPE& a, const AM_MEDIA_TYPE& b) {
    if (!IsEqualGUID(a.majortype, b.majortype) || !IsEqualGUID(a.subtype, b.subtype) ||
        !IsEqualGUID(a.formattype, b.formattype) || a.cbFormat != b.cbFormat) {
        return false;
    }
    if (a.cbFormat == 0) {
        return true;
    }
    if (!a.pbFormat || !b.pbFormat) {
        return a.pbFormat == b.pbFormat;
    }
    return memcmp(a.pbFormat, b.pbFormat, a.cbFormat) == 0;
}

bool MediaTypeMatchesPartial(const AM_MEDIA_TYPE& full, const AM_MEDIA_TYPE& partial) {
    if (!IsEqualGUID(partial.majortype, GUID_NULL) &&
        !IsEqualGUID(partial.majortype, full.majortype)) {
        return false;
    }
    if (!IsEqualGUID(partial.subtype, GUID_NULL) && !IsEqualGUID(partial.subtype, full.subtype)) {
        return false;
    }
    if (IsEqualGUID(partial.formattype, GUID_NULL)) {
        return true;
    }
    if (!IsEqualGUID(partial.formattype, full.formattype)) {
        return false;
    }
    if (partial.cbFormat == 0 || !partial.pbFormat) {
        return true;
    }
    return MediaTypesEqual(full, partial);
}

const BITMAPINFOHEADER* BitmapHeaderOf(const AM_MEDIA_TYPE& type) {
    if (!type.pbFormat) {
        return nullptr;
    }
    if (IsEqualGUID(type.formattype, FORMAT_VideoInfo) &&
        type.cbFormat >= sizeof(VIDEOINFOHEADER)) {
        return &reinterpret_cast<const VIDEOINFOHEADER*>(type.pbFormat)->bmiHeader;
    }
    if (IsEqualGUID(type.formattype, FORMAT_VideoInfo2) &&
        type.cbFormat >= sizeof(VIDEOINFOHEADER2)) {
        return &reinterpret_cast<const VIDEOINFOHEADER2*>(type.pbFormat)->bmiHeader;
    }
    return nullptr;
}

REFERENCE_TIME AvgTimePerFrameOf(const AM_MEDIA_TYPE& type) {
    if (!type.pbFormat) {
        return 0;
    }
    if (IsEqualGUID(type.formattype, FORMAT_VideoInfo) &&
        type.cbFormat >= sizeof(VIDEOINFOHEADER)) {
        return reinterpret_cast<const VIDEOINFOHEADER*>(type.pbFormat)->AvgTimePerFrame;
    }
    if (IsEqualGUID(type.formattype, FORMAT_VideoInfo2) &&
        type.cbFormat >= sizeof(VIDEOINFOHEADER2)) {
        return reinterpret_cast<const VIDEOINFOHEADER2*>(type.pbFormat)->AvgTimePerFrame;
    }
    return 0;
}

}  // namespace VirtualCamera
