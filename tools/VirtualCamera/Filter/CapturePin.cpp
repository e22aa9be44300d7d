#include "tools/VirtualCamera/Filter/CapturePin.h"

#include <amvideo.h>
#include <uuids.h>
#include <vfwmsgs.h>

#include <algorithm>

#include "tools/VirtualCamera/Filter/BrokenDriver.h"
#include "tools/VirtualCamera/Filter/CaptureFilter.h"
#include "tools/VirtualCamera/Filter/Enumerators.h"

using Microsoft::WRL::ComPtr;

namespace VirtualCamera {
namespace {

constexpr const wchar_t* kPinName = L"Capture";
// Used when a mode gives no frame rate: 30 frames a second.
constexpr REFERENCE_TIME kDefaultFrameInterval = 333333;
constexpr long kMinimumBuffers = 3;

LPWSTR CopyToTaskMemory(const wchar_t* text) {
    const size_t bytes = (wcslen(text) + 1) * sizeof(wchar_t);
    auto* copy = static_cast<LPWSTR>(CoTaskMemAlloc(bytes));
    if (copy) {
        CopyMemory(copy, text, bytes);
    }
    return copy;
}

void FillStreamCaps(const ModeConfig& mode, VIDEO_STREAM_CONFIG_CAPS* caps) {
    ZeroMemory(caps, sizeof(*caps));
    switch (mode.format) {
        case FormatBlock::VideoInfo:
            caps->guid = FORMAT_VideoInfo;
            break;
        case FormatBlock::VideoInfo2:
            caps->guid = FORMAT_VideoInfo2;
            break;
        case FormatBlock::None:
            caps->guid = FORMAT_None;
            break;
    }
    const SIZE frame = {mode.width, mode.height};
    caps->VideoStandard = 0;
    caps->InputSize = frame;
    caps->MinCroppingSize = frame;
    caps->MaxCroppingSize = frame;
    caps->CropGranularityX = 1;
    caps->CropGranularityY = 1;
    caps->CropAlignX = 1;
    caps->CropAlignY = 1;
    caps->MinOutputSize = mode.minOutputSize;
    caps->MaxOutputSize = mode.maxOutputSize;
    caps->OutputGranularityX = 1;
    caps->OutputGranularityY = 1;
    caps->MinFrameInterval = mode.minFrameInterval;
    caps->MaxFrameInterval = mode.maxFrameInterval;
    const LONGLONG bitsPerFrame =
        static_cast<LONGLONG>(ImageSize(mode.subtype, mode.width, mode.height)) * 8;
    if (mode.maxFrameInterval > 0) {
        caps->MinBitsPerSecond = static_cast<LONG>(
            std::min<LONGLONG>(bitsPerFrame * 10000000 / mode.maxFrameInterval, MAXLONG));
    }
    if (mode.minFrameInterval > 0) {
        caps->MaxBitsPerSecond = static_cast<LONG>(
            std::min<LONGLONG>(bitsPerFrame * 10000000 / mode.minFrameInterval, MAXLONG));
    }
}

// The parts of a type that pick a mode: subtype, format type and, with a block, the frame size.
bool TypeSelectsMode(const AM_MEDIA_TYPE& type, const ModeConfig& mode) {
    MediaType modeType;
    if (FAILED(BuildMediaType(mode, modeType.get()))) {
        return false;
    }
    if (!IsEqualGUID(type.majortype, modeType->majortype) ||
        !IsEqualGUID(type.subtype, modeType->subtype) ||
        !IsEqualGUID(type.formattype, modeType->formattype)) {
        return false;
    }
    if (mode.format == FormatBlock::None) {
        return true;
    }
    const BITMAPINFOHEADER* wanted = BitmapHeaderOf(type);
    return wanted && wanted->biWidth == mode.width && wanted->biHeight == mode.height;
}

}  // namespace

CapturePin::CapturePin(CaptureFilter* filter) : m_filter(filter) {}

CapturePin::~CapturePin() {
    m_streamer.Stop();
}

STDMETHODIMP CapturePin::QueryInterface(REFIID riid, void** object) {
    if (!object) {
        return E_POINTER;
    }
    *object = nullptr;
    const DeviceSettings& settings = m_filter->Settings();
    if (riid == IID_IUnknown || riid == IID_IPin) {
        *object = static_cast<IPin*>(this);
    } else if (riid == IID_IAMStreamConfig && settings.streamConfig) {
        *object = static_cast<IAMStreamConfig*>(this);
    } else if (riid == IID_IKsPropertySet && settings.category != CategoryAnswer::None) {
        *object = static_cast<IKsPropertySet*>(this);
    } else if (riid == IID_IKsPin) {
        *object = static_cast<IKsPin*>(this);
    } else {
        return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
}

STDMETHODIMP_(ULONG) CapturePin::AddRef() {
    return m_filter->AddRef();
}
STDMETHODIMP_(ULONG) CapturePin::Release() {
    return m_filter->Release();
}

// ---- Connection ------------------------------------------------------------------------------

std::vector<MediaType> CapturePin::OfferedTypes() const {
    std::vector<MediaType> types;
    if (m_hasSelectedType) {
        types.push_back(m_selectedType);
        return types;
    }
    const size_t modeCount = m_filter->Settings().modes.size();
    for (size_t index = 0; index < modeCount; ++index) {
        MediaType type;
        if (SUCCEEDED(BuildOfferedType(index, type.get()))) {
            types.push_back(type);
        }
    }
    return types;
}

HRESULT CapturePin::BuildOfferedType(size_t modeIndex, AM_MEDIA_TYPE* type) const {
    const DeviceSettings& settings = m_filter->Settings();
    const HRESULT hr = BuildMediaType(settings.modes[modeIndex], type);
    if (FAILED(hr) || settings.faults.shortFormatAt != static_cast<int>(modeIndex)) {
        return hr;
    }
    return TruncateFormatHeader(type);
}

STDMETHODIMP CapturePin::Connect(IPin* receivePin, const AM_MEDIA_TYPE* type) {
    if (!receivePin) {
        return E_POINTER;
    }
    std::lock_guard<std::recursive_mutex> lock(m_filter->Lock());
    if (m_peer) {
        return VFW_E_ALREADY_CONNECTED;
    }
    if (m_filter->State() != State_Stopped) {
        return VFW_E_NOT_STOPPED;
    }
    PIN_DIRECTION direction = PINDIR_OUTPUT;
    HRESULT hr = receivePin->QueryDirection(&direction);
    if (FAILED(hr)) {
        return hr;
    }
    if (direction != PINDIR_INPUT) {
        return VFW_E_INVALID_DIRECTION;
    }
    bool anyCandidate = false;
    for (const auto& candidate : OfferedTypes()) {
        if (type && !MediaTypeMatchesPartial(*candidate, *type)) {
            continue;
        }
        anyCandidate = true;
        if (SUCCEEDED(TryConnection(receivePin, *candidate))) {
            return S_OK;
        }
    }
    return anyCandidate ? VFW_E_NO_ACCEPTABLE_TYPES : VFW_E_TYPE_NOT_ACCEPTED;
}

HRESULT CapturePin::TryConnection(IPin* receivePin, const AM_MEDIA_TYPE& type) {
    m_peer = receivePin;
    HRESULT hr = m_connectionType.Assign(type);
    if (SUCCEEDED(hr)) {
        hr = receivePin->ReceiveConnection(this, &type);
    }
    if (FAILED(hr)) {
        ClearConnection();
        return hr;
    }
    ComPtr<IMemInputPin> input;
    hr = receivePin->QueryInterface(IID_PPV_ARGS(&input));
    ComPtr<IMemAllocator> allocator;
    if (SUCCEEDED(hr)) {
        hr = DecideAllocator(input.Get(), &allocator);
    }
    if (FAILED(hr)) {
        receivePin->Disconnect();
        ClearConnection();
        return hr;
    }
    m_peerInput = input;
    m_allocator = allocator;
    return S_OK;
}

HRESULT CapturePin::DecideAllocator(IMemInputPin* input, IMemAllocator** chosen) {
    ALLOCATOR_PROPERTIES wanted = {};
    // Not every input pin has requirements; E_NOTIMPL leaves them all zero.
    if (FAILED(input->GetAllocatorRequirements(&wanted))) {
        wanted = ALLOCATOR_PROPERTIES();
    }
    ComPtr<IMemAllocator> allocator;
    HRESULT hr = input->GetAllocator(&allocator);
    if (SUCCEEDED(hr) && allocator) {
        hr = ConfigureAllocator(allocator.Get(), wanted, input);
        if (SUCCEEDED(hr)) {
            *chosen = allocator.Detach();
            return S_OK;
        }
    }
    allocator.Reset();
    hr = CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER,
                          IID_PPV_ARGS(&allocator));
    if (FAILED(hr)) {
        return hr;
    }
    hr = ConfigureAllocator(allocator.Get(), wanted, input);
    if (FAILED(hr)) {
        return hr;
    }
    *chosen = allocator.Detach();
    return S_OK;
}

HRESULT CapturePin::ConfigureAllocator(IMemAllocator* allocator, const ALLOCATOR_PROPERTIES& wanted,
                                       IMemInputPin* input) {
    // Buffers for the larger of the two modes when the device changes mode while it runs: the
    // samples of the new mode come from the same allocator.
    const long frameBytes = static_cast<long>(std::max(FrameBytes(), ChangeTargetBytes()));
    ALLOCATOR_PROPERTIES request = wanted;
    request.cBuffers = std::max(wanted.cBuffers, kMinimumBuffers);
    request.cbBuffer = std::max<long>(wanted.cbBuffer, frameBytes);
    request.cbAlign = std::max<long>(wanted.cbAlign, 1);
    request.cbPrefix = wanted.cbPrefix;
    ALLOCATOR_PROPERTIES actual = {};
    HRESULT hr = allocator->SetProperties(&request, &actual);
    if (FAILED(hr)) {
        return hr;
    }
    if (actual.cbBuffer < frameBytes) {
        return E_FAIL;
    }
    return input->NotifyAllocator(allocator, FALSE);
}

void CapturePin::ClearConnection() {
    m_peer.Reset();
    m_peerInput.Reset();
    m_allocator.Reset();
    m_connectionType.Clear();
}

STDMETHODIMP CapturePin::ReceiveConnection(IPin*, const AM_MEDIA_TYPE*) {
    // An output pin starts connections; it never accepts one.
    return E_UNEXPECTED;
}

STDMETHODIMP CapturePin::Disconnect() {
    std::lock_guard<std::recursive_mutex> lock(m_filter->Lock());
    if (m_filter->State() != State_Stopped) {
        return VFW_E_NOT_STOPPED;
    }
    if (!m_peer) {
        return S_FALSE;
    }
    m_streamer.Stop();
    if (m_allocator) {
        m_allocator->Decommit();
    }
    ClearConnection();
    return S_OK;
}

STDMETHODIMP CapturePin::ConnectedTo(IPin** pin) {
    if (!pin) {
        return E_POINTER;
    }
    std::lock_guard<std::recursive_mutex> lock(m_filter->Lock());
    *pin = m_peer.Get();
    if (!*pin) {
        return VFW_E_NOT_CONNECTED;
    }
    (*pin)->AddRef();
    return S_OK;
}

STDMETHODIMP CapturePin::ConnectionMediaType(AM_MEDIA_TYPE* type) {
    if (!type) {
        return E_POINTER;
    }
    std::lock_guard<std::recursive_mutex> lock(m_filter->Lock());
    if (!m_peer) {
        ZeroMemory(type, sizeof(*type));
        return VFW_E_NOT_CONNECTED;
    }
    return CopyMediaType(type, *m_connectionType);
}

STDMETHODIMP CapturePin::QueryPinInfo(PIN_INFO* info) {
    if (!info) {
        return E_POINTER;
    }
    info->pFilter = m_filter;
    info->pFilter->AddRef();
    info->dir = PINDIR_OUTPUT;
    wcsncpy(info->achName, kPinName, MAX_PIN_NAME);
    info->achName[MAX_PIN_NAME - 1] = L'\0';
    return S_OK;
}

STDMETHODIMP CapturePin::QueryDirection(PIN_DIRECTION* direction) {
    if (!direction) {
        return E_POINTER;
    }
    *direction = PINDIR_OUTPUT;
    return S_OK;
}

STDMETHODIMP CapturePin::QueryId(LPWSTR* id) {
    if (!id) {
        return E_POINTER;
    }
    *id = CopyToTaskMemory(kPinName);
    return *id ? S_OK : E_OUTOFMEMORY;
}

STDMETHODIMP CapturePin::QueryAccept(const AM_MEDIA_TYPE* type) {
    if (!type) {
        return E_POINTER;
    }
    std::lock_guard<std::recursive_mutex> lock(m_filter->Lock());
    for (const auto& offered : OfferedTypes()) {
        if (MediaTypesEqual(*offered, *type)) {
            return S_OK;
        }
    }
    return S_FALSE;
}

STDMETHODIMP CapturePin::EnumMediaTypes(IEnumMediaTypes** types) {
    if (!types) {
        return E_POINTER;
    }
    std::lock_guard<std::recursive_mutex> lock(m_filter->Lock());
    *types = new (std::nothrow) MediaTypeEnumerator(OfferedTypes());
    return *types ? S_OK : E_OUTOFMEMORY;
}

STDMETHODIMP CapturePin::QueryInternalConnections(IPin**, ULONG*) {
    return E_NOTIMPL;
}
STDMETHODIMP CapturePin::EndOfStream() {
    return E_UNEXPECTED;
}
STDMETHODIMP CapturePin::BeginFlush() {
    return E_UNEXPECTED;
}
STDMETHODIMP CapturePin::EndFlush() {
    return E_UNEXPECTED;
}
STDMETHODIMP CapturePin::NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) {
    return S_OK;
}

