#pragma once
// Media types of the virtual camera's modes: subtype names, image sizes and AM_MEDIA_TYPE
// construction, plus the helpers that own the memory of an AM_MEDIA_TYPE.

#include <windows.h>
#include <strmif.h>

#include <string>

#include "tools/VirtualCamera/Config/DeviceConfig.h"

namespace VirtualCamera {

// The pixel layouts the frame painter knows how to fill.
enum class PixelLayout { YUY2, UYVY, I420, YV12, NV12, RGB24, RGB32, RGB565, MJPG, Other };

// Accepts a known name (YUY2, I420, IYUV, NV12, UYVY, YV12, RGB24, RGB32, ARGB32, MJPG, RGB565),
// any four-character code, or a "{GUID}".
bool SubtypeFromName(const std::wstring& name, GUID* subtype);
std::wstring SubtypeName(const GUID& subtype);

PixelLayout LayoutOfSubtype(const GUID& subtype);
WORD BitCountOfSubtype(const GUID& subtype);
// biCompression for the subtype: BI_RGB, BI_BITFIELDS (RGB565) or the FourCC.
DWORD CompressionOfSubtype(const GUID& subtype);
// The byte size of one frame (for MJPG: the largest frame the camera produces).
DWORD ImageSize(const GUID& subtype, LONG width, LONG height);
bool IsFourCCSubtype(const GUID& subtype);

// Builds the media type of a mode; the format block is allocated with CoTaskMemAlloc.
HRESULT BuildMediaType(const ModeConfig& mode, AM_MEDIA_TYPE* type);
// Cuts a type's format block to one byte less than its VIDEOINFOHEADER or VIDEOINFOHEADER2, the
// memory and cbFormat alike, as a driver that hands out a truncated header does. A type without
// such a header is left as it is.
HRESULT TruncateFormatHeader(AM_MEDIA_TYPE* type);

void FreeMediaType(AM_MEDIA_TYPE* type);
HRESULT CopyMediaType(AM_MEDIA_TYPE* target, const AM_MEDIA_TYPE& source);
// A CoTaskMemAlloc'ed copy, as IEnumMediaTypes::Next and IAMStreamConfig hand out.
AM_MEDIA_TYPE* CreateMediaTypeCopy(const AM_MEDIA_TYPE& source);
void DeleteMediaType(AM_MEDIA_TYPE* type);

// Same major type, subtype, format type and format block.
bool MediaTypesEqual(const AM_MEDIA_TYPE& a, const AM_MEDIA_TYPE& b);
// `partial` leaves out what it does not care about (GUID_NULL major/sub/format type).
bool MediaTypeMatchesPartial(const AM_MEDIA_TYPE& full, const AM_MEDIA_TYPE& partial);

// The bitmap header inside a VideoInfo or VideoInfo2 block, or null.
const BITMAPINFOHEADER* BitmapHeaderOf(const AM_MEDIA_TYPE& type);
REFERENCE_TIME AvgTimePerFrameOf(const AM_MEDIA_TYPE& type);

// Owns one AM_MEDIA_TYPE's format block and unknown.
class MediaType {
public:
    MediaType() { ZeroMemory(&m_type, sizeof(m_type)); }
    ~MediaType() { FreeMediaType(&m_type); }
    MediaType(const MediaType& other) : MediaType() { Assign(other.m_type); }
    MediaType& operator=(const MediaType& other) {
        if (this != &other) {
            Assign(other.m_type);
        }
        return *this;
    }
    HRESULT Assign(const AM_MEDIA_TYPE& source) {
        FreeMediaType(&m_type);
        return CopyMediaType(&m_type, source);
    }
    void Clear() { FreeMediaType(&m_type); }
    AM_MEDIA_TYPE* get() { return &m_type; }
    const AM_MEDIA_TYPE& operator*() const { return m_type; }
    const AM_MEDIA_TYPE* operator->() const { return &m_type; }
    AM_MEDIA_TYPE* operator->() { return &m_type; }

private:
    AM_MEDIA_TYPE m_type;
};

}  // namespace VirtualCamera
