#pragma once

// The one input pin of VideoSinkFilter. It offers the one type that its owner asked for
// (SetFormat), accepts a short list of uncompressed formats and, unless a decoder handles it
// in front of the sink, MJPEG, and hands every frame over unchanged (InputPinBase::Receive).
//
// References (who holds whom):
//   - Counted by PinBase's TinyRefCount. Its filter holds it (counted); it points back at the
//     filter without counting it. The observer is not counted.
//
// Threads:
//   - SetFormat, SetMjpegDecEnabled, the current format's reader: the owner's thread, while the
//     graph does not stream.
//   - CheckMediaType, GetMediaType: the graph manager's thread while it connects, and any
//     thread that asks QueryAccept.
//   - Receive: the upstream streaming thread.
//
// Locks:
//   - CheckMediaType runs under m_lock when it comes through ReceiveConnection and without it
//     from QueryAccept; it writes m_currentFormat either way, so a peer's mere question changes
//     what the owner reads. SetFormat and the reader take no lock: the owner calls them only
//     while nothing connects or streams.

#include <windows.h>

#include <dshow.h>

#include "DShowCapture/InputPinBase.h"
#include "DShowCapture/VideoFormat.h"

namespace DShow {

class VideoSinkInputPin : public InputPinBase {
public:
    VideoSinkInputPin(FilterBase* filter, FilterObserver* observer);
    ~VideoSinkInputPin() override;

    // Accepts a VIDEOINFOHEADER video type of one of the listed subtypes, and records its size,
    // rate and pixel format in the current format (also when the subtype is refused).
    HRESULT CheckMediaType(const AM_MEDIA_TYPE* type) override;
    // The one offered type, built from the requested format; E_FAIL at any other position and
    // for a requested pixel format that has no offer.
    HRESULT GetMediaType(int position, AM_MEDIA_TYPE* type) override;

    // What the pin offers from now on. Clears the current format, but for its flip mark.
    void SetFormat(const VideoFormat& format);
    // What CheckMediaType last saw.
    const VideoFormat* GetCurrentFormat() const { return &m_currentFormat; }
    // When not 0 a decoder in front of the sink handles MJPEG, and the pin refuses it.
    void SetMjpegDecEnabled(LONG enabled) { m_mjpegDecEnabled = enabled; }

private:
    LONG m_mjpegDecEnabled;
    VideoFormat m_requestedFormat;
    VideoFormat m_currentFormat;
};

}  // namespace DShow