// ---- Modes -----------------------------------------------------------------------------------

const ModeConfig* CapturePin::FindMode(const AM_MEDIA_TYPE& type) const {
    for (const auto& mode : m_filter->Settings().modes) {
        if (TypeSelectsMode(type, mode)) {
            return &mode;
        }
    }
    return nullptr;
}

DWORD CapturePin::FrameBytes() const {
    // A type without a format block still belongs to a mode, which knows the frame size.
    const ModeConfig* mode = FindMode(*m_connectionType);
    DWORD bytes = 0;
    if (mode) {
        bytes = ImageSize(mode->subtype, mode->width, mode->height);
    } else if (const BITMAPINFOHEADER* header = BitmapHeaderOf(*m_connectionType)) {
        bytes = ImageSize(m_connectionType->subtype, header->biWidth, header->biHeight);
    }
    return std::max<DWORD>(bytes, 1);
}

DWORD CapturePin::ChangeTargetBytes() const {
    const DeviceSettings& settings = m_filter->Settings();
    if (settings.modeChange.afterFrames < 0) {
        return 0;
    }
    const ModeConfig& target = settings.modes[settings.modeChange.toMode];
    return ImageSize(target.subtype, target.width, target.height);
}

HRESULT CapturePin::PrepareModeChange(const ModeConfig* current, ModeChange* change) const {
    const DeviceSettings& settings = m_filter->Settings();
    const ModeChangeConfig& configured = settings.modeChange;
    // A stream already in the target mode (it changed in an earlier run) stays in it.
    if (configured.afterFrames < 0 || current == &settings.modes[configured.toMode]) {
        return S_OK;
    }
    const ModeConfig& target = settings.modes[configured.toMode];
    const HRESULT hr = BuildOfferedType(configured.toMode, change->type.get());
    if (FAILED(hr)) {
        return hr;
    }
    change->afterFrames = configured.afterFrames;
    change->subtype = target.subtype;
    change->width = target.width;
    change->height = target.height;
    change->frameInterval = target.avgTimePerFrame;
    return S_OK;
}

