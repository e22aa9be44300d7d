#pragma once
// The names the decoder stand-ins are known by: file names, registry places and values. Shared
// by the two DLLs, the setup library and the tests.

#include <windows.h>

namespace TestDecoders {

inline constexpr const wchar_t* kCodecFileName = L"TestCodec.dll";
inline constexpr const wchar_t* kMjpegDecoderFileName = L"TestMjpegDecoder.dll";

// Where the system looks up installable Video for Windows drivers, under HKEY_LOCAL_MACHINE:
// one value "vidc.<fourcc>" (lower case) for each format a codec decodes, naming the driver file
// in the system directory.
inline constexpr const wchar_t* kDrivers32Key =
    L"Software\\Microsoft\\Windows NT\\CurrentVersion\\Drivers32";
inline constexpr const wchar_t* kCodecDriverValues[] = {
    L"vidc.yuy2", L"vidc.uyvy", L"vidc.i420", L"vidc.iyuv",
    L"vidc.yv12", L"vidc.nv12", L"vidc.mjpg",
};

// The MJPEG decompressor's class, which the stand-in registers: CLSID_MjpegDec.
inline constexpr const wchar_t* kMjpegDecoderClsidText = L"{301056D0-6DFF-11D2-9EEB-006008039E37}";
inline constexpr const wchar_t* kMjpegDecoderName = L"MJPEG Decompressor";

// "CLSID\{...}" and its server key, under HKEY_CLASSES_ROOT.
inline constexpr const wchar_t* kMjpegDecoderClassKey =
    L"CLSID\\{301056D0-6DFF-11D2-9EEB-006008039E37}";
inline constexpr const wchar_t* kMjpegDecoderServerKey =
    L"CLSID\\{301056D0-6DFF-11D2-9EEB-006008039E37}\\InprocServer32";

}  // namespace TestDecoders
