#pragma once
// An owned registry key, and the few reads and writes the decoder stand-ins make.

#include <windows.h>

#include <string>

namespace TestDecoders {

class RegistryKey {
public:
    RegistryKey() = default;
    ~RegistryKey() { Close(); }
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;

    // Open an existing key, or create it (and the keys above it). Return the registry's code.
    LSTATUS Open(HKEY root, const wchar_t* path, REGSAM access);
    LSTATUS Create(HKEY root, const wchar_t* path, REGSAM access);
    void Close();
    HKEY get() const { return m_key; }

    // A string value (REG_SZ or REG_EXPAND_SZ, not expanded); false when absent or no string.
    bool ReadString(const wchar_t* name, std::wstring* text) const;
    LSTATUS WriteString(const wchar_t* name, const std::wstring& text) const;
    // Deleting a value that is not there is no failure.
    LSTATUS DeleteValue(const wchar_t* name) const;

private:
    HKEY m_key = nullptr;
};

// The file name of a path: what follows its last '\' or '/'.
std::wstring FileNameOf(const std::wstring& path);

}  // namespace TestDecoders
