#include "DShowCapture/PinSearch.h"

#include "DShowCapture/DriverData.h"
#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/Common/TinyLogging_win32.h"

namespace DShow {

namespace {

enum class EnumFailureLog { kSilent, kLog };

// Walks the pins of `filter` in the enumerator's order and gives the first that `accept` takes.
// Rejected pins are released before the next one is fetched.
template <class Accept>
ComPtr<IPin> FindPin(IBaseFilter* filter, Accept accept,
                     EnumFailureLog failureLog = EnumFailureLog::kSilent) {
    if (filter == nullptr) {
        return nullptr;
    }
    ComPtr<IEnumPins> pins;
    const HRESULT hr = filter->EnumPins(pins.GetAddressOf());
    if (FAILED(hr) || !pins) {
        if (FAILED(hr) && failureLog == EnumFailureLog::kLog) {
            TINY_LOG_ERROR() << TinyFramework::StringPrintf("Failed to EnumPins(0x%X)",
                                                            static_cast<unsigned>(hr));
        }
        return nullptr;
    }
    pins->Reset();
    ComPtr<IPin> pin;
    while (pins->Next(1, pin.ReleaseAndGetAddressOf(), nullptr) == S_OK) {
        if (pin && accept(pin.Get())) {
            return pin;
        }
    }
    return nullptr;
}

bool HasDirection(IPin* pin, PIN_DIRECTION wanted) {
    // An impossible value, so that a pin that answers without writing never matches.
    auto direction = static_cast<PIN_DIRECTION>(-1);
    return SUCCEEDED(pin->QueryDirection(&direction)) && direction == wanted;
}

bool IsStandardOrEmptyMedium(const GUID& mediumSet) {
    return IsEqualGUID(mediumSet, GUID_NULL) || IsEqualGUID(mediumSet, KSMEDIUMSETID_Standard);
}

bool HasStreamCapability(IPin* pin, const GUID& majorType, bool logFailures) {
    ComPtr<IAMStreamConfig> config;
    HRESULT hr =
        pin->QueryInterface(IID_IAMStreamConfig, reinterpret_cast<void**>(config.GetAddressOf()));
    if (FAILED(hr)) {
        if (logFailures) {
            TINY_LOG_ERROR() << TinyFramework::StringPrintf(
                "Failed to QueryInterface(IID_IAMStreamConfig,0x%X)", static_cast<unsigned>(hr));
        }
        return false;
    }
    StreamCapabilityReader capabilities(config.Get());
    hr = capabilities.Open();
    if (FAILED(hr)) {
        if (logFailures) {
            TINY_LOG_ERROR() << TinyFramework::StringPrintf(
                "Failed to GetNumberOfCapabilities(0x%X)", static_cast<unsigned>(hr));
        }
        return false;
    }
    for (int index = 0; index < capabilities.Count(); ++index) {
        ScopedMediaType mediaType;
        hr = capabilities.Read(index, mediaType.Receive());
        // A capability that cannot be read is passed over; the next one may still qualify.
        if (SUCCEEDED(hr) && mediaType.Get() != nullptr &&
            IsEqualGUID(mediaType->majortype, majorType)) {
            return true;
        }
    }
    return false;
}

ComPtr<IPin> GetStreamPin(IBaseFilter* filter, PIN_DIRECTION direction, const GUID& category,
                          const GUID& majorType, bool logFailures) {
    auto accept = [&](IPin* pin) {
        if (!HasDirection(pin, direction)) {
            return false;
        }
        if (!IsEqualGUID(category, GUID_NULL) && !PinHasCategory(pin, category)) {
            return false;
        }
        return HasStreamCapability(pin, majorType, logFailures);
    };
    return FindPin(filter, accept, logFailures ? EnumFailureLog::kLog : EnumFailureLog::kSilent);
}

}  // namespace

bool PinHasCategory(IPin* pin, const GUID& category) {
    if (pin == nullptr) {
        return false;
    }
    ComPtr<IKsPropertySet> properties;
    if (FAILED(pin->QueryInterface(IID_IKsPropertySet,
                                   reinterpret_cast<void**>(properties.GetAddressOf()))) ||
        !properties) {
        return false;
    }
    GUID pinCategory = GUID_NULL;
    DWORD returned = 0;
    const HRESULT hr = properties->Get(AMPROPSETID_Pin, AMPROPERTY_PIN_CATEGORY, nullptr, 0,
                                       &pinCategory, sizeof(pinCategory), &returned);
    // A short answer counts as no category, whatever its bytes say.
    return SUCCEEDED(hr) && returned == sizeof(GUID) && IsEqualGUID(pinCategory, category);
}

namespace {

// The pin's media types from the start; a failure to enumerate them is logged.
bool OpenMediaTypes(IPin* pin, ComPtr<IEnumMediaTypes>& mediaTypes) {
    if (pin == nullptr) {
        return false;
    }
    const HRESULT hr = pin->EnumMediaTypes(mediaTypes.GetAddressOf());
    if (FAILED(hr)) {
        TINY_LOG_ERROR() << TinyFramework::StringPrintf(
            "Failed to EnumMediaTypes(IEnumMediaTypes,0x%X)", static_cast<unsigned>(hr));
        return false;
    }
    if (!mediaTypes) {
        return false;
    }
    mediaTypes->Reset();
    return true;
}

}  // namespace

bool PinHasMajorType(IPin* pin, const GUID& majorType) {
    ComPtr<IEnumMediaTypes> mediaTypes;
    if (!OpenMediaTypes(pin, mediaTypes)) {
        return false;
    }
    ScopedMediaType mediaType;
    while (mediaTypes->Next(1, mediaType.Receive(), nullptr) == S_OK) {
        if (mediaType.Get() != nullptr && IsEqualGUID(mediaType->majortype, majorType)) {
            return true;
        }
        mediaType.Reset();
    }
    return false;
}

bool GetPinMedium(IPin* pin, REGPINMEDIUM& medium) {
    if (pin == nullptr) {
        return false;
    }
    ComPtr<IKsPinMediums> ksPin;
    if (FAILED(pin->QueryInterface(IID_IKsPin, reinterpret_cast<void**>(ksPin.GetAddressOf()))) ||
        !ksPin) {
        return false;
    }
    KSMULTIPLE_ITEM* list = nullptr;
    if (FAILED(ksPin->KsQueryMediums(&list))) {
        return false;
    }
    // The list is not freed: the query process that asks for mediums ends right after its one
    // query, and the task allocator's memory goes with it; the list is read only here.
    if (list != nullptr) {
        // A list whose Count does not fit in its Size is no answer at all, like a failed query.
        if (!MediumListIsWhole(*list)) {
            return false;
        }
        const auto* mediums = reinterpret_cast<const REGPINMEDIUM*>(list + 1);
        for (ULONG index = 0; index < list->Count; ++index) {
            if (!IsStandardOrEmptyMedium(mediums[index].clsMedium)) {
                medium = mediums[index];
                return true;
            }
        }
    }
    medium = REGPINMEDIUM{};
    return false;
}

ComPtr<IPin> GetPinByCategory(IBaseFilter* filter, PIN_DIRECTION direction, const GUID& category) {
    return FindPin(filter, [&](IPin* pin) {
        if (!HasDirection(pin, direction)) {
            return false;
        }
        return IsEqualGUID(category, GUID_NULL) || PinHasCategory(pin, category);
    });
}

ComPtr<IPin> GetPinByMajorType(IBaseFilter* filter, PIN_DIRECTION direction,
                               const GUID& majorType) {
    return FindPin(filter, [&](IPin* pin) {
        if (!HasDirection(pin, direction)) {
            return false;
        }
        return IsEqualGUID(majorType, GUID_NULL) || PinHasMajorType(pin, majorType);
    });
}

ComPtr<IPin> GetFirstPin(IBaseFilter* filter) {
    return FindPin(filter, [](IPin* pin) {
        // The direction is asked only as a sign of life; its value does not matter.
        auto direction = static_cast<PIN_DIRECTION>(-1);
        PIN_INFO info = {};
        const bool answers =
            SUCCEEDED(pin->QueryDirection(&direction)) && SUCCEEDED(pin->QueryPinInfo(&info));
        if (info.pFilter != nullptr) {
            info.pFilter->Release();
        }
        return answers;
    });
}

ComPtr<IPin> GetPinByMedium(IBaseFilter* filter, const REGPINMEDIUM& medium) {
    return FindPin(filter, [&](IPin* pin) {
        REGPINMEDIUM pinMedium = {};
        return GetPinMedium(pin, pinMedium) && IsEqualGUID(pinMedium.clsMedium, medium.clsMedium) &&
               pinMedium.dw1 == medium.dw1 && pinMedium.dw2 == medium.dw2;
    });
}

ComPtr<IPin> GetVideoStreamPin(IBaseFilter* filter, PIN_DIRECTION direction, const GUID& category) {
    return GetStreamPin(filter, direction, category, MEDIATYPE_Video, false);
}

ComPtr<IPin> GetAudioStreamPin(IBaseFilter* filter, PIN_DIRECTION direction, const GUID& category) {
    return GetStreamPin(filter, direction, category, MEDIATYPE_Audio, true);
}

bool GetPinMediaTypeRGB32(IPin* pin, ScopedMediaType& mediaType) {
    ComPtr<IEnumMediaTypes> mediaTypes;
    if (!OpenMediaTypes(pin, mediaTypes)) {
        return false;
    }
    ScopedMediaType candidate;
    while (mediaTypes->Next(1, candidate.Receive(), nullptr) == S_OK) {
        const AM_MEDIA_TYPE* type = candidate.Get();
        // A type whose block is too short for its VIDEOINFOHEADER is no VideoInfo type at all:
        // whoever takes the record reads that header.
        if (type != nullptr && IsEqualGUID(type->majortype, MEDIATYPE_Video) &&
            GetVideoInfoHeader(*type) != nullptr &&
            IsEqualGUID(type->subtype, MEDIASUBTYPE_RGB32)) {
            if (mediaType.Get() != nullptr) {
                // The caller's record is reused in place; its old block and reference go first
                // so that the copy does not leak them. A failed copy still counts as found: the
                // record then has its fields but no format block.
                FreeMediaType(*mediaType.Get());
                CopyMediaTypeForHolder(mediaType.Get(), type);
            } else {
                mediaType = std::move(candidate);
            }
            return true;
        }
        candidate.Reset();
    }
    return false;
}

}  // namespace DShow
