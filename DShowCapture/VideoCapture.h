#pragma once

// VideoCapture: one DirectShow graph from a capture device into the library's own sink.
//
// References (who holds whom):
//   - VideoCapture owns the graph, the capture graph builder, the graph's IMediaControl and
//     IMediaEvent, the device's filter and capture pin, the decoders it brought in with their
//     pins, and the sink's input pin: each through a counted COM pointer.
//   - It holds the sink filter counted as well (m_sinkFilter); the graph holds it a second time
//     while the sink is in the graph. The sink points back at this object, its FilterObserver,
//     without counting it: this object outlives the sink, since Uninitialize (also from the
//     destructor) takes the sink out of the graph and releases it last of all.
//   - Filters that the graph's intelligent Connect brings in by itself are the graph's alone.
//
// Threads:
//   - Initialize, Uninitialize, Allocate, Deallocate, Run, Stop, Pause, GetState, CheckEvents,
//     EnableMjpegDec, SetCallback and ShowProperty run on the owner's thread; the owner keeps
//     them from overlapping. The property frame runs on a dialog thread of its own, which holds
//     its own reference to the device's filter (DShowPropertyDlg.h).
//   - OnMediaTypeChanged and OnFrameReceived run on the streaming thread of the filter in front
//     of the sink (the device, or a decoder).
//
// Locks:
//   - The TinyLock base is the state lock of the sink filter and its pin; this class never takes
//     it. Nothing guards m_callback or m_currentFormat: the owner sets the callback before Run
//     and leaves it alone while the graph runs, and a reader of the current format during
//     streaming may see it halfway through a change.

#include <windows.h>

#include <dshow.h>

#include <vector>

#include "DShowCapture/ComHelpers.h"
#include "DShowCapture/DeviceEnumeration.h"
#include "DShowCapture/FilterBase.h"
#include "DShowCapture/VideoFormat.h"
#include "DShowCapture/VideoSinkFilter.h"
#include "TinyFramework/Common/TinyCallback.h"
#include "TinyFramework/Common/TinyRefCount.h"

namespace DShow {

// Captures video from one device through a DirectShow graph. The static format listing needs
// no instance and no graph.
class VideoCapture : public FilterObserver {
public:
    // The filter whose output feeds the sink, which tells how the frames got their format.
    enum class SinkFeed {
        kNone,          // nothing is connected to the sink
        kDevice,        // the device's capture pin, directly
        kAviDecoder,    // the AVI decompressor, whether Allocate or the graph brought it in
        kMjpegDecoder,  // the MJPEG decompressor
        kOtherFilter,   // a filter that the graph's intelligent Connect brought in by itself
    };

    // What receives the frames: the sample's bytes (good for the call only), their length, the
    // time stamp in nanoseconds and the user data.
    using FrameCallback =
        TinyFramework::Callback<void(const unsigned char*, long, long long, void*)>;

    VideoCapture();
    ~VideoCapture() override;
    VideoCapture(const VideoCapture&) = delete;
    VideoCapture& operator=(const VideoCapture&) = delete;

    // FilterObserver, on the streaming thread.
    void OnMediaTypeChanged(const AM_MEDIA_TYPE* mediaType, void* userData) override;
    void OnFrameReceived(const unsigned char* bits, long size, long long timestamp,
                         void* userData) override;

    // Puts the requested mode on the capture pin and connects the pin to the sink, through a
    // decoder where the sink refuses the mode. Also true when the connection failed and no
    // decoder applies: GetCurrentFormat then tells what the sink's pin saw.
    virtual bool Allocate(const VideoFormat& format);
    // Disconnects every pin of the chain; the decoders stay in the graph for the next Allocate.
    virtual void Deallocate();

    // Builds the graph of the device's filter and the sink, not connected. Call it on an object
    // that holds no graph (new, or after Uninitialize).
    bool Initialize(const VideoDevice& device);
    // Takes the graph apart, stopping it first when it runs. Safe at any time, and again.
    void Uninitialize();

    bool Run();
    bool Stop();
    bool Pause();
    // The graph's state, asked with no wait: a change still under way counts as success.
    bool GetState(FILTER_STATE& state);
    // Drains the graph's event queue without waiting; false when a lost device, an aborted or
    // a completed stream was among the events.
    bool CheckEvents();

