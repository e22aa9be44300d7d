#include "TinyFramework/Common/TinyCore.h"
#include "tests/TinyFramework/SyncTestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

namespace {

using SyncTests::kDeadlineMs;
using SyncTests::TestThread;
using TinyFramework::TinyPerformanceLock;

constexpr LONG kValue = 7;
constexpr LONG kOtherValue = 5;
constexpr LONG kSpin = 4000;
// Reads of the word after which a Lock that could return has had every chance to: some eight
// rounds of steps and yields.
constexpr LONG kSpinningReads = 100;

constexpr DWORD kTrapFlag = 0x100;
constexpr unsigned char kLockPrefix = 0xF0;
constexpr DWORD kPollMs = 1;

// Lock returns only when the word turns non-zero between a step's read and its exchange, a window
// of a few instructions that no other thread can hit on purpose. So the word lives alone on a
// guard page and a vectored exception handler watches every access to it: the access faults, the
// handler lets it run as one single step, and when the step has ended it notes what the access
// was and arms the page again. That gives exact counts of the locking thread's reads and
// exchanges, and the one place where a test can change the word between a read and the exchange
// that follows it. The platform has no other way to stop a thread between two instructions,
// which is why the test takes over this much of it.
class WatchedWord {
public:
    WatchedWord()
        : m_page(VirtualAlloc(nullptr, kPageSize, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE)) {
        s_current = this;
        m_handler = AddVectoredExceptionHandler(1, &WatchedWord::Handle);
    }
    ~WatchedWord() {
        StopWatching();
        RemoveVectoredExceptionHandler(m_handler);
        s_current = nullptr;
        VirtualFree(m_page, 0, MEM_RELEASE);
    }
    WatchedWord(const WatchedWord&) = delete;
    WatchedWord& operator=(const WatchedWord&) = delete;

    volatile LONG* Word() { return static_cast<volatile LONG*>(m_page); }

    // Counts the reads and exchanges of `thread` from now on. Other threads' accesses pass
    // uncounted; while watching, the test reads the word only through LastRead.
    void Watch(DWORD thread) {
        m_watched = thread;
        Mode off = kOff;
        m_mode.compare_exchange_strong(off, kCounting);  // an injection asked for stays
        Guard(true);
    }
    // The next read of the watched thread is followed at once by a store of `value`; the counting
    // goes on.
    void InjectAfterNextRead(LONG value) {
        m_value = value;
        m_mode = kInjecting;
    }
    bool Injected() const { return m_injected; }
    // Takes the guard off, so that the test can use the word again.
    void StopWatching() {
        m_mode = kOff;
        Guard(false);
    }

    // Waits until the watched thread has read the word `reads` times in all.
    bool WaitForReads(LONG reads) {
        const ULONGLONG start = GetTickCount64();
        while (m_reads < reads) {
            if (GetTickCount64() - start >= kDeadlineMs) {
                return false;
            }
            Sleep(kPollMs);
        }
        return true;
    }
    LONG Reads() const { return m_reads; }
    LONG Exchanges() const { return m_exchanges; }
    LONG LastRead() const { return m_lastRead; }

private:
    enum Mode : int { kOff, kCounting, kInjecting, kInjected };
    enum Access : int { kNone, kRead, kExchange, kOther };

    static constexpr SIZE_T kPageSize = 4096;

    void Guard(bool on) {
        DWORD old = 0;
        VirtualProtect(m_page, kPageSize, PAGE_READWRITE | (on ? PAGE_GUARD : 0), &old);
    }

    bool IsOnPage(ULONG_PTR address) const {
        const auto start = reinterpret_cast<ULONG_PTR>(m_page);
        return address >= start && address < start + kPageSize;
    }

    // An access met the armed page: let it run as one single step.
    void OnGuardFault(CONTEXT* context) {
        const auto instruction = reinterpret_cast<const unsigned char*>(context->Rip);
        Access access = kOther;
        if (GetCurrentThreadId() == m_watched) {
            access = instruction[0] == kLockPrefix ? kExchange : kRead;
        }
        m_stepThread = GetCurrentThreadId();
        m_stepAccess = access;
        context->EFlags |= kTrapFlag;
    }

    // The access has run, and the page is unguarded until it is armed again.
    void OnStepEnded(CONTEXT* context) {
        context->EFlags &= ~kTrapFlag;
        const Access access = m_stepAccess.exchange(kNone);
        m_stepThread = 0;
        if (access == kExchange) {
            ++m_exchanges;
        } else if (access == kRead) {
            m_lastRead = *Word();
            ++m_reads;
            if (m_mode == kInjecting) {
                *Word() = m_value;
                m_mode = kInjected;
                m_injected = true;
            }
        }
        if (m_mode != kOff) {
            Guard(true);
        }
    }

    static LONG WINAPI Handle(EXCEPTION_POINTERS* pointers) {
        WatchedWord* self = s_current;
        if (self == nullptr) {
            return EXCEPTION_CONTINUE_SEARCH;
        }
        const EXCEPTION_RECORD* record = pointers->ExceptionRecord;
        if (record->ExceptionCode == STATUS_GUARD_PAGE_VIOLATION && record->NumberParameters >= 2 &&
            self->IsOnPage(record->ExceptionInformation[1])) {
            self->OnGuardFault(pointers->ContextRecord);
            return EXCEPTION_CONTINUE_EXECUTION;
        }
        // Wine: when two threads fault on the armed page at once, one gets the guard violation
        // and the other an access violation, although the page is accessible by then. The
        // access is simply made again.
        if (record->ExceptionCode == EXCEPTION_ACCESS_VIOLATION && record->NumberParameters >= 2 &&
            self->IsOnPage(record->ExceptionInformation[1]) && self->m_mode != kOff) {
            return EXCEPTION_CONTINUE_EXECUTION;
        }
        if (record->ExceptionCode == EXCEPTION_SINGLE_STEP &&
            self->m_stepThread == GetCurrentThreadId()) {
            self->OnStepEnded(pointers->ContextRecord);
            return EXCEPTION_CONTINUE_EXECUTION;
        }
        return EXCEPTION_CONTINUE_SEARCH;
    }