REFERENCE_TIME CapturePin::FrameInterval() const {
    REFERENCE_TIME interval = AvgTimePerFrameOf(*m_connectionType);
    if (interval <= 0) {
        const ModeConfig* mode = FindMode(*m_connectionType);
        if (mode) {
            interval = mode->avgTimePerFrame;
        }
    }
    return interval > 0 ? interval : kDefaultFrameInterval;
}

STDMETHODIMP CapturePin::SetFormat(AM_MEDIA_TYPE* type) {
    if (!type) {
        return E_POINTER;
    }
    std::lock_guard<std::recursive_mutex> lock(m_filter->Lock());
    const ModeConfig* mode = FindMode(*type);
    if (!mode) {
        return VFW_E_INVALIDMEDIATYPE;
    }
    MediaType chosen;
    HRESULT hr = chosen.Assign(*type);
    if (FAILED(hr)) {
        return hr;
    }
    if (m_peer) {
        if (MediaTypesEqual(*m_connectionType, *chosen)) {
            return S_OK;
        }
        if (m_filter->State() != State_Stopped) {
            return VFW_E_NOT_STOPPED;
        }
        if (m_peer->QueryAccept(chosen.get()) != S_OK) {
            return VFW_E_INVALIDMEDIATYPE;
        }
    }
    m_selectedType = chosen;
    m_hasSelectedType = true;
    return m_peer ? ReconnectWith(*chosen) : S_OK;
}

