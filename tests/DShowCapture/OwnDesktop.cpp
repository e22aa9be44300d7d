// OwnDesktop.exe PROGRAM [ARGUMENTS...]: runs PROGRAM on the desktop "PropertyDialogTests" of its
// own and exits with its exit code. The test programs that open windows run through it (see
// tests/DShowCapture/CMakeLists.txt).
//
// Why: under Wine a desktop takes the display of the process that opened it first, for as long
// as any process uses it. A program that has a display but meets the shared default desktop held
// by a program without one (still running, or just ended) gets no windows. A desktop of its own
// has no such neighbour.
//
// This program must not load user32: under Wine a process inherits the desktop of the process
// that started it as soon as that one has touched user32, and then only the main thread of the
// started program goes to the desktop named in STARTUPINFO, every later thread (a dialog thread)
// to the inherited one. Started by Wine's loader, this program has no desktop to hand on.

#include <windows.h>

#include <cstdio>

namespace {

// The command line after this program's own name, which may be quoted.
const wchar_t* ArgumentsAfterProgramName(const wchar_t* commandLine) {
    const wchar_t* position = commandLine;
    if (*position == L'"') {
        ++position;
        while (*position != L'\0' && *position != L'"') ++position;
        if (*position == L'"') ++position;
    } else {
        while (*position != L'\0' && *position != L' ' && *position != L'\t') ++position;
    }
    while (*position == L' ' || *position == L'\t') ++position;
    return position;
}

}  // namespace

int main() {
    wchar_t commandLine[32768] = {};
    wcsncpy(commandLine, ArgumentsAfterProgramName(GetCommandLineW()), 32767);
    if (commandLine[0] == L'\0') {
        fprintf(stderr, "usage: OwnDesktop PROGRAM [ARGUMENTS...]\n");
        return 2;
    }
    wchar_t desktop[] = L"WinSta0\\PropertyDialogTests";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    startup.lpDesktop = desktop;
    PROCESS_INFORMATION process = {};
    // The program keeps this process's standard handles, so its output reaches the caller.
    if (!CreateProcessW(nullptr, commandLine, nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                        &process)) {
        fprintf(stderr, "OwnDesktop: cannot start %ls: error %lu\n", commandLine, GetLastError());
        return 1;
    }
    CloseHandle(process.hThread);
    WaitForSingleObject(process.hProcess, INFINITE);
    DWORD exitCode = 1;
    GetExitCodeProcess(process.hProcess, &exitCode);
    CloseHandle(process.hProcess);
    return static_cast<int>(exitCode);
}
