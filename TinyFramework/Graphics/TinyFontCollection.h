#pragma once

#include <windows.h>

namespace Gdiplus {
class GpFontCollection;
}

namespace TinyFramework {

// Fonts loaded from files for this process alone, through a private font collection of GDI+:
// a program draws with a font it carries, without installing it. The fonts are GDI+'s only;
// GDI's CreateFontIndirect does not see them.
//
// The collection starts GDI+ for itself on first use and shuts it down when it goes (start-ups
// nest, each with its own token), so it must go before the process's last GDI+ user and not
// during the loader lock (no static object of this class). Not copyable; no lock: one thread.
class TinyPrivateFontCollection {
public:
    TinyPrivateFontCollection() = default;
    ~TinyPrivateFontCollection();
    TinyPrivateFontCollection(const TinyPrivateFontCollection&) = delete;
    TinyPrivateFontCollection& operator=(const TinyPrivateFontCollection&) = delete;

    // Loads the fonts of a TrueType or OpenType file. FALSE when GDI+ does not start or refuses
    // the file; fonts loaded before stay.
    BOOL AddFontFile(LPCWSTR path);
    // The number of font families loaded; 0 before the first file.
    int GetFamilyCount() const;
    // The name of the family at `index` (0 .. GetFamilyCount() - 1), in the language-neutral
    // form. FALSE, with `name` empty, for an index out of range.
    BOOL GetFamilyName(int index, wchar_t (&name)[LF_FACESIZE]) const;

private:
    BOOL EnsureCreated();

    ULONG_PTR m_token = 0;
    Gdiplus::GpFontCollection* m_collection = nullptr;
};

}  // namespace TinyFramework
