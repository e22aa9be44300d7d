#include "TinyFramework/Common/TinyCrashHandler.h"

#include "TinyFramework/Common/TinyBacktrace.h"
#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/Common/TinyLogging_win32.h"
#include "TinyFramework/IO/TinyFile.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace TinyFramework {

std::wstring g_dumpFilePath;
void (*g_crashCallback)() = nullptr;
LPTOP_LEVEL_EXCEPTION_FILTER g_previousFilter = nullptr;

namespace {

// MiniDumpScanMemory | MiniDumpWithIndirectlyReferencedMemory | MiniDumpWithFullMemoryInfo:
// small enough to send, with what the crashing stack points at and the map of memory.
constexpr MINIDUMP_TYPE kDumpType = static_cast<MINIDUMP_TYPE>(0x850);
constexpr DWORD kOutOfMemoryCode = 0xE0000008;

struct ExceptionName {
    DWORD code;
    const char* name;
};

const ExceptionName kExceptionNames[] = {
    {0xC0000005, "EXCEPTION_ACCESS_VIOLATION"},
    {0x80000002, "EXCEPTION_DATATYPE_MISALIGNMENT"},
    {0x80000003, "EXCEPTION_BREAKPOINT"},
    {0x80000004, "EXCEPTION_SINGLE_STEP"},
    {0xC0000006, "EXCEPTION_IN_PAGE_ERROR"},
    {0xC000001D, "EXCEPTION_ILLEGAL_INSTRUCTION"},
    {0xC0000025, "EXCEPTION_NONCONTINUABLE_EXCEPTION"},
    {0xC0000026, "EXCEPTION_INVALID_DISPOSITION"},
    {0xC000008C, "EXCEPTION_ARRAY_BOUNDS_EXCEEDED"},
    {0xC000008D, "EXCEPTION_FLT_DENORMAL_OPERAND"},
    {0xC000008E, "EXCEPTION_FLT_DIVIDE_BY_ZERO"},
    {0xC000008F, "EXCEPTION_FLT_INEXACT_RESULT"},
    {0xC0000090, "EXCEPTION_FLT_INVALID_OPERATION"},
    {0xC0000091, "EXCEPTION_FLT_OVERFLOW"},
    {0xC0000092, "EXCEPTION_FLT_STACK_CHECK"},
    {0xC0000093, "EXCEPTION_FLT_UNDERFLOW"},
    {0xC0000094, "EXCEPTION_INT_DIVIDE_BY_ZERO"},
    {0xC0000095, "EXCEPTION_INT_OVERFLOW"},
    {0xC0000096, "EXCEPTION_PRIV_INSTRUCTION"},
    {0xC00000FD, "EXCEPTION_STACK_OVERFLOW"},
};

// The table's name of a code, or null for a code the table lacks.
const char* TableName(DWORD code) {
    for (const ExceptionName& entry : kExceptionNames) {
        if (entry.code == code) {
            return entry.name;
        }
    }
    return nullptr;
}

// Writes the name straight into the report: the crash path makes no string of its own.
void PrintExceptionName(std::ostream& out, DWORD code) {
    const char* name = TableName(code);
    if (name != nullptr) {
        out << name;
    } else {
        out << "0x" << std::hex << code << std::dec;
    }
}

// "Fatal exception <name>\n" and the backtrace of the exception, logged as one ERROR record.
void LogCrashReport(EXCEPTION_POINTERS* pointers) {
    // Open for reading as well, so that its buffer can be read into the record.
    std::stringstream report;
    report << "Fatal exception ";
    PrintExceptionName(report, pointers->ExceptionRecord->ExceptionCode);
    report << "\n";
    const StackTrace trace(pointers);
    PrintBacktrace(trace, report);
    // The report's buffer goes into the record as it is, without another copy of the text.
    LogMessage(LOG_ERROR).stream() << report.rdbuf();
}

// dbghelp is not loaded here: the backtrace before has done so where it can be. A handle that
// did not open (no dump path, or a second thread crashing at the same time, refused by the
// sharing mode) writes no dump.
void WriteDumpIfOpen(EXCEPTION_POINTERS* pointers, HANDLE handle) {
    if (handle != nullptr && handle != INVALID_HANDLE_VALUE &&
        GetDbgHelpTable().m_miniDumpWriteDump != nullptr) {
        WriteDump(pointers, handle);
    }
}

// The C runtime's new-handler hook. MinGW's <new.h> declares _set_new_handler and _set_new_mode
// as C++ functions, under names that msvcrt.dll exports only in the other compiler's mangling,
// so the entry points are found by name in the runtime that serves malloc.
struct RuntimeNewHandlerApi {
    NoMemoryHandler (*setNewHandler)(NoMemoryHandler) = nullptr;
    int (*setNewMode)(int) = nullptr;
};

template <typename Function>
void FindRuntimeEntry(HMODULE runtime, const char* name, Function* target) {
    if (runtime != nullptr && *target == nullptr) {
        *target =
            reinterpret_cast<Function>(reinterpret_cast<void*>(::GetProcAddress(runtime, name)));
    }
}

const RuntimeNewHandlerApi& GetRuntimeNewHandlerApi() {
    static const RuntimeNewHandlerApi api = [] {
        RuntimeNewHandlerApi found;
        const HMODULE msvcrt = GetModuleHandleW(L"msvcrt.dll");
        FindRuntimeEntry(msvcrt, "?_set_new_handler@@YAP6AH_K@ZP6AH0@Z@Z", &found.setNewHandler);
        FindRuntimeEntry(msvcrt, "?_set_new_mode@@YAHH@Z", &found.setNewMode);
        const HMODULE ucrt = GetModuleHandleW(L"ucrtbase.dll");
        FindRuntimeEntry(ucrt, "_set_new_handler", &found.setNewHandler);
        FindRuntimeEntry(ucrt, "_set_new_mode", &found.setNewMode);
        return found;
    }();
    return api;
}

}  // namespace

