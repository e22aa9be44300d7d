#include "tools/CaptureTool/FrameStatistics.h"

#include <cmath>

#include "TinyFramework/Common/TinyLogging_win32.h"

namespace CaptureTool {
namespace {

constexpr double kNanosPerSecond = 1e9;
// More than this many intervals between two frames means at least one frame went missing.
constexpr double kDropThreshold = 1.5;

}  // namespace

void DropCounter::Add(int64_t timestampNs) {
    if (m_hasLast && m_intervalNs > 0.0 && timestampNs > m_lastNs) {
        const double intervals = static_cast<double>(timestampNs - m_lastNs) / m_intervalNs;
        if (intervals > kDropThreshold) {
            m_drops += std::llround(intervals) - 1;
        }
    }
    m_hasLast = true;
    m_lastNs = timestampNs;
}

double FrameIntervalNs(float rate) {
    return rate > 0.0f ? kNanosPerSecond / static_cast<double>(rate) : 0.0;
}

FrameTally::FrameTally(int64_t limit, double intervalNs)
    : m_limit(limit), m_dropCounter(intervalNs) {
    // A manual-reset event: the main thread may look at it more than once.
    m_done.CreateEx(nullptr, nullptr, CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS);
}

void FrameTally::Take(const unsigned char*, long, long long timestampNs, void*) {
    TakeAt(timestampNs, TinyFramework::GetMonotonicNanos());
}

void FrameTally::TakeAt(int64_t timestampNs, int64_t arrivalNs) {
    TinyFramework::TinyAutoLock hold(m_lock);
    if (m_counts.frames >= m_limit) {
        return;
    }
    if (m_counts.frames == 0) {
        m_counts.firstArrivalNs = arrivalNs;
    }
    m_counts.lastArrivalNs = arrivalNs;
    ++m_counts.frames;
    m_dropCounter.Add(timestampNs);
    m_counts.drops = m_dropCounter.Drops();
    if (m_counts.frames == m_limit) {
        m_done.SetEvent();
    }
}

FrameCounts FrameTally::Counts() {
    TinyFramework::TinyAutoLock hold(m_lock);
    return m_counts;
}

double CountedSeconds(const FrameCounts& counts) {
    return static_cast<double>(counts.lastArrivalNs - counts.firstArrivalNs) / kNanosPerSecond;
}

double FramesPerSecond(const FrameCounts& counts) {
    const double seconds = CountedSeconds(counts);
    if (counts.frames < 2 || seconds <= 0.0) {
        return 0.0;
    }
    return static_cast<double>(counts.frames - 1) / seconds;
}

}  // namespace CaptureTool
