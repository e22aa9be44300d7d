#include "TinyFramework/Common/TinyCore.h"
#include "tests/TinyFramework/SyncTestSupport.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

using SyncTests::kDeadlineMs;
using SyncTests::ManualEvent;
using SyncTests::TestThread;
using TinyFramework::g_waitOnAddress;
using TinyFramework::g_waitOnAddressLoaded;
using TinyFramework::g_wakeByAddressAll;
using TinyFramework::g_wakeByAddressSingle;
using TinyFramework::TinyAddressWait;
using TinyFramework::WaitOnAddressEntry;
using TinyFramework::WakeByAddressEntry;

constexpr wchar_t kLibrary[] = L"api-ms-win-core-synch-l1-2-0.dll";
// A last error that no call of these tests sets, to see that nothing reached the system.
constexpr DWORD kUntouchedError = 0x2BAD;

template <typename Entry>
Entry EntryOfLibrary(const char* name) {
    return reinterpret_cast<Entry>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(kLibrary), name)));
}

// Every test starts as a process that has not called Load yet, and leaves the process-wide state
// as it found it.
class TinyAddressWaitTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_wait = g_waitOnAddress.exchange(nullptr);
        m_wakeSingle = g_wakeByAddressSingle.exchange(nullptr);
        m_wakeAll = g_wakeByAddressAll.exchange(nullptr);
        m_loaded = g_waitOnAddressLoaded.exchange(0);
    }
    void TearDown() override {
        g_waitOnAddress.exchange(m_wait);
        g_wakeByAddressSingle.exchange(m_wakeSingle);
        g_wakeByAddressAll.exchange(m_wakeAll);
        g_waitOnAddressLoaded.exchange(m_loaded);
    }

private:
    WaitOnAddressEntry m_wait = nullptr;
    WakeByAddressEntry m_wakeSingle = nullptr;
    WakeByAddressEntry m_wakeAll = nullptr;
    unsigned char m_loaded = 0;
};

// A thread that waits on `*word` while it is 0, and notes whether a wait ever ran into its
// (generous) time-out, which only a lost wake can cause. Spurious returns go round the loop.
struct AddressWaiter {
    explicit AddressWaiter(volatile LONG* word)
        : thread([this, word] {
              started.Set();
              LONG zero = 0;
              while (*word == 0 && !timedOut) {
                  timedOut = !TinyAddressWait::Wait(word, &zero, sizeof(zero), kDeadlineMs);
              }
              sawWord = *word;
          }) {}

    ManualEvent started;
    bool timedOut = false;
    LONG sawWord = 0;
    TestThread thread;
};

TEST_F(TinyAddressWaitTest, WaitBeforeLoadReturnsZeroWithoutWaiting) {
    LONG word = 1;
    LONG same = 1;
    SetLastError(kUntouchedError);
    // With the system's wait this would block for the whole deadline and fail with ERROR_TIMEOUT.
    EXPECT_EQ(TinyAddressWait::Wait(&word, &same, sizeof(word), kDeadlineMs), 0);
    EXPECT_EQ(GetLastError(), kUntouchedError);
}

TEST_F(TinyAddressWaitTest, WakesBeforeLoadDoNothing) {
    LONG word = 1;
    SetLastError(kUntouchedError);
    TinyAddressWait::WakeOne(&word);
    TinyAddressWait::WakeAll(&word);
    EXPECT_EQ(GetLastError(), kUntouchedError);
    EXPECT_EQ(word, 1);
}

TEST_F(TinyAddressWaitTest, LoadTakesTheThreeEntryPointsOfTheLoadedLibrary) {
    // Wine (like Windows 8 and later) answers for this library with the module that implements
    // it, which every process has loaded.
    ASSERT_NE(GetModuleHandleW(kLibrary), nullptr);
    TinyAddressWait::Load();
    EXPECT_EQ(g_waitOnAddressLoaded.load(), 1);
    EXPECT_EQ(g_waitOnAddress.load(), EntryOfLibrary<WaitOnAddressEntry>("WaitOnAddress"));
    EXPECT_EQ(g_wakeByAddressSingle.load(),
              EntryOfLibrary<WakeByAddressEntry>("WakeByAddressSingle"));
    EXPECT_EQ(g_wakeByAddressAll.load(), EntryOfLibrary<WakeByAddressEntry>("WakeByAddressAll"));
    EXPECT_NE(g_waitOnAddress.load(), nullptr);
}

TEST_F(TinyAddressWaitTest, LoadReturnsAtOnceWhenTheFlagIsSet) {
    g_waitOnAddressLoaded.exchange(1);
    TinyAddressWait::Load();
    EXPECT_EQ(g_waitOnAddress.load(), nullptr);
    EXPECT_EQ(g_wakeByAddressSingle.load(), nullptr);
    EXPECT_EQ(g_wakeByAddressAll.load(), nullptr);
}

TEST_F(TinyAddressWaitTest, WaitOnAChangedValueReturnsAtOnce) {
    TinyAddressWait::Load();
    LONG word = 1;
    LONG other = 0;
    EXPECT_TRUE(TinyAddressWait::Wait(&word, &other, sizeof(word), kDeadlineMs));
}

TEST_F(TinyAddressWaitTest, WaitOnAnUnchangedValueTimesOut) {
    TinyAddressWait::Load();
    LONG word = 1;
    LONG same = 1;
    SetLastError(0);
    EXPECT_FALSE(TinyAddressWait::Wait(&word, &same, sizeof(word), 1));
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_TIMEOUT));
}

TEST_F(TinyAddressWaitTest, WakeOneReleasesAWaiterOnAnotherThread) {
    TinyAddressWait::Load();
    volatile LONG word = 0;
    AddressWaiter waiter(&word);
    ASSERT_TRUE(waiter.started.WaitFor(kDeadlineMs));
    InterlockedExchange(&word, 1);
    TinyAddressWait::WakeOne(const_cast<LONG*>(&word));
    ASSERT_TRUE(waiter.thread.WaitFor(kDeadlineMs));
    EXPECT_EQ(waiter.sawWord, 1);
    EXPECT_FALSE(waiter.timedOut);
}

TEST_F(TinyAddressWaitTest, WakeAllReleasesEveryWaiter) {
    constexpr int kWaiters = 3;
    TinyAddressWait::Load();
    volatile LONG word = 0;
    std::vector<std::unique_ptr<AddressWaiter>> waiters;
    for (int i = 0; i < kWaiters; ++i) {
        waiters.push_back(std::make_unique<AddressWaiter>(&word));
    }
    for (auto& waiter : waiters) {
        ASSERT_TRUE(waiter->started.WaitFor(kDeadlineMs));
    }
    InterlockedExchange(&word, 1);
    TinyAddressWait::WakeAll(const_cast<LONG*>(&word));
    for (auto& waiter : waiters) {
        ASSERT_TRUE(waiter->thread.WaitFor(kDeadlineMs));
        EXPECT_EQ(waiter->sawWord, 1);
        EXPECT_FALSE(waiter->timedOut);
    }
}

}  // namespace
