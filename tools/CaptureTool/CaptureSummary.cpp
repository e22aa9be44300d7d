#include "tools/CaptureTool/CaptureSummary.h"

#include <nlohmann/json.hpp>

#include "TinyFramework/Common/TinyCore.h"

namespace CaptureTool {
namespace {

using TinyFramework::StringPrintf;

std::string FormatLabel(DShow::VideoPixelFormat format) {
    const char* name = DShow::GetPixelFormatName(format);
    return name[0] != '\0' ? std::string(name) : StringPrintf("#%d", static_cast<int>(format));
}

nlohmann::json ModeJson(const DShow::VideoFormat& format) {
    return nlohmann::json{{"format", DShow::GetPixelFormatName(format.format)},
                          {"width", format.size.cx},
                          {"height", format.size.cy},
                          {"rate", format.rate}};
}

}  // namespace

const char* PathName(DShow::VideoCapture::SinkFeed feed) {
    switch (feed) {
        case DShow::VideoCapture::SinkFeed::kDevice:
            return "direct";
        case DShow::VideoCapture::SinkFeed::kAviDecoder:
            return "avi";
        case DShow::VideoCapture::SinkFeed::kMjpegDecoder:
            return "mjpeg";
        case DShow::VideoCapture::SinkFeed::kOtherFilter:
            return "other";
        case DShow::VideoCapture::SinkFeed::kNone:
            break;
    }
    return "none";
}

std::string ModeText(const DShow::VideoFormat& format) {
    return StringPrintf("%s %dx%d at %.3f fps", FormatLabel(format.format).c_str(), format.size.cx,
                        format.size.cy, static_cast<double>(format.rate));
}

std::string ProgressLine(int seconds, int64_t frames, double fps, int64_t drops) {
    return StringPrintf("%d s: %lld frames, %.1f fps, %lld dropped", seconds,
                        static_cast<long long>(frames), fps, static_cast<long long>(drops));
}

std::string SummaryText(const CaptureSummary& summary) {
    return "device:    " + summary.deviceId + "\n" + "requested: " + ModeText(summary.requested) +
           "\n" + "current:   " + ModeText(summary.current) + "\n" + "path:      " + summary.path +
           "\n" +
           StringPrintf("frames:    %lld in %.3f s, %.2f fps, %lld dropped\n",
                        static_cast<long long>(summary.frames), summary.seconds, summary.fps,
                        static_cast<long long>(summary.drops)) +
           "device lost: " + (summary.deviceLost ? "yes" : "no") + "\n" +
           (summary.hasSnapshot ? "snapshot: " + summary.snapshot + "\n" : std::string());
}

std::string SummaryJson(const CaptureSummary& summary) {
    nlohmann::json object{{"device_id", summary.deviceId},
                          {"requested", ModeJson(summary.requested)},
                          {"current", ModeJson(summary.current)},
                          {"path", summary.path},
                          {"frames", summary.frames},
                          {"seconds", summary.seconds},
                          {"fps", summary.fps},
                          {"drops", summary.drops},
                          {"device_lost", summary.deviceLost}};
    object["snapshot"] = summary.hasSnapshot ? nlohmann::json(summary.snapshot) : nlohmann::json();
    return object.dump();
}

}  // namespace CaptureTool
