// Child process of the crash report tests: installs the framework's crash reporting the way a
// program does at start, then crashes in the way it is told, so that the tests can read the log
// file and the dump that the crash leaves behind.
//   CrashHelper <kind> <logfile> [--previous-filter] [--no-dump-path] [--dump <path>]
// kinds: access-violation, divide-by-zero, cpp-exception, stack-overflow, new-failure,
//        malloc-failure
// --previous-filter  installs an unhandled-exception filter of its own first, which the crash
//                    filter then chains to: it writes "<logfile>.previous" with the exception code
//                    and lets the process end with that code.
// --no-dump-path     leaves the dump path unset, so no dump is written.
// --dump <path>      writes the dump there instead of debug.dmp beside the program.
// Exit code: the exception code of the crash; 2 for a bad command line; 3 if it did not crash.

#include "TinyFramework/Common/TinyBacktrace.h"
#include "TinyFramework/Common/TinyCrashHandler.h"
#include "TinyFramework/Common/TinyLogging_win32.h"

#include <windows.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace {

constexpr int kBadCommandLine = 2;
constexpr int kDidNotCrash = 3;

// More than any address space holds, so every allocator refuses it at once, with low 32 bits that
// a test can recognise in the "OnNoMemory(%d)" record (which prints the size as a 32-bit number).
// A size that does fit the address space is no good: Wine then tries to grant 2^46 bytes and
// spends gigabytes of its own memory on the attempt.
constexpr size_t kAbsurdAllocation = (size_t{1} << 62) | 123456;

std::wstring g_previousFilterMarker;

// Stands for whatever filter a program had before the crash reporting came: records that it was
// asked and ends the search, so the process exits with the exception code.
LONG WINAPI PreviousFilter(EXCEPTION_POINTERS* pointers) {
    char text[16];
    const int length =
        snprintf(text, sizeof(text), "0x%08lx", pointers->ExceptionRecord->ExceptionCode);
    const HANDLE marker = CreateFileW(g_previousFilterMarker.c_str(), GENERIC_WRITE, 0, nullptr,
                                      CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (marker != INVALID_HANDLE_VALUE) {
        DWORD written = 0;
        WriteFile(marker, text, static_cast<DWORD>(length), &written, nullptr);
        CloseHandle(marker);
    }
    return EXCEPTION_EXECUTE_HANDLER;
}

// Each crash stands in a function of its own with a name a backtrace can be checked for.

__attribute__((noinline)) void CrashByAccessViolation() {
    volatile int* volatile nowhere = nullptr;
    *nowhere = 1;
}

__attribute__((noinline)) int CrashByIntegerDivideByZero() {
    volatile int zero = 0;
    return 100 / zero;
}

__attribute__((noinline)) void CrashByUncaughtCppException() {
    throw std::runtime_error("nobody catches this");
}

// Read at run time: the compiler cannot see that the recursion below has no end.
volatile int g_recursionLimit = INT_MAX;

// Each call keeps a page of its own on the stack, so the stack runs out after a few hundred calls.
__attribute__((noinline)) int CrashByStackOverflow(int depth) {
    volatile char page[4096];
    page[0] = static_cast<char>(depth);
    if (depth >= g_recursionLimit) {
        return page[0];
    }
    return CrashByStackOverflow(depth + 1) + page[0];
}

// Where the allocations below keep their result. Storing it after the call keeps each call from
// becoming a jump: a function that ends in a jump leaves no frame of its own on the stack, and
// the backtrace would not show it.
void* volatile g_keptBlock = nullptr;

__attribute__((noinline)) void CrashByOperatorNewFailure() {
    g_keptBlock = ::operator new(kAbsurdAllocation);
}

__attribute__((noinline)) void CrashByMallocFailure() {
    g_keptBlock = malloc(kAbsurdAllocation);
}

bool IsAllocationKind(const std::wstring& kind) {
    return kind == L"new-failure" || kind == L"malloc-failure";
}

// Returns only if the kind is unknown or the crash did not happen.
int Crash(const std::wstring& kind) {
    if (kind == L"access-violation") {
        CrashByAccessViolation();
    } else if (kind == L"divide-by-zero") {
        return CrashByIntegerDivideByZero();
    } else if (kind == L"cpp-exception") {
        CrashByUncaughtCppException();
    } else if (kind == L"stack-overflow") {
        return CrashByStackOverflow(0);
    } else if (kind == L"new-failure") {
        CrashByOperatorNewFailure();
    } else if (kind == L"malloc-failure") {
        CrashByMallocFailure();
    } else {
        fprintf(stderr, "CrashHelper: unknown kind\n");
        return kBadCommandLine;
    }
    return kDidNotCrash;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc < 3) {
        fprintf(stderr,
                "usage: CrashHelper <kind> <logfile> [--previous-filter] "
                "[--no-dump-path] [--dump <path>]\n");
        return kBadCommandLine;
    }
    const std::wstring kind = argv[1];
    const std::wstring logFile = argv[2];
    bool previousFilter = false;
    bool setDumpPath = true;
    std::wstring dumpPath;  // empty: debug.dmp beside the program
    for (int index = 3; index < argc; ++index) {
        const std::wstring option = argv[index];
        if (option == L"--previous-filter") {
            previousFilter = true;
        } else if (option == L"--no-dump-path") {
            setDumpPath = false;
        } else if (option == L"--dump" && index + 1 < argc) {
            dumpPath = argv[++index];
        } else {
            fprintf(stderr, "CrashHelper: unknown option\n");
            return kBadCommandLine;
        }
    }

    TinyFramework::InitializeSymbols();
    TinyFramework::OpenLogFile(logFile.c_str());
    if (setDumpPath) {
        TinyFramework::SetDumpFile(dumpPath.c_str());
    }
    if (previousFilter) {
        g_previousFilterMarker = logFile + L".previous";
        SetUnhandledExceptionFilter(PreviousFilter);
    }
    TinyFramework::InstallCrashFilter(nullptr, nullptr);
    if (IsAllocationKind(kind)) {
        TinyFramework::InstallNoMemoryHandler();
    }
    return Crash(kind);
}
