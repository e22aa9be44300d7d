#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/Common/TinyProcess.h"
#include "tests/support/HandleState.h"
#include "tests/support/LogCapture.h"
#include "tests/support/TestDeadlines.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace {

using TestSupport::IsOpenHandle;
using TinyFramework::g_dllDirectoryLock;
using TinyFramework::GetErrorText;
using TinyFramework::IsNotWow64;
using TinyFramework::SetGpuPriorityClass;
using TinyFramework::SetGpuPriorityClassIn;
using TinyFramework::TinyDllDirectory;
using TinyFramework::TinyJob;
using TinyFramework::TinyLibrary;

// Only ends a hang: a healthy run waits milliseconds.
constexpr DWORD kDeadlineMs = TestSupport::kGenerousDeadlineMs;

constexpr wchar_t kProbeName[] = L"TinyLoadProbe.dll";
constexpr wchar_t kMissingName[] = L"TinyFrameworkNoSuchLibrary.dll";
constexpr DWORD kModuleNotFound = 126;
constexpr DWORD kSilentErrorMode = SEM_FAILCRITICALERRORS;
// D3DKMT_SCHEDULINGPRIORITYCLASS_NORMAL.
constexpr INT kNormalGpuPriority = 2;

typedef DWORD (*ErrorModeAtLoadFunction)();

bool IsProbeLoaded() {
    return GetModuleHandleW(kProbeName) != nullptr;
}

std::string SourcePathOf(const std::string& record) {
    const size_t start = record.find("] ");
    const size_t end = record.find("(", start);
    if (start == std::string::npos || end == std::string::npos) {
        return std::string();
    }
    return record.substr(start + 2, end - start - 2);
}

// Every test that loads the probe starts with it unloaded and leaves it so, because the probe
// records the error mode only when it is first attached.
class TinyLibraryTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_FALSE(IsProbeLoaded()); }
    void TearDown() override {
        for (int extra = 0; extra < 8 && IsProbeLoaded(); ++extra) {
            FreeLibrary(GetModuleHandleW(kProbeName));
        }
    }

    TestSupport::LogCapture m_log;
};

// A copy of this test program, started suspended: it runs no code, and only ends when it is
// killed. Killed at the end of the test whatever happened.
class SuspendedChild {
public:
    SuspendedChild() : m_info() {
        wchar_t path[MAX_PATH] = {};
        GetModuleFileNameW(nullptr, path, MAX_PATH);
        std::wstring commandLine = std::wstring(L"\"") + path + L"\" --gtest_list_tests";
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        m_started = CreateProcessW(path, &commandLine[0], nullptr, nullptr, FALSE, CREATE_SUSPENDED,
                                   nullptr, nullptr, &startup, &m_info) != FALSE;
    }
    ~SuspendedChild() {
        if (m_started) {
            TerminateProcess(m_info.hProcess, 1);
            CloseHandle(m_info.hThread);
            CloseHandle(m_info.hProcess);
        }
    }
    SuspendedChild(const SuspendedChild&) = delete;
    SuspendedChild& operator=(const SuspendedChild&) = delete;

    bool Started() const { return m_started; }
    HANDLE Process() const { return m_info.hProcess; }
    bool IsRunning() const { return WaitForSingleObject(m_info.hProcess, 0) == WAIT_TIMEOUT; }

private:
    PROCESS_INFORMATION m_info;
    bool m_started = false;
};

// ---- TinyJob ---------------------------------------------------------------------------------

TEST(TinyJobTest, StartsEmptyAndCreatesAJob) {
    TinyJob job;
    EXPECT_TRUE(job.IsEmpty());
    EXPECT_EQ(job.Handle(), nullptr);
    ASSERT_TRUE(job.Create(nullptr, nullptr));
    EXPECT_FALSE(job.IsEmpty());
    JOBOBJECT_BASIC_ACCOUNTING_INFORMATION accounting = {};
    EXPECT_TRUE(QueryInformationJobObject(job.Handle(), JobObjectBasicAccountingInformation,
                                          &accounting, sizeof(accounting), nullptr));
    EXPECT_EQ(accounting.TotalProcesses, 0u);
    CloseHandle(job.Handle());
}

