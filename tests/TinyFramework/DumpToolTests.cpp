// DumpTool.exe on a dump that a real crash left (through CrashHelper.exe), and on files that are
// no crash dump.

#include "tests/TinyFramework/CrashTestSupport.h"
#include "tests/support/OwnProcesses.h"
#include "tests/support/ProgramFolder.h"
#include "tests/support/TestDeadlines.h"
#include "tools/DumpTool/DumpReader.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <dbghelp.h>

#include <cstring>
#include <string>

namespace {

using CrashTests::ChildRun;
using CrashTests::CrashHelperRun;
using CrashTests::Quote;

std::string Narrow(const std::wstring& text) {
    return std::string(text.begin(), text.end());
}

class DumpToolTest : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(TestSupport::JoinOwnProcessJob());
        ASSERT_TRUE(m_helper.IsReady());
    }
    void TearDown() override {
        for (const wchar_t* program : {L"CrashHelper.exe", L"DumpTool.exe"}) {
            EXPECT_EQ(TestSupport::OwnProcessesLeftAfter(program, TestSupport::kGenerousDeadlineMs),
                      0);
        }
    }

    // Runs DumpTool.exe with the arguments and checks that it ended by itself.
    ChildRun RunDumpTool(const std::wstring& arguments) {
        const ChildRun run = CrashTests::RunChild(
            TestSupport::ProgramBesideThisOne(L"DumpTool.exe"), arguments,
            m_helper.PathOf(L"dumptool-" + std::to_wstring(m_runs++) + L".txt"));
        EXPECT_TRUE(run.started);
        EXPECT_TRUE(run.ended) << "DumpTool hung and was ended by force";
        return run;
    }

    // Crashes the helper by an access violation and reads the dump it left.
    void CrashAndReadDump() {
        m_helper.Crash(L"access-violation");
        ASSERT_EQ(m_reader.Open(m_helper.DefaultDumpPath()), DumpTool::DumpOpenResult::opened);
    }

    // The dump with the helper's program added: under Wine the dump lists no module (see
    // CrashReportTests), and the program's file is what gives the addresses their names.
    std::wstring DumpWithProgram() const {
        return Quote(m_helper.DefaultDumpPath()) + L" --image " + Quote(m_helper.ProgramPath());
    }

    CrashHelperRun m_helper;
    DumpTool::DumpReader m_reader;
    int m_runs = 0;
};

TEST(DumpToolNames, CodesOfTheCrashTablePrintTheirConstantNames) {
    EXPECT_EQ(DumpTool::ExceptionName(0xC0000005), "EXCEPTION_ACCESS_VIOLATION");
    EXPECT_EQ(DumpTool::ExceptionName(0x80000003), "EXCEPTION_BREAKPOINT");
    EXPECT_EQ(DumpTool::ExceptionName(0xC00000FD), "EXCEPTION_STACK_OVERFLOW");
}

TEST(DumpToolNames, OtherCodesPrintAsEightLowerCaseHexadecimalDigits) {
    EXPECT_EQ(DumpTool::ExceptionName(0xE0000008), "0xe0000008");
    EXPECT_EQ(DumpTool::ExceptionName(0xE06D7363), "0xe06d7363");
    EXPECT_EQ(DumpTool::ExceptionName(0x20474343), "0x20474343");
    EXPECT_EQ(DumpTool::ExceptionName(0x1), "0x00000001");
}

TEST_F(DumpToolTest, NamesTheExceptionTheCrashingThreadAndTheCrashingFunction) {
    CrashAndReadDump();
    const ChildRun run = RunDumpTool(DumpWithProgram());
    EXPECT_EQ(run.exitCode, 0u) << run.output;
    EXPECT_NE(run.output.find("Exception:       0xc0000005 EXCEPTION_ACCESS_VIOLATION\n"),
              std::string::npos)
        << run.output;
    EXPECT_NE(run.output.find("  access:        write at 0x0000000000000000\n"), std::string::npos)
        << run.output;
    EXPECT_NE(
        run.output.find("Crashing thread: " + std::to_string(m_reader.Exception().threadId) + "\n"),
        std::string::npos)
        << run.output;
    EXPECT_NE(run.output.find("#0  "), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("CrashHelper.exe!CrashByAccessViolation+0x"), std::string::npos)
        << run.output;
}

TEST_F(DumpToolTest, StackOfTheCrashingThreadReachesTheCallerThroughTheProgramsUnwindData) {
    CrashAndReadDump();
    const ChildRun run = RunDumpTool(DumpWithProgram());
    const size_t crashing = run.output.find("CrashHelper.exe!CrashByAccessViolation+0x");
    const size_t caller = run.output.find("CrashHelper.exe!wmain+0x");
    ASSERT_NE(crashing, std::string::npos) << run.output;
    ASSERT_NE(caller, std::string::npos) << run.output;
    EXPECT_LT(crashing, caller);
}

