#pragma once

// The helpers of the capture library around DirectShow: COM creation, media types, pin
// searches, device enumeration, property pages, filter registration and screen capture.
#include "DShowCapture/ComHelpers.h"
#include "DShowCapture/DeviceEnumeration.h"
#include "DShowCapture/FilterRegistration.h"
#include "DShowCapture/MediaTypes.h"
#include "DShowCapture/PinSearch.h"
#include "DShowCapture/PropertyPages.h"
#include "DShowCapture/ScreenCapture.h"
