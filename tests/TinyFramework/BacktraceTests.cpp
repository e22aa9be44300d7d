#include "TinyFramework/Common/TinyBacktrace.h"
#include "TinyFramework/Common/TinyCore.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <regex>
#include <sstream>
#include <streambuf>
#include <string>
#include <vector>

namespace {

using TinyFramework::CallWithExceptionFilter;
using TinyFramework::CallWithExceptionTrace;
using TinyFramework::DbgHelpTable;
using TinyFramework::g_symbolInitError;
using TinyFramework::GetDbgHelpTable;
using TinyFramework::InitializeSymbols;
using TinyFramework::LoadDbgHelp;
using TinyFramework::StackTrace;

constexpr wchar_t kDbgHelp[] = L"dbghelp.dll";
// Stand-ins for dbghelp, built next to this program (DbgHelpStandIn.cpp): the platform's dbghelp
// always offers every entry point, always starts its symbol handler and counts nothing, so these
// cases need a library of our own in its place.
constexpr wchar_t kStandIn[] = L"TinyDbgHelpStandIn.dll";
constexpr wchar_t kPartial[] = L"TinyDbgHelpPartial.dll";
constexpr DWORD kAccessDenied = 5;

typedef void(WINAPI* FailStepFunction)(const char*, DWORD);
typedef LONG(WINAPI* CallsFunction)();
typedef void(WINAPI* ResetFunction)();

template <typename Function>
Function StandInEntry(const char* name) {
    return reinterpret_cast<Function>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(kStandIn), name)));
}

uintptr_t ImageBase() {
    return reinterpret_cast<uintptr_t>(GetModuleHandleW(nullptr));
}

// Every test starts and ends with the platform's dbghelp in the table and the symbol handler
// started, as the one process of the suite needs. Starting the handler costs seconds under Wine
// (it reads this program's debug information anew), so it is started once for the suite and
// again only after a test that stopped it or put another library in the table. A test that swaps
// the library keeps the real one loaded meanwhile, so that the handler's state survives the swap.
class BacktraceTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        LoadDbgHelp(kDbgHelp);
        InitializeSymbols();
    }
    void SetUp() override {
        m_previousInitError = g_symbolInitError;
        g_symbolInitError = 0;
        ASSERT_TRUE(LoadDbgHelp(kDbgHelp));
        m_realLibrary.LoadSilently(kDbgHelp);
        m_log.Clear();
    }
    void TearDown() override {
        if (GetModuleHandleW(kStandIn) != nullptr) {
            StandInEntry<ResetFunction>("StandInReset")();
        }
        const bool swapped = GetDbgHelpTable().m_libraryName != kDbgHelp;
        EXPECT_TRUE(LoadDbgHelp(kDbgHelp));
        g_symbolInitError = m_previousInitError;
        if (swapped || m_symbolsStopped) {
            EXPECT_TRUE(InitializeSymbols());
        }
    }

    TestSupport::LogCapture m_log;
    TinyFramework::TinyLibrary m_realLibrary;
    int32_t m_previousInitError = 0;
    bool m_symbolsStopped = false;
};

__attribute__((noinline)) std::string NamedFunctionForTrace() {
    const StackTrace trace;
    std::string text = trace.ToString();
    asm volatile("" ::: "memory");  // keeps the call from becoming a tail call
    return text;
}

__attribute__((noinline)) size_t CountFramesAtDepth(int depth) {
    if (depth > 0) {
        const size_t count = CountFramesAtDepth(depth - 1);
        asm volatile("" ::: "memory");
        return count;
    }
    return StackTrace().Count();
}

TEST_F(BacktraceTest, ACapturedTraceOfMoreThan62FramesStopsAt62) {
    EXPECT_EQ(CountFramesAtDepth(100), 62u);
}

TEST_F(BacktraceTest, CopiedFramesStopAt62) {
    std::vector<const void*> frames;
    for (uintptr_t index = 0; index < 100; ++index) {
        frames.push_back(reinterpret_cast<const void*>(0x1000 + index));
    }
    const StackTrace trace(frames.data(), frames.size());
    size_t count = 0;
    const void* const* addresses = trace.Addresses(&count);
    ASSERT_EQ(count, 62u);
    EXPECT_EQ(addresses[0], frames[0]);
    EXPECT_EQ(addresses[61], frames[61]);
}

