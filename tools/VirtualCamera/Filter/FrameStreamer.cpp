#include "tools/VirtualCamera/Filter/FrameStreamer.h"

#include <objbase.h>

#include <vector>

#include "tools/VirtualCamera/Config/FramePattern.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"
#include "tools/VirtualCamera/Filter/BrokenDriver.h"
#include "tools/VirtualCamera/Filter/JpegEncoder.h"

namespace VirtualCamera {
namespace {

std::chrono::steady_clock::duration ToDuration(REFERENCE_TIME units) {
    return std::chrono::microseconds(units / 10);
}

class ComApartment {
public:
    ComApartment() : m_initialized(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
    ~ComApartment() {
        if (m_initialized) {
            CoUninitialize();
        }
    }

private:
    bool m_initialized;
};

// The moment a frame is finished, as the performance counter tells it.
uint64_t FillTime() {
    LARGE_INTEGER now = {};
    QueryPerformanceCounter(&now);
    return static_cast<uint64_t>(now.QuadPart);
}

}  // namespace

void FrameStreamer::Start(StreamSession session) {
    Stop();
    m_session = std::move(session);
    m_nextCounter = m_session.firstCounter;
    m_framesSent = 0;
    m_stopRequested = false;
    m_changeAsked = false;
    m_typeToAttach = false;
    m_changed = false;
    m_changedType.Clear();
    m_thread = std::thread([this] { Loop(); });
}

void FrameStreamer::RequestStop() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stopRequested = true;
    m_wake.notify_all();
}

void FrameStreamer::Stop() {
    if (!m_thread.joinable()) {
        return;
    }
    RequestStop();
    m_thread.join();
    // Drop every reference the session held: nothing of the graph may outlive streaming.
    m_session = StreamSession();
}

bool FrameStreamer::TakeChangedType(MediaType* type) {
    if (m_thread.joinable() || !m_changed) {
        return false;
    }
    *type = m_changedType;
    m_changed = false;
    return true;
}

bool FrameStreamer::WaitUntilDue(std::chrono::steady_clock::time_point due) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return !m_wake.wait_until(lock, due, [this] { return m_stopRequested; });
}

void FrameStreamer::Loop() {
    ComApartment apartment;
    std::unique_ptr<JpegEncoder> jpeg;
    if (LayoutOfSubtype(m_session.subtype) == PixelLayout::MJPG) {
        jpeg = std::make_unique<JpegEncoder>(m_session.width, m_session.height);
    }
    const auto interval = ToDuration(m_session.frameInterval);
    auto due = std::chrono::steady_clock::now();
    REFERENCE_TIME lastStart = 0;
    bool first = true;
    while (WaitUntilDue(due)) {
        if (m_session.crash) {
            CrashLikeABrokenDriver();
        }
        if (m_session.framesUntilLost >= 0 && m_framesSent >= m_session.framesUntilLost) {
            if (m_session.deviceLost) {
                m_session.deviceLost();
            }
            break;
        }
        ChangeModeWhenDue(&jpeg);
        const HRESULT hr = DeliverFrame(jpeg.get(), first, &lastStart);
        // S_FALSE: downstream wants no more; a failure: the allocator was decommitted (stopping).
        if (hr != S_OK) {
            break;
        }
        first = false;
        due += interval;
        const auto now = std::chrono::steady_clock::now();
        // After a long stall start afresh instead of sending a burst of late frames.
        if (now - due > 4 * interval) {
            due = now;
        }
    }
    // Stay until asked to stop, so Stop always finds the thread at a known point.
    std::unique_lock<std::mutex> lock(m_mutex);
    m_wake.wait(lock, [this] { return m_stopRequested; });
}

void FrameStreamer::ChangeModeWhenDue(std::unique_ptr<JpegEncoder>* jpeg) {
    ModeChange& change = m_session.change;
    if (m_changeAsked || change.afterFrames < 0 || m_framesSent < change.afterFrames) {
        return;
    }
    // Asked once: a pin that refuses keeps the stream in the mode it has.
    m_changeAsked = true;
    if (!m_session.peer || m_session.peer->QueryAccept(change.type.get()) != S_OK) {
        return;
    }
    m_session.subtype = change.subtype;
    m_session.width = change.width;
    m_session.height = change.height;
    if (change.frameInterval > 0) {
        m_session.frameInterval = change.frameInterval;
    }
    jpeg->reset();
    if (LayoutOfSubtype(change.subtype) == PixelLayout::MJPG) {
        *jpeg = std::make_unique<JpegEncoder>(change.width, change.height);
    }
    m_typeToAttach = true;
    m_changed = true;
    m_changedType = change.type;
}