HRESULT CapturePin::ReconnectWith(const AM_MEDIA_TYPE& type) {
    IFilterGraph* graph = m_filter->Graph();
    if (!graph) {
        return VFW_E_NOT_IN_GRAPH;
    }
    ComPtr<IPin> peer = m_peer;
    MediaType copy;
    HRESULT hr = copy.Assign(type);
    if (FAILED(hr)) {
        return hr;
    }
    hr = peer->Disconnect();
    if (FAILED(hr)) {
        return hr;
    }
    Disconnect();
    return graph->ConnectDirect(this, peer.Get(), copy.get());
}

STDMETHODIMP CapturePin::GetFormat(AM_MEDIA_TYPE** type) {
    if (!type) {
        return E_POINTER;
    }
    std::lock_guard<std::recursive_mutex> lock(m_filter->Lock());
    *type = nullptr;
    if (m_peer) {
        *type = CreateMediaTypeCopy(*m_connectionType);
    } else {
        const auto offered = OfferedTypes();
        if (offered.empty()) {
            return VFW_E_NO_TYPES;
        }
        *type = CreateMediaTypeCopy(*offered.front());
    }
    return *type ? S_OK : E_OUTOFMEMORY;
}

STDMETHODIMP CapturePin::GetNumberOfCapabilities(int* count, int* size) {
    if (!count || !size) {
        return E_POINTER;
    }
    if (m_filter->Settings().faults.failCapsCount) {
        return E_FAIL;
    }
    const FaultConfig& faults = m_filter->Settings().faults;
    *count = static_cast<int>(m_filter->Settings().modes.size());
    // A lying driver states one size here and still writes a whole record in GetStreamCaps.
    *size = faults.statedCapsSize >= 0 ? faults.statedCapsSize
                                       : static_cast<int>(sizeof(VIDEO_STREAM_CONFIG_CAPS));
    return S_OK;
}

