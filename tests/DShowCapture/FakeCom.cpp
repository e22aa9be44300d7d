#include "FakeCom.h"

#include <algorithm>
#include <cstring>

#include <dvdmedia.h>

#include "TinyFramework/Common/TinyLogging_win32.h"

namespace FakeCom {
namespace {

template <class Interface, class Object>
HRESULT Hand(Object* object, void** result) {
    *result = static_cast<Interface*>(object);
    object->AddRef();
    return S_OK;
}

}  // namespace

HRESULT CountedUnknown::QueryInterface(REFIID iid, void** object) {
    if (IsEqualIID(iid, IID_IUnknown)) {
        return Hand<IUnknown>(this, object);
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

AM_MEDIA_TYPE* NewMediaType(const Capability& capability) {
    auto* type = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
    *type = AM_MEDIA_TYPE{};
    type->majortype = capability.majorType;
    type->subtype = capability.subtype;
    type->formattype = capability.formatType;
    if (capability.hasFormatBlock) {
        const bool isInfo2 = IsEqualGUID(capability.formatType, FORMAT_VideoInfo2);
        type->cbFormat = isInfo2 ? sizeof(VIDEOINFOHEADER2) : sizeof(VIDEOINFOHEADER);
        type->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(type->cbFormat));
        memset(type->pbFormat, 0, type->cbFormat);
        if (isInfo2) {
            auto* header = reinterpret_cast<VIDEOINFOHEADER2*>(type->pbFormat);
            header->AvgTimePerFrame = capability.avgTimePerFrame;
            header->bmiHeader.biWidth = capability.width;
            header->bmiHeader.biHeight = capability.height;
        } else {
            auto* header = reinterpret_cast<VIDEOINFOHEADER*>(type->pbFormat);
            header->AvgTimePerFrame = capability.avgTimePerFrame;
            header->bmiHeader.biWidth = capability.width;
            header->bmiHeader.biHeight = capability.height;
        }
    }
    return type;
}

HRESULT FakePin::QueryInterface(REFIID iid, void** object) {
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IPin)) {
        return Hand<IPin>(this, object);
    }
    if (hasPropertySet && IsEqualIID(iid, IID_IKsPropertySet)) {
        return Hand<IKsPropertySet>(this, object);
    }
    if (hasKsPin && IsEqualIID(iid, IID_IKsPin)) {
        return Hand<DShow::IKsPinMediums>(this, object);
    }
    if (hasStreamConfig && IsEqualIID(iid, IID_IAMStreamConfig)) {
        return Hand<IAMStreamConfig>(this, object);
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

HRESULT FakePin::QueryPinInfo(PIN_INFO* info) {
    if (FAILED(queryPinInfoResult)) {
        return queryPinInfoResult;
    }
    *info = PIN_INFO{};
    info->dir = direction;
    return queryPinInfoResult;
}

HRESULT FakePin::QueryDirection(PIN_DIRECTION* value) {
    ++queryDirectionCalls;
    if (SUCCEEDED(queryDirectionResult)) {
        *value = direction;
    }
    return queryDirectionResult;
}

HRESULT FakePin::EnumMediaTypes(IEnumMediaTypes** types) {
    if (FAILED(enumMediaTypesResult)) {
        *types = nullptr;
        return enumMediaTypesResult;
    }
    *types = new FakeEnumMediaTypes(mediaTypes);
    return enumMediaTypesResult;
}

HRESULT FakePin::Get(REFGUID set, DWORD id, LPVOID, DWORD, LPVOID data, DWORD dataSize,
                     DWORD* returned) {
    ++categoryQueries;
    if (!IsEqualGUID(set, AMPROPSETID_Pin) || id != 0 || dataSize < sizeof(GUID)) {
        return E_INVALIDARG;
    }
    // The whole GUID is written even for a short answer, so that a match of the bytes alone
    // would be noticed.
    memcpy(data, &category, sizeof(GUID));
    *returned = categoryBytesReturned;
    return categoryResult;
}

HRESULT FakePin::KsQueryMediums(KSMULTIPLE_ITEM** list) {
    if (FAILED(mediumsResult)) {
        return mediumsResult;
    }
    const size_t size = sizeof(KSMULTIPLE_ITEM) + mediums.size() * sizeof(REGPINMEDIUM);
    auto* items = static_cast<KSMULTIPLE_ITEM*>(CoTaskMemAlloc(size));
    items->Size = static_cast<ULONG>(size);
    items->Count = static_cast<ULONG>(mediums.size());
    if (!mediums.empty()) {
        memcpy(items + 1, mediums.data(), mediums.size() * sizeof(REGPINMEDIUM));
    }
    *list = items;
    return mediumsResult;
}

HRESULT FakePin::GetNumberOfCapabilities(int* count, int* size) {
    *count = capabilityCount >= 0 ? capabilityCount : static_cast<int>(capabilities.size());
    *size = capabilityBlockSize;
    return numberOfCapabilitiesResult;
}

HRESULT FakePin::GetStreamCaps(int index, AM_MEDIA_TYPE** type, BYTE* caps) {
    *type = nullptr;
    if (index < 0 || static_cast<size_t>(index) >= capabilities.size()) {
        return S_FALSE;
    }
    const Capability& capability = capabilities[index];
    if (capability.hasMediaType) {
        *type = NewMediaType(capability);
    }
    const int written = capabilityBytesWritten >= 0 ? capabilityBytesWritten : capabilityBlockSize;
    memcpy(caps, &capability.caps, std::min<size_t>(written, sizeof(capability.caps)));
    return capability.result;
}

HRESULT FakeEnumMediaTypes::QueryInterface(REFIID iid, void** object) {
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IEnumMediaTypes)) {
        return Hand<IEnumMediaTypes>(this, object);
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

HRESULT FakeEnumMediaTypes::Next(ULONG count, AM_MEDIA_TYPE** types, ULONG* fetched) {
    ULONG given = 0;
    while (given < count && m_next < m_types.size()) {
        types[given++] = NewMediaType(m_types[m_next++]);
    }
    if (fetched != nullptr) {
        *fetched = given;
    }
    return given == count ? S_OK : S_FALSE;
}

HRESULT FakeEnumPins::QueryInterface(REFIID iid, void** object) {
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IEnumPins)) {
        return Hand<IEnumPins>(this, object);
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

HRESULT FakeEnumPins::Next(ULONG count, IPin** pins, ULONG* fetched) {
    ULONG given = 0;
    while (given < count && m_next < m_pins.size()) {
        IPin* pin = m_pins[m_next++].Get();
        pin->AddRef();
        pins[given++] = pin;
    }
    if (fetched != nullptr) {
        *fetched = given;
    }
    return given == count ? S_OK : S_FALSE;
}

FakePin* FakeFilter::AddPin(PIN_DIRECTION pinDirection) {
    auto* pin = new FakePin();
    pin->direction = pinDirection;
    pins.push_back(Own(pin));
    return pin;
}

HRESULT FakeFilter::QueryInterface(REFIID iid, void** object) {
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IBaseFilter) ||
        IsEqualIID(iid, IID_IMediaFilter) || IsEqualIID(iid, IID_IPersist)) {
        return Hand<IBaseFilter>(this, object);
    }
    if (hasPropertyPages && IsEqualIID(iid, IID_ISpecifyPropertyPages)) {
        return Hand<ISpecifyPropertyPages>(this, object);
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

HRESULT FakeFilter::EnumPins(IEnumPins** result) {
    if (FAILED(enumPinsResult)) {
        *result = nullptr;
        return enumPinsResult;
    }
    *result = new FakeEnumPins(pins);
    return enumPinsResult;
}

HRESULT FakeFilter::QueryFilterInfo(FILTER_INFO* info) {
    *info = FILTER_INFO{};
    wcscpy(info->achName, L"Fake Filter");
    info->pGraph = graph;
    if (graph != nullptr) {
        graph->AddRef();
    }
    return queryFilterInfoResult;
}

HRESULT FakeFilter::GetPages(CAUUID* pages) {
    pages->cElems = 0;
    pages->pElems = nullptr;
    return getPagesResult;
}

void FakePropertyBag::SetString(const std::wstring& name, const std::wstring& text) {
    values.push_back({name, S_OK, VT_BSTR, text, 0});
}

void FakePropertyBag::SetNumber(const std::wstring& name, LONG number) {
    values.push_back({name, S_OK, VT_I4, L"", number});
}

void FakePropertyBag::SetFailure(const std::wstring& name, HRESULT result) {
    values.push_back({name, result, VT_EMPTY, L"", 0});
}

HRESULT FakePropertyBag::QueryInterface(REFIID iid, void** object) {
    if (IsEqualIID(iid, IID_IUnknown) || IsEqualIID(iid, IID_IPropertyBag)) {
        return Hand<IPropertyBag>(this, object);
    }
    *object = nullptr;
    return E_NOINTERFACE;
}

HRESULT FakePropertyBag::Read(LPCOLESTR name, VARIANT* value, IErrorLog*) {
    reads.push_back(name);
    for (const Value& entry : values) {
        if (entry.name != name) {
            continue;
        }
        if (FAILED(entry.result)) {
            return entry.result;
        }
        // Like the platform's bag: the old content of the variant is replaced.
        VariantClear(value);
        value->vt = entry.type;
        if (entry.type == VT_BSTR) {
            value->bstrVal =
                SysAllocStringLen(entry.text.data(), static_cast<UINT>(entry.text.size()));
        } else if (entry.type == VT_I4) {
            value->lVal = entry.number;
        }
        return entry.result;
    }
    return E_INVALIDARG;
}

}  // namespace FakeCom
