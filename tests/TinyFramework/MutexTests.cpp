#include "TinyFramework/Common/TinyCore.h"
#include "tests/TinyFramework/SyncTestSupport.h"
#include "tests/support/ProgramFolder.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using QueryClient::UniqueHandle;
using SyncTests::kDeadlineMs;
using SyncTests::ManualEvent;
using SyncTests::OnAnotherThread;
using SyncTests::TestThread;
using SyncTests::UniqueName;
using TinyFramework::TinyAutoMutex;
using TinyFramework::TinyMutex;
using TinyFramework::TinySemaphore;

// A last error that no call of these tests sets, to see that nothing reached the system.
constexpr DWORD kUntouchedError = 0x2BAD;

// Where the object manager keeps the named objects: "Global\" names in the global directory,
// plain names in the directory of the caller's session.
std::wstring GlobalPath(const std::wstring& name) {
    return L"\\BaseNamedObjects\\" + name;
}

std::wstring SessionPath(const std::wstring& name) {
    DWORD session = 0;
    ProcessIdToSessionId(GetCurrentProcessId(), &session);
    return L"\\Sessions\\" + std::to_wstring(session) + L"\\BaseNamedObjects\\" + name;
}

// Whether a mutex of this name exists: it lives as long as somebody holds a handle to it.
DWORD OpenMutexError(const std::wstring& name) {
    SetLastError(0);
    const UniqueHandle opened(OpenMutexW(SYNCHRONIZE, FALSE, name.c_str()));
    return opened.IsValid() ? 0 : GetLastError();
}

bool SomebodyElseCanLock(TinyMutex& mutex) {
    return OnAnotherThread([&] {
        if (!mutex.Lock(0)) {
            return false;
        }
        mutex.Unlock();
        return true;
    });
}

// The access that a handle was granted, as the object manager reports it.
ACCESS_MASK GrantedAccess(HANDLE handle) {
    typedef NTSTATUS(NTAPI * QueryObjectEntry)(HANDLE, OBJECT_INFORMATION_CLASS, void*, ULONG,
                                               ULONG*);
    const auto query = reinterpret_cast<QueryObjectEntry>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryObject")));
    PUBLIC_OBJECT_BASIC_INFORMATION information = {};
    ULONG returned = 0;
    if (query(handle, ObjectBasicInformation, &information, sizeof(information), &returned) < 0) {
        return 0;
    }
    return information.GrantedAccess;
}

// Owns a mutex on a thread of its own until Release; the thread then releases it, or, when told
// to abandon it, simply ends.
class MutexOwnerThread {
public:
    MutexOwnerThread(HANDLE mutex, bool abandon)
        : m_thread([this, mutex, abandon] {
              m_took = WaitForSingleObject(mutex, kDeadlineMs) == WAIT_OBJECT_0;
              m_held.Set();
              m_release.WaitFor(kDeadlineMs);
              if (!abandon) {
                  ReleaseMutex(mutex);
              }
          }) {
        EXPECT_TRUE(m_held.WaitFor(kDeadlineMs));
        EXPECT_TRUE(m_took);
    }
    ~MutexOwnerThread() { Release(); }

    void Release() {
        m_release.Set();
        EXPECT_TRUE(m_thread.WaitFor(kDeadlineMs));
    }

private:
    ManualEvent m_held;
    ManualEvent m_release;
    bool m_took = false;
    TestThread m_thread;
};