STDMETHODIMP CapturePin::GetStreamCaps(int index, AM_MEDIA_TYPE** type, BYTE* caps) {
    if (!type || !caps) {
        return E_POINTER;
    }
    const DeviceSettings& settings = m_filter->Settings();
    if (settings.faults.delayCapsMs) {
        Sleep(settings.faults.delayCapsMs);
    }
    if (settings.faults.crashCaps) {
        CrashLikeABrokenDriver();
    }
    if (settings.faults.failCapsAt == index) {
        return E_FAIL;
    }
    if (index < 0 || static_cast<size_t>(index) >= settings.modes.size()) {
        return S_FALSE;
    }
    MediaType built;
    HRESULT hr = BuildOfferedType(static_cast<size_t>(index), built.get());
    if (FAILED(hr)) {
        return hr;
    }
    *type = CreateMediaTypeCopy(*built);
    if (!*type) {
        return E_OUTOFMEMORY;
    }
    FillStreamCaps(settings.modes[index], reinterpret_cast<VIDEO_STREAM_CONFIG_CAPS*>(caps));
    return S_OK;
}

// ---- Pin category ----------------------------------------------------------------------------

STDMETHODIMP CapturePin::Set(REFGUID, DWORD, void*, DWORD, void*, DWORD) {
    return E_PROP_ID_UNSUPPORTED;
}

