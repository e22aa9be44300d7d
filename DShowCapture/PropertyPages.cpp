#include "DShowCapture/PropertyPages.h"

#include <olectl.h>

#include "DShowCapture/ComHelpers.h"

namespace DShow {
namespace {

HRESULT ShowPages(IBaseFilter* filter, HWND owner) {
    ComPtr<ISpecifyPropertyPages> specify;
    HRESULT hr = filter->QueryInterface(IID_ISpecifyPropertyPages,
                                        reinterpret_cast<void**>(specify.GetAddressOf()));
    if (hr != S_OK) {
        return hr;
    }
    FILTER_INFO info = {};
    hr = filter->QueryFilterInfo(&info);
    if (hr != S_OK) {
        return hr;
    }
    CAUUID pages = {};
    hr = specify->GetPages(&pages);
    if (hr == S_OK) {
        IUnknown* objects[] = {filter};
        OleCreatePropertyFrame(owner, 0, 0, info.achName, 1, objects, pages.cElems, pages.pElems, 0,
                               0, nullptr);
        CoTaskMemFree(pages.pElems);
    }
    // No null test: pages are only ever shown for a filter that sits in a graph.
    info.pGraph->Release();
    return hr;
}

}  // namespace

bool HasPropertyPages(IUnknown* object) {
    if (object == nullptr) {
        return false;
    }
    ComPtr<ISpecifyPropertyPages> specify;
    return SUCCEEDED(object->QueryInterface(IID_ISpecifyPropertyPages,
                                            reinterpret_cast<void**>(specify.GetAddressOf())));
}

HRESULT ShowPropertyPages(IBaseFilter* filter, HWND owner) {
    if (filter == nullptr) {
        return E_NOINTERFACE;
    }
    const HRESULT hr = ShowPages(filter, owner);
    // The caller hands its reference over with the call.
    filter->Release();
    return hr;
}

}  // namespace DShow
