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
    MediaType() { ZeroMemory(&type_, sizeof(type_)); }
    ~MediaType() { FreeMediaType(&type_); }
    MediaType(const MediaType& other) : MediaType() { Assign(other.type_); }
    MediaType& operator=(const MediaType& other) {
        if (this != &other) Assign(other.type_);
        return *this;
    }
    HRESULT Assign(const AM_MEDIA_TYPE& source) {
        FreeMediaType(&type_);
        return CopyMediaType(&type_, source);
    }
    void Clear() { FreeMediaType(&type_); }
    AM_MEDIA_TYPE* get() { return &type_; }
    const AM_MEDIA_TYPE& operator*() const { return type_; }
    const AM_MEDIA_TYPE* operator->() const { return &type_; }
    AM_MEDIA_TYPE* operator->() { return &type_; }

private:
    AM_MEDIA_TYPE type_;
};

}  // namespace VirtualCamera
