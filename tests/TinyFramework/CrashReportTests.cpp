// The crash filter and the no-memory handler in a real process that really crashes: the report in
// the log file, the minidump, and the chaining to the filter that was there before. Each test
// runs CrashHelper.exe (a copy in a folder of its own) and reads what the crash left behind.

#include "tests/TinyFramework/CrashTestSupport.h"
#include "tests/support/OwnProcesses.h"
#include "tests/support/TestDeadlines.h"
#include "tools/DumpTool/DumpReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <string>

namespace {

using CrashTests::ChildRun;
using CrashTests::CrashHelperRun;
using TestSupport::FileExists;

constexpr DWORD kAccessViolation = 0xC0000005;
constexpr DWORD kIntegerDivideByZero = 0xC0000094;
constexpr DWORD kStackOverflow = 0xC00000FD;
constexpr DWORD kNoMemory = 0xE0000008;
// The helper's absurd allocation: 2^62 + 123456 bytes, of which "%d" shows the low 32 bits.
constexpr uint64_t kAbsurdAllocation = (uint64_t{1} << 62) | 123456;

// Where `text` starts in `log`, or npos.
size_t Find(const std::string& log, const std::string& text) {
    return log.find(text);
}

// The lines of the backtrace that follows "Backtrace:\n" in the crash report, up to the next
// record (a line that starts with '[') or the end of the file.
std::vector<std::string> BacktraceLines(const std::string& log) {
    std::vector<std::string> lines;
    const size_t start = log.find("Backtrace:\n");
    if (start == std::string::npos) {
        return lines;
    }
    size_t position = start + sizeof("Backtrace:\n") - 1;
    while (position < log.size() && log[position] == '\t') {
        const size_t end = log.find('\n', position);
        lines.push_back(log.substr(position, end - position));
        if (end == std::string::npos) {
            break;
        }
        position = end + 1;
    }
    return lines;
}

bool AnyLineContains(const std::vector<std::string>& lines, const std::string& text) {
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
        return line.find(text) != std::string::npos;
    });
}

// The thread id in the header "[pid:tid:..." of the record that holds `text`; 0 if none does.
DWORD ThreadOfRecord(const std::string& log, const std::string& text) {
    const size_t at = log.find(text);
    if (at == std::string::npos) {
        return 0;
    }
    const size_t recordStart = log.rfind("\n[", at);
    const size_t header = recordStart == std::string::npos ? 0 : recordStart + 1;
    const size_t firstColon = log.find(':', header);
    if (firstColon == std::string::npos) {
        return 0;
    }
    return static_cast<DWORD>(strtoul(log.c_str() + firstColon + 1, nullptr, 10));
}

bool ThreadListHolds(const DumpTool::DumpReader& reader, uint32_t threadId) {
    const auto& threads = reader.Threads();
    return std::any_of(threads.begin(), threads.end(),
                       [&](const DumpTool::DumpThread& thread) { return thread.id == threadId; });
}

class CrashReportTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(TestSupport::JoinOwnProcessJob());
        ASSERT_TRUE(m_helper.IsReady());
    }
    void TearDown() override {
        EXPECT_EQ(TestSupport::OwnProcessesLeftAfter(L"CrashHelper.exe",
                                                     TestSupport::kGenerousDeadlineMs),
                  0);
    }

    // Runs the helper and checks that it ended by itself.
    ChildRun Crash(const std::wstring& kind, const std::wstring& options = L"") {
        const ChildRun run = m_helper.Crash(kind, options);
        EXPECT_TRUE(run.started);
        EXPECT_TRUE(run.ended) << "the helper hung and was ended by force";
        return run;
    }

    // The report's order: the two report lines, then the fatal exception with its backtrace.
    void ExpectReportOrder(const std::string& log, const std::string& fatalLine) {
        const size_t memory = Find(log, "Physical Memory: ");
        const size_t disk = Find(log, "Disk(C) Free Space: ");
        const size_t fatal = Find(log, fatalLine);
        ASSERT_NE(fatal, std::string::npos) << log;
        ASSERT_NE(memory, std::string::npos) << log;
        ASSERT_NE(disk, std::string::npos) << log;
        EXPECT_LT(memory, disk);
        EXPECT_LT(disk, fatal);
        EXPECT_EQ(Find(log, fatalLine + "Backtrace:\n"), fatal) << log;
    }

    CrashHelperRun m_helper;
};

TEST_F(CrashReportTest, AccessViolationIsReportedByNameAfterTheMemoryAndDiskLines) {
    const ChildRun run = Crash(L"access-violation");
    EXPECT_EQ(run.exitCode, kAccessViolation);
    ExpectReportOrder(m_helper.Log(), "Fatal exception EXCEPTION_ACCESS_VIOLATION\n");
}