STDMETHODIMP CapturePin::Get(REFGUID set, DWORD id, void*, DWORD, void* data, DWORD dataSize,
                             DWORD* returned) {
    if (!IsEqualGUID(set, AMPROPSETID_Pin)) {
        return E_PROP_SET_UNSUPPORTED;
    }
    if (id != AMPROPERTY_PIN_CATEGORY) {
        return E_PROP_ID_UNSUPPORTED;
    }
    const DeviceSettings& settings = m_filter->Settings();
    const GUID category = settings.category == CategoryAnswer::Custom ? settings.customCategory
                                                                      : PIN_CATEGORY_CAPTURE;
    // A "short" answer stands for a driver that reports only part of the GUID.
    const DWORD answerSize =
        settings.category == CategoryAnswer::Short ? sizeof(GUID) / 2 : sizeof(GUID);
    if (!data) {
        if (!returned) {
            return E_POINTER;
        }
        *returned = answerSize;
        return S_OK;
    }
    if (dataSize < answerSize) {
        return E_UNEXPECTED;
    }
    CopyMemory(data, &category, answerSize);
    if (returned) {
        *returned = answerSize;
    }
    return S_OK;
}

STDMETHODIMP CapturePin::QuerySupported(REFGUID set, DWORD id, DWORD* support) {
    if (!IsEqualGUID(set, AMPROPSETID_Pin)) {
        return E_PROP_SET_UNSUPPORTED;
    }
    if (id != AMPROPERTY_PIN_CATEGORY) {
        return E_PROP_ID_UNSUPPORTED;
    }
    if (support) {
        *support = KSPROPERTY_SUPPORT_GET;
    }
    return S_OK;
}

// ---- Mediums ---------------------------------------------------------------------------------

STDMETHODIMP CapturePin::KsQueryMediums(PKSMULTIPLE_ITEM* mediums) {
    if (!mediums) {
        return E_POINTER;
    }
    const auto& configured = m_filter->Settings().mediums;
    const ULONG bytes =
        static_cast<ULONG>(sizeof(KSMULTIPLE_ITEM) + configured.size() * sizeof(REGPINMEDIUM));
    auto* list = static_cast<KSMULTIPLE_ITEM*>(CoTaskMemAlloc(bytes));
    if (!list) {
        return E_OUTOFMEMORY;
    }
    list->Size = bytes;
    list->Count = static_cast<ULONG>(configured.size());
    if (m_filter->Settings().faults.shortMediumList && !configured.empty()) {
        // Every medium is in the list, but its Size leaves the last one out.
        list->Size -= sizeof(REGPINMEDIUM);
    }
    auto* items = reinterpret_cast<REGPINMEDIUM*>(list + 1);
    for (size_t i = 0; i < configured.size(); ++i) {
        items[i].clsMedium = configured[i].set;
        items[i].dw1 = configured[i].id;
        items[i].dw2 = configured[i].flags;
    }
    *mediums = list;
    return S_OK;
}