HRESULT FrameStreamer::DeliverFrame(JpegEncoder* jpeg, bool first, REFERENCE_TIME* lastStart) {
    Microsoft::WRL::ComPtr<IMediaSample> sample;
    HRESULT hr = m_session.allocator->GetBuffer(&sample, nullptr, nullptr, 0);
    if (FAILED(hr)) {
        return hr;
    }
    // The first sample of a new mode carries its type; the input pin takes it from there.
    if (m_typeToAttach) {
        hr = sample->SetMediaType(m_session.change.type.get());
        if (FAILED(hr)) {
            return hr;
        }
        m_typeToAttach = false;
    }
    hr = FillSample(sample.Get(), jpeg);
    if (FAILED(hr)) {
        return hr;
    }
    StampSample(sample.Get(), first, lastStart);
    hr = m_session.input->Receive(sample.Get());
    ++m_nextCounter;
    ++m_framesSent;
    return hr;
}

HRESULT FrameStreamer::FillSample(IMediaSample* sample, JpegEncoder* jpeg) {
    BYTE* data = nullptr;
    HRESULT hr = sample->GetPointer(&data);
    if (FAILED(hr)) {
        return hr;
    }
    const long capacity = sample->GetSize();
    const uint32_t counter = m_nextCounter;
    // The settings of this moment, copied under their lock: a change applies from the next frame.
    const PictureSettings picture =
        m_session.picture ? m_session.picture->Get() : PictureSettings();
    if (jpeg) {
        const std::vector<BYTE>& image = jpeg->PictureFor(counter, picture);
        std::vector<BYTE> frame = picture.frameCounter ? AddCounterToJpeg(image, counter) : image;
        // The fill-time segment follows the counter's, so a frame without counter has neither.
        if (m_session.stampFillTime && picture.frameCounter) {
            frame = AddFillTimeToJpeg(frame, FillTime());
        }
        if (frame.size() > static_cast<size_t>(capacity) || frame.size() < 4) {
            return E_FAIL;
        }
        CopyMemory(data, frame.data(), frame.size());
        return sample->SetActualDataLength(static_cast<long>(frame.size()));
    }
    const DWORD imageSize = ImageSize(m_session.subtype, m_session.width, m_session.height);
    const long length = imageSize != 0 && static_cast<long>(imageSize) <= capacity
                            ? static_cast<long>(imageSize)
                            : capacity;
    PaintFrame(m_session.subtype, m_session.width, m_session.height, counter, picture, data,
               static_cast<size_t>(length));
    if (m_session.stampFillTime) {
        WriteFillTime(m_session.subtype, m_session.width, FillTime(), data,
                      static_cast<size_t>(length));
    }
    return sample->SetActualDataLength(length);
}

void FrameStreamer::StampSample(IMediaSample* sample, bool first, REFERENCE_TIME* lastStart) {
    REFERENCE_TIME start = static_cast<REFERENCE_TIME>(m_framesSent) * m_session.frameInterval;
    REFERENCE_TIME now = 0;
    if (m_session.clock && SUCCEEDED(m_session.clock->GetTime(&now))) {
        start = now - m_session.streamStart;
    }
    // Stream times only move forward, even when the clock is coarse.
    if (!first && start <= *lastStart) {
        start = *lastStart + 1;
    }
    *lastStart = start;
    REFERENCE_TIME end = start + m_session.frameInterval;
    sample->SetTime(&start, &end);
    LONGLONG mediaStart = m_nextCounter;
    LONGLONG mediaEnd = mediaStart + 1;
    sample->SetMediaTime(&mediaStart, &mediaEnd);
    sample->SetSyncPoint(TRUE);
    sample->SetDiscontinuity(first ? TRUE : FALSE);
    sample->SetPreroll(FALSE);
}

}  // namespace VirtualCamera