TEST_F(BacktraceTest, AnEmptyTracePrintsOnlyTheHeading) {
    const StackTrace trace(nullptr, 0);
    EXPECT_EQ(trace.ToString(), "Backtrace:\n");
}

TEST_F(BacktraceTest, AnAddressWithoutSymbolPrintsItsOffsetInTheImage) {
    // With the symbol handler stopped, every look-up fails as for an address without a symbol.
    m_symbolsStopped = true;
    GetDbgHelpTable().m_symCleanup(GetCurrentProcess());
    const void* frames[] = {reinterpret_cast<const void*>(ImageBase() + 0x123AB)};
    EXPECT_EQ(StackTrace(frames, 1).ToString(), "Backtrace:\n\t(No symbol) [0x00000000000123AB]\n");
}

TEST_F(BacktraceTest, ANamedFunctionPrintsNameAddressDisplacementFileAndLine) {
    const std::string text = NamedFunctionForTrace();
    EXPECT_TRUE(std::regex_search(
        text, std::regex("\n\t[^\n]*NamedFunctionForTrace[^\n]* \\[0x[0-9A-F]{16}\\+[0-9]+\\] "
                         "\\([^\n]*BacktraceTests\\.cpp:[0-9]+\\)\n")))
        << text;
}

TEST_F(BacktraceTest, TheFreeAndTheMemberFormPrintTheSame) {
    const void* frames[] = {reinterpret_cast<const void*>(&NamedFunctionForTrace)};
    const StackTrace trace(frames, 1);
    std::ostringstream member;
    trace.PrintBacktrace(member);
    std::ostringstream free;
    TinyFramework::PrintBacktrace(trace, free);
    EXPECT_EQ(member.str(), free.str());
    EXPECT_EQ(trace.ToString(), free.str());
    EXPECT_NE(free.str().find("NamedFunctionForTrace [0x"), std::string::npos) << free.str();
}

// A context tells of live frames only while the function that captured it has not returned, so
// each test captures its own in its body and walks from it there.
__attribute__((noinline)) void CaptureContextHere(CONTEXT* context) {
    RtlCaptureContext(context);
}

TEST_F(BacktraceTest, AWalkFromAContextStartsAtItsInstructionPointer) {
    CONTEXT context = {};
    RtlCaptureContext(&context);
    const CONTEXT before = context;
    const StackTrace trace(&context);
    size_t count = 0;
    const void* const* addresses = trace.Addresses(&count);
    ASSERT_GT(count, 1u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(addresses[0]), context.Rip);
    EXPECT_EQ(memcmp(&before, &context, sizeof(context)), 0) << "the walk changed the context";
    EXPECT_NE(trace.ToString().find("AWalkFromAContextStartsAtItsInstructionPointer"),
              std::string::npos)
        << trace.ToString();
}

TEST_F(BacktraceTest, AWalkFromExceptionPointersUsesTheirContext) {
    CONTEXT context = {};
    RtlCaptureContext(&context);
    EXCEPTION_RECORD record = {};
    record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
    EXCEPTION_POINTERS pointers = {&record, &context};
    const StackTrace fromPointers(&pointers);
    const StackTrace fromContext(&context);
    EXPECT_EQ(fromPointers.ToString(), fromContext.ToString());
    EXPECT_GT(fromPointers.Count(), 1u);
}

TEST_F(BacktraceTest, AFailedSymbolStartPrintsTheUnresolvedFormWithItsError) {
    ASSERT_TRUE(LoadDbgHelp(kStandIn));
    StandInEntry<FailStepFunction>("StandInFailStep")("SymInitialize", kAccessDenied);
    EXPECT_FALSE(InitializeSymbols());
    EXPECT_EQ(g_symbolInitError, 5);
    EXPECT_TRUE(m_log.Contains(std::string("Failed to SymInitialize(5,") +
                               TinyFramework::GetErrorText(kAccessDenied) + ")"))
        << ::testing::PrintToString(m_log.Messages());
    const void* frames[] = {reinterpret_cast<const void*>(0x1234),
                            reinterpret_cast<const void*>(0xABCDEF)};
    EXPECT_EQ(StackTrace(frames, 2).ToString(),
              "Error initializing symbols (5).  Dumping unresolved backtrace:\n"
              "\t0000000000001234\n"
              "\t0000000000ABCDEF\n");
}

