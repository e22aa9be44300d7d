#include "tests/support/ProgramFolder.h"

#include <windows.h>

namespace TestSupport {

std::wstring ProgramDirectory() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    const std::wstring self(path);
    return self.substr(0, self.find_last_of(L'\\') + 1);
}

std::wstring ProgramBesideThisOne(const wchar_t* fileName) {
    return ProgramDirectory() + fileName;
}

}  // namespace TestSupport