TEST(TinyJobTest, AssignProcessPutsTheChildInTheJob) {
    SuspendedChild child;
    ASSERT_TRUE(child.Started());
    TinyJob job;
    ASSERT_TRUE(job.Create(nullptr, nullptr));
    TestSupport::LogCapture log;

    EXPECT_TRUE(job.AssignProcess(child.Process()));

    BOOL inJob = FALSE;
    EXPECT_TRUE(IsProcessInJob(child.Process(), job.Handle(), &inJob));
    EXPECT_TRUE(inJob);
    EXPECT_TRUE(log.Records().empty());
    CloseHandle(job.Handle());
}

// Wine reports no limit flags through QueryInformationJobObject, yet applies them: the
// kill-on-close limit is observed by what it does.
TEST(TinyJobTest, AssignProcessMakesTheJobKillItsProcessesWhenItCloses) {
    SuspendedChild child;
    ASSERT_TRUE(child.Started());
    TinyJob job;
    ASSERT_TRUE(job.Create(nullptr, nullptr));
    ASSERT_TRUE(job.AssignProcess(child.Process()));
    ASSERT_TRUE(child.IsRunning());

    ASSERT_TRUE(CloseHandle(job.Handle()));

    EXPECT_EQ(WaitForSingleObject(child.Process(), kDeadlineMs), WAIT_OBJECT_0);
}

TEST(TinyJobTest, WithoutAssignProcessClosingTheJobLeavesTheChildRunning) {
    SuspendedChild child;
    ASSERT_TRUE(child.Started());
    TinyJob job;
    ASSERT_TRUE(job.Create(nullptr, nullptr));
    ASSERT_TRUE(AssignProcessToJobObject(job.Handle(), child.Process()));

    ASSERT_TRUE(CloseHandle(job.Handle()));

    EXPECT_TRUE(child.IsRunning());
}

TEST(TinyJobTest, CloseLeavesTheJobOpenAndTheChildRunning) {
    SuspendedChild child;
    ASSERT_TRUE(child.Started());
    TinyJob job;
    ASSERT_TRUE(job.Create(nullptr, nullptr));
    ASSERT_TRUE(job.AssignProcess(child.Process()));
    const HANDLE handle = job.Handle();

    job.Close();

    EXPECT_TRUE(job.IsEmpty());
    EXPECT_TRUE(IsOpenHandle(handle));
    EXPECT_TRUE(child.IsRunning());
    // The job's last handle, closed for real, takes the child with it.
    ASSERT_TRUE(CloseHandle(handle));
    EXPECT_EQ(WaitForSingleObject(child.Process(), kDeadlineMs), WAIT_OBJECT_0);
}

TEST(TinyJobTest, DestructionLeavesTheJobOpen) {
    HANDLE handle = nullptr;
    {
        TinyJob job;
        ASSERT_TRUE(job.Create(nullptr, nullptr));
        handle = job.Handle();
    }
    EXPECT_TRUE(IsOpenHandle(handle));
    EXPECT_TRUE(CloseHandle(handle));
}

TEST(TinyJobTest, CloseOnAnEmptyJobDoesNothing) {
    TinyJob job;
    job.Close();
    EXPECT_TRUE(job.IsEmpty());
}

TEST(TinyJobTest, AssignProcessOnAnEmptyJobFailsWithoutLog) {
    TestSupport::LogCapture log;
    TinyJob job;
    EXPECT_FALSE(job.AssignProcess(GetCurrentProcess()));
    EXPECT_TRUE(log.Records().empty());
}

TEST(TinyJobTest, AssignProcessFailureIsLoggedAtErrorWithTheSourcePath) {
    TinyJob job;
    ASSERT_TRUE(job.Create(nullptr, nullptr));
    // An event is no process: the system refuses to put it in a job.
    const HANDLE notAProcess = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ASSERT_NE(notAProcess, nullptr);
    TestSupport::LogCapture log;

    EXPECT_FALSE(job.AssignProcess(notAProcess));

    ASSERT_EQ(log.Messages(), std::vector<std::string>{"Failed to AssignProcessToJobObject"});
    const std::string record = log.Records()[0];
    EXPECT_NE(record.find(":ERROR] "), std::string::npos) << record;
    EXPECT_EQ(SourcePathOf(record), "TinyFramework/Common/TinyProcess.cpp") << record;
    CloseHandle(notAProcess);
    CloseHandle(job.Handle());
}

