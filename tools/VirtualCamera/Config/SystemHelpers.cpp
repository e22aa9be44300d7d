#include "tools/VirtualCamera/Config/SystemHelpers.h"

#include <cwchar>

namespace VirtualCamera {

std::wstring ModuleFilePath(HMODULE module) {
    std::wstring path(MAX_PATH, L'\0');
    while (true) {
        const DWORD length = GetModuleFileNameW(module, &path[0], static_cast<DWORD>(path.size()));
        if (length == 0) {
            return std::wstring();
        }
        // A path that fills the buffer may have been cut: try again with twice the room.
        if (length < path.size()) {
            path.resize(length);
            return path;
        }
        path.resize(path.size() * 2);
    }
}

std::wstring HexCode(HRESULT code) {
    wchar_t buffer[16] = {};
    swprintf(buffer, 16, L"0x%08lX", static_cast<unsigned long>(code));
    return buffer;
}

}  // namespace VirtualCamera
