#pragma once

#include <windows.h>

#include <dshow.h>

namespace DShow {

// The platform's setup records of a filter, as DirectShow documents them; the MinGW-w64 headers
// carry the pin and media-type records (REGFILTERPINS, REGPINTYPES) but not the filter record.
typedef REGPINTYPES AMOVIESETUP_MEDIATYPE;
typedef REGFILTERPINS AMOVIESETUP_PIN;
struct AMOVIESETUP_FILTER {
    const CLSID* clsID;
    const WCHAR* strName;
    DWORD dwMerit;
    UINT nPins;
    const AMOVIESETUP_PIN* lpPin;
};

// Registers (or, with registerIt false, only unregisters) a filter with its pins and media
// types through IFilterMapper. Unregistering a filter that was never registered is no error.
// Gives S_FALSE for a null setup.
HRESULT RegisterFilterSetup(const AMOVIESETUP_FILTER* setup, IFilterMapper* mapper,
                            bool registerIt);

}  // namespace DShow