// ---- TinyLibrary -----------------------------------------------------------------------------

TEST_F(TinyLibraryTest, StartsEmptyAndOwning) {
    TinyLibrary library;
    EXPECT_TRUE(library.IsEmpty());
    EXPECT_EQ(library.Handle(), nullptr);
    EXPECT_EQ(library.GetProcAddress("LoadProbeErrorModeAtLoad"), nullptr);
    library.Free();
    EXPECT_TRUE(library.IsEmpty());
}

TEST_F(TinyLibraryTest, LoadOfAMissingFileLogsTheErrorAndItsText) {
    TinyLibrary library;
    EXPECT_FALSE(library.Load(kMissingName));
    EXPECT_TRUE(library.IsEmpty());
    EXPECT_EQ(GetLastError(), kModuleNotFound);
    const std::string expected =
        std::string("Failed to LoadLibrary(126,") + GetErrorText(kModuleNotFound) + ")";
    ASSERT_EQ(m_log.Messages(), std::vector<std::string>{expected});
    EXPECT_EQ(SourcePathOf(m_log.Records()[0]), "TinyFramework/Common/TinyProcess.cpp");
    EXPECT_NE(m_log.Records()[0].find(":ERROR] "), std::string::npos);
}

TEST_F(TinyLibraryTest, LoadSilentlyOfAMissingFileLogsNothing) {
    TinyLibrary library;
    EXPECT_FALSE(library.LoadSilently(kMissingName));
    EXPECT_TRUE(library.IsEmpty());
    EXPECT_EQ(GetLastError(), kModuleNotFound);
    EXPECT_TRUE(m_log.Records().empty());
}

TEST_F(TinyLibraryTest, ConstructorWithAFileNameLoadsSilently) {
    TinyLibrary missing(kMissingName);
    EXPECT_TRUE(missing.IsEmpty());
    EXPECT_TRUE(m_log.Records().empty());
    {
        TinyLibrary probe(kProbeName);
        EXPECT_FALSE(probe.IsEmpty());
        EXPECT_EQ(probe.Handle(), GetModuleHandleW(kProbeName));
    }
    EXPECT_FALSE(IsProbeLoaded());
}

TEST_F(TinyLibraryTest, LoadRunsWithCriticalErrorDialogsOffAndRestoresTheMode) {
    DWORD previous = 0;
    ASSERT_TRUE(SetThreadErrorMode(SEM_NOGPFAULTERRORBOX, &previous));
    TinyLibrary library;
    const BOOL loaded = library.Load(kProbeName);
    const DWORD modeAfter = GetThreadErrorMode();
    SetThreadErrorMode(previous, nullptr);

    ASSERT_TRUE(loaded);
    EXPECT_EQ(modeAfter, static_cast<DWORD>(SEM_NOGPFAULTERRORBOX));
    const ErrorModeAtLoadFunction modeAtLoad = reinterpret_cast<ErrorModeAtLoadFunction>(
        reinterpret_cast<void*>(library.GetProcAddress("LoadProbeErrorModeAtLoad")));
    ASSERT_NE(modeAtLoad, nullptr);
    EXPECT_EQ(modeAtLoad(), kSilentErrorMode);
}

TEST_F(TinyLibraryTest, LoadSilentlyRunsWithCriticalErrorDialogsOffToo) {
    DWORD previous = 0;
    ASSERT_TRUE(SetThreadErrorMode(0, &previous));
    TinyLibrary library;
    const BOOL loaded = library.LoadSilently(kProbeName);
    const DWORD modeAfter = GetThreadErrorMode();
    SetThreadErrorMode(previous, nullptr);

    ASSERT_TRUE(loaded);
    EXPECT_EQ(modeAfter, 0u);
    const ErrorModeAtLoadFunction modeAtLoad = reinterpret_cast<ErrorModeAtLoadFunction>(
        reinterpret_cast<void*>(library.GetProcAddress("LoadProbeErrorModeAtLoad")));
    ASSERT_NE(modeAtLoad, nullptr);
    EXPECT_EQ(modeAtLoad(), kSilentErrorMode);
}

