#include "tools/TestDecoders/Common/RegistryKey.h"

#include <vector>

namespace TestDecoders {

LSTATUS RegistryKey::Open(HKEY root, const wchar_t* path, REGSAM access) {
    Close();
    return RegOpenKeyExW(root, path, 0, access, &m_key);
}

LSTATUS RegistryKey::Create(HKEY root, const wchar_t* path, REGSAM access) {
    Close();
    return RegCreateKeyExW(root, path, 0, nullptr, 0, access, nullptr, &m_key, nullptr);
}

void RegistryKey::Close() {
    if (m_key) {
        RegCloseKey(m_key);
        m_key = nullptr;
    }
}

bool RegistryKey::ReadString(const wchar_t* name, std::wstring* text) const {
    if (!m_key) {
        return false;
    }
    DWORD type = 0;
    DWORD bytes = 0;
    if (RegQueryValueExW(m_key, name, nullptr, &type, nullptr, &bytes) != ERROR_SUCCESS ||
        (type != REG_SZ && type != REG_EXPAND_SZ)) {
        return false;
    }
    // Room for a terminator the stored value may lack.
    std::vector<wchar_t> buffer(bytes / sizeof(wchar_t) + 1, L'\0');
    bytes = static_cast<DWORD>(buffer.size() * sizeof(wchar_t));
    if (RegQueryValueExW(m_key, name, nullptr, &type, reinterpret_cast<BYTE*>(buffer.data()),
                         &bytes) != ERROR_SUCCESS) {
        return false;
    }
    buffer.back() = L'\0';
    text->assign(buffer.data());
    return true;
}

LSTATUS RegistryKey::WriteString(const wchar_t* name, const std::wstring& text) const {
    return RegSetValueExW(m_key, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                          static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
}

LSTATUS RegistryKey::DeleteValue(const wchar_t* name) const {
    const LSTATUS status = RegDeleteValueW(m_key, name);
    return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status;
}

std::wstring FileNameOf(const std::wstring& path) {
    const size_t slash = path.find_last_of(L"\\/");
    return slash == std::wstring::npos ? path : path.substr(slash + 1);
}

}  // namespace TestDecoders
