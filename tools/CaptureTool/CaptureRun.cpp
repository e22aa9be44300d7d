#include "tools/CaptureTool/CaptureRun.h"

#include <windows.h>

#include <limits>
#include <memory>
#include <vector>

#include "DShowCapture/DeviceEnumeration.h"
#include "DShowCapture/VideoCapture.h"
#include "TinyFramework/Common/TinyCallback.h"
#include "TinyFramework/Common/TinyLogging_win32.h"
#include "tools/CaptureTool/FrameStatistics.h"
#include "tools/CaptureTool/ModeChoice.h"
#include "tools/CaptureTool/Snapshot.h"

namespace CaptureTool {
namespace {

constexpr int64_t kNanosPerSecond = 1000LL * 1000 * 1000;
// How often the main thread looks at the graph's events and the counts while frames flow.
constexpr DWORD kPollMs = 50;

RunResult Failed(const std::string& line) {
    RunResult result;
    result.exitCode = 1;
    result.failure = line;
    return result;
}

bool FindDevice(const std::wstring& id, DShow::VideoDevice& found) {
    std::vector<DShow::VideoDevice> devices;
    DShow::GetVideoDevices(devices);
    for (const DShow::VideoDevice& device : devices) {
        if (device.GetId() == id) {
            found = device;
            return true;
        }
    }
    return false;
}

// What ended the wait for frames.
enum class StreamEnd {
    kLimitReached,
    kTimeUp,
    kPropertiesClosed,
    kDeviceLost,
    kNoFirstFrame,
    kStalled
};

// Polls until the tally has its frames, the time is up, the property frame that the run watches
// has closed, or the stream failed; prints a line of progress each second since Run.
StreamEnd WaitForFrames(DShow::VideoCapture& capture, FrameTally& tally, double seconds,
                        bool untilPropertiesClosed,
                        const std::function<void(const std::string&)>& progress) {
    const int64_t start = TinyFramework::GetMonotonicNanos();
    const int64_t runFor = static_cast<int64_t>(seconds * kNanosPerSecond);
    int nextSecond = 1;
    int64_t framesAtLastLine = 0;
    for (;;) {
        if (WaitForSingleObject(tally.Done(), kPollMs) == WAIT_OBJECT_0) {
            return StreamEnd::kLimitReached;
        }
        if (!capture.CheckEvents()) {
            return StreamEnd::kDeviceLost;
        }
        if (untilPropertiesClosed && !capture.IsPropertyShown()) {
            return StreamEnd::kPropertiesClosed;
        }
        const int64_t now = TinyFramework::GetMonotonicNanos();
        const FrameCounts counts = tally.Counts();
        if (counts.frames == 0 && now - start > kFrameDeadlineNs) {
            return StreamEnd::kNoFirstFrame;
        }
        if (counts.frames > 0 && now - counts.lastArrivalNs > kFrameDeadlineNs) {
            return StreamEnd::kStalled;
        }
        if (runFor > 0 && counts.frames > 0 && now - counts.firstArrivalNs >= runFor) {
            return StreamEnd::kTimeUp;
        }
        for (; now - start >= nextSecond * kNanosPerSecond; ++nextSecond) {
            progress(ProgressLine(nextSecond, counts.frames,
                                  static_cast<double>(counts.frames - framesAtLastLine),
                                  counts.drops));
            framesAtLastLine = counts.frames;
        }
    }
}

// The frame callback of a run: every frame is counted, and kept for the snapshot when one is
// asked for. Runs on the streaming thread; the tally and the keeper lock for themselves. Holds
// neither: both outlive the capture object.
class FrameReceiver {
public:
    FrameReceiver(FrameTally* tally, FrameKeeper* keeper) : m_tally(tally), m_keeper(keeper) {}

