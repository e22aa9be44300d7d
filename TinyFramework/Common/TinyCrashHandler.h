#pragma once

#include <windows.h>
#include <dbghelp.h>

#include <cstddef>
#include <string>

namespace TinyFramework {

// The last line of defence of a process: an unhandled-exception filter that logs a report with
// the backtrace and writes a minidump, and a handler for failed allocations. Neither is active
// until the program installs it at start; nothing uninstalls them.
//
// The filter runs on whichever thread crashed and takes no lock of its own: logging and symbol
// look-ups guard their own state. The process-wide values below are meant to be set at start,
// before threads.

// Where the dump goes; empty means no dump.
extern std::wstring g_dumpFilePath;
// The program's hook, called after the dump; null for none.
extern void (*g_crashCallback)();
// The filter that was installed before this one, chained to at the end.
extern LPTOP_LEVEL_EXCEPTION_FILTER g_previousFilter;

// Stores the callback, installs CrashFilter as the unhandled-exception filter and keeps the one
// it replaces. The first argument is not used. Returns 1.
BOOL InstallCrashFilter(void* reserved, void (*callback)());

// The filter: memory and disk reports, "Fatal exception <name>" with the backtrace logged at
// ERROR, the dump, the hook, then the previous filter, whose result it returns (0 without one).
LONG WINAPI CrashFilter(EXCEPTION_POINTERS* pointers);

// The name that the report gives an exception code: "EXCEPTION_ACCESS_VIOLATION" and the like
// for the common ones, "0x" and the code in lower-case hexadecimal for the rest.
std::string ExceptionCodeName(DWORD code);

// Sets the dump path; an empty one means GetDefaultDumpPath(). `path` must not be null.
BOOL SetDumpFile(const wchar_t* path);
// Stores a non-empty path as it is, else the default one. Returns 1.
BOOL InitDumpFile(const wchar_t* path);
// "<program directory>\\debug.dmp".
std::wstring GetDefaultDumpPath();
// "<program directory>\\\\Dump": the program's directory with its separator, then "\\Dump". The
// directory is not created.
std::wstring GetDumpDirectory();
// The same for a given program path, e.g. "C:\\x\\a.exe" gives "C:\\x\\\\Dump".
std::wstring DumpDirectoryFor(const std::wstring& programPath);

// Writes a minidump of this process into an open file, with the exception when `pointers` is
// not null. Needs dbghelp loaded (LoadDbgHelp). Logs and returns FALSE on failure.
BOOL WriteDump(EXCEPTION_POINTERS* pointers, HANDLE file);
// Keeps modules that the dump's memory does not refer to out of the dump.
BOOL CALLBACK DumpCallback(PVOID param, const PMINIDUMP_CALLBACK_INPUT input,
                           PMINIDUMP_CALLBACK_OUTPUT output);

// The C runtime's hook for failed allocations (_set_new_handler) and the mode that sends malloc
// failures to it too (_set_new_mode). Each returns what was set before; -1 or null when the
// runtime offers no such entry point.
typedef int(__cdecl* NoMemoryHandler)(size_t);
NoMemoryHandler SetRuntimeNewHandler(NoMemoryHandler handler);
int SetRuntimeNewMode(int mode);

// Sends failed allocations, of operator new and of malloc, to OnNoMemory. Returns 1.
BOOL InstallNoMemoryHandler();
// Logs the size of the failed request and raises 0xE0000008, which the crash filter reports.
// Never returns to the allocator.
int __cdecl OnNoMemory(size_t size);

}  // namespace TinyFramework
