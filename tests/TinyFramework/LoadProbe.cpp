// TinyLoadProbe.dll: a library the loader tests load and unload at will.
// - It keeps the thread's error mode as it was while the loader attached it, so a test can see
//   the mode a load ran under.
// - It exports the GDI32 entry point that sets a process's GPU scheduling class, for the paths
//   of SetGpuPriorityClass that Wine's GDI32 cannot show: Wine has no such entry point.
#include <windows.h>

namespace {

DWORD g_errorModeAtLoad = 0xFFFFFFFF;
LONG g_priorityStatus = 0;
HANDLE g_priorityProcess = nullptr;
INT g_priorityClass = -1;

}  // namespace

extern "C" {

__declspec(dllexport) DWORD LoadProbeErrorModeAtLoad() {
    return g_errorModeAtLoad;
}

// The status the stand-in entry point answers from now on.
__declspec(dllexport) void LoadProbeSetPriorityStatus(LONG status) {
    g_priorityStatus = status;
}

__declspec(dllexport) INT LoadProbeLastPriorityClass() {
    return g_priorityClass;
}

__declspec(dllexport) HANDLE LoadProbeLastPriorityProcess() {
    return g_priorityProcess;
}

__declspec(dllexport) LONG APIENTRY
    D3DKMTSetProcessSchedulingPriorityClass(HANDLE process, INT priorityClass) {
    g_priorityProcess = process;
    g_priorityClass = priorityClass;
    return g_priorityStatus;
}

BOOL WINAPI DllMain(HINSTANCE /*instance*/, DWORD reason, LPVOID /*reserved*/) {
    if (reason == DLL_PROCESS_ATTACH) {
        g_errorModeAtLoad = GetThreadErrorMode();
    }
    return TRUE;
}

}  // extern "C"
