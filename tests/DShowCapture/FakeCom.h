#pragma once

// Small stand-ins for the pins, filters and property bags that drivers provide, so that the
// pin helpers and the format listing can be driven without a device.

#include <windows.h>

#include <dshow.h>

#include <string>
#include <vector>

#include "DShowCapture/ComHelpers.h"
#include "DShowCapture/MediaTypes.h"
#include "DShowCapture/PinSearch.h"
#include "tests/support/LogCapture.h"

namespace FakeCom {

// Reference counting shared by the fakes. A fake starts with one reference, held by whoever
// created it (usually a ComPtr through Own), and deletes itself at zero.
#define FAKE_COM_REFCOUNT                        \
    ULONG STDMETHODCALLTYPE AddRef() override {  \
        return ++m_refs;                         \
    }                                            \
    ULONG STDMETHODCALLTYPE Release() override { \
        const ULONG refs = --m_refs;             \
        if (refs == 0) {                         \
            delete this;                         \
        }                                        \
        return refs;                             \
    }                                            \
    ULONG RefCount() const {                     \
        return m_refs;                           \
    }                                            \
                                                 \
private:                                         \
    ULONG m_refs = 1;                            \
                                                 \
public:

// Takes over the creator's reference. (MinGW-w64's ComPtr::Attach adds a reference of its own,
// unlike the platform's, so it cannot be used for this.)
template <class T>
DShow::ComPtr<T> Own(T* object) {
    DShow::ComPtr<T> owner(object);
    object->Release();
    return owner;
}

// A plain IUnknown that counts its references, for the pUnk of a media type.
class CountedUnknown final : public IUnknown {
public:
    FAKE_COM_REFCOUNT
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
};

// One stream capability as a fake pin reports it.
struct Capability {
    HRESULT result = S_OK;
    bool hasMediaType = true;
    GUID majorType = MEDIATYPE_Video;
    GUID subtype = MEDIASUBTYPE_YUY2;
    GUID formatType = FORMAT_VideoInfo;
    bool hasFormatBlock = true;
    LONG width = 640;
    LONG height = 480;
    REFERENCE_TIME avgTimePerFrame = 333333;
    VIDEO_STREAM_CONFIG_CAPS caps = {};
};

// A heap media type as GetStreamCaps or IEnumMediaTypes would give it.
AM_MEDIA_TYPE* NewMediaType(const Capability& capability);

class FakePin final : public IPin,
                      public IKsPropertySet,
                      public DShow::IKsPinMediums,
                      public IAMStreamConfig {
public:
    FAKE_COM_REFCOUNT

    // Behaviour, set by the test before use.
    PIN_DIRECTION direction = PINDIR_OUTPUT;
    HRESULT queryDirectionResult = S_OK;
    HRESULT queryPinInfoResult = S_OK;
    int queryDirectionCalls = 0;

    bool hasPropertySet = false;
    GUID category = GUID_NULL;
    DWORD categoryBytesReturned = sizeof(GUID);
    HRESULT categoryResult = S_OK;
    int categoryQueries = 0;

    bool hasKsPin = false;
    HRESULT mediumsResult = S_OK;
    std::vector<REGPINMEDIUM> mediums;

    HRESULT enumMediaTypesResult = S_OK;
    std::vector<Capability> mediaTypes;

    bool hasStreamConfig = false;
    HRESULT numberOfCapabilitiesResult = S_OK;
    int capabilityCount = -1;  // -1: the size of `capabilities`
    int capabilityBlockSize = sizeof(VIDEO_STREAM_CONFIG_CAPS);
    // Bytes of each capability that GetStreamCaps writes; -1: as many as it stated.
    int capabilityBytesWritten = -1;
    std::vector<Capability> capabilities;

    // IUnknown
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;

    // IPin
    HRESULT STDMETHODCALLTYPE Connect(IPin*, const AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin*, const AM_MEDIA_TYPE*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Disconnect() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ConnectedTo(IPin**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* info) override;
    HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* value) override;
    HRESULT STDMETHODCALLTYPE QueryId(LPWSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** types) override;
    HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin**, ULONG*) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE EndOfStream() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE BeginFlush() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EndFlush() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) override {
        return E_NOTIMPL;
    }

    // IKsPropertySet
    HRESULT STDMETHODCALLTYPE Set(REFGUID, DWORD, LPVOID, DWORD, LPVOID, DWORD) override {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Get(REFGUID set, DWORD id, LPVOID instance, DWORD instanceSize,
                                  LPVOID data, DWORD dataSize, DWORD* returned) override;
    HRESULT STDMETHODCALLTYPE QuerySupported(REFGUID, DWORD, DWORD*) override { return E_NOTIMPL; }

    // IKsPin, as far as mediums go
    HRESULT STDMETHODCALLTYPE KsQueryMediums(KSMULTIPLE_ITEM** list) override;

    // IAMStreamConfig
    HRESULT STDMETHODCALLTYPE SetFormat(AM_MEDIA_TYPE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetFormat(AM_MEDIA_TYPE**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetNumberOfCapabilities(int* count, int* size) override;
    HRESULT STDMETHODCALLTYPE GetStreamCaps(int index, AM_MEDIA_TYPE** type, BYTE* caps) override;
};

class FakeEnumMediaTypes final : public IEnumMediaTypes {
public:
    FAKE_COM_REFCOUNT
    explicit FakeEnumMediaTypes(std::vector<Capability> types) : m_types(std::move(types)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    HRESULT STDMETHODCALLTYPE Next(ULONG count, AM_MEDIA_TYPE** types, ULONG* fetched) override;
    HRESULT STDMETHODCALLTYPE Skip(ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reset() override {
        m_next = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(IEnumMediaTypes**) override { return E_NOTIMPL; }

private:
    std::vector<Capability> m_types;
    size_t m_next = 0;
};

class FakeEnumPins final : public IEnumPins {
public:
    FAKE_COM_REFCOUNT
    explicit FakeEnumPins(std::vector<DShow::ComPtr<FakePin>> pins) : m_pins(std::move(pins)) {}

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    HRESULT STDMETHODCALLTYPE Next(ULONG count, IPin** pins, ULONG* fetched) override;
    HRESULT STDMETHODCALLTYPE Skip(ULONG) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Reset() override {
        m_next = 0;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Clone(IEnumPins**) override { return E_NOTIMPL; }

private:
    std::vector<DShow::ComPtr<FakePin>> m_pins;
    size_t m_next = 0;
};

class FakeFilter final : public IBaseFilter, public ISpecifyPropertyPages {
public:
    FAKE_COM_REFCOUNT

    std::vector<DShow::ComPtr<FakePin>> pins;
    HRESULT enumPinsResult = S_OK;
    bool hasPropertyPages = false;
    HRESULT getPagesResult = S_OK;
    HRESULT queryFilterInfoResult = S_OK;
    IFilterGraph* graph = nullptr;  // handed out (with a reference) by QueryFilterInfo

    FakePin* AddPin(PIN_DIRECTION pinDirection = PINDIR_OUTPUT);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    HRESULT STDMETHODCALLTYPE GetClassID(CLSID*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Stop() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Pause() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetState(DWORD, FILTER_STATE*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetSyncSource(IReferenceClock**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** result) override;
    HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR, IPin**) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryFilterInfo(FILTER_INFO* info) override;
    HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph*, LPCWSTR) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE QueryVendorInfo(LPWSTR*) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE GetPages(CAUUID* pages) override;
};

// A property bag over fixed values; a name without a value fails to read.
class FakePropertyBag final : public IPropertyBag {
public:
    FAKE_COM_REFCOUNT

    struct Value {
        std::wstring name;
        HRESULT result;
        VARTYPE type;  // VT_BSTR takes `text`, VT_I4 takes `number`
        std::wstring text;
        LONG number;
    };
    std::vector<Value> values;
    std::vector<std::wstring> reads;  // names in the order they were read

    void SetString(const std::wstring& name, const std::wstring& text);
    void SetNumber(const std::wstring& name, LONG number);
    void SetFailure(const std::wstring& name, HRESULT result);

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
    HRESULT STDMETHODCALLTYPE Read(LPCOLESTR name, VARIANT* value, IErrorLog*) override;
    HRESULT STDMETHODCALLTYPE Write(LPCOLESTR, VARIANT*) override { return E_NOTIMPL; }
};

// Collects the text of every log record (the part after the header) while it lives.
using LogCapture = TestSupport::LogCapture;

}  // namespace FakeCom
