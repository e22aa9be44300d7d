#include "DShowCapture/InputPinBase.h"

#include "DShowCapture/MediaTypes.h"
#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/Common/TinyLogging_win32.h"

namespace DShow {

namespace {

// The size that IMediaSample2::GetProperties is asked to fill: the whole record.
constexpr DWORD kSamplePropertiesSize = sizeof(AM_SAMPLE2_PROPERTIES);
static_assert(kSamplePropertiesSize == 64, "AM_SAMPLE2_PROPERTIES is 64 bytes on x64");

// Sample flags as IMediaSample2 reports them.
constexpr DWORD kSampleSyncPoint = 0x1;
constexpr DWORD kSamplePreroll = 0x2;
constexpr DWORD kSampleDiscontinuity = 0x4;
constexpr DWORD kSampleTypeChanged = 0x8;
constexpr DWORD kSampleTimeValid = 0x10;
constexpr DWORD kSampleStopValid = 0x100;

// Stream time comes in 100-nanosecond units; the observer takes nanoseconds.
constexpr long long kNanosecondsPerUnit = 100;

void LogFailure(const char* file, int line, const char* call, HRESULT hr) {
    TinyFramework::LogMessage(file, line).stream()
        << TinyFramework::StringPrintf("Failed to %s(0x%X)", call, HexOf(hr));
}

}  // namespace

InputPinBase::InputPinBase(FilterBase* filter, FilterObserver* observer)
    : PinBase(filter, observer), m_useAllocator(0), m_sampleProperties(), m_observer(observer) {}

InputPinBase::~InputPinBase() = default;

STDMETHODIMP InputPinBase::QueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    if (iid == IID_IMemInputPin) {
        *object = static_cast<IMemInputPin*>(this);
        AddRef();
        return S_OK;
    }
    return PinBase::QueryInterface(iid, object);
}

STDMETHODIMP_(ULONG) InputPinBase::AddRef() {
    return PinBase::AddRef();
}

STDMETHODIMP_(ULONG) InputPinBase::Release() {
    return PinBase::Release();
}

STDMETHODIMP InputPinBase::GetAllocator(IMemAllocator** allocator) {
    // A pin without an allocator of its own says so before it looks at the argument.
    if (m_useAllocator == 0) {
        return VFW_E_NO_ALLOCATOR;
    }
    if (allocator == nullptr) {
        return E_POINTER;
    }
    TinyFramework::TinyAutoLock hold(*m_lock);
    if (!m_allocator) {
        const HRESULT hr = CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER,
                                            IID_IMemAllocator,
                                            reinterpret_cast<void**>(m_allocator.GetAddressOf()));
        if (FAILED(hr)) {
            LogFailure(__FILE__, __LINE__, "CoCreateInstance", hr);
            return hr;
        }
    }
    *allocator = m_allocator.Get();
    (*allocator)->AddRef();
    return S_OK;
}

STDMETHODIMP InputPinBase::NotifyAllocator(IMemAllocator* allocator, BOOL readOnly) {
    if (allocator == nullptr) {
        return E_POINTER;
    }
    TinyFramework::TinyAutoLock hold(*m_lock);
    if (m_useAllocator == 0) {
        // The upstream pin's own allocator serves; this pin does not hold it.
        return S_OK;
    }
    // A new allocator gains two references here and the old one loses two, while the same
    // allocator again changes nothing; the destructor gives back only one, so an allocator that
    // was ever notified outlives the pin. This count is part of the pin's established
    // behaviour, which code that counts an allocator's references observes, and it is kept.
    IMemAllocator* old = m_allocator.Get();
    allocator->AddRef();
    m_allocator = allocator;
    if (old != nullptr) {
        old->Release();
    }
    m_readOnly = readOnly;
    return S_OK;
}

STDMETHODIMP InputPinBase::GetAllocatorRequirements(ALLOCATOR_PROPERTIES* /*properties*/) {
    return E_NOTIMPL;
}

HRESULT InputPinBase::ReadSampleProperties(IMediaSample* sample) {
    ComPtr<IMediaSample2> sample2;
    if (FAILED(sample->QueryInterface(IID_IMediaSample2,
                                      reinterpret_cast<void**>(sample2.GetAddressOf())))) {
        ReadSamplePropertiesByHand(sample);
        return S_OK;
    }
    const HRESULT hr =
        sample2->GetProperties(kSamplePropertiesSize, reinterpret_cast<BYTE*>(&m_sampleProperties));
    if (FAILED(hr)) {
        LogFailure(__FILE__, __LINE__, "GetProperties", hr);
    }
    return hr;
}

void InputPinBase::ReadSamplePropertiesByHand(IMediaSample* sample) {
    AM_SAMPLE2_PROPERTIES& properties = m_sampleProperties;
    properties.cbData = kSamplePropertiesSize;
    properties.dwStreamId = 0;
    properties.dwSampleFlags = 0;
    if (sample->IsDiscontinuity() == S_OK) {
        properties.dwSampleFlags |= kSampleDiscontinuity;
    }
    if (sample->IsPreroll() == S_OK) {
        properties.dwSampleFlags |= kSamplePreroll;
    }
    if (sample->IsSyncPoint() == S_OK) {
        properties.dwSampleFlags |= kSampleSyncPoint;
    }
    if (SUCCEEDED(sample->GetTime(&properties.tStart, &properties.tStop))) {
        properties.dwSampleFlags |= kSampleTimeValid | kSampleStopValid;
    }
    // The type stays in the record, as IMediaSample2 would report it, and nothing frees it.
    // Samples without IMediaSample2 are rare (the platform's allocator gives it), and this
    // established behaviour is left as it is.
    if (sample->GetMediaType(&properties.pMediaType) == S_OK) {
        properties.dwSampleFlags |= kSampleTypeChanged;
    }
    sample->GetPointer(&properties.pbBuffer);
    properties.lActual = sample->GetActualDataLength();
    properties.cbBuffer = sample->GetSize();
}

