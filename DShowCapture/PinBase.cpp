#include "DShowCapture/PinBase.h"

#include <cstring>
#include <cwchar>
#include <new>

#include "DShowCapture/MediaTypes.h"
#include "DShowCapture/TypeEnumerator.h"

namespace DShow {

const wchar_t kTinyPinName[] = L"Tiny Video Capture";

namespace {

// QueryId refuses an id this long or longer: no pin of this library has one, so such a name
// can only be a corrupt pointer.
constexpr size_t kIdLengthLimit = 50000;

// A failure that only says "not this type": it does not replace a more telling failure of
// another type in the negotiation.
bool IsPlainRefusal(HRESULT hr) {
    return hr == E_FAIL || hr == E_INVALIDARG || hr == VFW_E_TYPE_NOT_ACCEPTED;
}

// How CheckMediaType's answer is passed on by a connection: a failure that says more than "not
// this type" stays, anything else that is not S_OK becomes VFW_E_TYPE_NOT_ACCEPTED.
HRESULT ConnectionResultOfCheck(HRESULT hr) {
    if (FAILED(hr) && hr != E_FAIL && hr != E_INVALIDARG) {
        return hr;
    }
    return hr == S_OK ? S_OK : VFW_E_TYPE_NOT_ACCEPTED;
}

bool IsFullySpecified(const AM_MEDIA_TYPE& type) {
    return type.majortype != GUID_NULL && type.formattype != GUID_NULL;
}

}  // namespace

bool MediaTypesMatch(const AM_MEDIA_TYPE& a, const AM_MEDIA_TYPE& b) {
    if (a.majortype != GUID_NULL && b.majortype != GUID_NULL && a.majortype != b.majortype) {
        return false;
    }
    if (a.subtype != GUID_NULL && b.subtype != GUID_NULL && a.subtype != b.subtype) {
        return false;
    }
    if (a.formattype == GUID_NULL || b.formattype == GUID_NULL) {
        return true;
    }
    if (a.formattype != b.formattype || a.cbFormat != b.cbFormat) {
        return false;
    }
    return a.cbFormat == 0 || std::memcmp(a.pbFormat, b.pbFormat, a.cbFormat) == 0;
}

PinBase::PinBase(FilterBase* filter, TinyFramework::TinyLock* lock)
    : m_flushing(0),
      m_readOnly(0),
      m_rate(0.0),
      m_name(kTinyPinName),
      m_mediaType(),
      m_direction(PINDIR_INPUT),
      m_qualitySink(nullptr),
      m_filter(filter),
      m_lock(lock) {}

PinBase::~PinBase() {
    FreeMediaType(m_mediaType);
}

STDMETHODIMP PinBase::QueryInterface(REFIID iid, void** object) {
    if (object == nullptr) {
        return E_POINTER;
    }
    // IQualityControl is left out on purpose: quality messages have nowhere to go in a sink.
    if (iid == IID_IUnknown || iid == IID_IPin) {
        *object = static_cast<IPin*>(this);
        AddRef();
        return S_OK;
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

STDMETHODIMP_(ULONG) PinBase::AddRef() {
    return static_cast<ULONG>(TinyRefCount::AddRef());
}

STDMETHODIMP_(ULONG) PinBase::Release() {
    return static_cast<ULONG>(TinyRefCount::Release());
}

STDMETHODIMP PinBase::Connect(IPin* pin, const AM_MEDIA_TYPE* type) {
    if (pin == nullptr || type == nullptr) {
        return E_POINTER;
    }
    if (IsConnected()) {
        return VFW_E_ALREADY_CONNECTED;
    }
    if (IsFullySpecified(*type)) {
        return AttemptConnection(pin, type);
    }
    HRESULT failure = VFW_E_NO_ACCEPTABLE_TYPES;
    // The peer's preferences first, then this pin's own offer.
    for (int pass = 0; pass < 2; ++pass) {
        ComPtr<IEnumMediaTypes> enumerator;
        IPin* source = pass == 0 ? pin : static_cast<IPin*>(this);
        if (FAILED(source->EnumMediaTypes(enumerator.GetAddressOf()))) {
            continue;
        }
        const HRESULT hr = TryMediaTypes(pin, type, enumerator.Get());
        enumerator.Reset();
        if (hr == S_OK) {
            return S_OK;
        }
        if (!IsPlainRefusal(hr)) {
            failure = hr;
        }
    }
    return failure;
}

HRESULT PinBase::TryMediaTypes(IPin* pin, const AM_MEDIA_TYPE* type, IEnumMediaTypes* enumerator) {
    HRESULT hr = enumerator->Reset();
    if (hr != S_OK) {
        return hr;
    }
    AM_MEDIA_TYPE* candidate = nullptr;
    ULONG fetched = 0;
    if (enumerator->Next(1, &candidate, &fetched) != S_OK) {
        return VFW_E_NO_ACCEPTABLE_TYPES;
    }
    HRESULT kept = S_OK;
    do {
        if (candidate == nullptr || (type != nullptr && !MediaTypesMatch(*candidate, *type))) {
            hr = VFW_E_NO_ACCEPTABLE_TYPES;
        } else {
            hr = AttemptConnection(pin, candidate);
        }
        if (FAILED(hr) && kept == S_OK && !IsPlainRefusal(hr)) {
            kept = hr;
        }
        DeleteMediaType(candidate);
        candidate = nullptr;
        if (hr == S_OK) {
            return S_OK;
        }
    } while (enumerator->Next(1, &candidate, &fetched) == S_OK);
    return kept != S_OK ? kept : VFW_E_NO_ACCEPTABLE_TYPES;
}

HRESULT PinBase::AttemptConnection(IPin* pin, const AM_MEDIA_TYPE* type) {
    // A peer that points the same way is no failure of the type: the attempt just does not
    // happen, and says so with a success code that is not S_OK.
    if (CheckConnect(pin) != S_OK) {
        return S_FALSE;
    }
    HRESULT hr = ConnectionResultOfCheck(CheckMediaType(type));
    if (hr != S_OK) {
        ClearConnection();
        return hr;
    }
    // Set before the peer is asked, so that its questions during ReceiveConnection see a
    // connected pin.
    m_connected = pin;
    hr = SetMediaType(type);
    if (SUCCEEDED(hr)) {
        hr = pin->ReceiveConnection(this, type);
        if (FAILED(hr)) {
            pin->Disconnect();
        }
    }
    if (FAILED(hr)) {
        // BreakConnect is not called: the pin has set up nothing that needs taking down.
        ClearConnection();
        return hr;
    }
    CompleteConnect(pin);
    return S_OK;
}

void PinBase::ClearConnection() {
    m_connected.Reset();
}

STDMETHODIMP PinBase::ReceiveConnection(IPin* pin, const AM_MEDIA_TYPE* type) {
    if (pin == nullptr || type == nullptr) {
        return E_POINTER;
    }
    TinyFramework::TinyAutoLock hold(*m_lock);
    // No test for a stopped filter: the capture graph only connects while stopped.
    if (IsConnected()) {
        return VFW_E_ALREADY_CONNECTED;
    }
    HRESULT hr = CheckConnect(pin);
    if (hr != S_OK) {
        return hr;
    }
    hr = ConnectionResultOfCheck(CheckMediaType(type));
    if (hr != S_OK) {
        return hr;
    }
    m_connected = pin;
    hr = SetMediaType(type);
    if (hr != S_OK) {
        ClearConnection();
        return hr;
    }
    CompleteConnect(pin);
    return S_OK;
}

STDMETHODIMP PinBase::Disconnect() {
    TinyFramework::TinyAutoLock hold(*m_lock);
    if (!IsConnected()) {
        return S_FALSE;
    }
    const HRESULT hr = OnDisconnect();
    if (hr == S_OK) {
        // The type stays: ConnectionMediaType answers from the connection, not from it.
        ClearConnection();
    }
    return hr;
}

STDMETHODIMP PinBase::ConnectedTo(IPin** pin) {
    if (pin == nullptr) {
        return E_POINTER;
    }
    IPin* peer = m_connected.Get();
    *pin = peer;
    if (peer == nullptr) {
        return VFW_E_NOT_CONNECTED;
    }
    peer->AddRef();
    return S_OK;
}

STDMETHODIMP PinBase::ConnectionMediaType(AM_MEDIA_TYPE* type) {
    if (type == nullptr) {
        return E_POINTER;
    }
    TinyFramework::TinyAutoLock hold(*m_lock);
    if (IsConnected()) {
        return CopyMediaType(type, &m_mediaType);
    }
    ZeroMemory(type, sizeof(*type));
    type->bFixedSizeSamples = TRUE;
    type->lSampleSize = 1;
    return VFW_E_NOT_CONNECTED;
}

STDMETHODIMP PinBase::QueryPinInfo(PIN_INFO* info) {
    if (info == nullptr) {
        return E_POINTER;
    }
    info->pFilter = m_filter;
    if (m_filter != nullptr) {
        m_filter->AddRef();
    }
    CopyTruncatedName(m_name, info->achName, sizeof(info->achName) / sizeof(info->achName[0]));
    info->dir = m_direction;
    return S_OK;
}

STDMETHODIMP PinBase::QueryDirection(PIN_DIRECTION* direction) {
    if (direction == nullptr) {
        return E_POINTER;
    }
    *direction = m_direction;
    return S_OK;
}

STDMETHODIMP PinBase::QueryId(LPWSTR* id) {
    // The output pointer is not checked: FindPin and the graph manager always give one.
    if (m_name == nullptr) {
        return E_INVALIDARG;
    }
    size_t length = 0;
    while (length < kIdLengthLimit && m_name[length] != L'\0') {
        ++length;
    }
    if (length >= kIdLengthLimit) {
        return E_INVALIDARG;
    }
    auto* copy = static_cast<LPWSTR>(CoTaskMemAlloc((length + 1) * sizeof(WCHAR)));
    if (copy == nullptr) {
        return E_OUTOFMEMORY;
    }
    wmemcpy(copy, m_name, length + 1);
    *id = copy;
    return S_OK;
}

STDMETHODIMP PinBase::QueryAccept(const AM_MEDIA_TYPE* type) {
    return CheckMediaType(type) == S_OK ? S_OK : S_FALSE;
}

STDMETHODIMP PinBase::EnumMediaTypes(IEnumMediaTypes** enumerator) {
    if (enumerator == nullptr) {
        return E_POINTER;
    }
    TypeEnumerator* types = new (std::nothrow) TypeEnumerator(this);
    if (types == nullptr) {
        return E_OUTOFMEMORY;
    }
    types->AddRef();
    *enumerator = types;
    return S_OK;
}

STDMETHODIMP PinBase::QueryInternalConnections(IPin** /*pins*/, ULONG* /*count*/) {
    return E_NOTIMPL;
}

STDMETHODIMP PinBase::EndOfStream() {
    return S_OK;
}

STDMETHODIMP PinBase::BeginFlush() {
    TinyFramework::TinyAutoLock hold(*m_lock);
    m_flushing = 1;
    return S_OK;
}

STDMETHODIMP PinBase::EndFlush() {
    TinyFramework::TinyAutoLock hold(*m_lock);
    m_flushing = 0;
    return S_OK;
}

STDMETHODIMP PinBase::NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) {
    m_segmentStart = start;
    m_segmentStop = stop;
    m_rate = rate;
    return S_OK;
}

HRESULT PinBase::SetMediaType(const AM_MEDIA_TYPE* type) {
    // The type of an earlier connection goes first, so that its block is not lost.
    FreeMediaType(m_mediaType);
    return CopyMediaTypeForHolder(&m_mediaType, type);
}

HRESULT PinBase::CheckConnect(IPin* pin) {
    PIN_DIRECTION direction = m_direction;
    pin->QueryDirection(&direction);
    return direction == m_direction ? VFW_E_INVALID_DIRECTION : S_OK;
}

HRESULT PinBase::BreakConnect() {
    return S_OK;
}

HRESULT PinBase::PinHookA() {
    return S_OK;
}

HRESULT PinBase::PinHookB() {
    return S_OK;
}

HRESULT PinBase::Inactive() {
    return S_OK;
}

HRESULT PinBase::PinHookC() {
    return S_OK;
}

HRESULT PinBase::CompleteConnect(IPin* /*pin*/) {
    return S_OK;
}

HRESULT PinBase::OnDisconnect() {
    return S_OK;
}

HRESULT PinBase::OnFilterStateChange(bool /*active*/) {
    return S_OK;
}

HRESULT PinBase::OnFilterRun(RefTime /*start*/) {
    return S_OK;
}

STDMETHODIMP PinBase::Notify(IBaseFilter* /*sender*/, Quality /*quality*/) {
    return E_NOTIMPL;
}

STDMETHODIMP PinBase::SetSink(IQualityControl* sink) {
    TinyFramework::TinyAutoLock hold(*m_lock);
    m_qualitySink = sink;
    return S_OK;
}

bool PinBase::IsStopped() const {
    if (m_filter == nullptr) {
        return false;
    }
    FILTER_STATE state = State_Stopped;
    m_filter->GetState(0, &state);
    return state == State_Stopped;
}

}  // namespace DShow
