#include "FrameSink.h"

#include <dshow.h>
#include <vfwmsgs.h>

#include <new>

#include "tools/VirtualCamera/Config/FramePattern.h"

using Microsoft::WRL::ComPtr;
using VirtualCamera::MediaType;

namespace VirtualCameraTests {

// The input pin: IPin for the connection, IMemInputPin for the samples. It owns no allocator
// (GetAllocator answers VFW_E_NO_ALLOCATOR), so the camera must bring its own.
class FrameSinkPin final : public IPin, public IMemInputPin {
public:
    explicit FrameSinkPin(FrameSink* filter) : filter_(filter) {}

    STDMETHODIMP QueryInterface(REFIID riid, void** object) override {
        if (!object) return E_POINTER;
        if (riid == IID_IUnknown || riid == IID_IPin) {
            *object = static_cast<IPin*>(this);
        } else if (riid == IID_IMemInputPin) {
            *object = static_cast<IMemInputPin*>(this);
        } else {
            *object = nullptr;
            return E_NOINTERFACE;
        }
        AddRef();
        return S_OK;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return filter_->AddRef(); }
    STDMETHODIMP_(ULONG) Release() override { return filter_->Release(); }

    STDMETHODIMP Connect(IPin*, const AM_MEDIA_TYPE*) override { return E_UNEXPECTED; }
    STDMETHODIMP ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) override {
        if (!connector || !type) return E_POINTER;
        std::lock_guard<std::mutex> lock(lock_);
        if (peer_) return VFW_E_ALREADY_CONNECTED;
        if (type->majortype != MEDIATYPE_Video) return VFW_E_TYPE_NOT_ACCEPTED;
        peer_ = connector;
        type_.Assign(*type);
        return S_OK;
    }
    STDMETHODIMP Disconnect() override {
        std::lock_guard<std::mutex> lock(lock_);
        if (!peer_) return S_FALSE;
        peer_.Reset();
        type_.Clear();
        return S_OK;
    }
    STDMETHODIMP ConnectedTo(IPin** pin) override {
        std::lock_guard<std::mutex> lock(lock_);
        *pin = peer_.Get();
        if (!*pin) return VFW_E_NOT_CONNECTED;
        (*pin)->AddRef();
        return S_OK;
    }
    STDMETHODIMP ConnectionMediaType(AM_MEDIA_TYPE* type) override {
        std::lock_guard<std::mutex> lock(lock_);
        if (!peer_) return VFW_E_NOT_CONNECTED;
        return VirtualCamera::CopyMediaType(type, *type_);
    }
    STDMETHODIMP QueryPinInfo(PIN_INFO* info) override {
        info->pFilter = filter_;
        filter_->AddRef();
        info->dir = PINDIR_INPUT;
        CopyMemory(info->achName, L"In", sizeof(L"In"));
        return S_OK;
    }
    STDMETHODIMP QueryDirection(PIN_DIRECTION* direction) override {
        *direction = PINDIR_INPUT;
        return S_OK;
    }
    STDMETHODIMP QueryId(LPWSTR* id) override {
        *id = static_cast<LPWSTR>(CoTaskMemAlloc(3 * sizeof(wchar_t)));
        if (!*id) return E_OUTOFMEMORY;
        CopyMemory(*id, L"In", sizeof(L"In"));
        return S_OK;
    }
    STDMETHODIMP QueryAccept(const AM_MEDIA_TYPE* type) override {
        if (!acceptNewTypes_) return S_FALSE;
        return type->majortype == MEDIATYPE_Video ? S_OK : S_FALSE;
    }
    STDMETHODIMP EnumMediaTypes(IEnumMediaTypes**) override { return E_NOTIMPL; }
    STDMETHODIMP QueryInternalConnections(IPin**, ULONG*) override { return E_NOTIMPL; }
    STDMETHODIMP EndOfStream() override { return S_OK; }
    STDMETHODIMP BeginFlush() override { return S_OK; }
    STDMETHODIMP EndFlush() override { return S_OK; }
    STDMETHODIMP NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) override { return S_OK; }

    STDMETHODIMP GetAllocator(IMemAllocator**) override { return VFW_E_NO_ALLOCATOR; }
    STDMETHODIMP NotifyAllocator(IMemAllocator* allocator, BOOL) override {
        notified_ = allocator != nullptr;
        return S_OK;
    }
    STDMETHODIMP GetAllocatorRequirements(ALLOCATOR_PROPERTIES*) override { return E_NOTIMPL; }
    STDMETHODIMP Receive(IMediaSample* sample) override {
        if (filter_->CurrentState() == State_Stopped) return VFW_E_WRONG_STATE;
        filter_->Record(sample);
        return S_OK;
    }
    STDMETHODIMP ReceiveMultiple(IMediaSample** samples, long count, long* processed) override {
        *processed = 0;
        for (long i = 0; i < count; ++i) {
            const HRESULT hr = Receive(samples[i]);
            if (hr != S_OK) return hr;
            ++*processed;
        }
        return S_OK;
    }
    STDMETHODIMP ReceiveCanBlock() override { return S_FALSE; }

    MediaType Type() {
        std::lock_guard<std::mutex> lock(lock_);
        return type_;
    }
    // The frames from a sample that brings a type on have that type.
    void ChangeType(const AM_MEDIA_TYPE& type) {
        std::lock_guard<std::mutex> lock(lock_);
        type_.Assign(type);
    }
    bool notified_ = false;
    std::atomic<bool> acceptNewTypes_{true};

