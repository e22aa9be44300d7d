#include "TinyFramework/Graphics/TinyFont.h"

namespace TinyFramework {

IMPLEMENT_DYNAMIC(TinyFont, TinyHandleHFONT)

TinyFont::~TinyFont() {
    DeleteObject();
}

BOOL TinyFont::CreateFontIndirect(const LOGFONTW& font) {
    HFONT created = ::CreateFontIndirectW(&font);
    if (created == nullptr) {
        return FALSE;
    }
    DeleteObject();
    return Attach(created);
}

BOOL TinyFont::DeleteObject() {
    HFONT font = Detach();
    return font != nullptr ? ::DeleteObject(font) : FALSE;
}

BOOL TinyFont::GetLogFont(LOGFONTW* font) const {
    return ::GetObjectW(m_handle, sizeof(LOGFONTW), font) == static_cast<int>(sizeof(LOGFONTW));
}

}  // namespace TinyFramework
