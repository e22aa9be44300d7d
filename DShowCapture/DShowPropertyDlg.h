#pragma once

#include <windows.h>

#include <dshow.h>

namespace DShow {

// Closes the driver property dialogs open on `filter`, without waiting for them. No dialog is
// ever opened yet, so there is nothing to close: the property dialogs close them for real once
// they exist, under this same signature.
void CloseProperty(IBaseFilter* filter);

}  // namespace DShow
