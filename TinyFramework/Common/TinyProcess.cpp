#include "TinyFramework/Common/TinyProcess.h"

#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/Common/TinyLogging_win32.h"

namespace TinyFramework {

namespace {

// The size SetInformationJobObject expects for its extended limits on 64-bit Windows.
static_assert(sizeof(JOBOBJECT_EXTENDED_LIMIT_INFORMATION) == 144,
              "extended job limits must have the 64-bit layout");

typedef BOOL(WINAPI* IsWow64ProcessFunction)(HANDLE, PBOOL);
typedef LONG(APIENTRY* SetSchedulingPriorityClassFunction)(HANDLE, INT);

// Switches critical-error dialogs off for the calling thread for its scope, and puts the
// thread's previous mode back at the end.
class ScopedSilentErrors {
public:
    ScopedSilentErrors() : m_previous(0) {
        SetThreadErrorMode(SEM_FAILCRITICALERRORS, &m_previous);
    }
    ~ScopedSilentErrors() { SetThreadErrorMode(m_previous, nullptr); }
    ScopedSilentErrors(const ScopedSilentErrors&) = delete;
    ScopedSilentErrors& operator=(const ScopedSilentErrors&) = delete;

private:
    DWORD m_previous;
};

HMODULE LoadWithoutDialogs(LPCWSTR fileName) {
    ScopedSilentErrors silent;
    return LoadLibraryW(fileName);
}

IsWow64ProcessFunction FindIsWow64Process() {
    static const IsWow64ProcessFunction function = reinterpret_cast<IsWow64ProcessFunction>(
        reinterpret_cast<void*>(::GetProcAddress(GetModuleHandleW(L"kernel32"), "IsWow64Process")));
    return function;
}

}  // namespace

// ---- TinyJob ---------------------------------------------------------------------------------

TinyJob::TinyJob() : m_handle(nullptr) {}

TinyJob::~TinyJob() {
    Close();
}

BOOL TinyJob::Create(LPSECURITY_ATTRIBUTES security, LPCWSTR name) {
    m_handle = CreateJobObjectW(security, name);
    return m_handle != nullptr;
}

BOOL TinyJob::AssignProcess(HANDLE process) {
    if (m_handle == nullptr) {
        return FALSE;
    }
    if (!AssignProcessToJobObject(m_handle, process)) {
        TINY_LOG_ERROR() << "Failed to AssignProcessToJobObject";
        return FALSE;
    }
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    if (!SetInformationJobObject(m_handle, JobObjectExtendedLimitInformation, &limits,
                                 sizeof(limits))) {
        TINY_LOG_ERROR() << "Failed to SetInformationJobObject";
        return FALSE;
    }
    return TRUE;
}

void TinyJob::Close() {
    if (m_handle != nullptr) {
        // Kept on purpose: DeleteObject refuses a job handle, so the job stays open until the
        // process ends. The processes put into the job therefore live exactly as long as this
        // process, whatever the owner does with the object, and die with it through
        // kill-on-close, which is what the owners of a job rely on.
        DeleteObject(static_cast<HGDIOBJ>(m_handle));
        m_handle = nullptr;
    }
}

// ---- TinyLibrary -----------------------------------------------------------------------------

TinyLibrary::TinyLibrary() : m_owned(1), m_module(nullptr) {}

TinyLibrary::TinyLibrary(LPCWSTR fileName) : m_owned(1), m_module(nullptr) {
    LoadSilently(fileName);
}

TinyLibrary::~TinyLibrary() {
    Free();
}

BOOL TinyLibrary::Load(LPCWSTR fileName) {
    return LoadModule(fileName, true);
}

BOOL TinyLibrary::LoadSilently(LPCWSTR fileName) {
    return LoadModule(fileName, false);
}

BOOL TinyLibrary::LoadModule(LPCWSTR fileName, bool logFailure) {
    // Ownership is taken before the held module goes, so a module that was attached is freed
    // here too: a load replaces whatever the object held.
    m_owned = 1;
    Free();
    m_module = LoadWithoutDialogs(fileName);
    if (m_module == nullptr && logFailure) {
        const DWORD error = GetLastError();
        TINY_LOG_ERROR() << StringPrintf("Failed to LoadLibrary(%d,%s)", static_cast<int>(error),
                                         GetErrorText(error));
        SetLastError(error);
    }
    return m_module != nullptr;
}

void TinyLibrary::Free() {
    if (m_module != nullptr && m_owned != 0) {
        FreeLibrary(m_module);
    }
    m_module = nullptr;
}

BOOL TinyLibrary::Attach(HMODULE module) {
    m_module = module;
    if (module == nullptr) {
        return FALSE;
    }
    m_owned = 0;
    return TRUE;
}

HMODULE TinyLibrary::Detach() {
    HMODULE module = m_module;
    m_module = nullptr;
    return module;
}

BOOL TinyLibrary::Reset(HMODULE module) {
    // As with a load, ownership comes first: an attached module that is replaced is freed.
    m_owned = 1;
    if (module != m_module && m_module != nullptr) {
        FreeLibrary(m_module);
    }
    m_module = module;
    return m_module != nullptr;
}

FARPROC TinyLibrary::GetProcAddress(LPCSTR name) const {
    if (m_module == nullptr) {
        return nullptr;
    }
    return ::GetProcAddress(m_module, name);
}

// ---- TinyDllDirectory ------------------------------------------------------------------------

TinyLock g_dllDirectoryLock;

TinyDllDirectory::TinyDllDirectory(LPCWSTR path) {
    g_dllDirectoryLock.Lock();
    SetDllDirectoryW(path);
}

TinyDllDirectory::~TinyDllDirectory() {
    SetDllDirectoryW(nullptr);
    g_dllDirectoryLock.Unlock();
}

// ---- Process services ------------------------------------------------------------------------

BOOL IsNotWow64(HANDLE process) {
    // Assume the worst until the system says otherwise: without an answer, false.
    BOOL wow64 = TRUE;
    const IsWow64ProcessFunction isWow64Process = FindIsWow64Process();
    if (isWow64Process == nullptr || !isWow64Process(process, &wow64)) {
        return FALSE;
    }
    return !wow64;
}

BOOL SetGpuPriorityClass(HANDLE process, INT priorityClass) {
    return SetGpuPriorityClassIn(GetModuleHandleW(L"GDI32"), process, priorityClass);
}

BOOL SetGpuPriorityClassIn(HMODULE gdi, HANDLE process, INT priorityClass) {
    if (gdi == nullptr) {
        return FALSE;
    }
    const SetSchedulingPriorityClassFunction setPriorityClass =
        reinterpret_cast<SetSchedulingPriorityClassFunction>(reinterpret_cast<void*>(
            ::GetProcAddress(gdi, "D3DKMTSetProcessSchedulingPriorityClass")));
    if (setPriorityClass == nullptr) {
        return FALSE;
    }
    const LONG status = setPriorityClass(process, priorityClass);
    if (status != 0) {
        TINY_LOG_ERROR() << StringPrintf("Failed to D3DKMTSetProcessSchedulingPriorityClass(0x%X)",
                                         static_cast<unsigned>(status));
        return FALSE;
    }
    return TRUE;
}

}  // namespace TinyFramework
