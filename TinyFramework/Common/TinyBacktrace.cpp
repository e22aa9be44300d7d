#include "TinyFramework/Common/TinyBacktrace.h"

#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/Common/TinyLogging_win32.h"

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <sstream>
#include <vector>

namespace TinyFramework {

int32_t g_symbolInitError = 0;

namespace {

// SYMOPT_UNDNAME | SYMOPT_DEFERRED_LOADS | SYMOPT_LOAD_LINES | SYMOPT_FAIL_CRITICAL_ERRORS.
constexpr DWORD kSymbolOptions = 0x216;
constexpr DWORD kSearchPathCharacters = 1024;
constexpr size_t kSymbolBufferBytes = 600;
constexpr DWORD kSymbolInfoSize = 88;
constexpr DWORD kMaxSymbolName = 255;
constexpr DWORD kLineInfoSize = 40;
// CONTEXT_AMD64 with its control, integer and floating-point parts: what the walk reads.
constexpr DWORD kWalkContextFlags = 0x10000B;

// Addresses print as a 64-bit number in sixteen upper-case hexadecimal digits, so that lines of
// one trace align and a printed offset reads the same on every run.
void WriteAddress(std::ostream& stream, uintptr_t address) {
    const std::ios_base::fmtflags flags = stream.flags();
    const char fill = stream.fill();
    stream << std::hex << std::uppercase << std::setfill('0') << std::setw(16) << address;
    stream.flags(flags);
    stream.fill(fill);
}

void ClearEntryPoints(DbgHelpTable& table) {
    table.m_stackWalk = nullptr;
    table.m_stackWalk64 = nullptr;
    table.m_symFromAddr = nullptr;
    table.m_symGetLineFromAddr = nullptr;
    table.m_symGetLineFromAddr64 = nullptr;
    table.m_symSetOptions = nullptr;
    table.m_symInitialize = nullptr;
    table.m_symCleanup = nullptr;
    table.m_symGetSearchPathW = nullptr;
    table.m_symSetSearchPathW = nullptr;
    table.m_symGetModuleBase = nullptr;
    table.m_symFunctionTableAccess = nullptr;
    table.m_symGetModuleBase64 = nullptr;
    table.m_symFunctionTableAccess64 = nullptr;
    table.m_miniDumpWriteDump = nullptr;
    table.m_imageDirectoryEntryToData = nullptr;
}

template <typename Function>
bool Fetch(const TinyLibrary& library, const char* name, Function* target) {
    const FARPROC address = library.GetProcAddress(name);
    *target = reinterpret_cast<Function>(reinterpret_cast<void*>(address));
    return address != nullptr;
}

bool FetchAll(DbgHelpTable& table) {
    const TinyLibrary& library = table.m_library;
    return Fetch(library, "StackWalk", &table.m_stackWalk) &&
           Fetch(library, "StackWalk64", &table.m_stackWalk64) &&
           Fetch(library, "SymFromAddr", &table.m_symFromAddr) &&
           Fetch(library, "SymGetLineFromAddr", &table.m_symGetLineFromAddr) &&
           Fetch(library, "SymGetLineFromAddr64", &table.m_symGetLineFromAddr64) &&
           Fetch(library, "SymSetOptions", &table.m_symSetOptions) &&
           Fetch(library, "SymInitialize", &table.m_symInitialize) &&
           Fetch(library, "SymCleanup", &table.m_symCleanup) &&
           Fetch(library, "SymGetSearchPathW", &table.m_symGetSearchPathW) &&
           Fetch(library, "SymSetSearchPathW", &table.m_symSetSearchPathW) &&
           Fetch(library, "SymGetModuleBase", &table.m_symGetModuleBase) &&
           Fetch(library, "SymFunctionTableAccess", &table.m_symFunctionTableAccess) &&
           Fetch(library, "SymGetModuleBase64", &table.m_symGetModuleBase64) &&
           Fetch(library, "SymFunctionTableAccess64", &table.m_symFunctionTableAccess64) &&
           Fetch(library, "MiniDumpWriteDump", &table.m_miniDumpWriteDump) &&
           Fetch(library, "ImageDirectoryEntryToData", &table.m_imageDirectoryEntryToData);
}

// The directory of the running program, without its trailing separator.
std::wstring ProgramDirectoryWithoutSeparator() {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    std::wstring directory(path);
    const size_t separator = directory.rfind(L'\\');
    if (separator != std::wstring::npos) {
        directory.erase(separator);
    }
    return directory;
}

BOOL FailSymbolStep(const char* call) {
    const DWORD error = GetLastError();
    g_symbolInitError = static_cast<int32_t>(error);
    TINY_LOG_ERROR() << StringPrintf("Failed to %s(%d,%s)", call, static_cast<int>(error),
                                     GetErrorText(error));
    return FALSE;
}

void PrintUnresolved(const StackTrace& trace, std::ostream& stream) {
    stream << "Error initializing symbols (" << g_symbolInitError
           << ").  Dumping unresolved backtrace:\n";
    size_t count = 0;
    const void* const* addresses = trace.Addresses(&count);
    for (size_t index = 0; index < count && stream.good(); ++index) {
        stream << "\t";
        WriteAddress(stream, reinterpret_cast<uintptr_t>(addresses[index]));
        stream << "\n";
    }
}

void PrintResolvedLine(const DbgHelpTable& table, const void* address, std::ostream& stream) {
    const HANDLE process = GetCurrentProcess();
    const DWORD64 where = reinterpret_cast<uintptr_t>(address);
    // SYMBOL_INFO is followed in the same buffer by the rest of its name.
    alignas(SYMBOL_INFO) unsigned char buffer[kSymbolBufferBytes] = {};
    SYMBOL_INFO* symbol = reinterpret_cast<SYMBOL_INFO*>(buffer);
    symbol->SizeOfStruct = kSymbolInfoSize;
    symbol->MaxNameLen = kMaxSymbolName;
    DWORD64 displacement = 0;
    const bool hasSymbol = table.m_symFromAddr != nullptr &&
                           table.m_symFromAddr(process, where, &displacement, symbol) != FALSE;

    IMAGEHLP_LINE64 line = {};
    line.SizeOfStruct = kLineInfoSize;
    DWORD lineDisplacement = 0;
    const bool hasLine =
        table.m_symGetLineFromAddr64 != nullptr &&
        table.m_symGetLineFromAddr64(process, where, &lineDisplacement, &line) != FALSE;

    stream << "\t";
    if (hasSymbol) {
        stream << symbol->Name << " [0x";
        WriteAddress(stream, static_cast<uintptr_t>(where));
        stream << "+" << displacement << "]";
    } else {
        // Relative to the program's image, which makes the number the same on every run.
        const uintptr_t base = reinterpret_cast<uintptr_t>(GetModuleHandleW(nullptr));
        stream << "(No symbol) [0x";
        WriteAddress(stream, static_cast<uintptr_t>(where) - base);
        stream << "]";
    }
    if (hasLine) {
        stream << " (" << line.FileName << ":" << line.LineNumber << ")";
    }
    stream << "\n";
}

}  // namespace

DbgHelpTable& GetDbgHelpTable() {
    static DbgHelpTable table;
    return table;
}

BOOL LoadDbgHelp() {
    DbgHelpTable& table = GetDbgHelpTable();
    if (table.m_loaded) {
        return TRUE;
    }
    // The load frees the library held so far: no pointer may keep pointing into it, so those
    // that the new library does not give stay null.
    ClearEntryPoints(table);
    if (!table.m_library.Load(table.m_libraryName.c_str())) {
        return FALSE;
    }
    // Pointers fetched before a missing one stay set: a walk needs only three of them.
    if (!FetchAll(table)) {
        return FALSE;
    }
    table.m_loaded = TRUE;
    return TRUE;
}

BOOL LoadDbgHelp(LPCWSTR libraryName) {
    DbgHelpTable& table = GetDbgHelpTable();
    if (table.m_libraryName != libraryName) {
        table.m_libraryName = libraryName;
        table.m_loaded = FALSE;
    }
    return LoadDbgHelp();
}

SymbolContext& SymbolContext::GetInstance() {
    static SymbolContext context;
    return context;
}

int32_t SymbolContext::GetInitError() const {
    return g_symbolInitError;
}

BOOL InitializeSymbols() {
    if (!LoadDbgHelp()) {
        return FALSE;
    }
    const DbgHelpTable& table = GetDbgHelpTable();
    const HANDLE process = GetCurrentProcess();
    // A second initialisation must start from a clean handler, so cleaning up comes first and
    // its result means nothing.
    table.m_symCleanup(process);
    table.m_symSetOptions(kSymbolOptions);
    if (!table.m_symInitialize(process, nullptr, TRUE)) {
        return FailSymbolStep("SymInitialize");
    }
    std::vector<wchar_t> searchPath(kSearchPathCharacters + 1, L'\0');
    if (!table.m_symGetSearchPathW(process, searchPath.data(), kSearchPathCharacters)) {
        return FailSymbolStep("SymGetSearchPathW");
    }
    const std::wstring newPath =
        std::wstring(searchPath.data()) + L";" + ProgramDirectoryWithoutSeparator();
    if (!table.m_symSetSearchPathW(process, newPath.c_str())) {
        // Named without its W: the text is what readers of older logs search for.
        return FailSymbolStep("SymSetSearchPath");
    }
    return TRUE;
}

StackTrace::StackTrace() : m_trace(), m_count(0) {
    m_count = RtlCaptureStackBackTrace(0, kMaxFrames, m_trace, nullptr);
}

StackTrace::StackTrace(const void* const* frames, size_t count) : m_trace(), m_count(0) {
    m_count = std::min(count, kMaxFrames);
    for (size_t index = 0; index < m_count; ++index) {
        m_trace[index] = const_cast<void*>(frames[index]);
    }
}

StackTrace::StackTrace(const CONTEXT* context) : m_trace(), m_count(0) {
    WalkFrom(context);
}

StackTrace::StackTrace(const EXCEPTION_POINTERS* pointers) : m_trace(), m_count(0) {
    WalkFrom(pointers->ContextRecord);
}

void StackTrace::WalkFrom(const CONTEXT* context) {
    // The walk rewrites the machine state it is given, so it works on a copy.
    CONTEXT copy = *context;
    copy.ContextFlags = kWalkContextFlags;
    STACKFRAME64 frame;
    memset(&frame, 0, sizeof(frame));
    frame.AddrPC.Offset = copy.Rip;
    frame.AddrPC.Mode = AddrModeFlat;
    frame.AddrFrame.Offset = copy.Rbp;
    frame.AddrFrame.Mode = AddrModeFlat;
    frame.AddrStack.Offset = copy.Rsp;
    frame.AddrStack.Mode = AddrModeFlat;

    // The result is not asked: the walk needs only its three entry points, whether or not the
    // rest of the table could be filled.
    LoadDbgHelp();
    const DbgHelpTable& table = GetDbgHelpTable();
    if (table.m_stackWalk64 == nullptr || table.m_symFunctionTableAccess64 == nullptr ||
        table.m_symGetModuleBase64 == nullptr) {
        return;
    }
    const HANDLE process = GetCurrentProcess();
    const HANDLE thread = GetCurrentThread();
    while (m_count < kMaxFrames &&
           table.m_stackWalk64(IMAGE_FILE_MACHINE_AMD64, process, thread, &frame, &copy, nullptr,
                               table.m_symFunctionTableAccess64, table.m_symGetModuleBase64,
                               nullptr)) {
        m_trace[m_count++] = reinterpret_cast<void*>(static_cast<uintptr_t>(frame.AddrPC.Offset));
    }
    for (size_t index = m_count; index < kMaxFrames; ++index) {
        m_trace[index] = nullptr;
    }
}

const void* const* StackTrace::Addresses(size_t* count) const {
    *count = m_count;
    return m_trace;
}

void StackTrace::PrintBacktrace(std::ostream& stream) const {
    SymbolContext& symbols = SymbolContext::GetInstance();
    if (symbols.GetInitError() != 0) {
        PrintUnresolved(*this, stream);
        return;
    }
    stream << "Backtrace:\n";
    const DbgHelpTable& table = GetDbgHelpTable();
    const TinyAutoLock hold(symbols.GetLock());
    for (size_t index = 0; index < m_count && stream.good(); ++index) {
        PrintResolvedLine(table, m_trace[index], stream);
    }
}

std::string StackTrace::ToString() const {
    std::ostringstream stream;
    PrintBacktrace(stream);
    return stream.str();
}

void PrintBacktrace(const StackTrace& trace, std::ostream& stream) {
    trace.PrintBacktrace(stream);
}

LONG LogExceptionTrace(EXCEPTION_POINTERS* pointers) {
    const StackTrace trace(pointers);
    std::ostringstream text;
    text << "\n";
    trace.PrintBacktrace(text);
    text << "\n";
    TINY_LOG_ERROR() << text.str();
    return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace TinyFramework

// The guard. GCC has no __try/__except, so the frame that owns the guard is written here in
// assembly, with unwind information whose language handler is the platform's
// __C_specific_handler and one scope entry: the call instruction lies inside the scope, the
// scope's filter is TinyGuardFilter, and its handler label returns FALSE. The platform finds the
// scope by the return address of the call, calls the filter during the first pass, and on
// EXCEPTION_EXECUTE_HANDLER unwinds every frame below and resumes at the handler label with the
// stack pointer of this frame.
//
// Frame layout after the prologue: 32 bytes of home space for the callee, then the caller's
// filter at [rsp+32], which the filter reaches through the establisher frame (this frame's stack
// pointer after the prologue). Keeping the filter in the frame, not in a thread-wide variable,
// lets guards nest: each frame's scope consults its own filter.
extern "C" BOOL TinyGuardedCall(void (*function)(void*), void* context,
                                LONG (*filter)(EXCEPTION_POINTERS*));

extern "C" LONG TinyGuardFilter(EXCEPTION_POINTERS* pointers, void* establisherFrame) {
    LONG (*filter)(EXCEPTION_POINTERS*) = nullptr;
    memcpy(&filter, static_cast<const char*>(establisherFrame) + 32, sizeof(filter));
    return filter(pointers);
}

asm(R"(
    .text
    .p2align 4
    .globl TinyGuardedCall
    .def TinyGuardedCall; .scl 2; .type 32; .endef
    .seh_proc TinyGuardedCall
TinyGuardedCall:
    subq $40, %rsp
    .seh_stackalloc 40
    .seh_endprologue
    .seh_handler __C_specific_handler, @except
    .seh_handlerdata
    .long 1
    .rva .LtinyGuardBegin, .LtinyGuardEnd, TinyGuardFilter, .LtinyGuardHandler
    .text
    movq %r8, 32(%rsp)
    movq %rcx, %rax
    movq %rdx, %rcx
.LtinyGuardBegin:
    callq *%rax
    nop
.LtinyGuardEnd:
    movl $1, %eax
    jmp .LtinyGuardDone
.LtinyGuardHandler:
    xorl %eax, %eax
.LtinyGuardDone:
    addq $40, %rsp
    retq
    .seh_endproc
)");

namespace TinyFramework {

BOOL CallWithExceptionFilter(void (*function)(void*), void* context,
                             LONG (*filter)(EXCEPTION_POINTERS*)) {
    return TinyGuardedCall(function, context, filter);
}

BOOL CallWithExceptionTrace(void (*function)(void*), void* context) {
    return CallWithExceptionFilter(function, context, &LogExceptionTrace);
}

}  // namespace TinyFramework