TEST_F(BacktraceTest, AFailedSearchPathQueryIsLoggedWithItsError) {
    ASSERT_TRUE(LoadDbgHelp(kStandIn));
    StandInEntry<FailStepFunction>("StandInFailStep")("SymGetSearchPathW", kAccessDenied);
    EXPECT_FALSE(InitializeSymbols());
    EXPECT_EQ(g_symbolInitError, 5);
    EXPECT_TRUE(m_log.Contains(std::string("Failed to SymGetSearchPathW(5,") +
                               TinyFramework::GetErrorText(kAccessDenied) + ")"))
        << ::testing::PrintToString(m_log.Messages());
}

TEST_F(BacktraceTest, AFailedSearchPathChangeIsLoggedUnderItsNarrowName) {
    ASSERT_TRUE(LoadDbgHelp(kStandIn));
    StandInEntry<FailStepFunction>("StandInFailStep")("SymSetSearchPathW", kAccessDenied);
    EXPECT_FALSE(InitializeSymbols());
    EXPECT_EQ(g_symbolInitError, 5);
    EXPECT_TRUE(m_log.Contains(std::string("Failed to SymSetSearchPath(5,") +
                               TinyFramework::GetErrorText(kAccessDenied) + ")"))
        << ::testing::PrintToString(m_log.Messages());
}

TEST_F(BacktraceTest, TheSearchPathGainsTheProgramDirectory) {
    std::vector<wchar_t> path(4096);
    ASSERT_TRUE(GetDbgHelpTable().m_symGetSearchPathW(GetCurrentProcess(), path.data(), 4096));
    wchar_t program[MAX_PATH] = {};
    GetModuleFileNameW(nullptr, program, MAX_PATH);
    std::wstring directory(program);
    directory.erase(directory.rfind(L'\\'));
    const std::wstring searchPath(path.data());
    ASSERT_GE(searchPath.size(), directory.size() + 1);
    EXPECT_EQ(searchPath.substr(searchPath.size() - directory.size() - 1), L";" + directory);
}

TEST_F(BacktraceTest, AStreamAlreadyFailedGetsNoFurtherLines) {
    ASSERT_TRUE(LoadDbgHelp(kStandIn));
    ASSERT_TRUE(InitializeSymbols());
    const void* frames[] = {reinterpret_cast<const void*>(&NamedFunctionForTrace),
                            reinterpret_cast<const void*>(&CaptureContextHere)};
    std::ostringstream stream;
    stream.setstate(std::ios_base::badbit);
    StackTrace(frames, 2).PrintBacktrace(stream);
    EXPECT_EQ(StandInEntry<CallsFunction>("StandInSymFromAddrCalls")(), 0);
}

// Takes `limit` characters and fails every write after them.
class LimitedBuffer : public std::streambuf {
public:
    explicit LimitedBuffer(size_t limit) : m_limit(limit) {}
    const std::string& Text() const { return m_text; }

protected:
    int_type overflow(int_type character) override {
        if (m_text.size() >= m_limit || traits_type::eq_int_type(character, traits_type::eof())) {
            return traits_type::eof();
        }
        m_text.push_back(traits_type::to_char_type(character));
        return character;
    }

private:
    size_t m_limit;
    std::string m_text;
};

