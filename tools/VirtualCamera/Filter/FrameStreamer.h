#pragma once
// The capture pin's streaming thread: paints a frame at every frame interval and pushes it to the
// connected input pin, until stopped.

#include <windows.h>
#include <strmif.h>
#include <wrl/client.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <memory>
#include <thread>

#include "tools/VirtualCamera/Config/MediaFormats.h"
#include "tools/VirtualCamera/Filter/PictureControl.h"

namespace VirtualCamera {

class JpegEncoder;

// A change of mode in the middle of a run: after `afterFrames` frames the stream goes on in the
// mode of `type`, once the input pin has accepted that type.
struct ModeChange {
    LONG afterFrames = -1;  // Negative: no change.
    MediaType type;
    GUID subtype = GUID_NULL;
    LONG width = 0;
    LONG height = 0;
    REFERENCE_TIME frameInterval = 0;
};

struct StreamSession {
    Microsoft::WRL::ComPtr<IMemAllocator> allocator;
    Microsoft::WRL::ComPtr<IMemInputPin> input;
    // The connected input pin, asked before a change of mode.
    Microsoft::WRL::ComPtr<IPin> peer;
    GUID subtype = GUID_NULL;
    LONG width = 0;
    LONG height = 0;
    REFERENCE_TIME frameInterval = 0;
    // With a clock, samples carry the stream time at which they were captured.
    Microsoft::WRL::ComPtr<IReferenceClock> clock;
    REFERENCE_TIME streamStart = 0;
    uint32_t firstCounter = 0;
    bool crash = false;
    // Frames left before the device is lost; negative: never.
    LONG framesUntilLost = -1;
    // Called on the streaming thread when the device is lost; no frame follows.
    std::function<void()> deviceLost;
    ModeChange change;
    // Each frame carries the performance counter at which it was filled.
    bool stampFillTime = false;
    // The filter's picture settings, read for each frame; null paints the default picture. Not
    // counted: the filter that owns it joins the streaming thread before it goes.
    const PictureControl* picture = nullptr;
};

class FrameStreamer {
public:
    FrameStreamer() = default;
    ~FrameStreamer() { Stop(); }
    FrameStreamer(const FrameStreamer&) = delete;
    FrameStreamer& operator=(const FrameStreamer&) = delete;

    void Start(StreamSession session);
    // Joins the thread. The caller decommits the allocator first if a GetBuffer may be blocked.
    void Stop();
    void RequestStop();
    bool IsRunning() const { return m_thread.joinable(); }
    // The counter the next frame would carry, and the frames sent since Start.
    uint32_t NextCounter() const { return m_nextCounter; }
    LONG FramesSent() const { return m_framesSent; }
    // After the thread has ended: the type the stream changed to in the last run, if it did.
    bool TakeChangedType(MediaType* type);

private:
    void Loop();
    bool WaitUntilDue(std::chrono::steady_clock::time_point due);
    HRESULT DeliverFrame(JpegEncoder* jpeg, bool first, REFERENCE_TIME* lastStart);
    HRESULT FillSample(IMediaSample* sample, JpegEncoder* jpeg);
    // Asks the input pin for the new mode once its frame is due, and goes on in it if accepted.
    void ChangeModeWhenDue(std::unique_ptr<JpegEncoder>* jpeg);
    void StampSample(IMediaSample* sample, bool first, REFERENCE_TIME* lastStart);

    StreamSession m_session;
    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_stopRequested = false;
    std::atomic<uint32_t> m_nextCounter{0};
    std::atomic<LONG> m_framesSent{0};
    // Streaming thread only, until it ends.
    bool m_changeAsked = false;
    bool m_typeToAttach = false;
    bool m_changed = false;
    MediaType m_changedType;
};

}  // namespace VirtualCamera
