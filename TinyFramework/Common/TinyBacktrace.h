#pragma once

#include "TinyFramework/Common/TinyLock.h"
#include "TinyFramework/Common/TinyProcess.h"

#include <windows.h>
#include <dbghelp.h>

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

namespace TinyFramework {

// The entry points of dbghelp, fetched by name at run time so that no program of this tree
// depends on the library at link time. One table for the process: it lives from the first
// LoadDbgHelp until exit, when the static destructor frees the library.
//
// The 32-bit forms (StackWalk, SymGetLineFromAddr, SymGetModuleBase, SymFunctionTableAccess)
// are never called by a 64-bit program, but they are fetched like the rest: the table is
// complete only when the library offers all of them.
struct DbgHelpTable {
    typedef BOOL(WINAPI* StackWalk64Function)(DWORD machine, HANDLE process, HANDLE thread,
                                              LPSTACKFRAME64 frame, PVOID context,
                                              PREAD_PROCESS_MEMORY_ROUTINE64 readMemory,
                                              PFUNCTION_TABLE_ACCESS_ROUTINE64 tableAccess,
                                              PGET_MODULE_BASE_ROUTINE64 moduleBase,
                                              PTRANSLATE_ADDRESS_ROUTINE64 translate);
    typedef BOOL(WINAPI* SymFromAddrFunction)(HANDLE process, DWORD64 address,
                                              PDWORD64 displacement, PSYMBOL_INFO symbol);
    typedef BOOL(WINAPI* SymGetLineFromAddr64Function)(HANDLE process, DWORD64 address,
                                                       PDWORD displacement, PIMAGEHLP_LINE64 line);
    typedef DWORD(WINAPI* SymSetOptionsFunction)(DWORD options);
    typedef BOOL(WINAPI* SymInitializeFunction)(HANDLE process, PCSTR searchPath,
                                                BOOL invadeProcess);
    typedef BOOL(WINAPI* SymCleanupFunction)(HANDLE process);
    typedef BOOL(WINAPI* SymGetSearchPathWFunction)(HANDLE process, PWSTR searchPath, DWORD length);
    typedef BOOL(WINAPI* SymSetSearchPathWFunction)(HANDLE process, PCWSTR searchPath);
    typedef PVOID(WINAPI* SymFunctionTableAccess64Function)(HANDLE process, DWORD64 base);
    typedef DWORD64(WINAPI* SymGetModuleBase64Function)(HANDLE process, DWORD64 address);
    typedef BOOL(WINAPI* MiniDumpWriteDumpFunction)(HANDLE process, DWORD processId, HANDLE file,
                                                    MINIDUMP_TYPE type,
                                                    PMINIDUMP_EXCEPTION_INFORMATION exception,
                                                    PMINIDUMP_USER_STREAM_INFORMATION userStreams,
                                                    PMINIDUMP_CALLBACK_INFORMATION callback);
    typedef PVOID(WINAPI* ImageDirectoryEntryToDataFunction)(PVOID base, BOOLEAN mappedAsImage,
                                                             USHORT directory, PULONG size);