    // Whether an MJPEG stream may be decoded in front of the sink. Set it before Initialize,
    // which hands it to the sink's pin once.
    void EnableMjpegDec(BOOL enable);
    // Set before Run and left alone while the graph runs.
    void SetCallback(FrameCallback&& callback);
    // The format that the graph really carries; all zero while nothing is connected.
    const VideoFormat& GetCurrentFormat() const { return m_currentFormat; }
    // Opens the device's property frame on a thread of its own and returns at once (see
    // DShowPropertyDlg.h); a frame already open for the device stays as it is. True when the
    // call returned, also before Initialize; false when it raised a structured exception, which
    // is logged with its stack and goes no further.
    BOOL ShowProperty(HWND owner);
    // Whether a property frame of the device is open (or about to open).
    bool IsPropertyShown() const;
    // Asks the graph which filter is connected to the sink's input pin, on the owner's thread.
    // Allocate can succeed with nothing connected; this tells that case apart from a stream.
    SinkFeed GetSinkFeed() const;

    // Appends the modes of the video input device `device.id` to `formats` and sorts the whole
    // vector. True when every capability was read; on a failure `formats` keeps what was read
    // so far, unsorted.
    static bool GetDeviceFormats(const VideoDevice& device, std::vector<VideoFormat>& formats);
    // The same for a device of another category.
    static bool GetDeviceFormats(const VideoDevice& device, const GUID& category,
                                 std::vector<VideoFormat>& formats);
    // The listing once the device's filter is open: its capture output pin's modes.
    static bool GetFilterFormats(IBaseFilter* filter, std::vector<VideoFormat>& formats);
    // The listing over a capture pin's IAMStreamConfig.
    static bool GetPinFormats(IPin* pin, std::vector<VideoFormat>& formats);

protected:
    // Seams for tests that must stand in for what the platform cannot produce (a refused Run,
    // a failing event queue, a driver that faults) and that look at the graph through its
    // published interfaces.
    ComPtr<IMediaControl>& MediaControl() { return m_mediaControl; }
    ComPtr<IMediaEvent>& MediaEvent() { return m_mediaEvent; }
    ComPtr<IBaseFilter>& CaptureFilter() { return m_captureFilter; }
    IGraphBuilder* Graph() const { return m_graph.Get(); }
    ICaptureGraphBuilder2* Builder() const { return m_builder.Get(); }

private:
    bool IsNotReady() const;
    bool InsertAviDecoder(VideoFormat& wanted, const AM_MEDIA_TYPE* mediaType);
    bool InsertMjpegDecoder(VideoFormat& wanted, const AM_MEDIA_TYPE* mediaType);
    bool InsertDecoder(REFCLSID clsid, const char* createText, const char* addFilterText,
                       ComPtr<IBaseFilter>& filter, ComPtr<IPin>& outputPin, ComPtr<IPin>& inputPin,
                       VideoFormat& wanted, const AM_MEDIA_TYPE* mediaType);
    bool ConnectByChoice(VideoFormat& wanted, const AM_MEDIA_TYPE* mediaType);
    void ApplyPowerLineFrequency();

    BOOL m_enableMjpegDec;
    FrameCallback m_callback;
    VideoFormat m_currentFormat;
    ComPtr<IGraphBuilder> m_graph;
    ComPtr<ICaptureGraphBuilder2> m_builder;
    ComPtr<IMediaEvent> m_mediaEvent;
    ComPtr<IMediaControl> m_mediaControl;
    ComPtr<IBaseFilter> m_captureFilter;
    ComPtr<IPin> m_capturePin;
    ComPtr<IBaseFilter> m_mjpegFilter;
    ComPtr<IPin> m_mjpegOutputPin;
    ComPtr<IPin> m_mjpegInputPin;
    ComPtr<IBaseFilter> m_aviFilter;
    ComPtr<IPin> m_aviOutputPin;
    ComPtr<IPin> m_aviInputPin;
    ComPtr<IPin> m_sinkInputPin;
    TinyFramework::TinyScopedRefPtr<VideoSinkFilter> m_sinkFilter;
};

// Turns one stream capability into a mode. False when the capability is not listed: not a
// VIDEOINFOHEADER video type, a subtype without pixel format, or no whole VIDEOINFOHEADER in the
// format block. Without a capability block (null) the mode's sizes and rates are the frame's own.
bool VideoFormatFromCapability(const AM_MEDIA_TYPE& mediaType,
                               const VIDEO_STREAM_CONFIG_CAPS* capability, VideoFormat& format);

// Sorts modes by FormatLess in the order that the Windows builds produce.
void SortFormats(std::vector<VideoFormat>& formats);

}  // namespace DShow
