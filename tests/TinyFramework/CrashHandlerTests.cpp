#include "TinyFramework/Common/TinyBacktrace.h"
#include "TinyFramework/Common/TinyCrashHandler.h"
#include "TinyFramework/Common/TinyLogging_win32.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/LogCapture.h"
#include "tests/support/ProgramFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

namespace {

using TestSupport::FileExists;
using TestSupport::ProgramDirectory;
using TestSupport::ReadWholeFile;
using TestSupport::TemporaryFolder;
using TinyFramework::CrashFilter;
using TinyFramework::ExceptionCodeName;
using TinyFramework::g_crashCallback;
using TinyFramework::g_dumpFilePath;
using TinyFramework::g_previousFilter;

constexpr DWORD kRuntimeException = 0xE06D7363;
constexpr DWORD kOutOfMemory = 0xE0000008;

// An exception as the platform hands it to a filter, made by hand in the function that names it;
// the filter runs while that function's frame is live, so the walk can climb from it.
struct HandMadeException {
    CONTEXT context = {};
    EXCEPTION_RECORD record = {};
    EXCEPTION_POINTERS pointers = {};
    // The backtrace of the exception, printed while the frames were live.
    std::string backtrace;
};

__attribute__((noinline)) LONG FilterExceptionInNamedFunction(HandMadeException* exception,
                                                              DWORD code) {
    RtlCaptureContext(&exception->context);
    exception->record.ExceptionCode = code;
    exception->record.ExceptionAddress = reinterpret_cast<void*>(exception->context.Rip);
    exception->pointers.ExceptionRecord = &exception->record;
    exception->pointers.ContextRecord = &exception->context;
    exception->backtrace = TinyFramework::StackTrace(&exception->pointers).ToString();
    const LONG result = CrashFilter(&exception->pointers);
    asm volatile("" ::: "memory");  // keeps the frame live until the filter has returned
    return result;
}

// The crash filter's state is the process's, and the suite runs in one process: every test
// leaves filter, hook, previous filter, dump path, and the platform's filter as it found them.
class CrashFilterTest : public ::testing::Test {
protected:
    // Once for the suite: under Wine, starting the symbol handler costs seconds.
    static void SetUpTestSuite() { TinyFramework::InitializeSymbols(); }

    void SetUp() override {
        ASSERT_TRUE(m_folder.IsReady());
        m_savedDumpPath = g_dumpFilePath;
        m_savedCallback = g_crashCallback;
        m_savedPrevious = g_previousFilter;
        m_platformFilter = SetUnhandledExceptionFilter(nullptr);
        SetUnhandledExceptionFilter(m_platformFilter);
        g_dumpFilePath.clear();
        g_crashCallback = nullptr;
        g_previousFilter = nullptr;
        s_callbackCalls = 0;
        s_previousCalls = 0;
        s_previousPointers = nullptr;
    }
    void TearDown() override {
        SetUnhandledExceptionFilter(m_platformFilter);
        g_dumpFilePath = m_savedDumpPath;
        g_crashCallback = m_savedCallback;
        g_previousFilter = m_savedPrevious;
    }

    static void CountCallback() { ++s_callbackCalls; }
    static LONG WINAPI PreviousFilter(EXCEPTION_POINTERS* pointers) {
        ++s_previousCalls;
        s_previousPointers = pointers;
        return EXCEPTION_CONTINUE_EXECUTION;
    }

    static int s_callbackCalls;
    static int s_previousCalls;
    static EXCEPTION_POINTERS* s_previousPointers;

