#include "TinyFramework/Graphics/TinyFontCollection.h"

#include <gdiplus.h>

#include <vector>

namespace TinyFramework {

namespace Flat = Gdiplus::DllExports;

TinyPrivateFontCollection::~TinyPrivateFontCollection() {
    if (m_collection != nullptr) {
        Flat::GdipDeletePrivateFontCollection(&m_collection);
    }
    if (m_token != 0) {
        Gdiplus::GdiplusShutdown(m_token);
    }
}

BOOL TinyPrivateFontCollection::EnsureCreated() {
    if (m_collection != nullptr) {
        return TRUE;
    }
    if (m_token == 0) {
        const Gdiplus::GdiplusStartupInput input;
        if (Gdiplus::GdiplusStartup(&m_token, &input, nullptr) != Gdiplus::Ok) {
            m_token = 0;
            return FALSE;
        }
    }
    return Flat::GdipNewPrivateFontCollection(&m_collection) == Gdiplus::Ok;
}

BOOL TinyPrivateFontCollection::AddFontFile(LPCWSTR path) {
    if (!EnsureCreated()) {
        return FALSE;
    }
    return Flat::GdipPrivateAddFontFile(m_collection, path) == Gdiplus::Ok;
}

int TinyPrivateFontCollection::GetFamilyCount() const {
    INT count = 0;
    if (m_collection == nullptr ||
        Flat::GdipGetFontCollectionFamilyCount(m_collection, &count) != Gdiplus::Ok) {
        return 0;
    }
    return count;
}

BOOL TinyPrivateFontCollection::GetFamilyName(int index, wchar_t (&name)[LF_FACESIZE]) const {
    name[0] = L'\0';
    const int count = GetFamilyCount();
    if (index < 0 || index >= count) {
        return FALSE;
    }
    // The families of the list belong to the collection.
    std::vector<Gdiplus::GpFontFamily*> families(count);
    INT found = 0;
    if (Flat::GdipGetFontCollectionFamilyList(m_collection, count, families.data(), &found) !=
            Gdiplus::Ok ||
        index >= found) {
        return FALSE;
    }
    return Flat::GdipGetFamilyName(families[index], name, LANG_NEUTRAL) == Gdiplus::Ok;
}

}  // namespace TinyFramework
