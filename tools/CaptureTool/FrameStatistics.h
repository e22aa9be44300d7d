#pragma once

// Counting frames and judging drops from their time stamps.

#include <windows.h>

#include <cstdint>

#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/Common/TinyLock.h"

namespace CaptureTool {

// Counts the frames missing between time stamps. A gap of more than one and a half frame
// intervals means frames were lost; the gap, rounded to whole intervals, less the one frame that
// did arrive, is how many. A time stamp that does not move forward counts nothing, so a stream
// that restarts its clock is not taken for a burst of drops. Not thread-safe.
class DropCounter {
public:
    // `intervalNs`: the time between two frames at the stream's rate; 0 or less counts nothing.
    explicit DropCounter(double intervalNs) : m_intervalNs(intervalNs) {}

    void Add(int64_t timestampNs);
    int64_t Drops() const { return m_drops; }

private:
    double m_intervalNs;
    bool m_hasLast = false;
    int64_t m_lastNs = 0;
    int64_t m_drops = 0;
};

// The interval between frames at `rate` frames per second, in nanoseconds; 0 for no rate.
double FrameIntervalNs(float rate);

// What the tally has counted so far, copied out under its lock.
struct FrameCounts {
    int64_t frames = 0;
    int64_t drops = 0;
    int64_t firstArrivalNs = 0;  // on the tool's monotonic clock; 0 before the first frame
    int64_t lastArrivalNs = 0;
};

// The frame callback's side of a run: counts frames up to a limit and signals when it is reached.
//
// Threads: Take runs on the streaming thread of the filter in front of the sink; Counts, Done and
// the constructor run on the tool's main thread. m_lock guards the counts and the drop counter;
// the done event is set once, under that lock, by the frame that reaches the limit. Frames after
// it are ignored, so the counts stay at exactly the limit while the graph is being stopped.
class FrameTally {
public:
    FrameTally(int64_t limit, double intervalNs);
    FrameTally(const FrameTally&) = delete;
    FrameTally& operator=(const FrameTally&) = delete;

    // The frame callback; `bits`, `size` and `userData` are not looked at.
    void Take(const unsigned char* bits, long size, long long timestampNs, void* userData);
    // The same, with the arrival time given: what Take does with the clock's reading.
    void TakeAt(int64_t timestampNs, int64_t arrivalNs);

    FrameCounts Counts();
    // Set once `limit` frames were taken.
    HANDLE Done() const { return m_done.Handle(); }

private:
    const int64_t m_limit;
    TinyFramework::TinyLock m_lock;
    TinyFramework::TinyEvent m_done;
    DropCounter m_dropCounter;
    FrameCounts m_counts;
};

// Frames per second over the span from the first frame's arrival to the last one's: the number
// of intervals in it divided by its length. 0 with fewer than two frames.
double FramesPerSecond(const FrameCounts& counts);
// The span from the first frame's arrival to the last one's, in seconds.
double CountedSeconds(const FrameCounts& counts);

}  // namespace CaptureTool