long long InputPinBase::TimestampOf(IMediaSample* sample) {
    REFERENCE_TIME start = 0;
    REFERENCE_TIME stop = 0;
    if (SUCCEEDED(sample->GetTime(&start, &stop))) {
        return start * kNanosecondsPerUnit;
    }
    // A sample without a time is stamped with its arrival, on the monotonic clock's scale.
    return TinyFramework::GetMonotonicNanos();
}

STDMETHODIMP InputPinBase::Receive(IMediaSample* sample) {
    if (sample == nullptr) {
        return E_POINTER;
    }
    HRESULT hr = CheckStreaming();
    if (hr != S_OK) {
        return hr;
    }
    hr = ReadSampleProperties(sample);
    if (FAILED(hr)) {
        return hr;
    }
    ScopedMediaType newType;
    hr = sample->GetMediaType(newType.Receive());
    if (hr == E_OUTOFMEMORY) {
        LogFailure(__FILE__, __LINE__, "GetMediaType", hr);
        return hr;
    }
    // Any other failure counts as "no new type". The pin's own type stays as connected: the
    // owner decides what a new type means.
    if (hr == S_OK && newType.Get() != nullptr) {
        m_observer->OnMediaTypeChanged(newType.Get(), m_observer->GetUserData());
    }
    newType.Reset();
    const long size = sample->GetActualDataLength();
    BYTE* data = nullptr;
    hr = sample->GetPointer(&data);
    if (hr != S_OK) {
        LogFailure(__FILE__, __LINE__, "GetPointer", hr);
        return hr;
    }
    if (data == nullptr) {
        return S_OK;
    }
    // No copy: the observer reads the sample's own buffer, good for the length of the call.
    m_observer->OnFrameReceived(data, size, TimestampOf(sample), m_observer->GetUserData());
    return S_OK;
}

STDMETHODIMP InputPinBase::ReceiveMultiple(IMediaSample** samples, long count, long* processed) {
    *processed = 0;
    for (long index = 0; index < count; ++index) {
        const HRESULT hr = Receive(samples[index]);
        if (hr != S_OK) {
            return hr;
        }
        ++*processed;
    }
    return S_OK;
}

STDMETHODIMP InputPinBase::ReceiveCanBlock() {
    const int count = m_filter->GetPinCount();
    int connectedOutputs = 0;
    for (int index = 0; index < count; ++index) {
        PinBase* pin = m_filter->GetPin(index);
        if (pin == nullptr) {
            break;
        }
        PIN_DIRECTION direction = PINDIR_INPUT;
        HRESULT hr = pin->QueryDirection(&direction);
        if (hr != S_OK) {
            return hr;
        }
        if (direction != PINDIR_OUTPUT) {
            continue;
        }
        ComPtr<IPin> peer;
        if (FAILED(pin->ConnectedTo(peer.GetAddressOf()))) {
            continue;
        }
        ++connectedOutputs;
        ComPtr<IMemInputPin> peerInput;
        if (FAILED(peer->QueryInterface(IID_IMemInputPin,
                                        reinterpret_cast<void**>(peerInput.GetAddressOf())))) {
            return S_OK;
        }
        if (peerInput->ReceiveCanBlock() != S_FALSE) {
            return S_OK;
        }
    }
    // A filter whose every connected output never blocks does not block either; a sink, with
    // its one input pin, may block (its observer may).
    return connectedOutputs == 0 ? S_OK : S_FALSE;
}

HRESULT InputPinBase::CheckStreaming() {
    if (IsStopped()) {
        return VFW_E_WRONG_STATE;
    }
    if (m_flushing != 0) {
        return S_FALSE;
    }
    return S_OK;
}

HRESULT InputPinBase::BreakConnect() {
    if (m_allocator) {
        const HRESULT hr = m_allocator->Decommit();
        if (FAILED(hr)) {
            return hr;
        }
        m_allocator.Reset();
    }
    return S_OK;
}

HRESULT InputPinBase::Inactive() {
    if (!m_allocator) {
        return VFW_E_NO_ALLOCATOR;
    }
    m_flushing = 0;
    return m_allocator->Decommit();
}

HRESULT InputPinBase::PassNotify(Quality& quality) {
    if (m_qualitySink != nullptr) {
        return m_qualitySink->Notify(m_filter, quality);
    }
    HRESULT hr = VFW_E_NOT_FOUND;
    if (m_connected) {
        ComPtr<IQualityControl> peerQuality;
        if (SUCCEEDED(m_connected->QueryInterface(
                IID_IQualityControl, reinterpret_cast<void**>(peerQuality.GetAddressOf())))) {
            hr = peerQuality->Notify(m_filter, quality);
        }
    }
    return hr;
}

}  // namespace DShow
