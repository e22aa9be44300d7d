#pragma once
// Small platform helpers shared by the virtual camera DLL, its setup library and its tool.

#include <windows.h>

#include <string>

namespace VirtualCamera {

// The full path of a loaded module; null for the running executable. Empty when the system
// cannot tell.
std::wstring ModuleFilePath(HMODULE module);

// A result code as the tool and the setup library print it: "0x8007001F".
std::wstring HexCode(HRESULT code);

}  // namespace VirtualCamera
