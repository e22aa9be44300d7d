#include "tools/CaptureTool/ModeChoice.h"

#include <cmath>
#include <cstdlib>

#include "TinyFramework/Common/TinyCore.h"

namespace CaptureTool {
namespace {

// Rates are 32-bit floats computed from 100-ns intervals (333333 gives 30.00003): a typed 30
// must still meet a range that ends there.
constexpr float kRateTolerance = 0.01f;

bool RateInRange(const DShow::VideoFormat& mode, float rate) {
    // A capability without a range states only its own rate.
    const float lowest = mode.minRate > 0.0f ? mode.minRate : mode.rate;
    const float highest = mode.maxRate > 0.0f ? mode.maxRate : mode.rate;
    return rate >= lowest - kRateTolerance && rate <= highest + kRateTolerance;
}

bool Matches(const DShow::VideoFormat& mode, const CaptureArguments& request) {
    if (request.hasFormat && mode.format != request.format) {
        return false;
    }
    if (request.hasSize &&
        (mode.size.cx != request.width || std::abs(mode.size.cy) != request.height)) {
        return false;
    }
    return !request.hasRate || RateInRange(mode, request.rate);
}

}  // namespace

bool ChooseMode(const std::vector<DShow::VideoFormat>& modes, const CaptureArguments& request,
                DShow::VideoFormat& chosen) {
    for (const DShow::VideoFormat& mode : modes) {
        if (Matches(mode, request)) {
            chosen = mode;
            if (request.hasRate) {
                chosen.SetRate(request.rate);
            }
            return true;
        }
    }
    return false;
}

std::string RequestText(const CaptureArguments& request) {
    using TinyFramework::StringPrintf;
    const std::string format =
        request.hasFormat ? std::string("format ") + DShow::GetPixelFormatName(request.format)
                          : "any format";
    const std::string size =
        request.hasSize ? StringPrintf("size %dx%d", request.width, request.height) : "any size";
    const std::string rate =
        request.hasRate ? StringPrintf("rate %g", static_cast<double>(request.rate)) : "any rate";
    return format + ", " + size + ", " + rate;
}

}  // namespace CaptureTool
