#include "tools/VirtualCamera/Filter/CaptureFilter.h"

#include <evcode.h>
#include <vfwmsgs.h>

#include "tools/VirtualCamera/Config/Guids.h"
#include "tools/VirtualCamera/Config/Variant.h"
#include "tools/VirtualCamera/Filter/CapturePin.h"
#include "tools/VirtualCamera/Filter/Enumerators.h"

using Microsoft::WRL::ComPtr;

namespace VirtualCamera {
namespace {

bool ReadString(IPropertyBag* bag, const wchar_t* name, std::wstring* text) {
    Variant value;
    value.get()->vt = VT_BSTR;
    if (FAILED(bag->Read(name, value.get(), nullptr))) return false;
    if ((*value).vt != VT_BSTR || !(*value).bstrVal) return false;
    text->assign((*value).bstrVal, SysStringLen((*value).bstrVal));
    return true;
}

}  // namespace

CaptureFilter::CaptureFilter() : pin_(std::make_unique<CapturePin>(this)) {}

CaptureFilter::~CaptureFilter() {
    // The graph stops and disconnects filters before releasing them; this covers a filter used
    // outside a graph.
    std::lock_guard<std::recursive_mutex> lock(lock_);
    if (state_ != State_Stopped) pin_->Deactivate();
}

STDMETHODIMP CaptureFilter::QueryInterface(REFIID riid, void** object) {
    if (!object) return E_POINTER;
    *object = nullptr;
    if (riid == IID_IUnknown || riid == IID_IPersist || riid == IID_IMediaFilter ||
        riid == IID_IBaseFilter) {
        *object = static_cast<IBaseFilter*>(this);
    } else if (riid == IID_IAMFilterMiscFlags) {
        *object = static_cast<IAMFilterMiscFlags*>(this);
    } else if (riid == IID_IPersistPropertyBag) {
        *object = static_cast<IPersistPropertyBag*>(this);
    } else {
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) CaptureFilter::AddRef() {
    return ++references_;
}

STDMETHODIMP_(ULONG) CaptureFilter::Release() {
    const ULONG remaining = --references_;
    if (remaining == 0) delete this;
    return remaining;
}

STDMETHODIMP CaptureFilter::GetClassID(CLSID* clsid) {
    if (!clsid) return E_POINTER;
    *clsid = CLSID_VirtualCameraFilter;
    return S_OK;
}

// ---- States ----------------------------------------------------------------------------------

STDMETHODIMP CaptureFilter::Stop() {
    std::lock_guard<std::recursive_mutex> lock(lock_);
    if (state_ != State_Stopped) pin_->Deactivate();
    state_ = State_Stopped;
    return S_OK;
}

STDMETHODIMP CaptureFilter::Pause() {
    std::lock_guard<std::recursive_mutex> lock(lock_);
    if (state_ == State_Stopped) {
        const HRESULT hr = pin_->Activate();
        if (FAILED(hr)) return hr;
    } else if (state_ == State_Running) {
        pin_->StopStreaming();
    }
    state_ = State_Paused;
    return S_OK;
}

STDMETHODIMP CaptureFilter::Run(REFERENCE_TIME start) {
    std::lock_guard<std::recursive_mutex> lock(lock_);
    if (settings_.faults.delayRunMs) Sleep(settings_.faults.delayRunMs);
    if (settings_.faults.refuseRun) return kRunRefusedError;
    if (state_ == State_Running) return S_OK;
    if (state_ == State_Stopped) {
        const HRESULT hr = pin_->Activate();
        if (FAILED(hr)) return hr;
        state_ = State_Paused;
    }
    const HRESULT hr = StartStreaming(start);
    if (FAILED(hr)) return hr;
    state_ = State_Running;
    return S_OK;
}

HRESULT CaptureFilter::StartStreaming(REFERENCE_TIME start) {
    return pin_->StartStreaming(clock_.Get(), start);
}

STDMETHODIMP CaptureFilter::GetState(DWORD, FILTER_STATE* state) {
    if (!state) return E_POINTER;
    std::lock_guard<std::recursive_mutex> lock(lock_);
    *state = state_;
    // A live source has nothing to show before it runs, so a paused graph cannot cue it.
    return state_ == State_Paused ? VFW_S_CANT_CUE : S_OK;
}

STDMETHODIMP CaptureFilter::SetSyncSource(IReferenceClock* clock) {
    std::lock_guard<std::recursive_mutex> lock(lock_);
    clock_ = clock;
    return S_OK;
}

STDMETHODIMP CaptureFilter::GetSyncSource(IReferenceClock** clock) {
    if (!clock) return E_POINTER;
    std::lock_guard<std::recursive_mutex> lock(lock_);
    *clock = clock_.Get();
    if (*clock) (*clock)->AddRef();
    return S_OK;
}

// ---- Pins and graph --------------------------------------------------------------------------

STDMETHODIMP CaptureFilter::EnumPins(IEnumPins** pins) {
    if (!pins) return E_POINTER;
    std::vector<ComPtr<IPin>> list{ComPtr<IPin>(pin_.get())};
    *pins = new (std::nothrow) PinEnumerator(std::move(list));
    return *pins ? S_OK : E_OUTOFMEMORY;
}

STDMETHODIMP CaptureFilter::FindPin(LPCWSTR id, IPin** pin) {
    if (!id || !pin) return E_POINTER;
    *pin = nullptr;
    LPWSTR ownId = nullptr;
    HRESULT hr = pin_->QueryId(&ownId);
    if (FAILED(hr)) return hr;
    const bool same = wcscmp(ownId, id) == 0;
    CoTaskMemFree(ownId);
    if (!same) return VFW_E_NOT_FOUND;
    *pin = pin_.get();
    (*pin)->AddRef();
    return S_OK;
}

STDMETHODIMP CaptureFilter::QueryFilterInfo(FILTER_INFO* info) {
    if (!info) return E_POINTER;
    std::lock_guard<std::recursive_mutex> lock(lock_);
    const std::wstring& name = nameInGraph_.empty() ? deviceName_ : nameInGraph_;
    wcsncpy(info->achName, name.c_str(), MAX_FILTER_NAME);
    info->achName[MAX_FILTER_NAME - 1] = L'\0';
    info->pGraph = graph_;
    if (info->pGraph) info->pGraph->AddRef();
    return S_OK;
}

STDMETHODIMP CaptureFilter::JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) {
    std::lock_guard<std::recursive_mutex> lock(lock_);
    graph_ = graph;
    nameInGraph_ = name ? name : L"";
    eventSink_ = nullptr;
    if (graph) {
        // Keep a plain pointer: a counted one would keep the graph alive through its own filter.
        ComPtr<IMediaEventSink> sink;
        if (SUCCEEDED(graph->QueryInterface(IID_PPV_ARGS(&sink)))) eventSink_ = sink.Get();
    }
    return S_OK;
}

STDMETHODIMP CaptureFilter::QueryVendorInfo(LPWSTR*) {
    return E_NOTIMPL;
}

STDMETHODIMP_(ULONG) CaptureFilter::GetMiscFlags() {
    return AM_FILTER_MISC_FLAGS_IS_SOURCE;
}

void CaptureFilter::NotifyDeviceLost() {
    // Runs on the streaming thread, which the filter lock's owner may be joining: take no lock.
    IMediaEventSink* sink = eventSink_;
    if (sink) {
        sink->Notify(EC_DEVICE_LOST, reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(this)),
                     0);
    }
}