TEST_F(TinyLibraryTest, DestructionFreesALoadedModule) {
    {
        TinyLibrary library;
        ASSERT_TRUE(library.Load(kProbeName));
        EXPECT_TRUE(IsProbeLoaded());
    }
    EXPECT_FALSE(IsProbeLoaded());
}

TEST_F(TinyLibraryTest, AttachThenDestructionFreesNothing) {
    const HMODULE module = LoadLibraryW(kProbeName);
    ASSERT_NE(module, nullptr);
    {
        TinyLibrary library;
        EXPECT_TRUE(library.Attach(module));
        EXPECT_EQ(library.Handle(), module);
    }
    // The one reference taken above is still there: the module stays until it is freed here.
    EXPECT_EQ(GetModuleHandleW(kProbeName), module);
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_FALSE(IsProbeLoaded());
}

TEST_F(TinyLibraryTest, AttachThenFreeEmptiesWithoutFreeing) {
    const HMODULE module = LoadLibraryW(kProbeName);
    ASSERT_NE(module, nullptr);
    TinyLibrary library;
    ASSERT_TRUE(library.Attach(module));
    library.Free();
    EXPECT_TRUE(library.IsEmpty());
    EXPECT_EQ(GetModuleHandleW(kProbeName), module);
    EXPECT_TRUE(FreeLibrary(module));
}

TEST_F(TinyLibraryTest, AttachOfNullReturnsFalseAndEmpties) {
    TinyLibrary library;
    ASSERT_TRUE(library.Load(kProbeName));
    const HMODULE module = library.Handle();
    EXPECT_FALSE(library.Attach(nullptr));
    EXPECT_TRUE(library.IsEmpty());
    // What was held is not freed by Attach.
    EXPECT_EQ(GetModuleHandleW(kProbeName), module);
    EXPECT_TRUE(FreeLibrary(module));
}

TEST_F(TinyLibraryTest, DetachHandsTheModuleToTheCaller) {
    HMODULE module = nullptr;
    {
        TinyLibrary library;
        ASSERT_TRUE(library.Load(kProbeName));
        module = library.Detach();
        EXPECT_TRUE(library.IsEmpty());
    }
    EXPECT_EQ(GetModuleHandleW(kProbeName), module);
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_FALSE(IsProbeLoaded());
}

TEST_F(TinyLibraryTest, FreeUnloadsAnOwnedModule) {
    TinyLibrary library;
    ASSERT_TRUE(library.Load(kProbeName));
    library.Free();
    EXPECT_TRUE(library.IsEmpty());
    EXPECT_FALSE(IsProbeLoaded());
}

TEST_F(TinyLibraryTest, LoadFreesTheModuleHeldBefore) {
    TinyLibrary library;
    ASSERT_TRUE(library.Load(kProbeName));
    ASSERT_TRUE(library.Load(L"version.dll"));
    EXPECT_FALSE(IsProbeLoaded());
    EXPECT_EQ(library.Handle(), GetModuleHandleW(L"version.dll"));
}

TEST_F(TinyLibraryTest, ResetWithAnotherModuleFreesTheHeldOne) {
    TinyLibrary library;
    ASSERT_TRUE(library.Load(kProbeName));
    EXPECT_FALSE(library.Reset(nullptr));
    EXPECT_TRUE(library.IsEmpty());
    EXPECT_FALSE(IsProbeLoaded());
}

TEST_F(TinyLibraryTest, ResetWithTheHeldModuleKeepsIt) {
    TinyLibrary library;
    ASSERT_TRUE(library.Load(kProbeName));
    const HMODULE module = library.Handle();
    EXPECT_TRUE(library.Reset(module));
    EXPECT_EQ(library.Handle(), module);
    EXPECT_EQ(GetModuleHandleW(kProbeName), module);
}

TEST_F(TinyLibraryTest, ResetTakesOwnershipOfTheNewModule) {
    const HMODULE module = LoadLibraryW(kProbeName);
    ASSERT_NE(module, nullptr);
    {
        TinyLibrary library;
        EXPECT_TRUE(library.Reset(module));
    }
    EXPECT_FALSE(IsProbeLoaded());
}

