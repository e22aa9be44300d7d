#include "TinyFramework/Common/TinyCore.h"
#include "tests/TinyFramework/SyncTestSupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

using SyncTests::kDeadlineMs;
using SyncTests::ManualEvent;
using SyncTests::OnAnotherThread;
using SyncTests::TestThread;
using TinyFramework::TinyAutoLock;
using TinyFramework::TinyConditionVariable;
using TinyFramework::TinyLock;
using TinyFramework::TinyObject;
using TinyFramework::TinyPerformanceLock;
using TinyFramework::TinySemaphore;
using TinyFramework::TinySRWGuard;
using TinyFramework::TinySRWLock;

constexpr int kContendingThreads = 4;
constexpr int kIncrementsPerThread = 25000;

// The flag bits that the system keeps in the high byte of a critical section's spin count.
constexpr ULONG_PTR kSpinCountMask = 0x00FFFFFF;

// Starts `kContendingThreads` threads together, each running `increment` `kIncrementsPerThread`
// times, and waits for all of them.
void RunContended(const std::function<void()>& increment) {
    ManualEvent start;
    std::vector<std::unique_ptr<TestThread>> threads;
    for (int i = 0; i < kContendingThreads; ++i) {
        threads.push_back(std::make_unique<TestThread>([&] {
            start.WaitFor(kDeadlineMs);
            for (int n = 0; n < kIncrementsPerThread; ++n) {
                increment();
            }
        }));
    }
    start.Set();
    for (auto& thread : threads) {
        EXPECT_TRUE(thread->WaitFor(kDeadlineMs));
    }
}

bool SomebodyElseCanEnter(TinyLock& lock) {
    return OnAnotherThread([&] {
        if (!TryEnterCriticalSection(lock.Section())) {
            return false;
        }
        LeaveCriticalSection(lock.Section());
        return true;
    });
}

bool SomebodyElseCanTake(TinySRWLock& lock, BOOL exclusive) {
    return OnAnotherThread([&] {
        if (!lock.TryLock(exclusive)) {
            return false;
        }
        lock.Unlock(exclusive);
        return true;
    });
}

// Holds a TinySRWLock in one mode on a thread of its own until Release or the end of the object.
class SRWHolder {
public:
    SRWHolder(TinySRWLock& lock, BOOL exclusive)
        : m_thread([this, &lock, exclusive] {
              lock.Lock(exclusive);
              m_held.Set();
              m_release.WaitFor(kDeadlineMs);
              lock.Unlock(exclusive);
          }) {
        EXPECT_TRUE(m_held.WaitFor(kDeadlineMs));
    }
    ~SRWHolder() { Release(); }

    void Release() {
        m_release.Set();
        EXPECT_TRUE(m_thread.WaitFor(kDeadlineMs));
    }

private:
    ManualEvent m_held;
    ManualEvent m_release;
    TestThread m_thread;
};

TEST(TinySyncRuntimeClassTest, ClassesWithoutARecordOfTheirOwnAnswerWithTinyObjects) {
    TinySRWLock srw;
    TinySemaphore semaphore;
    TinyPerformanceLock performance;
    TinyConditionVariable condition;
    EXPECT_EQ(srw.GetRuntimeClass(), &TinyObject::classTinyObject);
    EXPECT_EQ(semaphore.GetRuntimeClass(), &TinyObject::classTinyObject);
    EXPECT_EQ(performance.GetRuntimeClass(), &TinyObject::classTinyObject);
    EXPECT_EQ(condition.GetRuntimeClass(), &TinyObject::classTinyObject);
    EXPECT_TRUE(srw.IsKindOf(&TinyObject::classTinyObject));
}

TEST(TinyLockTest, SpinsFourThousandRoundsBeforeSleeping) {
    TinyLock lock;
    SYSTEM_INFO system;
    GetSystemInfo(&system);
    // On a single processor the system ignores the spin count and keeps 0.
    const ULONG_PTR expected = system.dwNumberOfProcessors > 1 ? 4000 : 0;
    EXPECT_EQ(lock.Section()->SpinCount & kSpinCountMask, expected);
}

