#pragma once

// What the tool prints: the line of each second and the summary at the end, as text or JSON.

#include <cstdint>
#include <string>

#include "DShowCapture/VideoCapture.h"
#include "DShowCapture/VideoFormat.h"

namespace CaptureTool {

struct CaptureSummary {
    std::string deviceId;          // UTF-8
    DShow::VideoFormat requested;  // the mode asked of Allocate
    DShow::VideoFormat current;    // what the sink's pin carries (GetCurrentFormat)
    std::string path;              // PathName of the sink's feed
    int64_t frames = 0;
    double seconds = 0.0;
    double fps = 0.0;
    int64_t drops = 0;
    bool deviceLost = false;
    // The PNG that --snapshot wrote (UTF-8); null in JSON and no line of text when none was.
    bool hasSnapshot = false;
    std::string snapshot;
};

// How the frames reach the sink: "direct", "avi", "mjpeg", "other" (a filter that the graph
// brought in by itself) or "none".
const char* PathName(DShow::VideoCapture::SinkFeed feed);

// A mode as the text output shows it: "YUY2 640x480 at 30.000 fps"; a nameless format as
// "#<number>".
std::string ModeText(const DShow::VideoFormat& format);

// One line of progress, e.g. "2 s: 60 frames, 30.0 fps, 0 dropped".
std::string ProgressLine(int seconds, int64_t frames, double fps, int64_t drops);

// The summary in lines of text, each ended by "\n".
std::string SummaryText(const CaptureSummary& summary);

// The summary as one JSON object on one line, without a line end.
std::string SummaryJson(const CaptureSummary& summary);

}  // namespace CaptureTool
