#pragma once

// --snapshot: the last frame of a run, kept while the graph streams and written as a PNG once it
// has stopped, through the platform's imaging codecs (WIC).

#include <cstdint>
#include <string>
#include <vector>

#include "DShowCapture/VideoFormat.h"
#include "TinyFramework/Common/TinyLock.h"

namespace CaptureTool {

// Converts packed YUY2 rows (Y0 U Y1 V, 2 bytes a pixel, rows of width * 2 bytes) to 24-bit BGR
// rows of width * 3 bytes, with the BT.601 limited-range matrix that cameras use: Y 16..235,
// U and V 16..240 around 128. An odd last pixel of a row has no pair and stays as it is in `bgr`.
void Yuy2ToBgr(const uint8_t* yuy2, int width, int height, uint8_t* bgr);

// Keeps a copy of the newest frame.
//
// Threads: Keep runs on the streaming thread (inside the frame callback); Frame runs on the tool's
// main thread after the graph stopped. m_lock guards m_frame. The copy is reused from frame to
// frame, so after the first frame Keep only copies bytes.
class FrameKeeper {
public:
    FrameKeeper() = default;
    FrameKeeper(const FrameKeeper&) = delete;
    FrameKeeper& operator=(const FrameKeeper&) = delete;

    void Keep(const unsigned char* bits, long size);
    // The newest frame's bytes; empty when none arrived.
    std::vector<uint8_t> Frame();

private:
    TinyFramework::TinyLock m_lock;
    std::vector<uint8_t> m_frame;
};

// Writes `frame`, laid out as `format` says (YUY2, BGR24/RGB24, BGRA/RGBA or MJPEG; bottom-up
// rows when the flip mark is set), as a 24-bit PNG at `path`, top row first. The calling thread
// must be in a COM apartment. False with `reason` set to one short text when it cannot; a file
// begun and not finished is removed.
bool WriteSnapshotPng(const std::vector<uint8_t>& frame, const DShow::VideoFormat& format,
                      const std::wstring& path, std::string& reason);

}  // namespace CaptureTool
