#pragma once

#include <windows.h>

#include <dshow.h>

namespace DShow {

// Whether `object` offers property pages (ISpecifyPropertyPages). False for null.
bool HasPropertyPages(IUnknown* object);

// Shows the filter's property pages in a modal frame owned by `owner` and returns when it is
// closed. Consumes one reference to `filter`, whatever happens. The filter must be in a graph.
// Gives E_NOINTERFACE for null, else the first non-zero result of the three queries.
HRESULT ShowPropertyPages(IBaseFilter* filter, HWND owner);

}  // namespace DShow