TEST_F(CrashReportTest, AccessViolationBacktraceStartsInTheCrashingFunction) {
    Crash(L"access-violation");
    const std::vector<std::string> lines = BacktraceLines(m_helper.Log());
    ASSERT_FALSE(lines.empty()) << m_helper.Log();
    EXPECT_NE(lines[0].find("CrashByAccessViolation [0x"), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find("CrashHelper.cpp:"), std::string::npos) << lines[0];
    EXPECT_TRUE(AnyLineContains(lines, "wmain")) << m_helper.Log();
}

TEST_F(CrashReportTest, AccessViolationLeavesAMinidumpOfTheCrashingThread) {
    Crash(L"access-violation");
    DumpTool::DumpReader reader;
    ASSERT_EQ(reader.Open(m_helper.DefaultDumpPath()), DumpTool::DumpOpenResult::opened);
    EXPECT_EQ(TestSupport::ReadWholeFile(m_helper.DefaultDumpPath()).substr(0, 4), "MDMP");
    EXPECT_EQ(reader.Exception().code, kAccessViolation);
    EXPECT_TRUE(ThreadListHolds(reader, reader.Exception().threadId));
    // The filter runs on the crashing thread, which is also the thread of the report's record.
    EXPECT_EQ(reader.Exception().threadId,
              ThreadOfRecord(m_helper.Log(), "Fatal exception EXCEPTION_ACCESS_VIOLATION"));
    // A write to address 0: the access kind and the address are the record's two parameters.
    ASSERT_EQ(reader.Exception().parameters.size(), 2u);
    EXPECT_EQ(reader.Exception().parameters[0], 1u);
    EXPECT_EQ(reader.Exception().parameters[1], 0u);
}

TEST_F(CrashReportTest, DumpListsNoModuleUnderWineAsNoneIsMarkedReferencedByMemory) {
    // The dump callback keeps only modules that the platform marks as referenced by memory. Wine's
    // MiniDumpWriteDump offers every module without that mark, so under Wine the module list is
    // empty (Windows marks the modules that the scanned memory points into). DumpTool's --image
    // exists for such dumps.
    Crash(L"access-violation");
    DumpTool::DumpReader reader;
    ASSERT_EQ(reader.Open(m_helper.DefaultDumpPath()), DumpTool::DumpOpenResult::opened);
    EXPECT_TRUE(reader.Modules().empty());
    EXPECT_FALSE(reader.Threads().empty());
}

TEST_F(CrashReportTest, IntegerDivideByZeroIsReportedByNameWithItsFunction) {
    const ChildRun run = Crash(L"divide-by-zero");
    EXPECT_EQ(run.exitCode, kIntegerDivideByZero);
    const std::string log = m_helper.Log();
    ExpectReportOrder(log, "Fatal exception EXCEPTION_INT_DIVIDE_BY_ZERO\n");
    const std::vector<std::string> lines = BacktraceLines(log);
    ASSERT_FALSE(lines.empty()) << log;
    EXPECT_NE(lines[0].find("CrashByIntegerDivideByZero [0x"), std::string::npos) << lines[0];
}

TEST_F(CrashReportTest, IntegerDivideByZeroDumpCarriesItsCode) {
    Crash(L"divide-by-zero");
    DumpTool::DumpReader reader;
    ASSERT_EQ(reader.Open(m_helper.DefaultDumpPath()), DumpTool::DumpOpenResult::opened);
    EXPECT_EQ(reader.Exception().code, kIntegerDivideByZero);
    EXPECT_TRUE(ThreadListHolds(reader, reader.Exception().threadId));
}

TEST_F(CrashReportTest, FailedOperatorNewLogsTheSizeFirstThenTheReportInHexadecimal) {
    const ChildRun run = Crash(L"new-failure");
    EXPECT_EQ(run.exitCode, kNoMemory);
    const std::string log = m_helper.Log();
    const size_t noMemory = Find(log, "] : OnNoMemory(123456)\n");
    ASSERT_NE(noMemory, std::string::npos) << log;
    EXPECT_LT(noMemory, Find(log, "Physical Memory: "));
    ExpectReportOrder(log, "Fatal exception 0xe0000008\n");
    EXPECT_TRUE(AnyLineContains(BacktraceLines(log), "CrashByOperatorNewFailure")) << log;
}

TEST_F(CrashReportTest, FailedMallocGoesToTheSameHandler) {
    const ChildRun run = Crash(L"malloc-failure");
    EXPECT_EQ(run.exitCode, kNoMemory);
    const std::string log = m_helper.Log();
    const size_t noMemory = Find(log, "] : OnNoMemory(123456)\n");
    ASSERT_NE(noMemory, std::string::npos) << log;
    EXPECT_LT(noMemory, Find(log, "Fatal exception 0xe0000008\n"));
    EXPECT_TRUE(AnyLineContains(BacktraceLines(log), "CrashByMallocFailure")) << log;
}

