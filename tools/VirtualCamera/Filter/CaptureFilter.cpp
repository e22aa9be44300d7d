#include "tools/VirtualCamera/Filter/CaptureFilter.h"

#include <evcode.h>
#include <vfwmsgs.h>

#include "tools/VirtualCamera/Config/Guids.h"
#include "tools/VirtualCamera/Config/Variant.h"
#include "tools/VirtualCamera/Filter/CapturePin.h"
#include "tools/VirtualCamera/Filter/Enumerators.h"

using Microsoft::WRL::ComPtr;

namespace VirtualCamera {

CaptureFilter::CaptureFilter() : m_pin(std::make_unique<CapturePin>(this)) {}

CaptureFilter::~CaptureFilter() {
    // The graph stops and disconnects filters before releasing them; this covers a filter used
    // outside a graph.
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    if (m_state != State_Stopped) {
        m_pin->Deactivate();
    }
}

STDMETHODIMP CaptureFilter::QueryInterface(REFIID riid, void** object) {
    if (!object) {
        return E_POINTER;
    }
    *object = nullptr;
    if (riid == IID_IUnknown || riid == IID_IPersist || riid == IID_IMediaFilter ||
        riid == IID_IBaseFilter) {
        *object = static_cast<IBaseFilter*>(this);
    } else if (riid == IID_IAMFilterMiscFlags) {
        *object = static_cast<IAMFilterMiscFlags*>(this);
    } else if (riid == IID_IPersistPropertyBag) {
        *object = static_cast<IPersistPropertyBag*>(this);
    } else if (riid == IID_IKsPropertySet) {
        *object = static_cast<IKsPropertySet*>(this);
    } else if (riid == IID_ISpecifyPropertyPages) {
        *object = static_cast<ISpecifyPropertyPages*>(this);
    } else if (riid == IID_IVirtualCameraPicture) {
        *object = static_cast<IVirtualCameraPicture*>(this);
    } else {
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) CaptureFilter::AddRef() {
    return ++m_references;
}

STDMETHODIMP_(ULONG) CaptureFilter::Release() {
    const ULONG remaining = --m_references;
    if (remaining == 0) {
        delete this;
    }
    return remaining;
}

STDMETHODIMP CaptureFilter::GetClassID(CLSID* clsid) {
    if (!clsid) {
        return E_POINTER;
    }
    *clsid = CLSID_VirtualCameraFilter;
    return S_OK;
}

// ---- States ----------------------------------------------------------------------------------

STDMETHODIMP CaptureFilter::Stop() {
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    if (m_state != State_Stopped) {
        m_pin->Deactivate();
    }
    m_state = State_Stopped;
    return S_OK;
}

STDMETHODIMP CaptureFilter::Pause() {
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    if (m_state == State_Stopped) {
        const HRESULT hr = m_pin->Activate();
        if (FAILED(hr)) {
            return hr;
        }
    } else if (m_state == State_Running) {
        m_pin->StopStreaming();
    }
    m_state = State_Paused;
    return S_OK;
}

STDMETHODIMP CaptureFilter::Run(REFERENCE_TIME start) {
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    if (m_settings.faults.delayRunMs) {
        Sleep(m_settings.faults.delayRunMs);
    }
    if (m_settings.faults.refuseRun) {
        return kRunRefusedError;
    }
    if (m_state == State_Running) {
        return S_OK;
    }
    if (m_state == State_Stopped) {
        const HRESULT hr = m_pin->Activate();
        if (FAILED(hr)) {
            return hr;
        }
        m_state = State_Paused;
    }
    const HRESULT hr = StartStreaming(start);
    if (FAILED(hr)) {
        return hr;
    }
    m_state = State_Running;
    return S_OK;
}

HRESULT CaptureFilter::StartStreaming(REFERENCE_TIME start) {
    return m_pin->StartStreaming(m_clock.Get(), start);
}

STDMETHODIMP CaptureFilter::GetState(DWORD, FILTER_STATE* state) {
    if (!state) {
        return E_POINTER;
    }
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    *state = m_state;
    // A live source has nothing to show before it runs, so a paused graph cannot cue it.
    return m_state == State_Paused ? VFW_S_CANT_CUE : S_OK;
}

STDMETHODIMP CaptureFilter::SetSyncSource(IReferenceClock* clock) {
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    m_clock = clock;
    return S_OK;
}

STDMETHODIMP CaptureFilter::GetSyncSource(IReferenceClock** clock) {
    if (!clock) {
        return E_POINTER;
    }
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    *clock = m_clock.Get();
    if (*clock) {
        (*clock)->AddRef();
    }
    return S_OK;
}

// ---- Pins and graph --------------------------------------------------------------------------

STDMETHODIMP CaptureFilter::EnumPins(IEnumPins** pins) {
    if (!pins) {
        return E_POINTER;
    }
    std::vector<ComPtr<IPin>> list{ComPtr<IPin>(m_pin.get())};
    *pins = new (std::nothrow) PinEnumerator(std::move(list));
    return *pins ? S_OK : E_OUTOFMEMORY;
}

STDMETHODIMP CaptureFilter::FindPin(LPCWSTR id, IPin** pin) {
    if (!id || !pin) {
        return E_POINTER;
    }
    *pin = nullptr;
    LPWSTR ownId = nullptr;
    HRESULT hr = m_pin->QueryId(&ownId);
    if (FAILED(hr)) {
        return hr;
    }
    const bool same = wcscmp(ownId, id) == 0;
    CoTaskMemFree(ownId);
    if (!same) {
        return VFW_E_NOT_FOUND;
    }
    *pin = m_pin.get();
    (*pin)->AddRef();
    return S_OK;
}

STDMETHODIMP CaptureFilter::QueryFilterInfo(FILTER_INFO* info) {
    if (!info) {
        return E_POINTER;
    }
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    const std::wstring& name = m_nameInGraph.empty() ? m_deviceName : m_nameInGraph;
    wcsncpy(info->achName, name.c_str(), MAX_FILTER_NAME);
    info->achName[MAX_FILTER_NAME - 1] = L'\0';
    info->pGraph = m_graph;
    if (info->pGraph) {
        info->pGraph->AddRef();
    }
    return S_OK;
}

STDMETHODIMP CaptureFilter::JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) {
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    m_graph = graph;
    m_nameInGraph = name ? name : L"";
    m_eventSink = nullptr;
    if (graph) {
        // Keep a plain pointer: a counted one would keep the graph alive through its own filter.
        ComPtr<IMediaEventSink> sink;
        if (SUCCEEDED(graph->QueryInterface(IID_PPV_ARGS(&sink)))) {
            m_eventSink = sink.Get();
        }
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
    IMediaEventSink* sink = m_eventSink.load();
    if (sink) {
        sink->Notify(EC_DEVICE_LOST, reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(this)),
                     0);
    }
}

// ---- Settings --------------------------------------------------------------------------------

STDMETHODIMP CaptureFilter::InitNew() {
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    if (m_loaded) {
        return E_UNEXPECTED;
    }
    m_loaded = true;
    m_settings = DeviceSettings();
    return S_OK;
}

STDMETHODIMP CaptureFilter::Load(IPropertyBag* bag, IErrorLog*) {
    if (!bag) {
        return E_POINTER;
    }
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    if (m_loaded) {
        return E_UNEXPECTED;
    }
    const HRESULT hr = ReadSettings(bag);
    if (FAILED(hr)) {
        return hr;
    }
    m_powerLine.Configure(m_settings.faults.powerLine, bag);
    if (m_settings.faults.delayBindMs) {
        Sleep(m_settings.faults.delayBindMs);
    }
    if (m_settings.faults.refuseCreate) {
        return kCreateRefusedError;
    }
    m_loaded = true;
    return S_OK;
}

HRESULT CaptureFilter::ReadSettings(IPropertyBag* bag) {
    std::wstring text;
    // A device registered without settings is a plain camera with no modes.
    if (ReadBagString(bag, kBagSettings, &text)) {
        std::wstring error;
        if (!ParseDeviceSettings(text, &m_settings, &error)) {
            return E_INVALIDARG;
        }
    } else {
        m_settings = DeviceSettings();
    }
    if (!ReadBagString(bag, kBagFriendlyName, &m_deviceName)) {
        m_deviceName = L"Virtual Camera";
    }
    return S_OK;
}

STDMETHODIMP CaptureFilter::Save(IPropertyBag*, BOOL, BOOL) {
    return E_NOTIMPL;
}

// ---- Device properties -----------------------------------------------------------------------

STDMETHODIMP CaptureFilter::Set(REFGUID set, DWORD id, void*, DWORD, void* data, DWORD dataSize) {
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    return m_powerLine.Set(set, id, data, dataSize);
}

STDMETHODIMP CaptureFilter::Get(REFGUID set, DWORD id, void*, DWORD, void* data, DWORD dataSize,
                                DWORD* returned) {
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    return m_powerLine.Get(set, id, data, dataSize, returned);
}

STDMETHODIMP CaptureFilter::QuerySupported(REFGUID set, DWORD id, DWORD* support) {
    std::lock_guard<std::recursive_mutex> lock(m_lock);
    return m_powerLine.QuerySupported(set, id, support);
}

// ---- Picture ---------------------------------------------------------------------------------

STDMETHODIMP CaptureFilter::GetPages(CAUUID* pages) {
    if (!pages) {
        return E_POINTER;
    }
    pages->pElems = static_cast<GUID*>(CoTaskMemAlloc(sizeof(GUID)));
    if (!pages->pElems) {
        pages->cElems = 0;
        return E_OUTOFMEMORY;
    }
    pages->pElems[0] = CLSID_VirtualCameraPicturePage;
    pages->cElems = 1;
    return S_OK;
}

STDMETHODIMP CaptureFilter::GetPicture(PictureSettings* settings) {
    if (!settings) {
        return E_POINTER;
    }
    *settings = m_picture.Get();
    return S_OK;
}

STDMETHODIMP CaptureFilter::SetPicture(const PictureSettings* settings) {
    if (!settings) {
        return E_POINTER;
    }
    if (!IsValidPicture(*settings)) {
        return E_INVALIDARG;
    }
    m_picture.Set(*settings);
    return S_OK;
}

}  // namespace VirtualCamera