// MutexHolder.exe, beside this program, holding a named mutex in a process of its own.
class MutexHolderProcess {
public:
    // `name` as CreateMutexW takes it; `abandon`: the process ends without releasing.
    MutexHolderProcess(const std::wstring& name, bool abandon) {
        const std::wstring heldName = UniqueName(L"held");
        const std::wstring releaseName = UniqueName(L"release");
        m_held.event.CreateEx(nullptr, heldName.c_str(), CREATE_EVENT_MANUAL_RESET,
                              EVENT_ALL_ACCESS);
        m_release.event.CreateEx(nullptr, releaseName.c_str(), CREATE_EVENT_MANUAL_RESET,
                                 EVENT_ALL_ACCESS);
        std::wstring commandLine = L"MutexHolder.exe " + name + L" " + heldName + L" " +
                                   releaseName + (abandon ? L" abandon" : L" release");
        STARTUPINFOW startup = {};
        startup.cb = sizeof(startup);
        PROCESS_INFORMATION process = {};
        if (!CreateProcessW(HolderPath().c_str(), &commandLine[0], nullptr, nullptr, FALSE, 0,
                            nullptr, nullptr, &startup, &process)) {
            ADD_FAILURE() << "MutexHolder.exe not started: " << GetLastError();
            return;
        }
        m_process.Reset(process.hProcess);
        CloseHandle(process.hThread);
        const HANDLE either[] = {m_held.Handle(), m_process.Get()};
        EXPECT_EQ(WaitForMultipleObjects(2, either, FALSE, kDeadlineMs), WAIT_OBJECT_0)
            << "MutexHolder.exe ended before it held the mutex";
    }
    ~MutexHolderProcess() {
        m_release.Set();
        if (m_process.IsValid() && WaitForSingleObject(m_process.Get(), kDeadlineMs) != 0) {
            TerminateProcess(m_process.Get(), 1);
        }
    }

    // Lets the process release (or abandon) the mutex, and returns its exit code once it ended.
    DWORD ReleaseAndWait() { return SyncTests::ReleaseAndWaitForExit(m_release, m_process.Get()); }

private:
    static std::wstring HolderPath() {
        return TestSupport::ProgramBesideThisOne(L"MutexHolder.exe");
    }

    ManualEvent m_held;
    ManualEvent m_release;
    UniqueHandle m_process;
};

constexpr DWORD kHolderReleased = 0;
constexpr DWORD kHolderAbandoned = 1;