TEST_F(DumpToolTest, WithoutTheProgramAddressesStayUnnamed) {
    CrashAndReadDump();
    const ChildRun run = RunDumpTool(Quote(m_helper.DefaultDumpPath()));
    EXPECT_EQ(run.exitCode, 0u) << run.output;
    EXPECT_NE(run.output.find("Modules (0 in the dump):\n"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("  #0  0x"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("(no module)"), std::string::npos) << run.output;
    EXPECT_EQ(run.output.find("CrashByAccessViolation"), std::string::npos) << run.output;
}

TEST_F(DumpToolTest, JsonCarriesTheSameFacts) {
    CrashAndReadDump();
    const ChildRun run = RunDumpTool(DumpWithProgram() + L" --json");
    ASSERT_EQ(run.exitCode, 0u) << run.output;
    const nlohmann::json report = nlohmann::json::parse(run.output, nullptr, false);
    ASSERT_FALSE(report.is_discarded()) << run.output;
    EXPECT_EQ(report["exception"]["code"], 0xC0000005u);
    EXPECT_EQ(report["exception"]["code_hex"], "0xc0000005");
    EXPECT_EQ(report["exception"]["name"], "EXCEPTION_ACCESS_VIOLATION");
    EXPECT_EQ(report["exception"]["module"], "CrashHelper.exe");
    EXPECT_EQ(report["exception"]["parameters"], nlohmann::json::array({"0x1", "0x0"}));
    EXPECT_EQ(report["crashing_thread"], m_reader.Exception().threadId);
    ASSERT_EQ(report["threads"].size(), m_reader.Threads().size());
    ASSERT_EQ(report["modules"].size(), 1u);
    EXPECT_EQ(report["modules"][0]["in_dump"], false);
    EXPECT_EQ(report["modules"][0]["name"], "CrashHelper.exe");
    ASSERT_FALSE(report["stack"].empty());
    EXPECT_EQ(report["stack"][0]["function"], "CrashByAccessViolation");
    EXPECT_EQ(report["stack"][0]["module"], "CrashHelper.exe");
    EXPECT_EQ(report["stack"][0]["address"], report["exception"]["address"]);
    EXPECT_TRUE(report["stack"][0]["line"].is_number());
}

TEST_F(DumpToolTest, MissingFileIsAnErrorNamingIt) {
    const std::wstring path = m_helper.PathOf(L"absent.dmp");
    const ChildRun run = RunDumpTool(Quote(path));
    EXPECT_EQ(run.exitCode, 1u);
    EXPECT_EQ(run.output, "DumpTool: no such file: " + Narrow(path) + "\n");
}

TEST_F(DumpToolTest, FileThatIsNoMinidumpIsAnError) {
    const std::wstring path = m_helper.PathOf(L"text.dmp");
    ASSERT_TRUE(TestSupport::WriteWholeFile(path, "This is a log file, not a crash dump.\n"));
    const ChildRun run = RunDumpTool(Quote(path));
    EXPECT_EQ(run.exitCode, 1u);
    EXPECT_EQ(run.output, "DumpTool: not a minidump: " + Narrow(path) + "\n");
}

TEST_F(DumpToolTest, TruncatedMinidumpIsNoMinidump) {
    CrashAndReadDump();
    const std::string whole = TestSupport::ReadWholeFile(m_helper.DefaultDumpPath());
    const std::wstring path = m_helper.PathOf(L"cut.dmp");
    // The header alone: its stream directory lies beyond the end of the file.
    ASSERT_TRUE(TestSupport::WriteWholeFile(path, whole.substr(0, sizeof(MINIDUMP_HEADER))));
    const ChildRun run = RunDumpTool(Quote(path));
    EXPECT_EQ(run.exitCode, 1u);
    EXPECT_EQ(run.output, "DumpTool: not a minidump: " + Narrow(path) + "\n");
}

TEST_F(DumpToolTest, DumpWithoutAnExceptionIsNoCrashDump) {
    // A real crash dump whose exception stream is marked unused: what a dump of a live process
    // looks like. (Wine's MiniDumpWriteDump of the calling process without exception information
    // crashes the caller, so the test cannot simply write one.)
    CrashAndReadDump();
    std::string bytes = TestSupport::ReadWholeFile(m_helper.DefaultDumpPath());
    ASSERT_GE(bytes.size(), sizeof(MINIDUMP_HEADER));
    MINIDUMP_HEADER header;
    memcpy(&header, bytes.data(), sizeof(header));
    int cleared = 0;
    for (ULONG index = 0; index < header.NumberOfStreams; ++index) {
        const size_t at = header.StreamDirectoryRva + index * sizeof(MINIDUMP_DIRECTORY);
        ASSERT_LE(at + sizeof(MINIDUMP_DIRECTORY), bytes.size());
        MINIDUMP_DIRECTORY entry;
        memcpy(&entry, bytes.data() + at, sizeof(entry));
        if (entry.StreamType == ExceptionStream) {
            entry.StreamType = UnusedStream;
            memcpy(&bytes[at], &entry, sizeof(entry));
            ++cleared;
        }
    }
    ASSERT_EQ(cleared, 1);
    const std::wstring path = m_helper.PathOf(L"live.dmp");
    ASSERT_TRUE(TestSupport::WriteWholeFile(path, bytes));
    const ChildRun run = RunDumpTool(Quote(path));
    EXPECT_EQ(run.exitCode, 1u);
    EXPECT_EQ(run.output,
              "DumpTool: no exception in the dump (not a crash dump): " + Narrow(path) + "\n");
}

TEST_F(DumpToolTest, WithoutArgumentsItPrintsItsUsage) {
    const ChildRun run = RunDumpTool(L"");
    EXPECT_EQ(run.exitCode, 1u);
    EXPECT_EQ(run.output,
              "DumpTool: usage: DumpTool <file.dmp> [--json] [--image <path>[@<base>]]...\n");
}

}  // namespace
