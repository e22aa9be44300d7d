// TinyDbgHelpStandIn.dll and TinyDbgHelpPartial.dll: libraries that the backtrace tests load in
// the place of dbghelp, for what the platform's dbghelp cannot show: it always has every entry
// point, its symbol handler does not fail to start, and it does not say how often it was asked.
// - TinyDbgHelpStandIn.dll offers every entry point the framework fetches. Most are forwarded
//   to dbghelp; SymInitialize, SymGetSearchPathW and SymSetSearchPathW can be told to fail with
//   an error, and SymFromAddr counts its calls.
// - TinyDbgHelpPartial.dll forwards all of them but "ImageDirectoryEntryToData" (its .def file
//   only; it builds from this source too, and its own exports go unused).
#include <windows.h>
#include <dbghelp.h>

#include <cstring>

namespace {

DWORD g_symInitializeError = 0;
DWORD g_symGetSearchPathError = 0;
DWORD g_symSetSearchPathError = 0;
LONG g_symFromAddrCalls = 0;

FARPROC RealEntry(const char* name) {
    static const HMODULE library = LoadLibraryW(L"dbghelp.dll");
    return library != nullptr ? GetProcAddress(library, name) : nullptr;
}

template <typename Function>
Function Real(const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(RealEntry(name)));
}

BOOL Fail(DWORD error) {
    SetLastError(error);
    return FALSE;
}

}  // namespace

extern "C" {

// Which step fails from now on, and with which error; 0 lets it through to dbghelp.
void WINAPI StandInFailStep(const char* name, DWORD error) {
    if (strcmp(name, "SymInitialize") == 0) {
        g_symInitializeError = error;
    } else if (strcmp(name, "SymGetSearchPathW") == 0) {
        g_symGetSearchPathError = error;
    } else if (strcmp(name, "SymSetSearchPathW") == 0) {
        g_symSetSearchPathError = error;
    }
}

LONG WINAPI StandInSymFromAddrCalls() {
    return g_symFromAddrCalls;
}

void WINAPI StandInReset() {
    g_symInitializeError = 0;
    g_symGetSearchPathError = 0;
    g_symSetSearchPathError = 0;
    g_symFromAddrCalls = 0;
}

BOOL WINAPI StandInSymInitialize(HANDLE process, PCSTR searchPath, BOOL invade) {
    if (g_symInitializeError != 0) {
        return Fail(g_symInitializeError);
    }
    typedef BOOL(WINAPI * Function)(HANDLE, PCSTR, BOOL);
    return Real<Function>("SymInitialize")(process, searchPath, invade);
}

BOOL WINAPI StandInSymGetSearchPathW(HANDLE process, PWSTR path, DWORD length) {
    if (g_symGetSearchPathError != 0) {
        return Fail(g_symGetSearchPathError);
    }
    typedef BOOL(WINAPI * Function)(HANDLE, PWSTR, DWORD);
    return Real<Function>("SymGetSearchPathW")(process, path, length);
}

BOOL WINAPI StandInSymSetSearchPathW(HANDLE process, PCWSTR path) {
    if (g_symSetSearchPathError != 0) {
        return Fail(g_symSetSearchPathError);
    }
    typedef BOOL(WINAPI * Function)(HANDLE, PCWSTR);
    return Real<Function>("SymSetSearchPathW")(process, path);
}

BOOL WINAPI StandInSymFromAddr(HANDLE process, DWORD64 address, PDWORD64 displacement,
                               PSYMBOL_INFO symbol) {
    InterlockedIncrement(&g_symFromAddrCalls);
    typedef BOOL(WINAPI * Function)(HANDLE, DWORD64, PDWORD64, PSYMBOL_INFO);
    return Real<Function>("SymFromAddr")(process, address, displacement, symbol);
}

}  // extern "C"
