#include "DShowCapture/FilterBase.h"

#include <cwchar>
#include <new>

#include "DShowCapture/PinBase.h"
#include "DShowCapture/PinEnumerator.h"

namespace DShow {

const GUID CLSID_TinyCaptureFilter = {
    0x88CDBBDC, 0xA73B, 0x4AFA, {0xAC, 0xBF, 0x15, 0xD5, 0xE2, 0xCE, 0x12, 0xC3}};

namespace {

// A name this long or longer is refused by JoinFilterGraph: its length would not fit the
// 32-bit counts that FILTER_INFO's users work with.
constexpr size_t kNameLengthLimit = 0x7FFFFFFF;

// Calls `tell` on every connected pin of `filter`, in index order up to the first null pin. The
// first result other than S_OK ends the walk and is returned: pins before it have been told.
template <class Tell>
HRESULT TellConnectedPins(FilterBase& filter, Tell tell) {
    const int count = filter.GetPinCount();
    for (int index = 0; index < count; ++index) {
        PinBase* pin = filter.GetPin(index);
        if (pin == nullptr) {
            break;
        }
        if (!pin->IsConnected()) {
            continue;
        }
        const HRESULT hr = tell(*pin);
        if (hr != S_OK) {
            return hr;
        }
    }
    return S_OK;
}

}  // namespace

void CopyTruncatedName(const wchar_t* source, wchar_t* target, size_t capacity) {
    size_t length = 0;
    if (source != nullptr) {
        while (length + 1 < capacity && source[length] != L'\0') {
            target[length] = source[length];
            ++length;
        }
    }
    target[length] = L'\0';
}

FilterObserver::FilterObserver() : m_userData(nullptr) {}

FilterObserver::~FilterObserver() = default;

FilterBase::FilterBase(TinyFramework::TinyLock* lock)
    : m_state(State_Stopped),
      m_clsid(CLSID_TinyCaptureFilter),
      m_graph(nullptr),
      m_sink(nullptr),
      m_lock(lock) {}

FilterBase::~FilterBase() = default;

STDMETHODIMP FilterBase::QueryInterface(REFIID iid, void** object) {
    // The output pointer is not checked: the graph manager, the only caller, always gives one.
    if (iid == IID_IUnknown || iid == IID_IPersist || iid == IID_IMediaFilter ||
        iid == IID_IBaseFilter) {
        *object = static_cast<IBaseFilter*>(this);
    } else if (iid == IID_IAMovieSetup) {
        *object = static_cast<IAMovieSetup*>(this);
    } else {
        *object = nullptr;
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) FilterBase::AddRef() {
    return static_cast<ULONG>(TinyRefCount::AddRef());
}

STDMETHODIMP_(ULONG) FilterBase::Release() {
    return static_cast<ULONG>(TinyRefCount::Release());
}

STDMETHODIMP FilterBase::GetClassID(CLSID* clsid) {
    if (clsid == nullptr) {
        return E_POINTER;
    }
    *clsid = m_clsid;
    return S_OK;
}

STDMETHODIMP FilterBase::Stop() {
    if (m_lock == nullptr) {
        return E_POINTER;
    }
    TinyFramework::TinyAutoLock hold(*m_lock);
    if (m_state != State_Stopped) {
        const HRESULT hr =
            TellConnectedPins(*this, [](PinBase& pin) { return pin.OnFilterStateChange(false); });
        if (hr != S_OK) {
            return hr;
        }
    }
    m_state = State_Stopped;
    return S_OK;
}

STDMETHODIMP FilterBase::Pause() {
    if (m_lock == nullptr) {
        return E_POINTER;
    }
    TinyFramework::TinyAutoLock hold(*m_lock);
    // Only leaving Stopped activates the pins: from Running, Paused keeps them as they are.
    if (m_state == State_Stopped) {
        const HRESULT hr =
            TellConnectedPins(*this, [](PinBase& pin) { return pin.OnFilterStateChange(true); });
        if (hr != S_OK) {
            return hr;
        }
    }
    m_state = State_Paused;
    return S_OK;
}

STDMETHODIMP FilterBase::Run(REFERENCE_TIME start) {
    if (m_lock == nullptr) {
        return E_POINTER;
    }
    TinyFramework::TinyAutoLock hold(*m_lock);
    // Taken before anything can fail, so that even a failed Run moves the stream's start.
    m_start = start;
    if (m_state == State_Stopped) {
        const HRESULT hr = Pause();
        if (hr != S_OK) {
            return hr;
        }
    }
    if (m_state != State_Running) {
        RefTime startTime;
        startTime = start;
        const HRESULT hr =
            TellConnectedPins(*this, [&](PinBase& pin) { return pin.OnFilterRun(startTime); });
        if (hr != S_OK) {
            return hr;
        }
    }
    m_state = State_Running;
    return S_OK;
}

STDMETHODIMP FilterBase::GetState(DWORD /*milliseconds*/, FILTER_STATE* state) {
    // Every transition completes inside its call, so there is nothing to wait for and no lock
    // to take: the streaming thread asks this for every sample.
    if (state == nullptr) {
        return E_POINTER;
    }
    *state = m_state;
    return S_OK;
}

STDMETHODIMP FilterBase::SetSyncSource(IReferenceClock* clock) {
    if (m_lock == nullptr) {
        return E_POINTER;
    }
    TinyFramework::TinyAutoLock hold(*m_lock);
    if (clock == m_clock.Get()) {
        return S_OK;
    }
    // The new reference first, the old one after: safe even when the old clock holds the last
    // reference to the new one.
    ComPtr<IReferenceClock> newClock(clock);
    m_clock.Swap(newClock);
    return S_OK;
}

STDMETHODIMP FilterBase::GetSyncSource(IReferenceClock** clock) {
    if (clock == nullptr || m_lock == nullptr) {
        return E_POINTER;
    }
    TinyFramework::TinyAutoLock hold(*m_lock);
    // The clock is not tested: the graph sets one before it asks, and a filter asked without a
    // clock faults here. Kept so, as the graph manager is this filter's only caller.
    *clock = m_clock.Get();
    (*clock)->AddRef();
    return S_OK;
}

STDMETHODIMP FilterBase::EnumPins(IEnumPins** enumerator) {
    // The output pointer is not checked: the graph manager, the only caller, always gives one.
    PinEnumerator* pins = new (std::nothrow) PinEnumerator(this);
    if (pins == nullptr) {
        return E_OUTOFMEMORY;
    }
    pins->AddRef();
    *enumerator = pins;
    return S_OK;
}

STDMETHODIMP FilterBase::FindPin(LPCWSTR id, IPin** pin) {
    if (id == nullptr || pin == nullptr || m_lock == nullptr) {
        return E_POINTER;
    }
    TinyFramework::TinyAutoLock hold(*m_lock);
    const int count = GetPinCount();
    for (int index = 0; index < count; ++index) {
        PinBase* candidate = GetPin(index);
        if (candidate == nullptr) {
            break;
        }
        LPWSTR candidateId = nullptr;
        if (FAILED(candidate->QueryId(&candidateId))) {
            continue;
        }
        // Ids are compared exactly, case included.
        const bool same = wcscmp(candidateId, id) == 0;
        CoTaskMemFree(candidateId);
        if (same) {
            candidate->AddRef();
            *pin = candidate;
            return S_OK;
        }
    }
    *pin = nullptr;
    return VFW_E_NOT_FOUND;
}

STDMETHODIMP FilterBase::QueryFilterInfo(FILTER_INFO* info) {
    if (info == nullptr) {
        return E_POINTER;
    }
    CopyTruncatedName(m_name.get(), info->achName,
                      sizeof(info->achName) / sizeof(info->achName[0]));
    info->pGraph = m_graph;
    if (info->pGraph != nullptr) {
        info->pGraph->AddRef();
    }
    return S_OK;
}

STDMETHODIMP FilterBase::JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) {
    if (m_lock == nullptr) {
        return E_POINTER;
    }
    TinyFramework::TinyAutoLock hold(*m_lock);
    m_graph = graph;
    m_sink = nullptr;
    if (graph != nullptr) {
        IMediaEventSink* sink = nullptr;
        if (SUCCEEDED(
                graph->QueryInterface(IID_IMediaEventSink, reinterpret_cast<void**>(&sink)))) {
            // The graph holds this filter: a counted reference back would keep both alive.
            m_sink = sink;
            sink->Release();
        }
    }
    m_name.reset();
    if (name == nullptr) {
        return S_OK;
    }
    size_t length = 0;
    while (length < kNameLengthLimit && name[length] != L'\0') {
        ++length;
    }
    if (length >= kNameLengthLimit) {
        return E_INVALIDARG;
    }
    m_name.reset(new (std::nothrow) WCHAR[length + 1]);
    if (!m_name) {
        return E_OUTOFMEMORY;
    }
    wmemcpy(m_name.get(), name, length + 1);
    return S_OK;
}

STDMETHODIMP FilterBase::QueryVendorInfo(LPWSTR* /*info*/) {
    return E_NOTIMPL;
}

HRESULT FilterBase::StreamTime(RefTime& time) {
    if (!m_clock) {
        return VFW_E_NO_CLOCK;
    }
    // The clock writes into the caller's time as it is: a clock that answers S_FALSE (the same
    // time as last asked) leaves its raw time there, without the start taken off.
    REFERENCE_TIME now = time.GetUnits();
    const HRESULT hr = m_clock->GetTime(&now);
    time = now;
    if (hr != S_OK) {
        return hr;
    }
    time -= m_start;
    return S_OK;
}

const AMOVIESETUP_FILTER* FilterBase::GetSetupData() {
    return nullptr;
}

HRESULT FilterBase::RegisterWithMapper(const AMOVIESETUP_FILTER* setup, bool registerIt) {
    // Registration may run on a thread without COM (a registering program's own thread).
    const HRESULT initialized = CoInitialize(nullptr);
    HRESULT hr;
    {
        ComPtr<IFilterMapper> mapper;
        hr = CoCreateInstance(CLSID_FilterMapper, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterMapper,
                              reinterpret_cast<void**>(mapper.GetAddressOf()));
        if (SUCCEEDED(hr)) {
            hr = RegisterFilterSetup(setup, mapper.Get(), registerIt);
        }
    }
    CoFreeUnusedLibraries();
    // Only a successful CoInitialize is balanced: a thread that already lives in another
    // apartment stays in it.
    if (SUCCEEDED(initialized)) {
        CoUninitialize();
    }
    return hr;
}

STDMETHODIMP FilterBase::Register() {
    const AMOVIESETUP_FILTER* setup = GetSetupData();
    if (setup == nullptr) {
        return S_FALSE;
    }
    // A registering program learns nothing more from the result than that there was something
    // to register; what the mapper did shows in the registry.
    RegisterWithMapper(setup, true);
    return S_OK;
}

STDMETHODIMP FilterBase::Unregister() {
    const AMOVIESETUP_FILTER* setup = GetSetupData();
    if (setup == nullptr) {
        return S_FALSE;
    }
    // RegisterFilterSetup already takes "file not found" (a filter never registered) as done.
    return RegisterWithMapper(setup, false);
}

HRESULT FilterBase::ReconnectPin(IPin* pin, const AM_MEDIA_TYPE* mediaType) {
    if (m_graph == nullptr) {
        return E_NOINTERFACE;
    }
    ComPtr<IFilterGraph2> graph2;
    if (SUCCEEDED(m_graph->QueryInterface(IID_IFilterGraph2,
                                          reinterpret_cast<void**>(graph2.GetAddressOf())))) {
        return graph2->ReconnectEx(pin, mediaType);
    }
    return m_graph->Reconnect(pin);
}

}  // namespace DShow