    // The library that LoadDbgHelp loads: "dbghelp.dll" unless a stand-in was named.
    std::wstring m_libraryName = L"dbghelp.dll";
    TinyLibrary m_library;
    BOOL m_loaded = FALSE;
    FARPROC m_stackWalk = nullptr;
    StackWalk64Function m_stackWalk64 = nullptr;
    SymFromAddrFunction m_symFromAddr = nullptr;
    FARPROC m_symGetLineFromAddr = nullptr;
    SymGetLineFromAddr64Function m_symGetLineFromAddr64 = nullptr;
    SymSetOptionsFunction m_symSetOptions = nullptr;
    SymInitializeFunction m_symInitialize = nullptr;
    SymCleanupFunction m_symCleanup = nullptr;
    SymGetSearchPathWFunction m_symGetSearchPathW = nullptr;
    SymSetSearchPathWFunction m_symSetSearchPathW = nullptr;
    FARPROC m_symGetModuleBase = nullptr;
    FARPROC m_symFunctionTableAccess = nullptr;
    SymGetModuleBase64Function m_symGetModuleBase64 = nullptr;
    SymFunctionTableAccess64Function m_symFunctionTableAccess64 = nullptr;
    MiniDumpWriteDumpFunction m_miniDumpWriteDump = nullptr;
    ImageDirectoryEntryToDataFunction m_imageDirectoryEntryToData = nullptr;
};

// The process's table, loaded or not.
DbgHelpTable& GetDbgHelpTable();

// Loads "dbghelp.dll" into the table and fetches every entry point; true when all are there.
// A table that is complete stays so; an incomplete one is tried again from the start.
BOOL LoadDbgHelp();
// Names the library that LoadDbgHelp loads from now on and loads it; a new name starts the
// table afresh. Programs use LoadDbgHelp(); this exists so that a stand-in library can fill the
// table.
BOOL LoadDbgHelp(LPCWSTR libraryName);

// Serialises every symbol look-up: dbghelp is single-threaded. Made on first use, by a
// thread-safe function-local static.
class SymbolContext {
public:
    static SymbolContext& GetInstance();

    SymbolContext(const SymbolContext&) = delete;
    SymbolContext& operator=(const SymbolContext&) = delete;

    // Held for every look-up: dbghelp is single-threaded.
    TinyLock& GetLock() { return m_lock; }
    // The error of the last failed step of InitializeSymbols, 0 if none ever failed.
    int32_t GetInitError() const;

private:
    SymbolContext() = default;
    ~SymbolContext() = default;

    TinyLock m_lock;
};

// The platform's error of the last failed step of InitializeSymbols; 0 at start. A later
// successful InitializeSymbols leaves it as it is.
extern int32_t g_symbolInitError;

// Starts the symbol handler for the process, with the program's directory added to the search
// path. Call once before names are wanted; without it, traces print "(No symbol)". 1 on
// success, 0 (with a log record) otherwise. Takes no lock: meant for start-up.
BOOL InitializeSymbols();

// Up to 62 return addresses, the most the platform's capture call takes. No lock needed.
class StackTrace {
public:
    static constexpr size_t kMaxFrames = 62;

    // The calling stack.
    StackTrace();
    // The first min(count, 62) of the given addresses.
    StackTrace(const void* const* frames, size_t count);
    // Walks the stack from a saved machine state, which is not changed.
    explicit StackTrace(const CONTEXT* context);
    // Walks the stack from the machine state of an exception.
    explicit StackTrace(const EXCEPTION_POINTERS* pointers);

    const void* const* Addresses(size_t* count) const;
    size_t Count() const { return m_count; }

    // One line per address, with symbol and source line where they are known.
    void PrintBacktrace(std::ostream& stream) const;
    std::string ToString() const;

private:
    void WalkFrom(const CONTEXT* context);

    void* m_trace[kMaxFrames];
    size_t m_count;
};

void PrintBacktrace(const StackTrace& trace, std::ostream& stream);

// For the expression of a structured exception filter: logs the stack of the exception at
// ERROR and returns 1 (EXCEPTION_EXECUTE_HANDLER).
LONG LogExceptionTrace(EXCEPTION_POINTERS* pointers);

// Runs function(context) under a structured exception guard, which GCC cannot express: the
// guard's filter is `filter`, and when it answers EXCEPTION_EXECUTE_HANDLER the stack is unwound
// to the guard and the call returns FALSE. TRUE when the function returned by itself. A filter
// answering EXCEPTION_CONTINUE_SEARCH passes the exception on to the guards further out.
// Guards nest, on any thread.
BOOL CallWithExceptionFilter(void (*function)(void*), void* context,
                             LONG (*filter)(EXCEPTION_POINTERS*));
// The same with LogExceptionTrace as the filter: an exception is logged with its backtrace and
// the caller goes on.
BOOL CallWithExceptionTrace(void (*function)(void*), void* context);

}  // namespace TinyFramework
