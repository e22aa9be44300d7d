#pragma once

#include <string>

namespace TestSupport {

// The folder of this test program, with its trailing backslash: the build puts the helper
// programs and libraries of the tests there.
std::wstring ProgramDirectory();

// The full path of a helper program (or any file) built into this test program's folder.
std::wstring ProgramBesideThisOne(const wchar_t* fileName);

}  // namespace TestSupport