private:
    FrameSink* filter_;
    std::mutex lock_;
    ComPtr<IPin> peer_;
    MediaType type_;
};

namespace {

class SinglePinEnumerator final : public IEnumPins {
public:
    explicit SinglePinEnumerator(IPin* pin, ULONG position = 0) : pin_(pin), position_(position) {}
    STDMETHODIMP QueryInterface(REFIID riid, void** object) override {
        if (riid == IID_IUnknown || riid == IID_IEnumPins) {
            *object = static_cast<IEnumPins*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    STDMETHODIMP_(ULONG) AddRef() override { return ++references_; }
    STDMETHODIMP_(ULONG) Release() override {
        const ULONG remaining = --references_;
        if (remaining == 0) delete this;
        return remaining;
    }
    STDMETHODIMP Next(ULONG count, IPin** pins, ULONG* fetched) override {
        ULONG copied = 0;
        if (count > 0 && position_ == 0) {
            pins[0] = pin_.Get();
            pins[0]->AddRef();
            copied = 1;
            position_ = 1;
        }
        if (fetched) *fetched = copied;
        return copied == count ? S_OK : S_FALSE;
    }
    STDMETHODIMP Skip(ULONG count) override {
        position_ += count;
        return position_ <= 1 ? S_OK : S_FALSE;
    }
    STDMETHODIMP Reset() override {
        position_ = 0;
        return S_OK;
    }
    STDMETHODIMP Clone(IEnumPins** clone) override {
        *clone = new (std::nothrow) SinglePinEnumerator(pin_.Get(), position_);
        return *clone ? S_OK : E_OUTOFMEMORY;
    }

private:
    std::atomic<ULONG> references_{1};
    ComPtr<IPin> pin_;
    ULONG position_;
};

bool LooksLikeJpeg(const BYTE* data, long length) {
    return length > 4 && data[0] == 0xFF && data[1] == 0xD8 && data[length - 2] == 0xFF &&
           data[length - 1] == 0xD9;
}

}  // namespace

FrameSink::FrameSink() : pin_(std::make_unique<FrameSinkPin>(this)) {
    QueryPerformanceFrequency(&frequency_);
}

FrameSink::~FrameSink() = default;

STDMETHODIMP FrameSink::QueryInterface(REFIID riid, void** object) {
    if (!object) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_IPersist || riid == IID_IMediaFilter ||
        riid == IID_IBaseFilter) {
        *object = static_cast<IBaseFilter*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}
STDMETHODIMP_(ULONG) FrameSink::AddRef() {
    return ++references_;
}
STDMETHODIMP_(ULONG) FrameSink::Release() {
    const ULONG remaining = --references_;
    if (remaining == 0) delete this;
    return remaining;
}
STDMETHODIMP FrameSink::GetClassID(CLSID* clsid) {
    *clsid = GUID_NULL;
    return S_OK;
}
STDMETHODIMP FrameSink::Stop() {
    state_ = State_Stopped;
    return S_OK;
}
STDMETHODIMP FrameSink::Pause() {
    state_ = State_Paused;
    return S_OK;
}
STDMETHODIMP FrameSink::Run(REFERENCE_TIME) {
    state_ = State_Running;
    return S_OK;
}
STDMETHODIMP FrameSink::GetState(DWORD, FILTER_STATE* state) {
    *state = state_;
    return S_OK;
}
STDMETHODIMP FrameSink::SetSyncSource(IReferenceClock* clock) {
    clock_ = clock;
    return S_OK;
}
STDMETHODIMP FrameSink::GetSyncSource(IReferenceClock** clock) {
    *clock = clock_.Get();
    if (*clock) (*clock)->AddRef();
    return S_OK;
}
STDMETHODIMP FrameSink::EnumPins(IEnumPins** pins) {
    *pins = new (std::nothrow) SinglePinEnumerator(pin_.get());
    return *pins ? S_OK : E_OUTOFMEMORY;
}
STDMETHODIMP FrameSink::FindPin(LPCWSTR id, IPin** pin) {
    if (wcscmp(id, L"In") != 0) return VFW_E_NOT_FOUND;
    *pin = pin_.get();
    (*pin)->AddRef();
    return S_OK;
}
STDMETHODIMP FrameSink::QueryFilterInfo(FILTER_INFO* info) {
    CopyMemory(info->achName, L"Frame sink", sizeof(L"Frame sink"));
    info->pGraph = graph_;
    if (graph_) graph_->AddRef();
    return S_OK;
}
STDMETHODIMP FrameSink::JoinFilterGraph(IFilterGraph* graph, LPCWSTR) {
    graph_ = graph;
    return S_OK;
}
STDMETHODIMP FrameSink::QueryVendorInfo(LPWSTR*) {
    return E_NOTIMPL;
}

IPin* FrameSink::InputPin() {
    return pin_.get();
}

void FrameSink::Record(IMediaSample* sample) {
    ReceivedFrame frame;
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    frame.arrivalMicroseconds = now.QuadPart * 1000000 / frequency_.QuadPart;
    BYTE* data = nullptr;
    frame.actualLength = sample->GetActualDataLength();
    frame.bufferSize = sample->GetSize();
    frame.hasTime = sample->GetTime(&frame.start, &frame.stop) == S_OK;
    frame.discontinuity = sample->IsDiscontinuity() == S_OK;
    frame.syncPoint = sample->IsSyncPoint() == S_OK;
    AM_MEDIA_TYPE* newType = nullptr;
    frame.mediaTypeResult = sample->GetMediaType(&newType);
    if (newType) {
        frame.mediaType.Assign(*newType);
        pin_->ChangeType(*newType);
        VirtualCamera::DeleteMediaType(newType);
    }
    const MediaType type = pin_->Type();
    if (SUCCEEDED(sample->GetPointer(&data)) && data) {
        const size_t length = static_cast<size_t>(frame.actualLength);
        frame.counterDecoded =
            VirtualCamera::DecodeFrameCounter(type->subtype, data, length, &frame.counter);
        frame.fillTimeDecoded =
            VirtualCamera::DecodeFillTime(type->subtype, data, length, &frame.fillTime);
        frame.validJpeg = LooksLikeJpeg(data, frame.actualLength);
        if (keepBytes_) frame.bytes.assign(data, data + length);
    }
    std::lock_guard<std::mutex> lock(framesLock_);
    frames_.push_back(frame);
    framesArrived_.notify_all();
}

bool FrameSink::WaitForFrames(size_t count, DWORD timeoutMs) {
    std::unique_lock<std::mutex> lock(framesLock_);
    return framesArrived_.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                                   [&] { return frames_.size() >= count; });
}

std::vector<ReceivedFrame> FrameSink::Frames() {
    std::lock_guard<std::mutex> lock(framesLock_);
    return frames_;
}

size_t FrameSink::FrameCount() {
    std::lock_guard<std::mutex> lock(framesLock_);
    return frames_.size();
}

MediaType FrameSink::ConnectedType() {
    return pin_->Type();
}

bool FrameSink::NotifiedAllocator() const {
    return pin_->notified_;
}

void FrameSink::AcceptNewTypes(bool accept) {
    pin_->acceptNewTypes_ = accept;
}

}  // namespace VirtualCameraTests