    void Take(const unsigned char* bits, long size, long long timestampNs, void* userData) {
        if (m_keeper != nullptr) {
            m_keeper->Keep(bits, size);
        }
        m_tally->Take(bits, size, timestampNs, userData);
    }

private:
    FrameTally* const m_tally;
    FrameKeeper* const m_keeper;  // null without --snapshot: no frame is copied then
};

std::string StreamFailure(StreamEnd end, int64_t frames) {
    switch (end) {
        case StreamEnd::kDeviceLost:
            return "device lost after " + std::to_string(frames) + " frames";
        case StreamEnd::kNoFirstFrame:
            return "no frame within 10 s of Run";
        case StreamEnd::kStalled:
            return "no frame for 10 s after " + std::to_string(frames) + " frames";
        case StreamEnd::kLimitReached:
        case StreamEnd::kTimeUp:
        case StreamEnd::kPropertiesClosed:
            break;
    }
    return std::string();
}

}  // namespace

RunResult RunCapture(const CaptureArguments& arguments,
                     const std::function<void(const std::string&)>& progress) {
    DShow::VideoDevice device;
    if (!FindDevice(arguments.deviceId, device)) {
        return Failed("no such device \"" + ToUtf8(arguments.deviceId) + "\"");
    }
    std::vector<DShow::VideoFormat> modes;
    DShow::VideoCapture::GetDeviceFormats(device, modes);
    DShow::VideoFormat requested;
    if (!ChooseMode(modes, arguments, requested)) {
        return Failed("no such mode: " + RequestText(arguments));
    }

    // The tally outlives the capture object, whose teardown stops the streaming thread that
    // calls into it.
    const int64_t limit = arguments.seconds > 0.0 || arguments.frames == 0
                              ? std::numeric_limits<int64_t>::max()
                              : arguments.frames;
    std::unique_ptr<FrameTally> tally;
    std::unique_ptr<FrameKeeper> keeper;
    std::unique_ptr<FrameReceiver> receiver;
    DShow::VideoCapture capture;
    capture.EnableMjpegDec(arguments.mjpegDecoder ? TRUE : FALSE);
    if (!capture.Initialize(device)) {
        return Failed("could not build the capture graph of the device");
    }
    if (!capture.Allocate(requested)) {
        return Failed("could not set the mode " + ModeText(requested));
    }
    // Allocate also succeeds when the sink refused the stream and no decoder applied.
    const DShow::VideoCapture::SinkFeed feed = capture.GetSinkFeed();
    if (feed == DShow::VideoCapture::SinkFeed::kNone) {
        return Failed("nothing connected: the sink takes no " + ModeText(requested) +
                      " and no decoder applies");
    }
    const DShow::VideoFormat current = capture.GetCurrentFormat();
    tally.reset(new FrameTally(limit, FrameIntervalNs(current.rate)));
    if (!arguments.snapshotPath.empty()) {
        keeper.reset(new FrameKeeper());
    }
    receiver.reset(new FrameReceiver(tally.get(), keeper.get()));
    capture.SetCallback(
        TinyFramework::BindCallback<void(const unsigned char*, long, long long, void*)>(
            &FrameReceiver::Take, receiver.get()));
    if (!capture.Run()) {
        return Failed("Run refused (is the device in use by another application?)");
    }
    // The frame runs on a thread of its own; this thread goes on counting and polling.
    if (arguments.properties && !capture.ShowProperty(nullptr)) {
        return Failed("the device's property frame failed with an exception");
    }
    const StreamEnd end =
        WaitForFrames(capture, *tally, arguments.seconds, arguments.properties, progress);
    capture.Stop();
    const FrameCounts counts = tally->Counts();

    RunResult result;
    result.failure = StreamFailure(end, counts.frames);
    result.exitCode = result.failure.empty() ? 0 : 1;
    result.hasSummary = true;
    CaptureSummary& summary = result.summary;
    summary.deviceId = ToUtf8(arguments.deviceId);
    summary.requested = requested;
    summary.current = capture.GetCurrentFormat();
    summary.path = PathName(feed);
    summary.frames = counts.frames;
    summary.seconds = CountedSeconds(counts);
    summary.fps = FramesPerSecond(counts);
    summary.drops = counts.drops;
    summary.deviceLost = end == StreamEnd::kDeviceLost;
    if (keeper) {
        // Encoding waits until the graph stopped: the streaming thread no longer writes the copy.
        std::string reason;
        const std::string path = ToUtf8(arguments.snapshotPath);
        if (WriteSnapshotPng(keeper->Frame(), summary.current, arguments.snapshotPath, reason)) {
            summary.hasSnapshot = true;
            summary.snapshot = path;
        } else if (result.failure.empty()) {
            // A failure of the stream says more than the snapshot's, and only one line is shown.
            result.exitCode = 1;
            result.failure = "cannot write snapshot " + path + ": " + reason;
        }
    }
    return result;
}

}  // namespace CaptureTool