TEST_F(BacktraceTest, AStreamThatFailsMidwayGetsNoFurtherLines) {
    ASSERT_TRUE(LoadDbgHelp(kStandIn));
    ASSERT_TRUE(InitializeSymbols());
    const void* frames[] = {reinterpret_cast<const void*>(&NamedFunctionForTrace),
                            reinterpret_cast<const void*>(&CaptureContextHere),
                            reinterpret_cast<const void*>(&ImageBase)};
    // Room for the heading and a few characters of the first line.
    LimitedBuffer buffer(std::string("Backtrace:\n").size() + 4);
    std::ostream stream(&buffer);
    StackTrace(frames, 3).PrintBacktrace(stream);
    EXPECT_TRUE(stream.bad());
    EXPECT_EQ(buffer.Text().substr(0, 11), "Backtrace:\n");
    EXPECT_EQ(StandInEntry<CallsFunction>("StandInSymFromAddrCalls")(), 1);
}

TEST_F(BacktraceTest, AllThreeLinesAreLookedUpWhenTheStreamHolds) {
    ASSERT_TRUE(LoadDbgHelp(kStandIn));
    ASSERT_TRUE(InitializeSymbols());
    const void* frames[] = {reinterpret_cast<const void*>(&NamedFunctionForTrace),
                            reinterpret_cast<const void*>(&CaptureContextHere),
                            reinterpret_cast<const void*>(&ImageBase)};
    std::ostringstream stream;
    StackTrace(frames, 3).PrintBacktrace(stream);
    EXPECT_EQ(StandInEntry<CallsFunction>("StandInSymFromAddrCalls")(), 3);
}

TEST_F(BacktraceTest, ALibraryWithoutImageDirectoryEntryToDataIsIncompleteYetWalks) {
    EXPECT_FALSE(LoadDbgHelp(kPartial));
    const DbgHelpTable& table = GetDbgHelpTable();
    EXPECT_FALSE(table.m_loaded);
    EXPECT_EQ(table.m_library.Handle(), GetModuleHandleW(kPartial));
    EXPECT_NE(table.m_stackWalk, nullptr);
    EXPECT_NE(table.m_stackWalk64, nullptr);
    EXPECT_NE(table.m_symFromAddr, nullptr);
    EXPECT_NE(table.m_symGetLineFromAddr, nullptr);
    EXPECT_NE(table.m_symGetLineFromAddr64, nullptr);
    EXPECT_NE(table.m_symSetOptions, nullptr);
    EXPECT_NE(table.m_symInitialize, nullptr);
    EXPECT_NE(table.m_symCleanup, nullptr);
    EXPECT_NE(table.m_symGetSearchPathW, nullptr);
    EXPECT_NE(table.m_symSetSearchPathW, nullptr);
    EXPECT_NE(table.m_symGetModuleBase, nullptr);
    EXPECT_NE(table.m_symFunctionTableAccess, nullptr);
    EXPECT_NE(table.m_symGetModuleBase64, nullptr);
    EXPECT_NE(table.m_symFunctionTableAccess64, nullptr);
    EXPECT_NE(table.m_miniDumpWriteDump, nullptr);
    EXPECT_EQ(table.m_imageDirectoryEntryToData, nullptr);

    CONTEXT context = {};
    RtlCaptureContext(&context);
    const StackTrace trace(&context);
    size_t count = 0;
    const void* const* addresses = trace.Addresses(&count);
    ASSERT_GT(count, 1u);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(addresses[0]), context.Rip);
    // The walk asked for the table again, and it is still the incomplete one.
    EXPECT_FALSE(table.m_loaded);
    EXPECT_EQ(table.m_library.Handle(), GetModuleHandleW(kPartial));
}

TEST_F(BacktraceTest, ALibraryThatCannotBeLoadedIsLoggedAndLeavesTheTableEmpty) {
    EXPECT_FALSE(LoadDbgHelp(L"TinyFrameworkNoSuchDbgHelp.dll"));
    EXPECT_TRUE(m_log.Contains(std::string("Failed to LoadLibrary(126,") +
                               TinyFramework::GetErrorText(126) + ")"))
        << ::testing::PrintToString(m_log.Messages());
    EXPECT_EQ(GetDbgHelpTable().m_stackWalk64, nullptr);
    CONTEXT context = {};
    RtlCaptureContext(&context);
    EXPECT_EQ(StackTrace(&context).Count(), 0u);
}

