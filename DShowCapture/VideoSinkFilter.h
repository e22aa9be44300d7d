#pragma once

// The end of the capture graph: a filter with one input pin that renders nothing and passes raw
// frames to a FilterObserver (VideoCapture).
//
// References (who holds whom):
//   - Counted by FilterBase's TinyRefCount; it starts at 0 and its creator takes the first
//     reference. The owner (VideoCapture) and the graph each hold one.
//   - The filter holds its pin (m_pin, counted); the pin points back without counting.
//   - The observer is not counted: it must outlive the filter and the pin.
//
// Threads: SetFormat, SetUseAllocator, SetMjpegDecEnabled and GetFormat run on the owner's
// thread before and after a connection, never while the graph connects or streams. The rest is
// told in FilterBase and VideoSinkInputPin.
//
// Locks: the observer's TinyLock serves filter and pin alike. The setters above take no lock.

#include <windows.h>

#include <dshow.h>

#include "DShowCapture/FilterBase.h"
#include "DShowCapture/VideoFormat.h"
#include "DShowCapture/VideoSinkInputPin.h"
#include "TinyFramework/Common/TinyRefCount.h"

namespace DShow {

// The name under which the owner adds the sink to its graph.
extern const wchar_t kTinyFilterName[];

class VideoSinkFilter : public FilterBase {
public:
    // `observer` is the state lock and the receiver of frames, not counted.
    explicit VideoSinkFilter(FilterObserver* observer);
    ~VideoSinkFilter() override;

    int GetPinCount() override;
    PinBase* GetPin(int index) override;

    // What the last CheckMediaType saw: after a connection, the size, rate and pixel format
    // that the graph negotiated.
    const VideoFormat* GetFormat() const;
    // What the pin offers when the graph connects it.
    void SetFormat(const VideoFormat& format);
    // 1: the pin offers an allocator of its own to the upstream pin; 0: it uses upstream's.
    void SetUseAllocator(LONG useAllocator);
    // Not 0: MJPEG is decoded in front of the sink, so the pin refuses it.
    void SetMjpegDecEnabled(LONG enabled);

private:
    TinyFramework::TinyScopedRefPtr<VideoSinkInputPin> m_pin;
};

}  // namespace DShow