TEST_F(TinyLibraryTest, ResetAfterAttachFreesTheAttachedModule) {
    const HMODULE module = LoadLibraryW(kProbeName);
    ASSERT_NE(module, nullptr);
    TinyLibrary library;
    ASSERT_TRUE(library.Attach(module));
    EXPECT_FALSE(library.Reset(nullptr));
    EXPECT_FALSE(IsProbeLoaded());
}

TEST_F(TinyLibraryTest, GetProcAddressFindsAnExport) {
    TinyLibrary library;
    ASSERT_TRUE(library.Load(kProbeName));
    EXPECT_EQ(library.GetProcAddress("LoadProbeErrorModeAtLoad"),
              ::GetProcAddress(library.Handle(), "LoadProbeErrorModeAtLoad"));
    EXPECT_NE(library.GetProcAddress("LoadProbeErrorModeAtLoad"), nullptr);
    EXPECT_EQ(library.GetProcAddress("NoSuchExport"), nullptr);
}

// ---- TinyDllDirectory ------------------------------------------------------------------------

std::wstring CurrentDllDirectory() {
    wchar_t path[MAX_PATH] = {};
    const DWORD length = GetDllDirectoryW(MAX_PATH, path);
    return std::wstring(path, length < MAX_PATH ? length : 0);
}

// Whether another thread holds the lock: TryEnter on a recursive lock always succeeds for the
// thread that holds it, so the question is asked from a thread of its own.
bool IsLockHeldElsewhere() {
    bool held = false;
    std::thread asker([&held] {
        if (TryEnterCriticalSection(g_dllDirectoryLock.Section())) {
            LeaveCriticalSection(g_dllDirectoryLock.Section());
        } else {
            held = true;
        }
    });
    asker.join();
    return held;
}

TEST(TinyDllDirectoryTest, SetsTheSearchDirectoryForItsScope) {
    ASSERT_EQ(CurrentDllDirectory(), L"");
    {
        TinyDllDirectory directory(L"C:\\TinyDllDirectoryTest");
        EXPECT_EQ(CurrentDllDirectory(), L"C:\\TinyDllDirectoryTest");
    }
    EXPECT_EQ(CurrentDllDirectory(), L"");
}

TEST(TinyDllDirectoryTest, HoldsTheProcessWideLockForItsScope) {
    EXPECT_FALSE(IsLockHeldElsewhere());
    {
        TinyDllDirectory directory(L"C:\\TinyDllDirectoryTest");
        EXPECT_TRUE(IsLockHeldElsewhere());
    }
    EXPECT_FALSE(IsLockHeldElsewhere());
}

TEST(TinyDllDirectoryTest, ASecondThreadWaitsForTheFirstScope) {
    TinyFramework::TinyEvent secondStarting;
    ASSERT_TRUE(
        secondStarting.CreateEx(nullptr, nullptr, CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS));
    std::wstring seenBySecond;
    std::thread second;
    std::wstring seenByFirstAtItsEnd;
    {
        TinyDllDirectory first(L"C:\\First");
        second = std::thread([&] {
            secondStarting.SetEvent();
            TinyDllDirectory directory(L"C:\\Second");
            seenBySecond = CurrentDllDirectory();
        });
        ASSERT_EQ(WaitForSingleObject(secondStarting.Handle(), kDeadlineMs), WAIT_OBJECT_0);
        // Give the second thread every chance to overtake: it must still wait for this scope.
        Sleep(50);
        seenByFirstAtItsEnd = CurrentDllDirectory();
    }
    second.join();
    EXPECT_EQ(seenByFirstAtItsEnd, L"C:\\First");
    EXPECT_EQ(seenBySecond, L"C:\\Second");
    EXPECT_EQ(CurrentDllDirectory(), L"");
}

// ---- IsNotWow64 --------------------------------------------------------------------------------

TEST(IsNotWow64Test, ThisSixtyFourBitProcessIsNotWow64) {
    EXPECT_TRUE(IsNotWow64(GetCurrentProcess()));
}