    static WatchedWord* s_current;

    void* m_page;
    void* m_handler = nullptr;
    std::atomic<DWORD> m_watched{0};
    std::atomic<Mode> m_mode{kOff};
    std::atomic<LONG> m_value{0};
    std::atomic<DWORD> m_stepThread{0};
    std::atomic<Access> m_stepAccess{kNone};
    std::atomic<LONG> m_reads{0};
    std::atomic<LONG> m_exchanges{0};
    std::atomic<LONG> m_lastRead{0};
    std::atomic<bool> m_injected{false};
};

WatchedWord* WatchedWord::s_current = nullptr;

class TinyPerformanceLockTest : public ::testing::Test {
protected:
    TinyPerformanceLockTest() { m_lock.Attach(m_word.Word()); }

    // Lock(kValue, kSpin) on a thread of its own that waits to be let go, so that the test can
    // watch the word before the first step, and so that a Lock that never returns fails the test
    // instead of hanging the program.
    void StartLockWatched() {
        m_locker = std::make_unique<TestThread>([this] {
            m_go.WaitFor(kDeadlineMs);
            m_lock.Lock(kValue, kSpin);
        });
        m_word.Watch(m_locker->Id());
        m_go.Set();
    }

    WatchedWord m_word;
    TinyPerformanceLock m_lock;
    SyncTests::ManualEvent m_go;
    std::unique_ptr<TestThread> m_locker;
};

TEST(TinyPerformanceLockAttachTest, HasNoWordUntilOneIsAttached) {
    TinyPerformanceLock lock;
    EXPECT_EQ(lock.Word(), nullptr);
    volatile LONG word = 0;
    lock.Attach(&word);
    EXPECT_EQ(lock.Word(), &word);
}

TEST_F(TinyPerformanceLockTest, UnlockStoresZero) {
    *m_word.Word() = kValue;
    m_lock.Unlock();
    EXPECT_EQ(*m_word.Word(), 0);
}

TEST_F(TinyPerformanceLockTest, LockReturnsWhenTheWordTurnsToItsValueBetweenReadAndExchange) {
    m_word.InjectAfterNextRead(kValue);
    StartLockWatched();
    ASSERT_TRUE(m_locker->WaitFor(kDeadlineMs));
    m_word.StopWatching();
    EXPECT_TRUE(m_word.Injected());
    EXPECT_EQ(m_word.Reads(), 1);
    EXPECT_EQ(m_word.Exchanges(), 1);
    // The exchange found kValue, which is what it compares with, and stored 0.
    EXPECT_EQ(*m_word.Word(), 0);
}

TEST_F(TinyPerformanceLockTest, LockReturnsWhenTheWordTurnsToAnotherValueAndLeavesIt) {
    m_word.InjectAfterNextRead(kOtherValue);
    StartLockWatched();
    ASSERT_TRUE(m_locker->WaitFor(kDeadlineMs));
    m_word.StopWatching();
    EXPECT_TRUE(m_word.Injected());
    EXPECT_EQ(m_word.Exchanges(), 1);
    // Found non-zero, so Lock ended; not equal to kValue, so nothing was stored.
    EXPECT_EQ(*m_word.Word(), kOtherValue);
}

TEST_F(TinyPerformanceLockTest, LockKeepsSpinningOnAFreeWordAndLeavesItFree) {
    StartLockWatched();
    ASSERT_TRUE(m_word.WaitForReads(kSpinningReads));
    EXPECT_FALSE(m_locker->HasEnded());
    // Every read found the word free and went on to an exchange that found 0 and stored nothing;
    // a lock that took free words would have stored its value and returned.
    EXPECT_GE(m_word.Exchanges(), kSpinningReads - 1);
    EXPECT_EQ(m_word.LastRead(), 0);

    m_word.InjectAfterNextRead(kValue);
    EXPECT_TRUE(m_locker->WaitFor(kDeadlineMs));
}

TEST_F(TinyPerformanceLockTest, LockKeepsSpinningOnAHeldWordWithoutExchangingIt) {
    *m_word.Word() = kValue;
    StartLockWatched();
    ASSERT_TRUE(m_word.WaitForReads(kSpinningReads));
    EXPECT_FALSE(m_locker->HasEnded());
    EXPECT_EQ(m_word.Exchanges(), 0);
    EXPECT_EQ(m_word.LastRead(), kValue);

    // Unlock frees the word, yet the spinning Lock needs the word to turn non-zero under it.
    m_lock.Unlock();
    ASSERT_TRUE(m_word.WaitForReads(m_word.Reads() + kSpinningReads));
    EXPECT_FALSE(m_locker->HasEnded());
    EXPECT_GT(m_word.Exchanges(), 0);
    EXPECT_EQ(m_word.LastRead(), 0);

    m_word.InjectAfterNextRead(kValue);
    EXPECT_TRUE(m_locker->WaitFor(kDeadlineMs));
}

}  // namespace
