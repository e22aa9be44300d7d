#pragma once

#include <windows.h>

#include <dshow.h>
#include <ks.h>

#include "DShowCapture/ComHelpers.h"
#include "DShowCapture/MediaTypes.h"

namespace DShow {

// The leading part of the published IKsPin interface (IID_IKsPin), as far as a medium query
// needs it. MinGW-w64 declares IKsPin only for the DirectShow base classes; the vtable of a
// real IKsPin starts with these same slots, so a pointer obtained for IID_IKsPin can be used
// through this declaration.
struct IKsPinMediums : public IUnknown {
    // Gives a task-allocated KSMULTIPLE_ITEM followed by its KSPIN_MEDIUM entries.
    virtual HRESULT STDMETHODCALLTYPE KsQueryMediums(KSMULTIPLE_ITEM** mediumList) = 0;
};

// Whether the pin reports `category` through IKsPropertySet (AMPROPSETID_Pin, property 0).
bool PinHasCategory(IPin* pin, const GUID& category);
// Whether one of the pin's preferred media types has this major type.
bool PinHasMajorType(IPin* pin, const GUID& majorType);
// The first medium of the pin other than the all-zero and the standard streaming medium.
// False when there is none; `medium` is then zeroed, or untouched when the pin cannot tell
// (no IKsPin, a failed query, or a list whose Count does not fit in its Size).
bool GetPinMedium(IPin* pin, REGPINMEDIUM& medium);

// Pin searches. Each result is empty when no pin qualifies.
// An all-zero `category` accepts every pin of the direction without asking for its category.
ComPtr<IPin> GetPinByCategory(IBaseFilter* filter, PIN_DIRECTION direction, const GUID& category);
ComPtr<IPin> GetPinByMajorType(IBaseFilter* filter, PIN_DIRECTION direction, const GUID& majorType);
// The first pin that answers for its direction and its information, whichever way it points.
ComPtr<IPin> GetFirstPin(IBaseFilter* filter);
ComPtr<IPin> GetPinByMedium(IBaseFilter* filter, const REGPINMEDIUM& medium);
// A pin of the direction (and category, unless all-zero) with a video or audio stream
// capability. Only the audio form logs its failures.
ComPtr<IPin> GetVideoStreamPin(IBaseFilter* filter, PIN_DIRECTION direction, const GUID& category);
ComPtr<IPin> GetAudioStreamPin(IBaseFilter* filter, PIN_DIRECTION direction, const GUID& category);

// The pin's first preferred RGB32 video type with a whole VIDEOINFOHEADER. When `mediaType` holds a
// record already, the type is copied over it; otherwise `mediaType` takes the enumerated record.
bool GetPinMediaTypeRGB32(IPin* pin, ScopedMediaType& mediaType);

}  // namespace DShow