NoMemoryHandler SetRuntimeNewHandler(NoMemoryHandler handler) {
    const RuntimeNewHandlerApi& api = GetRuntimeNewHandlerApi();
    return api.setNewHandler != nullptr ? api.setNewHandler(handler) : nullptr;
}

int SetRuntimeNewMode(int mode) {
    const RuntimeNewHandlerApi& api = GetRuntimeNewHandlerApi();
    return api.setNewMode != nullptr ? api.setNewMode(mode) : -1;
}

std::string ExceptionCodeName(DWORD code) {
    std::ostringstream name;
    PrintExceptionName(name, code);
    return name.str();
}

BOOL InstallCrashFilter(void* /*reserved*/, void (*callback)()) {
    g_crashCallback = callback;
    g_previousFilter = SetUnhandledExceptionFilter(&CrashFilter);
    return TRUE;
}

LONG WINAPI CrashFilter(EXCEPTION_POINTERS* pointers) {
    LogMemoryReport();
    LogDiskReport();
    LogCrashReport(pointers);
    // The dump file stays open through the hook and the previous filter, and closes when the
    // filter returns. An empty path fails to open, which only means no dump was asked for.
    IO::TinyFile dumpFile(CreateFileW(g_dumpFilePath.c_str(), GENERIC_WRITE, 0, nullptr,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    WriteDumpIfOpen(pointers, dumpFile.Handle());
    if (g_crashCallback != nullptr) {
        g_crashCallback();
    }
    if (g_previousFilter != nullptr) {
        return g_previousFilter(pointers);
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

BOOL SetDumpFile(const wchar_t* path) {
    // The length is taken before anything else: a null path is the caller's error.
    g_dumpFilePath.assign(path, wcslen(path));
    return InitDumpFile(path);
}

BOOL InitDumpFile(const wchar_t* path) {
    if (path != nullptr && path[0] != L'\0') {
        g_dumpFilePath = path;
    } else {
        g_dumpFilePath = GetDefaultDumpPath();
    }
    return TRUE;
}

std::wstring GetDefaultDumpPath() {
    return GetProgramDirectory() + L"debug.dmp";
}

std::wstring DumpDirectoryFor(const std::wstring& programPath) {
    // The directory keeps its separator and "\Dump" brings another: tools that collect dumps
    // look for this very path, so the doubled separator stays.
    return DirectoryWithSeparator(programPath) + L"\\Dump";
}

std::wstring GetDumpDirectory() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    return DumpDirectoryFor(path);
}

BOOL WriteDump(EXCEPTION_POINTERS* pointers, HANDLE file) {
    const DbgHelpTable& table = GetDbgHelpTable();
    if (table.m_miniDumpWriteDump == nullptr) {
        return FALSE;
    }
    MINIDUMP_EXCEPTION_INFORMATION exception = {};
    exception.ThreadId = GetCurrentThreadId();
    exception.ExceptionPointers = pointers;
    exception.ClientPointers = FALSE;
    MINIDUMP_CALLBACK_INFORMATION callback = {};
    callback.CallbackRoutine = &DumpCallback;
    callback.CallbackParam = nullptr;
    if (!table.m_miniDumpWriteDump(GetCurrentProcess(), GetCurrentProcessId(), file, kDumpType,
                                   pointers != nullptr ? &exception : nullptr, nullptr,
                                   &callback)) {
        LogMessage(LOG_INFO).stream()
            << StringPrintf("Failed to MiniDumpWriteDump(%d)", static_cast<int>(GetLastError()));
        return FALSE;
    }
    return TRUE;
}

BOOL CALLBACK DumpCallback(PVOID /*param*/, const PMINIDUMP_CALLBACK_INPUT input,
                           PMINIDUMP_CALLBACK_OUTPUT output) {
    if (input == nullptr || output == nullptr) {
        return FALSE;
    }
    switch (input->CallbackType) {
        case ModuleCallback:
            if ((output->ModuleWriteFlags & ModuleReferencedByMemory) == 0) {
                output->ModuleWriteFlags &= ~static_cast<ULONG>(ModuleWriteModule);
            }
            return TRUE;
        case ThreadCallback:
        case ThreadExCallback:
        case IncludeThreadCallback:
        case IncludeModuleCallback:
            return TRUE;
        default:
            return FALSE;
    }
}

BOOL InstallNoMemoryHandler() {
    SetRuntimeNewHandler(&OnNoMemory);
    // malloc failures go to the handler too, not only those of operator new.
    SetRuntimeNewMode(1);
    return TRUE;
}

int __cdecl OnNoMemory(size_t size) {
    TINY_LOG_ERROR() << StringPrintf("OnNoMemory(%d)", static_cast<int>(size));
    const ULONG_PTR argument = size;
    RaiseException(kOutOfMemoryCode, EXCEPTION_NONCONTINUABLE, 1, &argument);
    _exit(static_cast<int>(kOutOfMemoryCode));
}

}  // namespace TinyFramework
