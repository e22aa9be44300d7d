#pragma once

// Which of a device's listed modes the tool asks for.

#include <string>
#include <vector>

#include "DShowCapture/VideoFormat.h"
#include "tools/CaptureTool/CaptureArguments.h"

namespace CaptureTool {

// The first mode of `modes`, in their listed order, that matches every part of the request the
// command line gave: the pixel format, the size (the width, and the height whatever the sign that
// marks a top-down mode), and a rate inside the mode's range. With a rate given the chosen mode
// carries it, since Allocate sets the requested rate on the capability it picks. False when no
// mode matches.
bool ChooseMode(const std::vector<DShow::VideoFormat>& modes, const CaptureArguments& request,
                DShow::VideoFormat& chosen);

// The request as words for a message, e.g. "format UYUY, size 320x240, any rate".
std::string RequestText(const CaptureArguments& request);

}  // namespace CaptureTool