TEST(IsNotWow64Test, AHandleThatIsNoProcessGivesFalse) {
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ASSERT_NE(event, nullptr);
    EXPECT_FALSE(IsNotWow64(event));
    CloseHandle(event);
}

// ---- SetGpuPriorityClass -----------------------------------------------------------------------

typedef void (*SetStatusFunction)(LONG);
typedef INT (*LastClassFunction)();
typedef HANDLE (*LastProcessFunction)();

template <typename Function>
Function ProbeFunction(const TinyLibrary& probe, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(probe.GetProcAddress(name)));
}

TEST(SetGpuPriorityClassTest, FollowsWhatThisSystemsGdi32Offers) {
    TestSupport::LogCapture log;
    const HMODULE gdi = GetModuleHandleW(L"GDI32");
    ASSERT_NE(gdi, nullptr);  // the framework links GDI32
    typedef LONG(APIENTRY * SetClassFunction)(HANDLE, INT);
    const SetClassFunction platform = reinterpret_cast<SetClassFunction>(
        reinterpret_cast<void*>(GetProcAddress(gdi, "D3DKMTSetProcessSchedulingPriorityClass")));
    if (platform == nullptr) {
        // Wine's GDI32 has no such entry point.
        EXPECT_FALSE(SetGpuPriorityClass(GetCurrentProcess(), kNormalGpuPriority));
        EXPECT_TRUE(log.Records().empty());
    } else {
        const LONG status = platform(GetCurrentProcess(), kNormalGpuPriority);
        EXPECT_EQ(SetGpuPriorityClass(GetCurrentProcess(), kNormalGpuPriority), status == 0);
    }
}

TEST(SetGpuPriorityClassTest, WithoutGdi32LoadedGivesFalse) {
    TestSupport::LogCapture log;
    EXPECT_FALSE(SetGpuPriorityClassIn(nullptr, GetCurrentProcess(), kNormalGpuPriority));
    EXPECT_TRUE(log.Records().empty());
}

TEST(SetGpuPriorityClassTest, WithoutTheEntryPointGivesFalseSilently) {
    TestSupport::LogCapture log;
    EXPECT_FALSE(SetGpuPriorityClassIn(GetModuleHandleW(L"kernel32.dll"), GetCurrentProcess(),
                                       kNormalGpuPriority));
    EXPECT_TRUE(log.Records().empty());
}

// Wine's GDI32 lacks the entry point, so the probe library stands in for it.
TEST_F(TinyLibraryTest, SetGpuPriorityClassPassesTheCallOnAndSucceedsOnStatusZero) {
    TinyLibrary probe;
    ASSERT_TRUE(probe.Load(kProbeName));
    ProbeFunction<SetStatusFunction>(probe, "LoadProbeSetPriorityStatus")(0);

    EXPECT_TRUE(SetGpuPriorityClassIn(probe.Handle(), GetCurrentProcess(), kNormalGpuPriority));

    EXPECT_EQ(ProbeFunction<LastClassFunction>(probe, "LoadProbeLastPriorityClass")(),
              kNormalGpuPriority);
    EXPECT_EQ(ProbeFunction<LastProcessFunction>(probe, "LoadProbeLastPriorityProcess")(),
              GetCurrentProcess());
    EXPECT_TRUE(m_log.Records().empty());
}

TEST_F(TinyLibraryTest, SetGpuPriorityClassLogsAFailingStatus) {
    TinyLibrary probe;
    ASSERT_TRUE(probe.Load(kProbeName));
    ProbeFunction<SetStatusFunction>(probe,
                                     "LoadProbeSetPriorityStatus")(static_cast<LONG>(0xC000000D));

    EXPECT_FALSE(SetGpuPriorityClassIn(probe.Handle(), GetCurrentProcess(), 5));

    ASSERT_EQ(
        m_log.Messages(),
        std::vector<std::string>{"Failed to D3DKMTSetProcessSchedulingPriorityClass(0xC000000D)"});
    EXPECT_EQ(SourcePathOf(m_log.Records()[0]), "TinyFramework/Common/TinyProcess.cpp");
    EXPECT_EQ(ProbeFunction<LastClassFunction>(probe, "LoadProbeLastPriorityClass")(), 5);
}

}  // namespace