TEST_F(CrashReportTest, FailedAllocationDumpCarriesTheNoncontinuableCodeAndTheSize) {
    Crash(L"new-failure");
    DumpTool::DumpReader reader;
    ASSERT_EQ(reader.Open(m_helper.DefaultDumpPath()), DumpTool::DumpOpenResult::opened);
    EXPECT_EQ(reader.Exception().code, kNoMemory);
    EXPECT_EQ(reader.Exception().flags, static_cast<uint32_t>(EXCEPTION_NONCONTINUABLE));
    ASSERT_EQ(reader.Exception().parameters.size(), 1u);
    EXPECT_EQ(reader.Exception().parameters[0], kAbsurdAllocation);
    EXPECT_TRUE(ThreadListHolds(reader, reader.Exception().threadId));
}

TEST_F(CrashReportTest, UncaughtCppExceptionEndsInTerminateWithoutReachingTheFilter) {
    // GCC raises its exceptions with the code 0x20474343 ("GCC"), not MSVC's 0xe06d7363. One that
    // nothing catches is taken by an exception frame of MinGW's start-up code, which lets it
    // continue; libgcc then calls std::terminate, which aborts. The crash filter is never asked:
    // no report, no dump, and abort's exit code 3.
    const ChildRun run = Crash(L"cpp-exception");
    EXPECT_EQ(run.exitCode, 3u);
    EXPECT_NE(run.output.find("terminate called after throwing an instance of "
                              "'std::runtime_error'"),
              std::string::npos)
        << run.output;
    EXPECT_EQ(m_helper.Log().find("Fatal exception"), std::string::npos) << m_helper.Log();
    EXPECT_FALSE(FileExists(m_helper.DefaultDumpPath()));
}

TEST_F(CrashReportTest, StackOverflowEndsTheProcessInsideTheFilterUnderWine) {
    // The filter may die on a stack overflow, and under Wine it does: the overflow is raised with
    // about one page of stack left, the filter's first steps need more, and Wine ends the process
    // at that second fault ("stack overflow ... bytes" in its own log). The parent then reads exit
    // code 0 (the host sees status 1), not 0xC00000FD. Nothing has been logged or dumped by then.
    // What must hold on any platform is that the process ends by itself.
    const ChildRun run = Crash(L"stack-overflow");
    EXPECT_EQ(run.exitCode, 0u);
    EXPECT_EQ(m_helper.Log().find("Fatal exception"), std::string::npos) << m_helper.Log();
    EXPECT_FALSE(FileExists(m_helper.DefaultDumpPath()));
}

TEST_F(CrashReportTest, WithoutADumpPathTheReportIsLoggedAndNoDumpAppears) {
    const ChildRun run = Crash(L"access-violation", L"--no-dump-path");
    EXPECT_EQ(run.exitCode, kAccessViolation);
    ExpectReportOrder(m_helper.Log(), "Fatal exception EXCEPTION_ACCESS_VIOLATION\n");
    EXPECT_FALSE(FileExists(m_helper.DefaultDumpPath()));
}

TEST_F(CrashReportTest, DumpGoesToTheFileNamed) {
    const std::wstring dumpPath = m_helper.PathOf(L"named.dmp");
    Crash(L"divide-by-zero", L"--dump " + CrashTests::Quote(dumpPath));
    DumpTool::DumpReader reader;
    ASSERT_EQ(reader.Open(dumpPath), DumpTool::DumpOpenResult::opened);
    EXPECT_EQ(reader.Exception().code, kIntegerDivideByZero);
    EXPECT_FALSE(FileExists(m_helper.DefaultDumpPath()));
}

TEST_F(CrashReportTest, PreviousFilterIsCalledAfterTheDumpAndItsResultEndsTheProcess) {
    const ChildRun run = Crash(L"access-violation", L"--previous-filter");
    // The previous filter answered EXCEPTION_EXECUTE_HANDLER: the process ends with the code.
    EXPECT_EQ(run.exitCode, kAccessViolation);
    EXPECT_EQ(TestSupport::ReadWholeFile(m_helper.PreviousFilterMarkerPath()), "0xc0000005");
    EXPECT_TRUE(FileExists(m_helper.DefaultDumpPath()));
    ExpectReportOrder(m_helper.Log(), "Fatal exception EXCEPTION_ACCESS_VIOLATION\n");
}

TEST_F(CrashReportTest, WithoutAFilterOfTheProgramsOwnTheProcessEndsWithTheExceptionCode) {
    // MinGW's start-up code installs a filter before main, so the crash filter always has a
    // previous one; for an access violation it continues the search, and the platform's default
    // handling ends the process. (Wine's "Unhandled page fault" line on that path goes to the
    // host's error stream, not to the process's, so a test cannot see it.)
    const ChildRun run = Crash(L"access-violation");
    EXPECT_EQ(run.exitCode, kAccessViolation);
    EXPECT_FALSE(FileExists(m_helper.PreviousFilterMarkerPath()));
}

}  // namespace
