#pragma once

#include "TinyFramework/Graphics/TinyHandle.h"

#include <windows.h>

namespace TinyFramework {

// A logical font, made from its description and deleted on destruction (or DeleteObject),
// leaving the map first. A Create on an object that holds a font deletes the old one once the
// new one stands. Not copyable; no lock.
class TinyFont : public TinyHandleHFONT {
    DECLARE_DYNAMIC(TinyFont)

public:
    TinyFont() = default;
    ~TinyFont() override;

    BOOL CreateFontIndirect(const LOGFONTW& font);
    BOOL DeleteObject();
    BOOL GetLogFont(LOGFONTW* font) const;
};

}  // namespace TinyFramework
