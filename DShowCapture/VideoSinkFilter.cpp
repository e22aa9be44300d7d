#include "DShowCapture/VideoSinkFilter.h"

namespace DShow {

const wchar_t kTinyFilterName[] = L"Tiny Capture Filter";

VideoSinkFilter::VideoSinkFilter(FilterObserver* observer)
    : FilterBase(observer), m_pin(new VideoSinkInputPin(this, observer)) {}

VideoSinkFilter::~VideoSinkFilter() = default;

int VideoSinkFilter::GetPinCount() {
    return 1;
}

PinBase* VideoSinkFilter::GetPin(int index) {
    return index == 0 ? m_pin.Get() : nullptr;
}

const VideoFormat* VideoSinkFilter::GetFormat() const {
    return m_pin->GetCurrentFormat();
}

void VideoSinkFilter::SetFormat(const VideoFormat& format) {
    m_pin->SetFormat(format);
}

void VideoSinkFilter::SetUseAllocator(LONG useAllocator) {
    m_pin->SetUseAllocator(useAllocator);
}

void VideoSinkFilter::SetMjpegDecEnabled(LONG enabled) {
    m_pin->SetMjpegDecEnabled(enabled);
}

}  // namespace DShow