STDMETHODIMP CapturePin::KsQueryInterfaces(PKSMULTIPLE_ITEM*) {
    return E_NOTIMPL;
}
STDMETHODIMP CapturePin::KsCreateSinkPinHandle(KSPIN_INTERFACE&, KSPIN_MEDIUM&) {
    return E_NOTIMPL;
}
STDMETHODIMP CapturePin::KsGetCurrentCommunication(KSPIN_COMMUNICATION*, KSPIN_INTERFACE*,
                                                   KSPIN_MEDIUM*) {
    return E_NOTIMPL;
}
STDMETHODIMP CapturePin::KsPropagateAcquire() {
    return E_NOTIMPL;
}
STDMETHODIMP CapturePin::KsDeliver(IMediaSample*, ULONG) {
    return E_NOTIMPL;
}
STDMETHODIMP CapturePin::KsMediaSamplesCompleted(void*) {
    return E_NOTIMPL;
}
IMemAllocator* STDMETHODCALLTYPE CapturePin::KsPeekAllocator(KsPeekOperation) {
    return nullptr;
}
STDMETHODIMP CapturePin::KsReceiveAllocator(IMemAllocator*) {
    return E_NOTIMPL;
}
STDMETHODIMP CapturePin::KsRenegotiateAllocator() {
    return E_NOTIMPL;
}
LONG STDMETHODCALLTYPE CapturePin::KsIncrementPendingIoCount() {
    return 0;
}
LONG STDMETHODCALLTYPE CapturePin::KsDecrementPendingIoCount() {
    return 0;
}
STDMETHODIMP CapturePin::KsQualityNotify(ULONG, REFERENCE_TIME) {
    return E_NOTIMPL;
}

// ---- Streaming -------------------------------------------------------------------------------

HRESULT CapturePin::Activate() {
    if (!m_allocator) {
        return S_OK;
    }
    return m_allocator->Commit();
}

void CapturePin::Deactivate() {
    EndStreamingThread();
}

void CapturePin::EndStreamingThread() {
    // The thread may wait in GetBuffer for a sample downstream still holds: decommitting the
    // allocator first releases it.
    m_streamer.RequestStop();
    if (m_allocator) {
        m_allocator->Decommit();
    }
    m_streamer.Stop();
    // The next run's frames go on counting where this one stopped.
    m_nextCounter = std::max(m_streamer.NextCounter(), m_nextCounter);
    // A stream that changed its mode goes on in the new one: the connection now has its type.
    MediaType changed;
    if (m_streamer.TakeChangedType(&changed)) {
        m_connectionType = changed;
    }
}

HRESULT CapturePin::StartStreaming(IReferenceClock* clock, REFERENCE_TIME start) {
    FinishStreaming();
    if (!m_peer || m_deviceLost) {
        return S_OK;
    }
    const DeviceSettings& settings = m_filter->Settings();
    const FaultConfig& faults = settings.faults;
    StreamSession session;
    session.allocator = m_allocator;
    session.input = m_peerInput;
    session.peer = m_peer;
    session.subtype = m_connectionType->subtype;
    const ModeConfig* mode = FindMode(*m_connectionType);
    session.width = mode ? mode->width : 0;
    session.height = mode ? mode->height : 0;
    session.frameInterval = FrameInterval();
    session.clock = clock;
    session.streamStart = start;
    session.firstCounter = m_nextCounter;
    session.crash = faults.crashStreaming;
    session.framesUntilLost = faults.unplugAfterFrames;
    session.deviceLost = [this] {
        m_deviceLost = true;
        m_filter->NotifyDeviceLost();
    };
    session.stampFillTime = settings.stampFillTime;
    session.picture = &m_filter->Picture();
    const HRESULT hr = PrepareModeChange(mode, &session.change);
    if (FAILED(hr)) {
        return hr;
    }
    m_streamer.Start(std::move(session));
    return S_OK;
}

void CapturePin::StopStreaming() {
    // Running -> Paused: stop delivering, but do not wait for the thread here. The graph pauses
    // the renderer first, and a paused renderer holds the sample in Receive until it runs or
    // stops, so waiting here could wait forever. The thread is collected when the graph runs
    // again (FinishStreaming) or stops (Deactivate); by then the renderer lets go.
    m_streamer.RequestStop();
}

void CapturePin::FinishStreaming() {
    if (!m_streamer.IsRunning()) {
        return;
    }
    EndStreamingThread();
    // Committed again: a paused filter keeps its allocator ready.
    if (m_allocator) {
        m_allocator->Commit();
    }
}

}  // namespace VirtualCamera
