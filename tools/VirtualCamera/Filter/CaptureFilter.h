#pragma once
// The virtual camera's source filter: one capture output pin, a device's settings read from its
// property bag when the device moniker binds, and the usual Stopped/Paused/Running states. A
// live source: it produces frames only while running, and reports VFW_S_CANT_CUE when paused.
// Its IKsPropertySet answers the device's power-line frequency (PowerLineProperty.h). Its picture
// (pattern, brightness, frame counter) can be changed while it streams, through
// IVirtualCameraPicture, and a person does that on its property page (PicturePage.h), which
// ISpecifyPropertyPages names.
//
// References: the filter counts its own references and owns its pin, whose references count on
// the filter. Upward it keeps plain pointers only: to the graph it joined and to that graph's
// IMediaEventSink, through which the streaming thread reports a lost device (EC_DEVICE_LOST);
// the graph owns the filter, and a counted pointer would keep it alive through its own filter.
// The power-line property keeps the device's property bag (counted) to report what was set.
// A property page that edits the picture holds the filter counted (through
// IVirtualCameraPicture) between SetObjects and its release; the filter knows nothing of it.
//
// Threads and locks: m_lock (recursive) guards the state, the settings, the pin's connection and
// the properties, taken by every call from the graph or an application. The streaming thread
// takes no lock of the filter's: the owner of m_lock may be joining it. The picture settings
// have a lock of their own (PictureControl), held only to copy them: GetPicture and SetPicture,
// on any thread (a property page's is the frame's dialog thread), and the streaming thread once
// per frame.

#include <windows.h>
#include <strmif.h>
#include <ocidl.h>
#include <wrl/client.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

#include "tools/VirtualCamera/Config/DeviceConfig.h"
#include "tools/VirtualCamera/Config/PictureSettings.h"
#include "tools/VirtualCamera/Filter/ModuleLifetime.h"
#include "tools/VirtualCamera/Filter/PictureControl.h"
#include "tools/VirtualCamera/Filter/PowerLineProperty.h"

namespace VirtualCamera {

class CapturePin;

class CaptureFilter final : public IBaseFilter,
                            public IAMFilterMiscFlags,
                            public IPersistPropertyBag,
                            public IKsPropertySet,
                            public ISpecifyPropertyPages,
                            public IVirtualCameraPicture {
public:
    CaptureFilter();

    // IUnknown
    STDMETHODIMP QueryInterface(REFIID riid, void** object) override;
    STDMETHODIMP_(ULONG) AddRef() override;
    STDMETHODIMP_(ULONG) Release() override;

    // IPersist
    STDMETHODIMP GetClassID(CLSID* clsid) override;

    // IMediaFilter
    STDMETHODIMP Stop() override;
    STDMETHODIMP Pause() override;
    STDMETHODIMP Run(REFERENCE_TIME start) override;
    STDMETHODIMP GetState(DWORD timeoutMs, FILTER_STATE* state) override;
    STDMETHODIMP SetSyncSource(IReferenceClock* clock) override;
    STDMETHODIMP GetSyncSource(IReferenceClock** clock) override;

    // IBaseFilter
    STDMETHODIMP EnumPins(IEnumPins** pins) override;
    STDMETHODIMP FindPin(LPCWSTR id, IPin** pin) override;
    STDMETHODIMP QueryFilterInfo(FILTER_INFO* info) override;
    STDMETHODIMP JoinFilterGraph(IFilterGraph* graph, LPCWSTR name) override;
    STDMETHODIMP QueryVendorInfo(LPWSTR* vendorInfo) override;

    // IAMFilterMiscFlags
    STDMETHODIMP_(ULONG) GetMiscFlags() override;

    // IPersistPropertyBag
    STDMETHODIMP InitNew() override;
    STDMETHODIMP Load(IPropertyBag* bag, IErrorLog* log) override;
    STDMETHODIMP Save(IPropertyBag* bag, BOOL clearDirty, BOOL saveAll) override;

    // IKsPropertySet: the device's properties (the pin has its own, for its category).
    STDMETHODIMP Set(REFGUID set, DWORD id, void* instance, DWORD instanceSize, void* data,
                     DWORD dataSize) override;
    STDMETHODIMP Get(REFGUID set, DWORD id, void* instance, DWORD instanceSize, void* data,
                     DWORD dataSize, DWORD* returned) override;
    STDMETHODIMP QuerySupported(REFGUID set, DWORD id, DWORD* support) override;

    // ISpecifyPropertyPages: the picture page.
    STDMETHODIMP GetPages(CAUUID* pages) override;

    // IVirtualCameraPicture
    STDMETHODIMP GetPicture(PictureSettings* settings) override;
    STDMETHODIMP SetPicture(const PictureSettings* settings) override;

    // For the pin.
    const DeviceSettings& Settings() const { return m_settings; }
    const PictureControl& Picture() const { return m_picture; }
    std::recursive_mutex& Lock() { return m_lock; }
    FILTER_STATE State() const { return m_state; }
    IFilterGraph* Graph() const { return m_graph; }
    // Called from the streaming thread when the device goes away.
    void NotifyDeviceLost();

private:
    ~CaptureFilter();
    HRESULT ReadSettings(IPropertyBag* bag);
    HRESULT StartStreaming(REFERENCE_TIME start);

    ModuleReference m_module;
    std::atomic<ULONG> m_references{1};
    std::recursive_mutex m_lock;
    DeviceSettings m_settings;
    bool m_loaded = false;
    std::wstring m_deviceName;
    FILTER_STATE m_state = State_Stopped;
    Microsoft::WRL::ComPtr<IReferenceClock> m_clock;
    // The graph owns the filter, so the filter keeps only plain pointers to it. The event sink
    // is read by the streaming thread without the lock, hence atomic.
    IFilterGraph* m_graph = nullptr;
    std::atomic<IMediaEventSink*> m_eventSink{nullptr};
    PowerLineProperty m_powerLine;
    PictureControl m_picture;
    std::wstring m_nameInGraph;
    std::unique_ptr<CapturePin> m_pin;
};

}  // namespace VirtualCamera
