#include "DShowCapture/FilterRegistration.h"

namespace DShow {
namespace {

// What UnregisterFilter answers for a filter the registry does not know.
constexpr HRESULT kFileNotFound = HRESULT_FROM_WIN32(ERROR_FILE_NOT_FOUND);

// The documented pin record leaves its class pointers optional (null means "none").
const CLSID& ClassOrNull(const CLSID* clsid) {
    return clsid != nullptr ? *clsid : CLSID_NULL;
}

HRESULT RegisterPins(const AMOVIESETUP_FILTER& setup, IFilterMapper* mapper) {
    HRESULT hr = S_OK;
    for (UINT pinIndex = 0; pinIndex < setup.nPins; ++pinIndex) {
        const AMOVIESETUP_PIN& pin = setup.lpPin[pinIndex];
        hr = mapper->RegisterPin(*setup.clsID, pin.strName, pin.bRendered, pin.bOutput, pin.bZero,
                                 pin.bMany, ClassOrNull(pin.clsConnectsToFilter),
                                 pin.strConnectsToPin);
        if (FAILED(hr)) {
            return hr;
        }
        for (UINT typeIndex = 0; typeIndex < pin.nMediaTypes; ++typeIndex) {
            const AMOVIESETUP_MEDIATYPE& type = pin.lpMediaType[typeIndex];
            hr = mapper->RegisterPinType(*setup.clsID, pin.strName, ClassOrNull(type.clsMajorType),
                                         ClassOrNull(type.clsMinorType));
            if (hr != S_OK) {
                return hr;
            }
        }
        // A pin without media types passes RegisterPin's own result on: a positive one ends
        // the walk as well.
        if (hr != S_OK) {
            return hr;
        }
    }
    return hr;
}

HRESULT RegisterOrUnregister(const AMOVIESETUP_FILTER& setup, IFilterMapper* mapper,
                             bool registerIt) {
    HRESULT hr = mapper->UnregisterFilter(*setup.clsID);
    if (!registerIt) {
        return hr;
    }
    hr = mapper->RegisterFilter(*setup.clsID, setup.strName, setup.dwMerit);
    if (FAILED(hr)) {
        return hr;
    }
    return RegisterPins(setup, mapper);
}

}  // namespace

HRESULT RegisterFilterSetup(const AMOVIESETUP_FILTER* setup, IFilterMapper* mapper,
                            bool registerIt) {
    if (setup == nullptr) {
        return S_FALSE;
    }
    const HRESULT hr = RegisterOrUnregister(*setup, mapper, registerIt);
    return hr == kFileNotFound ? S_OK : hr;
}

}  // namespace DShow
