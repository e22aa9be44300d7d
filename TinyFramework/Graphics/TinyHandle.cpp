#include "TinyFramework/Graphics/TinyHandle.h"

namespace TinyFramework {

IMPLEMENT_DYNAMIC(TinyHandleHDC, TinyObject)
IMPLEMENT_DYNAMIC(TinyHandleHMENU, TinyObject)
IMPLEMENT_DYNAMIC(TinyHandleHBITMAP, TinyObject)
IMPLEMENT_DYNAMIC(TinyHandleHFONT, TinyObject)
IMPLEMENT_DYNAMIC(TinyHandleHPEN, TinyObject)
IMPLEMENT_DYNAMIC(TinyHandleHBRUSH, TinyObject)
IMPLEMENT_DYNAMIC(TinyHandleHPALETTE, TinyObject)
IMPLEMENT_DYNAMIC(TinyHandleHRGN, TinyObject)
IMPLEMENT_DYNAMIC(TinyHandleHIMAGELIST, TinyObject)
IMPLEMENT_DYNAMIC(TinyHandleHWND, TinyObject)

}  // namespace TinyFramework