TEST(TinyLockTest, CountsExactlyUnderContention) {
    TinyLock lock;
    long counter = 0;
    RunContended([&] {
        TinyAutoLock hold(lock);
        counter = counter + 1;
    });
    EXPECT_EQ(counter, kContendingThreads * kIncrementsPerThread);
}

TEST(TinyLockTest, IsRecursiveOnItsThread) {
    TinyLock lock;
    lock.Lock();
    lock.Lock();
    EXPECT_FALSE(SomebodyElseCanEnter(lock));
    lock.Unlock();
    EXPECT_FALSE(SomebodyElseCanEnter(lock));
    lock.Unlock();
    EXPECT_TRUE(SomebodyElseCanEnter(lock));
}

TEST(TinyLockTest, AutoLockHoldsForItsScope) {
    TinyLock lock;
    {
        TinyAutoLock hold(lock);
        EXPECT_FALSE(SomebodyElseCanEnter(lock));
    }
    EXPECT_TRUE(SomebodyElseCanEnter(lock));
}

TEST(TinySRWLockTest, ExclusiveTryLockFailsWhileAnotherThreadHoldsItShared) {
    TinySRWLock lock;
    SRWHolder holder(lock, FALSE);
    EXPECT_FALSE(lock.TryLock(TRUE));
}

TEST(TinySRWLockTest, AnyNonZeroModeIsExclusive) {
    TinySRWLock lock;
    SRWHolder holder(lock, FALSE);
    EXPECT_FALSE(lock.TryLock(7));
}

TEST(TinySRWLockTest, SharedTryLockSucceedsBesideAnotherSharedHolder) {
    TinySRWLock lock;
    SRWHolder holder(lock, FALSE);
    ASSERT_TRUE(lock.TryLock(FALSE));
    lock.Unlock(FALSE);
}

TEST(TinySRWLockTest, BothTryLocksFailWhileAnotherThreadHoldsItExclusively) {
    TinySRWLock lock;
    SRWHolder holder(lock, TRUE);
    EXPECT_FALSE(lock.TryLock(FALSE));
    EXPECT_FALSE(lock.TryLock(TRUE));
}

TEST(TinySRWLockTest, ExclusiveTryLockSucceedsOnceTheHolderReleased) {
    TinySRWLock lock;
    SRWHolder holder(lock, FALSE);
    ASSERT_FALSE(lock.TryLock(TRUE));
    holder.Release();
    ASSERT_TRUE(lock.TryLock(TRUE));
    lock.Unlock(TRUE);
}

TEST(TinySRWLockTest, HandleIsTheLockItself) {
    TinySRWLock lock;
    ASSERT_TRUE(TryAcquireSRWLockExclusive(lock.Handle()));
    EXPECT_FALSE(SomebodyElseCanTake(lock, FALSE));
    ReleaseSRWLockExclusive(lock.Handle());
    EXPECT_TRUE(SomebodyElseCanTake(lock, FALSE));
}

TEST(TinySRWLockTest, ExclusiveLockCountsExactlyUnderContention) {
    TinySRWLock lock;
    long counter = 0;
    RunContended([&] {
        lock.Lock(TRUE);
        counter = counter + 1;
        lock.Unlock(TRUE);
    });
    EXPECT_EQ(counter, kContendingThreads * kIncrementsPerThread);
}

TEST(TinySRWGuardTest, ExclusiveGuardShutsOutReadersForItsScope) {
    TinySRWLock lock;
    {
        TinySRWGuard guard(lock, TRUE);
        EXPECT_FALSE(SomebodyElseCanTake(lock, FALSE));
    }
    EXPECT_TRUE(SomebodyElseCanTake(lock, TRUE));
}

TEST(TinySRWGuardTest, SharedGuardAdmitsReadersAndShutsOutWriters) {
    TinySRWLock lock;
    {
        TinySRWGuard guard(lock, FALSE);
        EXPECT_TRUE(SomebodyElseCanTake(lock, FALSE));
        EXPECT_FALSE(SomebodyElseCanTake(lock, TRUE));
    }
    EXPECT_TRUE(SomebodyElseCanTake(lock, TRUE));
}