    TemporaryFolder m_folder;
    TestSupport::LogCapture m_log;
    std::wstring m_savedDumpPath;
    void (*m_savedCallback)() = nullptr;
    LPTOP_LEVEL_EXCEPTION_FILTER m_savedPrevious = nullptr;
    LPTOP_LEVEL_EXCEPTION_FILTER m_platformFilter = nullptr;
};

int CrashFilterTest::s_callbackCalls = 0;
int CrashFilterTest::s_previousCalls = 0;
EXCEPTION_POINTERS* CrashFilterTest::s_previousPointers = nullptr;

const std::regex kMemoryLine(
    R"(\[\d+:\d+:[-/:.\d]+:INFO\] : Physical Memory: \d+MB Total, \d+MB Free, \d+MB WorkingSetSize\n)");
const std::regex kDiskLine(
    R"(\[\d+:\d+:[-/:.\d]+:INFO\] : Disk\(C\) Free Space: \d+MB Total, \d+MB Free\n)");

TEST(ExceptionNames, EveryCodeOfTheTableHasItsName) {
    const std::vector<std::pair<DWORD, std::string>> table = {
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
    for (const auto& entry : table) {
        EXPECT_EQ(ExceptionCodeName(entry.first), entry.second);
    }
}

TEST(ExceptionNames, ACodeOutsideTheTablePrintsInLowerCaseHexadecimal) {
    EXPECT_EQ(ExceptionCodeName(kRuntimeException), "0xe06d7363");
    EXPECT_EQ(ExceptionCodeName(kOutOfMemory), "0xe0000008");
    EXPECT_EQ(ExceptionCodeName(0), "0x0");
}

TEST_F(CrashFilterTest, AnAccessViolationIsReportedAfterTheMemoryAndDiskLines) {
    HandMadeException exception;
    EXPECT_EQ(FilterExceptionInNamedFunction(&exception, EXCEPTION_ACCESS_VIOLATION),
              EXCEPTION_CONTINUE_SEARCH);
    const std::vector<std::string> records = m_log.Records();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_TRUE(std::regex_match(records[0], kMemoryLine)) << records[0];
    EXPECT_TRUE(std::regex_match(records[1], kDiskLine)) << records[1];
    const std::string expected =
        "Fatal exception EXCEPTION_ACCESS_VIOLATION\n" + exception.backtrace + "\n";
    EXPECT_TRUE(std::regex_match(records[2].substr(0, records[2].find("] : ") + 4),
                                 std::regex(R"(\[\d+:\d+:[-/:.\d]+:ERROR\] : )")))
        << records[2];
    EXPECT_EQ(records[2].substr(records[2].find("] : ") + 4), expected);
    EXPECT_NE(records[2].find("\tFilterExceptionInNamedFunction [0x"), std::string::npos)
        << records[2];
    EXPECT_NE(records[2].find("AnAccessViolationIsReportedAfterTheMemoryAndDiskLines"),
              std::string::npos)
        << records[2];
}

TEST_F(CrashFilterTest, TheRuntimesExceptionPrintsItsCodeInHexadecimal) {
    HandMadeException exception;
    FilterExceptionInNamedFunction(&exception, kRuntimeException);
    const std::vector<std::string> records = m_log.RecordsContaining("Fatal exception");
    ASSERT_EQ(records.size(), 1u);
    EXPECT_NE(records[0].find("] : Fatal exception 0xe06d7363\nBacktrace:\n"), std::string::npos)
        << records[0];
}

TEST_F(CrashFilterTest, WithADumpPathTheDumpIsWritten) {
    const std::wstring path = m_folder.PathOf(L"crash.dmp");
    ASSERT_TRUE(TinyFramework::SetDumpFile(path.c_str()));
    HandMadeException exception;
    FilterExceptionInNamedFunction(&exception, EXCEPTION_ACCESS_VIOLATION);
    const std::string dump = ReadWholeFile(path);
    EXPECT_EQ(dump.substr(0, 4), "MDMP");
    EXPECT_TRUE(m_log.RecordsContaining("MiniDumpWriteDump").empty());
}

TEST_F(CrashFilterTest, WithNoDumpPathTheReportIsLoggedAndNoFileAppears) {
    const bool defaultDumpExisted = FileExists(TinyFramework::GetDefaultDumpPath());
    HandMadeException exception;
    FilterExceptionInNamedFunction(&exception, EXCEPTION_ACCESS_VIOLATION);
    EXPECT_EQ(m_log.RecordsContaining("Fatal exception EXCEPTION_ACCESS_VIOLATION").size(), 1u);
    EXPECT_EQ(FileExists(TinyFramework::GetDefaultDumpPath()), defaultDumpExisted);
    EXPECT_TRUE(g_dumpFilePath.empty());
}

TEST_F(CrashFilterTest, TheResultIsThePreviousFiltersWhenThereIsOne) {
    g_previousFilter = &CrashFilterTest::PreviousFilter;
    HandMadeException exception;
    EXPECT_EQ(FilterExceptionInNamedFunction(&exception, EXCEPTION_ACCESS_VIOLATION),
              EXCEPTION_CONTINUE_EXECUTION);
    EXPECT_EQ(s_previousCalls, 1);
    EXPECT_EQ(s_previousPointers, &exception.pointers);
}

TEST_F(CrashFilterTest, TheResultIsZeroWithoutAPreviousFilter) {
    HandMadeException exception;
    EXPECT_EQ(FilterExceptionInNamedFunction(&exception, EXCEPTION_BREAKPOINT), 0);
}

TEST_F(CrashFilterTest, TheCallbackIsCalledOnce) {
    g_crashCallback = &CrashFilterTest::CountCallback;
    HandMadeException exception;
    FilterExceptionInNamedFunction(&exception, EXCEPTION_ACCESS_VIOLATION);
    EXPECT_EQ(s_callbackCalls, 1);
}

// Another opener of the dump file while the filter runs: the filter holds it without sharing.
DWORD OpenDumpFileError() {
    HANDLE file = CreateFileW(g_dumpFilePath.c_str(), GENERIC_READ,
                              FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                              OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        return GetLastError();
    }
    CloseHandle(file);
    return ERROR_SUCCESS;
}

DWORD g_errorSeenByTheHook = 0;
DWORD g_errorSeenByThePreviousFilter = 0;

TEST_F(CrashFilterTest, TheDumpFileStaysOpenThroughTheHookAndThePreviousFilter) {
    const std::wstring path = m_folder.PathOf(L"held.dmp");
    ASSERT_TRUE(TinyFramework::SetDumpFile(path.c_str()));
    g_errorSeenByTheHook = 0;
    g_errorSeenByThePreviousFilter = 0;
    g_crashCallback = [] { g_errorSeenByTheHook = OpenDumpFileError(); };
    g_previousFilter = [](EXCEPTION_POINTERS*) -> LONG {
        g_errorSeenByThePreviousFilter = OpenDumpFileError();
        return EXCEPTION_CONTINUE_SEARCH;
    };
    HandMadeException exception;
    FilterExceptionInNamedFunction(&exception, EXCEPTION_ACCESS_VIOLATION);
    EXPECT_EQ(g_errorSeenByTheHook, static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    EXPECT_EQ(g_errorSeenByThePreviousFilter, static_cast<DWORD>(ERROR_SHARING_VIOLATION));
    // Closed once the filter has returned.
    EXPECT_EQ(OpenDumpFileError(), static_cast<DWORD>(ERROR_SUCCESS));
}

TEST_F(CrashFilterTest, InstallingKeepsTheCallbackAndThePreviousFilter) {
    SetUnhandledExceptionFilter(&CrashFilterTest::PreviousFilter);
    EXPECT_EQ(TinyFramework::InstallCrashFilter(nullptr, &CrashFilterTest::CountCallback), 1);
    EXPECT_EQ(g_crashCallback, &CrashFilterTest::CountCallback);
    EXPECT_EQ(g_previousFilter, &CrashFilterTest::PreviousFilter);
    EXPECT_EQ(SetUnhandledExceptionFilter(m_platformFilter), &CrashFilter);
}

TEST_F(CrashFilterTest, SetDumpFileWithAnEmptyPathTakesTheDefault) {
    EXPECT_TRUE(TinyFramework::SetDumpFile(L""));
    EXPECT_EQ(g_dumpFilePath, TinyFramework::GetDefaultDumpPath());
    EXPECT_TRUE(TinyFramework::SetDumpFile(L"D:\\dumps\\x.dmp"));
    EXPECT_EQ(g_dumpFilePath, L"D:\\dumps\\x.dmp");
    EXPECT_TRUE(TinyFramework::InitDumpFile(nullptr));
    EXPECT_EQ(g_dumpFilePath, TinyFramework::GetDefaultDumpPath());
}

TEST(DumpPaths, TheDefaultDumpIsDebugDmpBesideTheProgram) {
    EXPECT_EQ(TinyFramework::GetDefaultDumpPath(), ProgramDirectory() + L"debug.dmp");
}

TEST(DumpPaths, TheDumpDirectoryHasTwoSeparatorsBeforeDump) {
    EXPECT_EQ(TinyFramework::DumpDirectoryFor(L"C:\\x\\a.exe"), L"C:\\x\\\\Dump");
    EXPECT_EQ(TinyFramework::GetDumpDirectory(), ProgramDirectory() + L"\\Dump");
    EXPECT_FALSE(FileExists(TinyFramework::GetDumpDirectory()));
}

TEST(DumpCallbackTest, AModuleTheMemoryDoesNotReferToIsLeftOut) {
    MINIDUMP_CALLBACK_INPUT input = {};
    MINIDUMP_CALLBACK_OUTPUT output = {};
    input.CallbackType = ModuleCallback;
    output.ModuleWriteFlags = ModuleWriteModule | ModuleWriteDataSeg;
    EXPECT_TRUE(TinyFramework::DumpCallback(nullptr, &input, &output));
    EXPECT_EQ(output.ModuleWriteFlags, static_cast<ULONG>(ModuleWriteDataSeg));
    output.ModuleWriteFlags = ModuleWriteModule | ModuleReferencedByMemory;
    EXPECT_TRUE(TinyFramework::DumpCallback(nullptr, &input, &output));
    EXPECT_EQ(output.ModuleWriteFlags,
              static_cast<ULONG>(ModuleWriteModule | ModuleReferencedByMemory));
}

TEST(DumpCallbackTest, ThreadsAndIncludesAreTakenAndEverythingElseRefused) {
    MINIDUMP_CALLBACK_INPUT input = {};
    MINIDUMP_CALLBACK_OUTPUT output = {};
    for (ULONG type : {1u, 2u, 3u, 4u}) {
        input.CallbackType = type;
        EXPECT_TRUE(TinyFramework::DumpCallback(nullptr, &input, &output)) << type;
    }
    for (ULONG type : {5u, 6u, 11u}) {
        input.CallbackType = type;
        EXPECT_FALSE(TinyFramework::DumpCallback(nullptr, &input, &output)) << type;
    }
    EXPECT_FALSE(TinyFramework::DumpCallback(nullptr, nullptr, &output));
    EXPECT_FALSE(TinyFramework::DumpCallback(nullptr, &input, nullptr));
}

TEST_F(CrashFilterTest, ADumpWithoutExceptionIsWrittenToAnOpenFile) {
    const std::wstring path = m_folder.PathOf(L"plain.dmp");
    const HANDLE file =
        CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    EXPECT_TRUE(TinyFramework::WriteDump(nullptr, file));
    CloseHandle(file);
    EXPECT_EQ(ReadWholeFile(path).substr(0, 4), "MDMP");
}

// A request that no heap can meet; its low 32 bits, which the record prints, are 12345.
volatile size_t g_hugeRequest = 0xFFFFFF0000003039ull;
EXCEPTION_RECORD g_seenRecord = {};

void AllocateTooMuch(void*) {
    void* block = malloc(g_hugeRequest);
    free(block);
}

LONG ReportAndHandle(EXCEPTION_POINTERS* pointers) {
    g_seenRecord = *pointers->ExceptionRecord;
    CrashFilter(pointers);
    return EXCEPTION_EXECUTE_HANDLER;
}

TEST_F(CrashFilterTest, AFailedAllocationLogsItsSizeThenTheReportOfItsException) {
    const TinyFramework::NoMemoryHandler previousHandler =
        TinyFramework::SetRuntimeNewHandler(nullptr);
    const int previousMode = TinyFramework::SetRuntimeNewMode(0);
    ASSERT_NE(previousMode, -1) << "the runtime has no _set_new_mode";
    EXPECT_EQ(TinyFramework::InstallNoMemoryHandler(), 1);
    // The unhandled-exception filter is the last stop of a crashing process; here a guard calls
    // it in its place, so that the test process goes on.
    const BOOL returned =
        TinyFramework::CallWithExceptionFilter(&AllocateTooMuch, nullptr, &ReportAndHandle);
    EXPECT_EQ(TinyFramework::SetRuntimeNewHandler(previousHandler), &TinyFramework::OnNoMemory);
    EXPECT_EQ(TinyFramework::SetRuntimeNewMode(previousMode), 1);
    EXPECT_FALSE(returned);
    EXPECT_EQ(g_seenRecord.ExceptionCode, kOutOfMemory);
    EXPECT_EQ(g_seenRecord.ExceptionFlags, static_cast<DWORD>(EXCEPTION_NONCONTINUABLE));
    ASSERT_EQ(g_seenRecord.NumberParameters, 1u);
    EXPECT_EQ(g_seenRecord.ExceptionInformation[0], g_hugeRequest);
    const std::vector<std::string> messages = m_log.Messages();
    ASSERT_EQ(messages.size(), 4u) << ::testing::PrintToString(messages);
    EXPECT_EQ(messages[0], "OnNoMemory(12345)");
    EXPECT_NE(m_log.Records()[0].find("TinyCrashHandler.cpp("), std::string::npos);
    EXPECT_EQ(messages[3].substr(0, 38), "Fatal exception 0xe0000008\nBacktrace:\n");
}

}  // namespace
