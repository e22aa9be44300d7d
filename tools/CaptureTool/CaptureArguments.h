#pragma once

// The command line of CaptureTool, as plain values: parsing it needs neither COM nor a device.

#include <cstdint>
#include <string>
#include <vector>

#include "DShowCapture/VideoFormat.h"
#include "TinyFramework/Common/TinyTextConversion.h"

namespace CaptureTool {

// How many frames the tool counts when the command line names neither --frames nor --seconds.
constexpr int64_t kDefaultFrames = 30;

struct CaptureArguments {
    std::wstring deviceId;
    // Each part of the mode is optional; a part not given matches every listed mode.
    bool hasFormat = false;
    DShow::VideoPixelFormat format = DShow::PIXEL_FORMAT_UNKNOWN;
    bool hasSize = false;
    int32_t width = 0;
    int32_t height = 0;
    bool hasRate = false;
    float rate = 0.0f;
    // The run ends after `frames` frames, or `seconds` after the first frame when that is
    // positive. 0 frames sets no limit: with --properties and neither option the run lasts
    // until the property frame closes.
    int64_t frames = kDefaultFrames;
    double seconds = 0.0;
    bool mjpegDecoder = true;
    // Where --snapshot writes the last frame as a PNG; empty when it was not given.
    std::wstring snapshotPath;
    bool json = false;
    // Whether the device's property frame is opened while the tool captures; closing it ends
    // the run.
    bool properties = false;
    bool help = false;
};

// The pixel format named on the command line: the listing's names (YUY2, UYUY, MJPEG, ...) and
// the FourCC spellings that differ from them (UYVY, MJPG), in any case. False for anything
// else, UNKNOWN among them: it names no format a device can be asked for.
bool ParsePixelFormatName(const std::wstring& text, DShow::VideoPixelFormat& format);

// Reads the arguments after the program's name. False with `error` set to one line naming the
// bad input; `parsed` is then only partly written.
bool ParseCaptureArguments(const std::vector<std::wstring>& arguments, CaptureArguments& parsed,
                           std::string& error);

// UTF-8 form of a wide text, for output and messages.
using TinyFramework::ToUtf8;

}  // namespace CaptureTool
