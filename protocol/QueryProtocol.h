#pragma once

// What the query server and its parent agree on: the names of the rendezvous objects, the
// command line's keys and methods, the form of a device list, the keys of a mode in the format
// reply, and the pixel formats as the reply numbers and names them. Every side (server, client,
// tools, stand-in servers, tests, benchmarks) takes these from here, so that they cannot drift
// apart. Nothing here may change: parents that were built against these texts exist.

#include <cstdint>

namespace QueryProtocol {

// --- Rendezvous -------------------------------------------------------------------------------
// The value of `id` follows each prefix directly. The parent creates the event, the server the
// pipe.
constexpr wchar_t kPipeNamePrefix[] = L"\\\\.\\pipe\\71FADDA3-07A6-021F-DBE6-15012EFB1791-";
constexpr wchar_t kEventNamePrefix[] = L"Global\\C49E4172-B9F8-22EA-5052-D226B8741074-";

// --- Command line ------------------------------------------------------------------------------
// Each argument is "key=value". The server cuts at every separator and trims spaces, so a value
// that holds the separator or begins or ends with a space cannot be passed.
constexpr wchar_t kKeyValueSeparator = L'=';

constexpr wchar_t kKeyMethod[] = L"method";
constexpr wchar_t kKeyDeviceId[] = L"device_id";
constexpr wchar_t kKeyDeviceName[] = L"device_name";
constexpr wchar_t kKeyId[] = L"id";

constexpr wchar_t kMethodVideoDevices[] = L"GetVideoDevices";
constexpr wchar_t kMethodAnalogDevices[] = L"GetAnalogDevices";
constexpr wchar_t kMethodDeviceFormats[] = L"GetVideoDeviceFormats";

// --- Device-list reply -------------------------------------------------------------------------
// UTF-16LE lines, id and name in turn, each ended by this unit: no byte-order mark, no carriage
// return, no terminator.
constexpr wchar_t kLineEnd = L'\n';

// --- Format reply ------------------------------------------------------------------------------
// One JSON array with an object of these 13 numbers for each mode, its keys in byte order (the
// order below). The mode's own size and scale have "_x"/"_y", the limits "_cx"/"_cy": the mixture
// is the wire's and stays.
constexpr char kModeFlip[] = "flip";
constexpr char kModeFormat[] = "format";
constexpr char kModeMaxRate[] = "maxRate";
constexpr char kModeMaxSizeCx[] = "maxSize_cx";
constexpr char kModeMaxSizeCy[] = "maxSize_cy";
constexpr char kModeMinRate[] = "minRate";
constexpr char kModeMinSizeCx[] = "minSize_cx";
constexpr char kModeMinSizeCy[] = "minSize_cy";
constexpr char kModeRate[] = "rate";
constexpr char kModeScaleX[] = "scale_x";
constexpr char kModeScaleY[] = "scale_y";
constexpr char kModeSizeX[] = "size_x";
constexpr char kModeSizeY[] = "size_y";

// --- Pixel formats -----------------------------------------------------------------------------
// The value of "format". Every number from 0 to kPixelFormatMax is a valid format; only these have
// a name, the others (4, 7, 8, 14 to 23, 25 to 28) are valid but nameless.
constexpr int32_t kPixelFormatUnknown = 0;
constexpr int32_t kPixelFormatI420 = 1;
constexpr int32_t kPixelFormatYv12 = 2;
constexpr int32_t kPixelFormatNv12 = 3;
constexpr int32_t kPixelFormatUyvy = 5;
constexpr int32_t kPixelFormatYuy2 = 6;
constexpr int32_t kPixelFormatRgb24 = 9;
constexpr int32_t kPixelFormatRgba = 10;
constexpr int32_t kPixelFormatBgr24 = 11;
constexpr int32_t kPixelFormatBgra = 12;
constexpr int32_t kPixelFormatMjpeg = 13;
constexpr int32_t kPixelFormatNv12Ms = 24;
constexpr int32_t kPixelFormatMax = 28;

struct PixelFormatName {
    int32_t value;
    const char* name;
    const wchar_t* wideName;
};

constexpr PixelFormatName kPixelFormatNames[] = {
    {kPixelFormatUnknown, "UNKNOWN", L"UNKNOWN"},
    {kPixelFormatI420, "I420", L"I420"},
    {kPixelFormatYv12, "YV12", L"YV12"},
    {kPixelFormatNv12, "NV12", L"NV12"},
    // "UYUY" is the name parents know this format by; it is not a typo to fix here.
    {kPixelFormatUyvy, "UYUY", L"UYUY"},
    {kPixelFormatYuy2, "YUY2", L"YUY2"},
    {kPixelFormatRgb24, "RGB24", L"RGB24"},
    {kPixelFormatRgba, "RGBA", L"RGBA"},
    {kPixelFormatBgr24, "BGR24", L"BGR24"},
    {kPixelFormatBgra, "BGRA", L"BGRA"},
    {kPixelFormatMjpeg, "MJPEG", L"MJPEG"},
    {kPixelFormatNv12Ms, "NV12_MS", L"NV12_MS"},
};

// The entry of a named value; null for a nameless or out-of-range one.
constexpr const PixelFormatName* FindPixelFormatName(int32_t value) {
    for (const PixelFormatName& entry : kPixelFormatNames) {
        if (entry.value == value) {
            return &entry;
        }
    }
    return nullptr;
}

// The name of a pixel format's value; "" for a nameless or out-of-range one.
constexpr const char* PixelFormatNameOf(int32_t value) {
    const PixelFormatName* entry = FindPixelFormatName(value);
    return entry != nullptr ? entry->name : "";
}

constexpr const wchar_t* PixelFormatWideNameOf(int32_t value) {
    const PixelFormatName* entry = FindPixelFormatName(value);
    return entry != nullptr ? entry->wideName : L"";
}

}  // namespace QueryProtocol