// A waiter on a condition variable, on a thread of its own: it holds the lock, sleeps until
// `ready` is true, and notes whether a sleep ever ran into its (generous) time-out, which only a
// lost wake can cause. Spurious wake-ups just go round the loop.
struct ConditionWaiter {
    template <typename Sleep>
    explicit ConditionWaiter(Sleep sleep)
        : thread([this, sleep] {
              started.Set();
              sawReady = sleep(timedOut);
          }) {}

    ManualEvent started;
    bool sawReady = false;
    bool timedOut = false;
    TestThread thread;
};

TEST(TinyConditionVariableTest, SleepReturnsOnceTheConditionIsSignalled) {
    TinyLock lock;
    TinyConditionVariable condition;
    bool ready = false;
    ConditionWaiter waiter([&](bool& timedOut) {
        TinyAutoLock hold(lock);
        while (!ready && !timedOut) {
            timedOut = !condition.Sleep(lock, kDeadlineMs);
        }
        return ready;
    });
    ASSERT_TRUE(waiter.started.WaitFor(kDeadlineMs));
    {
        TinyAutoLock hold(lock);
        ready = true;
    }
    condition.Wake(FALSE);
    ASSERT_TRUE(waiter.thread.WaitFor(kDeadlineMs));
    EXPECT_TRUE(waiter.sawReady);
    EXPECT_FALSE(waiter.timedOut);
}

TEST(TinyConditionVariableTest, SleepSRWReturnsOnceTheConditionIsSignalled) {
    TinySRWLock lock;
    TinyConditionVariable condition;
    bool ready = false;
    ConditionWaiter waiter([&](bool& timedOut) {
        TinySRWGuard hold(lock, TRUE);
        while (!ready && !timedOut) {
            timedOut = !condition.SleepSRW(lock, kDeadlineMs);
        }
        return ready;
    });
    ASSERT_TRUE(waiter.started.WaitFor(kDeadlineMs));
    {
        TinySRWGuard hold(lock, TRUE);
        ready = true;
    }
    condition.Wake(FALSE);
    ASSERT_TRUE(waiter.thread.WaitFor(kDeadlineMs));
    EXPECT_TRUE(waiter.sawReady);
    EXPECT_FALSE(waiter.timedOut);
}

TEST(TinyConditionVariableTest, WakeAllReleasesEveryWaiter) {
    constexpr int kWaiters = 3;
    TinyLock lock;
    TinyConditionVariable condition;
    bool ready = false;
    std::vector<std::unique_ptr<ConditionWaiter>> waiters;
    for (int i = 0; i < kWaiters; ++i) {
        waiters.push_back(std::make_unique<ConditionWaiter>([&](bool& timedOut) {
            TinyAutoLock hold(lock);
            while (!ready && !timedOut) {
                timedOut = !condition.Sleep(lock, kDeadlineMs);
            }
            return ready;
        }));
    }
    for (auto& waiter : waiters) {
        ASSERT_TRUE(waiter->started.WaitFor(kDeadlineMs));
    }
    {
        TinyAutoLock hold(lock);
        ready = true;
    }
    condition.Wake(TRUE);
    for (auto& waiter : waiters) {
        ASSERT_TRUE(waiter->thread.WaitFor(kDeadlineMs));
        EXPECT_TRUE(waiter->sawReady);
        EXPECT_FALSE(waiter->timedOut);
    }
}

TEST(TinyConditionVariableTest, SleepTimesOutWithTheLockHeldAgain) {
    TinyLock lock;
    TinyConditionVariable condition;
    lock.Lock();
    SetLastError(0);
    EXPECT_FALSE(condition.Sleep(lock, 1));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_TIMEOUT));
    EXPECT_FALSE(SomebodyElseCanEnter(lock));
    lock.Unlock();
}

TEST(TinyConditionVariableTest, SleepSRWTimesOutWithTheLockHeldExclusivelyAgain) {
    TinySRWLock lock;
    TinyConditionVariable condition;
    lock.Lock(TRUE);
    SetLastError(0);
    EXPECT_FALSE(condition.SleepSRW(lock, 1));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_TIMEOUT));
    EXPECT_FALSE(SomebodyElseCanTake(lock, FALSE));
    lock.Unlock(TRUE);
}

}  // namespace