TEST_F(BacktraceTest, LogExceptionTraceLogsTheBacktraceAtErrorAndAsksForTheHandler) {
    CONTEXT context = {};
    RtlCaptureContext(&context);
    EXCEPTION_RECORD record = {};
    record.ExceptionCode = EXCEPTION_ACCESS_VIOLATION;
    EXCEPTION_POINTERS pointers = {&record, &context};
    EXPECT_EQ(TinyFramework::LogExceptionTrace(&pointers), 1);
    const std::vector<std::string> records = m_log.Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_NE(records[0].find(":ERROR] "), std::string::npos) << records[0];
    EXPECT_NE(records[0].find("TinyBacktrace.cpp("), std::string::npos) << records[0];
    const std::string expected = "\n" + StackTrace(&pointers).ToString() + "\n\n";
    EXPECT_EQ(records[0].substr(records[0].find(")] : ") + 5), expected);
}

volatile int g_sink = 0;

__attribute__((noinline)) void RaiseAccessViolation(void* address) {
    *static_cast<volatile int*>(address) = 1;
}

__attribute__((noinline)) void DivideByZero(void* divisor) {
    g_sink = 100 / *static_cast<volatile int*>(divisor);
}

void Increment(void* counter) {
    ++*static_cast<int*>(counter);
}

TEST_F(BacktraceTest, AGuardedCallThatReturnsGivesTrue) {
    int counter = 0;
    EXPECT_TRUE(CallWithExceptionTrace(&Increment, &counter));
    EXPECT_EQ(counter, 1);
    EXPECT_TRUE(m_log.Records().empty());
}

TEST_F(BacktraceTest, AnAccessViolationInAGuardedCallIsLoggedAndTheCallerGoesOn) {
    EXPECT_FALSE(CallWithExceptionTrace(&RaiseAccessViolation, reinterpret_cast<void*>(0x10)));
    const std::vector<std::string> records = m_log.Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_NE(records[0].find("Backtrace:\n"), std::string::npos) << records[0];
    EXPECT_NE(records[0].find("\tRaiseAccessViolation [0x"), std::string::npos) << records[0];
    // The walk climbs through the guard's own frame to the caller.
    EXPECT_NE(records[0].find("AnAccessViolationInAGuardedCallIsLoggedAndTheCallerGoesOn"),
              std::string::npos)
        << records[0];
    // The process goes on, and so does this thread's stack.
    int counter = 0;
    EXPECT_TRUE(CallWithExceptionTrace(&Increment, &counter));
    EXPECT_EQ(counter, 1);
}

TEST_F(BacktraceTest, ADivisionByZeroInAGuardedCallIsLoggedAndTheCallerGoesOn) {
    volatile int zero = 0;
    EXPECT_FALSE(CallWithExceptionTrace(&DivideByZero, const_cast<int*>(&zero)));
    const std::vector<std::string> records = m_log.Records();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_NE(records[0].find("Backtrace:\n"), std::string::npos) << records[0];
    EXPECT_NE(records[0].find("\tDivideByZero [0x"), std::string::npos) << records[0];
}

DWORD g_seenCode = 0;

LONG PassOn(EXCEPTION_POINTERS* pointers) {
    g_seenCode = pointers->ExceptionRecord->ExceptionCode;
    return EXCEPTION_CONTINUE_SEARCH;
}

struct NestedCall {
    BOOL innerResult = -1;
};

void GuardedByAPassingFilter(void* context) {
    static_cast<NestedCall*>(context)->innerResult =
        CallWithExceptionFilter(&RaiseAccessViolation, reinterpret_cast<void*>(0x10), &PassOn);
}

TEST_F(BacktraceTest, AnInnerGuardThatPassesLeavesTheExceptionToTheOuterOne) {
    g_seenCode = 0;
    NestedCall call;
    EXPECT_FALSE(CallWithExceptionTrace(&GuardedByAPassingFilter, &call));
    EXPECT_EQ(g_seenCode, static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION));
    // The inner call never returned: the outer guard unwound it.
    EXPECT_EQ(call.innerResult, -1);
    EXPECT_EQ(m_log.RecordsContaining("\tRaiseAccessViolation [0x").size(), 1u);
}

}  // namespace
