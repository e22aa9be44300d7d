#include "tools/VirtualCamera/Filter/FrameStreamer.h"

#include <objbase.h>

#include <vector>

#include "tools/VirtualCamera/Config/FramePattern.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"
#include "tools/VirtualCamera/Filter/JpegEncoder.h"

namespace VirtualCamera {
namespace {

// Stands for a driver bug: a write through a pointer that was never valid.
void CrashLikeABrokenDriver() {
    // The address goes through a volatile variable so the compiler cannot see it is invalid.
    volatile uintptr_t address = 0x10;
    *reinterpret_cast<volatile int*>(address) = 1;
}

std::chrono::steady_clock::duration ToDuration(REFERENCE_TIME units) {
    return std::chrono::microseconds(units / 10);
}

class ComApartment {
public:
    ComApartment() : initialized_(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
    ~ComApartment() {
        if (initialized_) CoUninitialize();
    }

private:
    bool initialized_;
};

}  // namespace

void FrameStreamer::Start(StreamSession session) {
    Stop();
    session_ = std::move(session);
    nextCounter_ = session_.firstCounter;
    framesSent_ = 0;
    stopRequested_ = false;
    thread_ = std::thread([this] { Loop(); });
}

void FrameStreamer::RequestStop() {
    std::lock_guard<std::mutex> lock(mutex_);
    stopRequested_ = true;
    wake_.notify_all();
}

void FrameStreamer::Stop() {
    if (!thread_.joinable()) return;
    RequestStop();
    thread_.join();
    // Drop every reference the session held: nothing of the graph may outlive streaming.
    session_ = StreamSession();
}

bool FrameStreamer::WaitUntilDue(std::chrono::steady_clock::time_point due) {
    std::unique_lock<std::mutex> lock(mutex_);
    return !wake_.wait_until(lock, due, [this] { return stopRequested_; });
}

void FrameStreamer::Loop() {
    ComApartment apartment;
    std::unique_ptr<JpegEncoder> jpeg;
    if (LayoutOfSubtype(session_.subtype) == PixelLayout::MJPG) {
        jpeg = std::make_unique<JpegEncoder>(session_.width, session_.height);
    }
    const auto interval = ToDuration(session_.frameInterval);
    auto due = std::chrono::steady_clock::now();
    REFERENCE_TIME lastStart = 0;
    bool first = true;
    while (WaitUntilDue(due)) {
        if (session_.crash) CrashLikeABrokenDriver();
        if (session_.framesUntilLost >= 0 && framesSent_ >= session_.framesUntilLost) {
            if (session_.deviceLost) session_.deviceLost();
            break;
        }
        const HRESULT hr = DeliverFrame(jpeg.get(), first, &lastStart);
        // S_FALSE: downstream wants no more; a failure: the allocator was decommitted (stopping).
        if (hr != S_OK) break;
        first = false;
        due += interval;
        const auto now = std::chrono::steady_clock::now();
        // After a long stall start afresh instead of sending a burst of late frames.
        if (now - due > 4 * interval) due = now;
    }
    // Stay until asked to stop, so Stop always finds the thread at a known point.
    std::unique_lock<std::mutex> lock(mutex_);
    wake_.wait(lock, [this] { return stopRequested_; });
}

HRESULT FrameStreamer::DeliverFrame(JpegEncoder* jpeg, bool first, REFERENCE_TIME* lastStart) {
    Microsoft::WRL::ComPtr<IMediaSample> sample;
    HRESULT hr = session_.allocator->GetBuffer(&sample, nullptr, nullptr, 0);
    if (FAILED(hr)) return hr;
    hr = FillSample(sample.Get(), jpeg);
    if (FAILED(hr)) return hr;
    StampSample(sample.Get(), first, lastStart);
    hr = session_.input->Receive(sample.Get());
    ++nextCounter_;
    ++framesSent_;
    return hr;
}

HRESULT FrameStreamer::FillSample(IMediaSample* sample, JpegEncoder* jpeg) {
    BYTE* data = nullptr;
    HRESULT hr = sample->GetPointer(&data);
    if (FAILED(hr)) return hr;
    const long capacity = sample->GetSize();
    const uint32_t counter = nextCounter_;
    if (jpeg) {
        const std::vector<BYTE> frame = AddCounterToJpeg(jpeg->PictureFor(counter), counter);
        if (frame.size() > static_cast<size_t>(capacity) || frame.size() < 4) return E_FAIL;
        CopyMemory(data, frame.data(), frame.size());
        return sample->SetActualDataLength(static_cast<long>(frame.size()));
    }
    const DWORD imageSize = ImageSize(session_.subtype, session_.width, session_.height);
    const long length = imageSize != 0 && static_cast<long>(imageSize) <= capacity
                            ? static_cast<long>(imageSize)
                            : capacity;
    PaintFrame(session_.subtype, session_.width, session_.height, counter, data,
               static_cast<size_t>(length));
    return sample->SetActualDataLength(length);
}

void FrameStreamer::StampSample(IMediaSample* sample, bool first, REFERENCE_TIME* lastStart) {
    REFERENCE_TIME start = static_cast<REFERENCE_TIME>(framesSent_) * session_.frameInterval;
    REFERENCE_TIME now = 0;
    if (session_.clock && SUCCEEDED(session_.clock->GetTime(&now))) {
        start = now - session_.streamStart;
    }
    // Stream times only move forward, even when the clock is coarse.
    if (!first && start <= *lastStart) start = *lastStart + 1;
    *lastStart = start;
    REFERENCE_TIME end = start + session_.frameInterval;
    sample->SetTime(&start, &end);
    LONGLONG mediaStart = nextCounter_;
    LONGLONG mediaEnd = mediaStart + 1;
    sample->SetMediaTime(&mediaStart, &mediaEnd);
    sample->SetSyncPoint(TRUE);
    sample->SetDiscontinuity(first ? TRUE : FALSE);
    sample->SetPreroll(FALSE);
}

}  // namespace VirtualCamera