// ---- Settings --------------------------------------------------------------------------------

STDMETHODIMP CaptureFilter::InitNew() {
    std::lock_guard<std::recursive_mutex> lock(lock_);
    if (loaded_) return E_UNEXPECTED;
    loaded_ = true;
    settings_ = DeviceSettings();
    return S_OK;
}

STDMETHODIMP CaptureFilter::Load(IPropertyBag* bag, IErrorLog*) {
    if (!bag) return E_POINTER;
    std::lock_guard<std::recursive_mutex> lock(lock_);
    if (loaded_) return E_UNEXPECTED;
    const HRESULT hr = ReadSettings(bag);
    if (FAILED(hr)) return hr;
    if (settings_.faults.delayBindMs) Sleep(settings_.faults.delayBindMs);
    if (settings_.faults.refuseCreate) return kCreateRefusedError;
    loaded_ = true;
    return S_OK;
}

HRESULT CaptureFilter::ReadSettings(IPropertyBag* bag) {
    std::wstring text;
    // A device registered without settings is a plain camera with no modes.
    if (ReadString(bag, kBagSettings, &text)) {
        std::wstring error;
        if (!ParseDeviceSettings(text, &settings_, &error)) return E_INVALIDARG;
    } else {
        settings_ = DeviceSettings();
    }
    if (!ReadString(bag, kBagFriendlyName, &deviceName_)) deviceName_ = L"Virtual Camera";
    return S_OK;
}

STDMETHODIMP CaptureFilter::Save(IPropertyBag*, BOOL, BOOL) {
    return E_NOTIMPL;
}

}  // namespace VirtualCamera
