#pragma once

#include <windows.h>

#include <string>

namespace TestSupport {

// One run of a tool (beside the test program) with its standard output and error.
struct ToolRun {
    DWORD exitCode = 0;
    std::string out;
    std::string err;
};

// Runs the tool with `arguments` (one command-line text) in this process's environment, its
// output and error kept in files, and waits for it to end. The tool's queries get the tests'
// generous deadline unless `arguments` set their own.
ToolRun RunTool(const std::wstring& arguments);

// Runs the program `exeName` from the folder of QueryServer.exe with `arguments` as they are,
// its output and error kept in files, and waits for it to end.
ToolRun RunProgram(const wchar_t* exeName, const std::wstring& arguments);

// A folder name of this test process's own under the temporary folder, not yet created.
std::wstring TempFolder(const wchar_t* purpose);

}  // namespace TestSupport