TEST(TinyMutexTest, SecondCreateClosesTheFirstHandle) {
    const std::wstring first = UniqueName(L"first");
    TinyMutex mutex;
    ASSERT_TRUE(mutex.Create(FALSE, first.c_str(), nullptr));
    ASSERT_EQ(OpenMutexError(first), 0u);
    ASSERT_TRUE(mutex.Create(FALSE, UniqueName(L"second").c_str(), nullptr));
    // The first mutex had no other handle, so it is gone.
    EXPECT_EQ(OpenMutexError(first), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST(TinyMutexTest, FailedCreateLeavesTheObjectEmpty) {
    const std::wstring first = UniqueName(L"first");
    const std::wstring eventName = UniqueName(L"event");
    const UniqueHandle event(CreateEventW(nullptr, FALSE, FALSE, eventName.c_str()));
    TinyMutex mutex;
    ASSERT_TRUE(mutex.Create(FALSE, first.c_str(), nullptr));
    SetLastError(0);
    EXPECT_FALSE(mutex.Create(FALSE, eventName.c_str(), nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
    EXPECT_TRUE(mutex.IsEmpty());
    EXPECT_EQ(OpenMutexError(first), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST(TinyMutexTest, OpenOfAMissingNameFailsWithFileNotFound) {
    TinyMutex mutex;
    SetLastError(0);
    EXPECT_FALSE(mutex.Open(SYNCHRONIZE, FALSE, UniqueName(L"missing").c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_TRUE(mutex.IsEmpty());
}

TEST(TinyMutexTest, OpenClosesTheHeldHandleFirst) {
    const std::wstring first = UniqueName(L"first");
    TinyMutex mutex;
    ASSERT_TRUE(mutex.Create(FALSE, first.c_str(), nullptr));
    EXPECT_FALSE(mutex.Open(SYNCHRONIZE, FALSE, UniqueName(L"missing").c_str()));
    EXPECT_EQ(OpenMutexError(first), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST(TinyMutexTest, OpenFindsAMutexOfThisProcessByName) {
    const std::wstring name = UniqueName(L"named");
    TinyMutex creator;
    ASSERT_TRUE(creator.Create(TRUE, name.c_str(), nullptr));
    TinyMutex opened;
    ASSERT_TRUE(opened.Open(SYNCHRONIZE, FALSE, name.c_str()));
    EXPECT_FALSE(SomebodyElseCanLock(opened));
    creator.Unlock();
    EXPECT_TRUE(SomebodyElseCanLock(opened));
}

TEST(TinyMutexTest, OpenNtOfAMissingPathFailsWithFileNotFound) {
    TinyMutex mutex;
    SetLastError(0);
    EXPECT_FALSE(mutex.OpenNt(SYNCHRONIZE, GlobalPath(UniqueName(L"missing")).c_str()));
    // STATUS_OBJECT_NAME_NOT_FOUND, translated.
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_TRUE(mutex.IsEmpty());
}

TEST(TinyMutexTest, OpenNtOfAPathOutsideTheObjectDirectoriesFailsWithBadPathname) {
    TinyMutex mutex;
    SetLastError(0);
    // A plain Win32 name is no object path: STATUS_OBJECT_PATH_SYNTAX_BAD, translated.
    EXPECT_FALSE(mutex.OpenNt(SYNCHRONIZE, UniqueName(L"relative").c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BAD_PATHNAME));
}

TEST(TinyMutexTest, OpenNtClosesTheHeldHandleFirst) {
    const std::wstring first = UniqueName(L"first");
    TinyMutex mutex;
    ASSERT_TRUE(mutex.Create(FALSE, first.c_str(), nullptr));
    EXPECT_FALSE(mutex.OpenNt(SYNCHRONIZE, GlobalPath(UniqueName(L"missing")).c_str()));
    EXPECT_EQ(OpenMutexError(first), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST(TinyMutexTest, OpenNtReachesAPlainNameUnderTheSessionDirectoryOnly) {
    const std::wstring name = UniqueName(L"session");
    TinyMutex creator;
    ASSERT_TRUE(creator.Create(FALSE, name.c_str(), nullptr));
    TinyMutex opened;
    EXPECT_FALSE(opened.OpenNt(SYNCHRONIZE, GlobalPath(name).c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_TRUE(opened.OpenNt(SYNCHRONIZE, SessionPath(name).c_str()));
}

TEST(TinyMutexTest, CreateNtMakesAMutexThatNobodyOwns) {
    const std::wstring name = UniqueName(L"native");
    TinyMutex mutex;
    ASSERT_TRUE(mutex.CreateNt(GlobalPath(name).c_str()));
    TinyMutex opened;
    ASSERT_TRUE(opened.Open(SYNCHRONIZE, FALSE, (L"Global\\" + name).c_str()));
    EXPECT_TRUE(SomebodyElseCanLock(opened));
}

TEST(TinyMutexTest, CreateNtAsksForSynchronizeOnly) {
    TinyMutex mutex;
    ASSERT_TRUE(mutex.CreateNt(GlobalPath(UniqueName(L"access")).c_str()));
    EXPECT_EQ(GrantedAccess(mutex.Handle()), static_cast<ACCESS_MASK>(SYNCHRONIZE));
}

TEST(TinyMutexTest, CreateNtDoesNotCloseTheHeldHandle) {
    const std::wstring first = UniqueName(L"first");
    TinyMutex mutex;
    ASSERT_TRUE(mutex.Create(FALSE, first.c_str(), nullptr));
    const UniqueHandle previous(mutex.Handle());  // left open by CreateNt: closed here
    ASSERT_TRUE(mutex.CreateNt(GlobalPath(UniqueName(L"second")).c_str()));
    EXPECT_NE(mutex.Handle(), previous.Get());
    EXPECT_EQ(OpenMutexError(first), 0u);
}

TEST(TinyMutexTest, CreateNtOfAnExistingPathFailsWithAlreadyExistsAndKeepsTheHandle) {
    const std::wstring path = GlobalPath(UniqueName(L"twice"));
    TinyMutex mutex;
    ASSERT_TRUE(mutex.CreateNt(path.c_str()));
    const HANDLE held = mutex.Handle();
    SetLastError(0);
    // The attributes do not ask to open an existing object: STATUS_OBJECT_NAME_COLLISION.
    EXPECT_FALSE(mutex.CreateNt(path.c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ALREADY_EXISTS));
    EXPECT_EQ(mutex.Handle(), held);
}

TEST(TinyMutexTest, CreateNtOfAPlainNameFailsWithBadPathname) {
    TinyMutex mutex;
    SetLastError(0);
    EXPECT_FALSE(mutex.CreateNt(UniqueName(L"plain").c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_BAD_PATHNAME));
    EXPECT_TRUE(mutex.IsEmpty());
}

TEST(TinyMutexTest, LockOfAMutexWhoseOwnerThreadEndedIsTrue) {
    TinyMutex mutex;
    ASSERT_TRUE(mutex.Create(FALSE, nullptr, nullptr));
    const UniqueHandle witness(CreateMutexW(nullptr, FALSE, nullptr));
    {
        MutexOwnerThread owner(mutex.Handle(), true);
        MutexOwnerThread witnessOwner(witness.Get(), true);
    }
    // The same kind of abandonment, seen through the plain wait, is WAIT_ABANDONED.
    EXPECT_EQ(WaitForSingleObject(witness.Get(), 0), static_cast<DWORD>(WAIT_ABANDONED));
    EXPECT_TRUE(mutex.Lock(0));
    mutex.Unlock();
}

TEST(TinyMutexTest, LockTimesOutWhileAnotherThreadOwnsIt) {
    TinyMutex mutex;
    ASSERT_TRUE(mutex.Create(FALSE, nullptr, nullptr));
    MutexOwnerThread owner(mutex.Handle(), false);
    EXPECT_FALSE(mutex.Lock(0));
    EXPECT_FALSE(mutex.Lock(20));
    owner.Release();
    EXPECT_TRUE(mutex.Lock(kDeadlineMs));
    mutex.Unlock();
}

TEST(TinyMutexTest, IsRecursiveForItsOwner) {
    TinyMutex mutex;
    ASSERT_TRUE(mutex.Create(FALSE, nullptr, nullptr));
    ASSERT_TRUE(mutex.Lock(0));
    ASSERT_TRUE(mutex.Lock(0));
    mutex.Unlock();
    EXPECT_FALSE(SomebodyElseCanLock(mutex));
    mutex.Unlock();
    EXPECT_TRUE(SomebodyElseCanLock(mutex));
}

TEST(TinyMutexTest, AutoMutexCountsExactlyUnderContention) {
    constexpr int kThreads = 3;
    constexpr int kIncrements = 2000;
    TinyMutex mutex;
    ASSERT_TRUE(mutex.Create(FALSE, nullptr, nullptr));
    long counter = 0;
    ManualEvent start;
    std::vector<std::unique_ptr<TestThread>> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.push_back(std::make_unique<TestThread>([&] {
            start.WaitFor(kDeadlineMs);
            for (int n = 0; n < kIncrements; ++n) {
                TinyAutoMutex hold(mutex, INFINITE);
                counter = counter + 1;
            }
        }));
    }
    start.Set();
    for (auto& thread : threads) {
        ASSERT_TRUE(thread->WaitFor(kDeadlineMs));
    }
    EXPECT_EQ(counter, kThreads * kIncrements);
}

TEST(TinyMutexTest, OperationsOnAnEmptyMutexFailWithoutReachingTheSystem) {
    TinyMutex mutex;
    SetLastError(kUntouchedError);
    EXPECT_FALSE(mutex.Lock(0));
    mutex.Unlock();
    mutex.Close();
    EXPECT_EQ(GetLastError(), kUntouchedError);
    EXPECT_TRUE(mutex.IsEmpty());
    EXPECT_EQ(mutex.Handle(), nullptr);
}

TEST(TinyMutexTest, HandleOfANullMutexIsNull) {
    TinyMutex* volatile none = nullptr;
    EXPECT_EQ(none->Handle(), nullptr);
}

TEST(TinyMutexTest, CloseEmptiesAndASecondCloseIsHarmless) {
    TinyMutex mutex;
    ASSERT_TRUE(mutex.Create(FALSE, nullptr, nullptr));
    mutex.Close();
    EXPECT_TRUE(mutex.IsEmpty());
    mutex.Close();
    EXPECT_TRUE(mutex.IsEmpty());
}

TEST(TinyMutexProcessTest, GlobalMutexOfAnotherProcessOpensByNameAndLocksOnceReleased) {
    const std::wstring name = UniqueName(L"process");
    MutexHolderProcess holder(L"Global\\" + name, false);
    TinyMutex mutex;
    ASSERT_TRUE(mutex.Open(SYNCHRONIZE, FALSE, (L"Global\\" + name).c_str()));
    EXPECT_FALSE(mutex.Lock(0));
    EXPECT_EQ(holder.ReleaseAndWait(), kHolderReleased);
    EXPECT_TRUE(mutex.Lock(kDeadlineMs));
    mutex.Unlock();
}

TEST(TinyMutexProcessTest, GlobalMutexOfAnotherProcessOpensByItsObjectPath) {
    const std::wstring name = UniqueName(L"process");
    MutexHolderProcess holder(L"Global\\" + name, false);
    TinyMutex mutex;
    ASSERT_TRUE(mutex.OpenNt(SYNCHRONIZE, GlobalPath(name).c_str()));
    EXPECT_FALSE(mutex.Lock(0));
    EXPECT_EQ(holder.ReleaseAndWait(), kHolderReleased);
    EXPECT_TRUE(mutex.Lock(kDeadlineMs));
    mutex.Unlock();
}

TEST(TinyMutexProcessTest, SessionMutexOfAnotherProcessOpensByItsSessionPath) {
    const std::wstring name = UniqueName(L"process");
    MutexHolderProcess holder(name, false);
    TinyMutex mutex;
    ASSERT_TRUE(mutex.OpenNt(SYNCHRONIZE, SessionPath(name).c_str()));
    EXPECT_FALSE(mutex.Lock(0));
    EXPECT_EQ(holder.ReleaseAndWait(), kHolderReleased);
    EXPECT_TRUE(mutex.Lock(kDeadlineMs));
    mutex.Unlock();
}

TEST(TinyMutexProcessTest, MutexAbandonedByAnEndedProcessLocks) {
    const std::wstring name = UniqueName(L"process");
    MutexHolderProcess holder(L"Global\\" + name, true);
    TinyMutex mutex;
    ASSERT_TRUE(mutex.OpenNt(SYNCHRONIZE, GlobalPath(name).c_str()));
    EXPECT_EQ(holder.ReleaseAndWait(), kHolderAbandoned);
    EXPECT_TRUE(mutex.Lock(0));
    mutex.Unlock();
}

TEST(TinyAutoMutexTest, OnAMutexHeldElsewhereReturnsAtTheTimeOutAndItsDestructorDoesNoHarm) {
    TinyMutex mutex;
    ASSERT_TRUE(mutex.Create(FALSE, nullptr, nullptr));
    MutexOwnerThread owner(mutex.Handle(), false);
    SetLastError(0);
    { TinyAutoMutex hold(mutex, 20); }
    // The destructor's release failed: this thread never owned the mutex.
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_OWNER));
    EXPECT_FALSE(mutex.Lock(0));
    owner.Release();
    EXPECT_TRUE(mutex.Lock(kDeadlineMs));
    mutex.Unlock();
}

TEST(TinyAutoMutexTest, HoldsForItsScope) {
    TinyMutex mutex;
    ASSERT_TRUE(mutex.Create(FALSE, nullptr, nullptr));
    {
        TinyAutoMutex hold(mutex, INFINITE);
        EXPECT_FALSE(SomebodyElseCanLock(mutex));
    }
    EXPECT_TRUE(SomebodyElseCanLock(mutex));
}

TEST(TinySemaphoreTest, CountsDownToZeroThenTimesOut) {
    TinySemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(2, 3, nullptr, nullptr));
    EXPECT_TRUE(semaphore.Lock(0));
    EXPECT_TRUE(semaphore.Lock(0));
    EXPECT_FALSE(semaphore.Lock(0));
    EXPECT_FALSE(semaphore.Lock(20));
}

TEST(TinySemaphoreTest, UnlockReportsThePreviousCount) {
    TinySemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(0, 3, nullptr, nullptr));
    LONG previous = -1;
    EXPECT_TRUE(semaphore.Unlock(2, &previous));
    EXPECT_EQ(previous, 0);
    EXPECT_TRUE(semaphore.Unlock(1, &previous));
    EXPECT_EQ(previous, 2);
}

TEST(TinySemaphoreTest, UnlockBeyondTheMaximumFailsWithTooManyPosts) {
    TinySemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(1, 1, nullptr, nullptr));
    SetLastError(0);
    EXPECT_FALSE(semaphore.Unlock(1, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_TOO_MANY_POSTS));
    EXPECT_TRUE(semaphore.Lock(0));
    EXPECT_FALSE(semaphore.Lock(0));
}

TEST(TinySemaphoreTest, UnlockReleasesAWaiterOnAnotherThread) {
    TinySemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(0, 1, nullptr, nullptr));
    ManualEvent started;
    BOOL took = FALSE;
    TestThread waiter([&] {
        started.Set();
        took = semaphore.Lock(kDeadlineMs);
    });
    ASSERT_TRUE(started.WaitFor(kDeadlineMs));
    LONG previous = -1;
    EXPECT_TRUE(semaphore.Unlock(1, &previous));
    ASSERT_TRUE(waiter.WaitFor(kDeadlineMs));
    EXPECT_TRUE(took);
    EXPECT_EQ(previous, 0);
}

TEST(TinySemaphoreTest, SecondCreateClosesTheFirstHandle) {
    const std::wstring first = UniqueName(L"first");
    TinySemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(1, 1, first.c_str(), nullptr));
    ASSERT_TRUE(semaphore.Create(1, 1, UniqueName(L"second").c_str(), nullptr));
    SetLastError(0);
    const UniqueHandle opened(OpenSemaphoreW(SYNCHRONIZE, FALSE, first.c_str()));
    EXPECT_FALSE(opened.IsValid());
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST(TinySemaphoreTest, CreateWithTheInitialCountAboveTheMaximumFailsAndLeavesItEmpty) {
    TinySemaphore semaphore;
    ASSERT_TRUE(semaphore.Create(1, 1, nullptr, nullptr));
    SetLastError(0);
    EXPECT_FALSE(semaphore.Create(2, 1, nullptr, nullptr));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
    EXPECT_TRUE(semaphore.IsEmpty());
}

TEST(TinySemaphoreTest, OpenOfAMissingNameFailsWithFileNotFound) {
    TinySemaphore semaphore;
    SetLastError(0);
    EXPECT_FALSE(semaphore.Open(SYNCHRONIZE, FALSE, UniqueName(L"missing").c_str()));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
    EXPECT_TRUE(semaphore.IsEmpty());
}

TEST(TinySemaphoreTest, OpenSharesTheCountOfTheNamedSemaphore) {
    const std::wstring name = UniqueName(L"named");
    TinySemaphore creator;
    ASSERT_TRUE(creator.Create(1, 1, name.c_str(), nullptr));
    TinySemaphore opened;
    ASSERT_TRUE(opened.Open(SEMAPHORE_ALL_ACCESS, FALSE, name.c_str()));
    EXPECT_TRUE(opened.Lock(0));
    EXPECT_FALSE(creator.Lock(0));
}

TEST(TinySemaphoreTest, OperationsOnAnEmptySemaphoreFailWithoutReachingTheSystem) {
    TinySemaphore semaphore;
    LONG previous = -1;
    SetLastError(kUntouchedError);
    EXPECT_FALSE(semaphore.Lock(0));
    EXPECT_FALSE(semaphore.Unlock(1, &previous));
    semaphore.Close();
    EXPECT_EQ(GetLastError(), kUntouchedError);
    EXPECT_EQ(previous, -1);
    EXPECT_TRUE(semaphore.IsEmpty());
    EXPECT_EQ(semaphore.Handle(), nullptr);
}

}  // namespace
