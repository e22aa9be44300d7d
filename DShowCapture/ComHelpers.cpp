#include "DShowCapture/ComHelpers.h"

namespace DShow {

HRESULT CreateComInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid,
                          void** object) {
    HRESULT hr = CoCreateInstance(clsid, outer, context, iid, object);
    if (hr != CO_E_NOTINITIALIZED) {
        return hr;
    }
    // A caller on a thread that never entered COM: join the multithreaded apartment rather than
    // fail. The apartment is kept; leaving it is the thread owner's business.
    const HRESULT initialized = CoInitializeEx(nullptr, COINIT_DISABLE_OLE1DDE);
    if (FAILED(initialized)) {
        return initialized;
    }
    return CoCreateInstance(clsid, outer, context, iid, object);
}

}  // namespace DShow
