#pragma once

// One capture run of the tool: find the device and the mode, build and run the graph, count the
// frames, stop, and sum up.

#include <functional>
#include <string>

#include "tools/CaptureTool/CaptureArguments.h"
#include "tools/CaptureTool/CaptureSummary.h"

namespace CaptureTool {

// How long the tool waits for the first frame after Run, and for each later one.
constexpr int64_t kFrameDeadlineNs = 10LL * 1000 * 1000 * 1000;

struct RunResult {
    int exitCode = 0;
    // One line naming what failed, without the program's name; empty on success.
    std::string failure;
    // Whether the run got as far as streaming, so that `summary` says something.
    bool hasSummary = false;
    CaptureSummary summary;
};

// Runs one capture as `arguments` ask, on the calling thread, which must be in the
// multithreaded apartment: frames arrive on the streaming thread while this thread polls the
// graph's events. `progress` gets one line each second while frames are counted.
RunResult RunCapture(const CaptureArguments& arguments,
                     const std::function<void(const std::string&)>& progress);

}  // namespace CaptureTool
