#pragma once

#include "TinyFramework/Common/TinyLock.h"

#include <windows.h>

#include <cstdint>

namespace TinyFramework {

// A job object whose processes die with the job's last handle. Not copyable.
// Close hands the handle to GDI's DeleteObject, which refuses a kernel handle: the job stays open
// until the process ends, and only then does kill-on-close end the processes in it.
class TinyJob {
public:
    TinyJob();
    ~TinyJob();
    TinyJob(const TinyJob&) = delete;
    TinyJob& operator=(const TinyJob&) = delete;

    HANDLE Handle() const { return m_handle; }
    bool IsEmpty() const { return m_handle == nullptr; }

    // CreateJobObjectW; true when a handle came back. A handle held before is not closed.
    BOOL Create(LPSECURITY_ATTRIBUTES security, LPCWSTR name);
    // Puts the process into the job, then makes the job kill its processes when it closes.
    // Each failure is logged; false on an empty object.
    BOOL AssignProcess(HANDLE process);
    // Forgets the handle without closing it (see above).
    void Close();

private:
    HANDLE m_handle;
};

// Owns a loaded module, or holds one it does not free (Attach). Not copyable.
// Every load runs with critical-error dialogs switched off for the calling thread, so a missing
// or broken library never shows a message box.
class TinyLibrary {
public:
    TinyLibrary();
    // Loads as LoadSilently does.
    explicit TinyLibrary(LPCWSTR fileName);
    ~TinyLibrary();
    TinyLibrary(const TinyLibrary&) = delete;
    TinyLibrary& operator=(const TinyLibrary&) = delete;

    HMODULE Handle() const { return m_module; }
    bool IsEmpty() const { return m_module == nullptr; }

    // Frees what is held and loads the file; a failure is logged with the error and its text.
    BOOL Load(LPCWSTR fileName);
    // The same without a log record.
    BOOL LoadSilently(LPCWSTR fileName);
    // FreeLibrary if the module is owned; the object is empty afterwards either way.
    void Free();
    // Holds a module that somebody else owns: it is not freed by Free or the destructor.
    BOOL Attach(HMODULE module);
    // Hands the module over to the caller and empties the object.
    HMODULE Detach();
    // Owns `module` from now on, freeing the one held if it is another.
    BOOL Reset(HMODULE module);
    FARPROC GetProcAddress(LPCSTR name) const;

private:
    BOOL LoadModule(LPCWSTR fileName, bool logFailure);

    int32_t m_owned;
    HMODULE m_module;
};

// The DLL search directory is one setting for the whole process: this lock keeps two scopes
// from overlapping.
extern TinyLock g_dllDirectoryLock;

// Sets the process's DLL search directory for its scope and clears it at the end, holding
// g_dllDirectoryLock for the whole scope. Runs on any thread; a second thread waits.
class TinyDllDirectory {
public:
    explicit TinyDllDirectory(LPCWSTR path);
    ~TinyDllDirectory();
    TinyDllDirectory(const TinyDllDirectory&) = delete;
    TinyDllDirectory& operator=(const TinyDllDirectory&) = delete;
};

// True when `process` is not a 32-bit process on a 64-bit system. False when the system cannot
// say (no IsWow64Process, or the call fails).
BOOL IsNotWow64(HANDLE process);

// D3DKMTSetProcessSchedulingPriorityClass of GDI32, when GDI32 is loaded and has it. A failing
// status is logged.
BOOL SetGpuPriorityClass(HANDLE process, INT priorityClass);
// The same with the entry point looked up in `gdi` (null: not loaded). SetGpuPriorityClass
// passes the loaded GDI32; tests pass a module of their own where the platform has no entry point.
BOOL SetGpuPriorityClassIn(HMODULE gdi, HANDLE process, INT priorityClass);

}  // namespace TinyFramework
