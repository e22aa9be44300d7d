#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/Common/TinyLogging_win32.h"
#include "tests/TinyFramework/SyncTestSupport.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>
#include <type_traits>

namespace {

using SyncTests::kDeadlineMs;
using SyncTests::ManualEvent;
using SyncTests::TestThread;
using TinyFramework::BindCallback;
using TinyFramework::Callback;
using TinyFramework::g_threadTimers;
using TinyFramework::GetMonotonicNanos;
using TinyFramework::PreciseSleep;
using TinyFramework::PreciseSleepInterval;
using TinyFramework::PreciseSleepMilliseconds;
using TinyFramework::TinyThreadTimer;
using TinyFramework::TinyTimer;
using TinyFramework::TinyTimerQueue;
using TinyFramework::TinyWaitableTimer;
using TinyFramework::TinyWaiter;

// How long a stopped timer is given to show that it still fires: many of its periods.
constexpr DWORD kGraceMs = 300;
// How long a routine that was already running when its timer was stopped may take to finish.
constexpr DWORD kSettleMs = 100;
// The short due time of most tests, and how much earlier than that a clock of coarse ticks may
// see the callback arrive.
constexpr DWORD kDueMs = 50;
constexpr int64_t kEarlyToleranceMs = 10;
constexpr int64_t kNanosPerMs = 1000000;

// Counts the calls of a callback, keeps the argument and the time of the first, and wakes a
// waiting test at each call. Lives longer than every timer that calls it.
class CallRecorder {
public:
    CallRecorder() : m_start(GetMonotonicNanos()) { m_called.Create(); }

    void OnCall() { Record(); }
    void OnWait(unsigned char timedOut) {
        m_timedOut = timedOut;
        Record();
    }
    static VOID CALLBACK OnQueueTimer(PVOID context, BOOLEAN /*timerFired*/) {
        static_cast<CallRecorder*>(context)->Record();
    }

    Callback<void()> Bound() { return BindCallback<void()>(&CallRecorder::OnCall, this); }
    Callback<void(unsigned char)> BoundWait() {
        return BindCallback<void(unsigned char)>(&CallRecorder::OnWait, this);
    }

    int Count() const { return m_count.load(); }
    unsigned char TimedOut() const { return m_timedOut.load(); }
    // Milliseconds from the recorder's making to its first call.
    int64_t FirstCallAfterMs() const { return (m_firstCall.load() - m_start) / kNanosPerMs; }

    // For callbacks on other threads: waits until `count` calls have been made.
    bool WaitForCount(int count, DWORD milliseconds) {
        const int64_t end = GetMonotonicNanos() + int64_t{milliseconds} * kNanosPerMs;
        while (Count() < count) {
            const int64_t left = (end - GetMonotonicNanos()) / kNanosPerMs;
            if (left <= 0) {
                return false;
            }
            WaitForSingleObject(m_called.Handle(), static_cast<DWORD>(left));
        }
        return true;
    }

private:
    void Record() {
        int64_t none = 0;
        m_firstCall.compare_exchange_strong(none, GetMonotonicNanos());
        ++m_count;
        m_called.SetEvent();
    }

    const int64_t m_start;
    std::atomic<int> m_count{0};
    std::atomic<unsigned char> m_timedOut{0xFF};
    std::atomic<int64_t> m_firstCall{0};
    TinyFramework::TinyEvent m_called;
};

// Runs `wait` in slices until `done` holds or `milliseconds` have passed; `wait` gets the time
// left and is where callbacks of this thread run (an alertable wait, or a message loop).
bool RunUntil(const std::function<bool()>& done, DWORD milliseconds,
              const std::function<void(DWORD)>& wait) {
    const int64_t end = GetMonotonicNanos() + int64_t{milliseconds} * kNanosPerMs;
    while (!done()) {
        const int64_t left = (end - GetMonotonicNanos()) / kNanosPerMs;
        if (left <= 0) {
            return false;
        }
        wait(static_cast<DWORD>(left));
    }
    return true;
}

// An alertable wait: completion routines of this thread run in it.
void AlertableWait(DWORD milliseconds) {
    SleepEx(milliseconds, TRUE);
}

// A message loop: thread timers of this thread run in it.
void PumpMessages(DWORD milliseconds) {
    MsgWaitForMultipleObjectsEx(0, nullptr, milliseconds, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        DispatchMessageW(&message);
    }
}

// Lets a stopped timer show whether it still fires: `wait` runs for the whole grace period.
void SpendGracePeriod(const std::function<void(DWORD)>& wait) {
    RunUntil([] { return false; }, kGraceMs, wait);
}

void SleepFor(DWORD milliseconds) {
    Sleep(milliseconds);
}

// Unregisters a timer and checks the report. A deletion that does not wait may be answered with
// ERROR_IO_PENDING (Wine always answers so), which counts as a failure and is logged with its code.
void UnregisterAndCheckReport(TinyTimerQueue& queue, HANDLE timer) {
    TestSupport::LogCapture capture;
    if (queue.Unregister(timer)) {
        EXPECT_TRUE(capture.Messages().empty());
        return;
    }
    const std::string expected = TinyFramework::StringPrintf("Failed to DeleteTimerQueueTimer(%d)",
                                                             static_cast<int>(GetLastError()));
    EXPECT_EQ(std::vector<std::string>{expected}, capture.Messages());
}

// Closes a waitable timer and takes, while the object is still there, the completion that closing
// hands this thread: met after the object is gone, it would call through a dangling pointer.
void CloseAndDrain(TinyWaitableTimer& timer) {
    timer.Close();
    EXPECT_EQ(static_cast<DWORD>(WAIT_IO_COMPLETION), SleepEx(kDeadlineMs, TRUE));
}

// --- TinyWaiter ---------------------------------------------------------------------------------

TEST(TinyWaiterTest, RegisterCallsBackWithZeroWhenTheHandleIsSignalled) {
    ManualEvent object;
    CallRecorder recorder;
    TinyWaiter waiter;
    ASSERT_TRUE(waiter.Register(object.Handle(), INFINITE, recorder.BoundWait()));
    EXPECT_FALSE(waiter.IsEmpty());
    EXPECT_EQ(object.Handle(), waiter.Object());

    object.Set();
    ASSERT_TRUE(recorder.WaitForCount(1, kDeadlineMs));
    EXPECT_EQ(0, recorder.TimedOut());
    waiter.Unregister();
}

TEST(TinyWaiterTest, RegisterCallsBackWithOneWhenTheWaitTimesOut) {
    ManualEvent object;
    CallRecorder recorder;
    TinyWaiter waiter;
    ASSERT_TRUE(waiter.RegisterOnce(object.Handle(), kDueMs, recorder.BoundWait()));

    ASSERT_TRUE(recorder.WaitForCount(1, kDeadlineMs));
    EXPECT_EQ(1, recorder.TimedOut());
    EXPECT_GE(recorder.FirstCallAfterMs(), int64_t{kDueMs} - kEarlyToleranceMs);
    waiter.Unregister();
}

TEST(TinyWaiterTest, RegisterCallsBackAtEverySignal) {
    TinyFramework::TinyEvent object;  // auto-reset: each signal is consumed by the wait
    ASSERT_TRUE(object.Create());
    CallRecorder recorder;
    TinyWaiter waiter;
    ASSERT_TRUE(waiter.Register(object.Handle(), INFINITE, recorder.BoundWait()));

    object.SetEvent();
    ASSERT_TRUE(recorder.WaitForCount(1, kDeadlineMs));
    object.SetEvent();
    ASSERT_TRUE(recorder.WaitForCount(2, kDeadlineMs));
    EXPECT_EQ(2, recorder.Count());
    waiter.Unregister();
}

TEST(TinyWaiterTest, RegisterOnceCallsBackOnlyOnce) {
    TinyFramework::TinyEvent object;
    ASSERT_TRUE(object.Create());
    CallRecorder recorder;
    TinyWaiter waiter;
    ASSERT_TRUE(waiter.RegisterOnce(object.Handle(), INFINITE, recorder.BoundWait()));

    object.SetEvent();
    ASSERT_TRUE(recorder.WaitForCount(1, kDeadlineMs));
    object.SetEvent();
    SpendGracePeriod(SleepFor);
    EXPECT_EQ(1, recorder.Count());
    waiter.Unregister();
}

TEST(TinyWaiterTest, UnregisterStopsTheCallbacks) {
    TinyFramework::TinyEvent object;
    ASSERT_TRUE(object.Create());
    CallRecorder recorder;
    TinyWaiter waiter;
    ASSERT_TRUE(waiter.Register(object.Handle(), INFINITE, recorder.BoundWait()));
    object.SetEvent();
    ASSERT_TRUE(recorder.WaitForCount(1, kDeadlineMs));

    waiter.Unregister();
    EXPECT_TRUE(waiter.IsEmpty());
    object.SetEvent();
    SpendGracePeriod(SleepFor);
    EXPECT_EQ(1, recorder.Count());
}

TEST(TinyWaiterTest, NoCallbackOnceTheWaiterIsGone) {
    TinyFramework::TinyEvent object;
    ASSERT_TRUE(object.Create());
    CallRecorder recorder;
    {
        TinyWaiter waiter;
        ASSERT_TRUE(waiter.Register(object.Handle(), INFINITE, recorder.BoundWait()));
    }
    object.SetEvent();
    SpendGracePeriod(SleepFor);
    EXPECT_EQ(0, recorder.Count());
}

// --- TinyTimerQueue -----------------------------------------------------------------------------

template <typename Method>
struct DueTimeParameter;
template <typename R, typename C, typename... Args>
struct DueTimeParameter<R (C::*)(Args...)> {
    // Register(routine, context, due, ...) and Change(timer, due, ...).
    using OfRegister = std::tuple_element_t<2, std::tuple<Args...>>;
    using OfChange = std::tuple_element_t<1, std::tuple<Args...>>;
};

TEST(TinyTimerQueueTest, DueTimeOf70000ArmsFor4464Milliseconds) {
    // The due time is taken as an unsigned 16-bit number, so 70000 reaches the queue as its low
    // 16 bits. Waiting 4.4 s to see it is avoided here; the test below sees a cut due time fire.
    using RegisterDue = DueTimeParameter<decltype(&TinyTimerQueue::Register)>::OfRegister;
    using ChangeDue = DueTimeParameter<decltype(&TinyTimerQueue::Change)>::OfChange;
    volatile DWORD requested = 70000;
    EXPECT_EQ(4464u, static_cast<DWORD>(static_cast<RegisterDue>(requested)));
    EXPECT_EQ(4464u, static_cast<DWORD>(static_cast<ChangeDue>(requested)));
}

TEST(TinyTimerQueueTest, DueTimeBeyond16BitsFiresAfterItsLowBits) {
    // 65536 + 50: armed for 50 ms. Armed as asked, it could not fire within the deadline.
    static_assert(65536 + kDueMs > kDeadlineMs, "the deadline must tell the two apart");
    volatile DWORD requested = 65536 + kDueMs;
    CallRecorder recorder;
    TinyTimerQueue queue;
    ASSERT_TRUE(queue.Create());
    HANDLE timer = queue.Register(&CallRecorder::OnQueueTimer, &recorder,
                                  static_cast<uint16_t>(requested), 0, WT_EXECUTEDEFAULT);
    ASSERT_NE(nullptr, timer);

    ASSERT_TRUE(recorder.WaitForCount(1, kDeadlineMs));
    EXPECT_GE(recorder.FirstCallAfterMs(), int64_t{kDueMs} - kEarlyToleranceMs);
    UnregisterAndCheckReport(queue, timer);
}

TEST(TinyTimerQueueTest, EmptyQueueRegistersNothing) {
    CallRecorder recorder;
    TinyTimerQueue queue;
    EXPECT_TRUE(queue.IsEmpty());
    EXPECT_EQ(nullptr, queue.Register(&CallRecorder::OnQueueTimer, &recorder, 1, 0, 0));
    EXPECT_FALSE(queue.Change(reinterpret_cast<HANDLE>(1), 1, 0));
    EXPECT_FALSE(queue.Unregister(reinterpret_cast<HANDLE>(1)));
}

TEST(TinyTimerQueueTest, ChangeAndUnregisterRefuseANullTimer) {
    TinyTimerQueue queue;
    ASSERT_TRUE(queue.Create());
    EXPECT_FALSE(queue.Change(nullptr, 1, 0));
    EXPECT_FALSE(queue.Unregister(nullptr));
}

TEST(TinyTimerQueueTest, PeriodicTimerFiresRepeatedly) {
    CallRecorder recorder;
    TinyTimerQueue queue;
    ASSERT_TRUE(queue.Create());
    HANDLE timer = queue.Register(&CallRecorder::OnQueueTimer, &recorder, 10, 10, 0);
    ASSERT_NE(nullptr, timer);
    EXPECT_TRUE(recorder.WaitForCount(3, kDeadlineMs));
    UnregisterAndCheckReport(queue, timer);
    Sleep(kSettleMs);
}

TEST(TinyTimerQueueTest, ChangeRearmsTheTimer) {
    static_assert(65000 > kDeadlineMs, "left as it was armed, the timer could not fire in time");
    CallRecorder recorder;
    TinyTimerQueue queue;
    ASSERT_TRUE(queue.Create());
    HANDLE timer = queue.Register(&CallRecorder::OnQueueTimer, &recorder, 65000, 0, 0);
    ASSERT_NE(nullptr, timer);

    EXPECT_TRUE(queue.Change(timer, kDueMs, 0));
    ASSERT_TRUE(recorder.WaitForCount(1, kDeadlineMs));
    UnregisterAndCheckReport(queue, timer);
}

TEST(TinyTimerQueueTest, UnregisterStopsAPeriodicTimer) {
    CallRecorder recorder;
    TinyTimerQueue queue;
    ASSERT_TRUE(queue.Create());
    HANDLE timer = queue.Register(&CallRecorder::OnQueueTimer, &recorder, 10, 10, 0);
    ASSERT_NE(nullptr, timer);
    ASSERT_TRUE(recorder.WaitForCount(1, kDeadlineMs));

    UnregisterAndCheckReport(queue, timer);
    Sleep(kSettleMs);
    const int stopped = recorder.Count();
    SpendGracePeriod(SleepFor);
    EXPECT_EQ(stopped, recorder.Count());
}

TEST(TinyTimerQueueTest, NoRoutineOnceTheQueueIsGone) {
    CallRecorder recorder;
    {
        TinyTimerQueue queue;
        ASSERT_TRUE(queue.Create());
        ASSERT_NE(nullptr, queue.Register(&CallRecorder::OnQueueTimer, &recorder, 10, 10, 0));
        ASSERT_TRUE(recorder.WaitForCount(1, kDeadlineMs));
    }
    Sleep(kSettleMs);
    const int stopped = recorder.Count();
    SpendGracePeriod(SleepFor);
    EXPECT_EQ(stopped, recorder.Count());
}

TEST(TinyTimerQueueTest, CloseEmptiesTheQueue) {
    TinyTimerQueue queue;
    ASSERT_TRUE(queue.Create());
    queue.Close();
    EXPECT_TRUE(queue.IsEmpty());
    queue.Close();
    EXPECT_TRUE(queue.IsEmpty());
}

// --- TinyTimer (multimedia) ---------------------------------------------------------------------

TEST(TinyTimerTest, StartCallsBackPeriodically) {
    CallRecorder recorder;
    TinyTimer timer;
    ASSERT_TRUE(timer.Start(10, recorder.Bound()));
    EXPECT_FALSE(timer.IsEmpty());
    EXPECT_TRUE(recorder.WaitForCount(3, kDeadlineMs));
    timer.Kill();
    Sleep(kSettleMs);
}

TEST(TinyTimerTest, StartWithZeroDelayStartsNothing) {
    CallRecorder recorder;
    TinyTimer timer;
    EXPECT_TRUE(timer.Start(0, recorder.Bound()));
    EXPECT_TRUE(timer.IsEmpty());
    SpendGracePeriod(SleepFor);
    EXPECT_EQ(0, recorder.Count());
}

TEST(TinyTimerTest, StartWithZeroDelayKeepsTheRunningTimerAndItsCallback) {
    CallRecorder first;
    CallRecorder second;
    TinyTimer timer;
    ASSERT_TRUE(timer.Start(10, first.Bound()));
    ASSERT_TRUE(first.WaitForCount(1, kDeadlineMs));

    Callback<void()> replacement = second.Bound();
    EXPECT_TRUE(timer.Start(0, std::move(replacement)));
    EXPECT_FALSE(replacement.IsNull());
    EXPECT_FALSE(timer.IsEmpty());
    const int before = first.Count();
    EXPECT_TRUE(first.WaitForCount(before + 2, kDeadlineMs));
    EXPECT_EQ(0, second.Count());
    timer.Kill();
    Sleep(kSettleMs);
}

TEST(TinyTimerTest, KillStopsTheCallbacks) {
    CallRecorder recorder;
    TinyTimer timer;
    ASSERT_TRUE(timer.Start(10, recorder.Bound()));
    ASSERT_TRUE(recorder.WaitForCount(1, kDeadlineMs));

    timer.Kill();
    EXPECT_TRUE(timer.IsEmpty());
    Sleep(kSettleMs);
    const int stopped = recorder.Count();
    SpendGracePeriod(SleepFor);
    EXPECT_EQ(stopped, recorder.Count());
}

TEST(TinyTimerTest, NoCallbackOnceTheTimerIsGone) {
    CallRecorder recorder;
    {
        TinyTimer timer;
        ASSERT_TRUE(timer.Start(10, recorder.Bound()));
        ASSERT_TRUE(recorder.WaitForCount(1, kDeadlineMs));
    }
    Sleep(kSettleMs);
    const int stopped = recorder.Count();
    SpendGracePeriod(SleepFor);
    EXPECT_EQ(stopped, recorder.Count());
}

TEST(TinyTimerTest, WaitOnceReturnsWhenTheOneShotHasFired) {
    TinyTimer timer;
    const int64_t start = GetMonotonicNanos();
    EXPECT_TRUE(timer.WaitOnce(kDueMs, kDeadlineMs));
    EXPECT_GE((GetMonotonicNanos() - start) / kNanosPerMs, int64_t{kDueMs} - kEarlyToleranceMs);
}

TEST(TinyTimerTest, WaitOnceFailsWhenTheTimeoutComesFirst) {
    TinyTimer timer;
    EXPECT_FALSE(timer.WaitOnce(60000, 0));
    timer.Kill();
}

TEST(TinyTimerTest, WaitOnceWithZeroDelaySucceedsAtOnce) {
    TinyTimer timer;
    EXPECT_TRUE(timer.WaitOnce(0, 0));
    EXPECT_TRUE(timer.IsEmpty());
}

// --- TinyWaitableTimer --------------------------------------------------------------------------
// Every test that made a timer closes it and takes the closing completion before the object goes.

TEST(TinyWaitableTimerTest, RelativeDueTimeIsFormedInSigned32Bits) {
    EXPECT_EQ(0, TinyWaitableTimer::RelativeDueTime(0));
    EXPECT_EQ(-10000, TinyWaitableTimer::RelativeDueTime(1));
    EXPECT_EQ(-2147480000LL, TinyWaitableTimer::RelativeDueTime(214748));
    // One millisecond more wraps into a positive, absolute time early in 1601.
    EXPECT_EQ(2147477296LL, TinyWaitableTimer::RelativeDueTime(214749));
}

TEST(TinyWaitableTimerTest, SetBeyondTheLimitWrapsIntoThePastAndSignalsAtOnce) {
    static_assert(214749 > kDeadlineMs, "armed as asked, the timer could not fire in time");
    TinyWaitableTimer timer;
    ASSERT_TRUE(timer.Create(TRUE, nullptr));
    ASSERT_TRUE(timer.Set(214749));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(timer.Handle(), kDeadlineMs));
    CloseAndDrain(timer);
}

TEST(TinyWaitableTimerTest, OperationsOnAnEmptyTimerFail) {
    TinyWaitableTimer timer;
    EXPECT_TRUE(timer.IsEmpty());
    EXPECT_FALSE(timer.Set(10));
    EXPECT_FALSE(timer.Wait());
    EXPECT_FALSE(timer.Cancel());
    timer.Close();
    EXPECT_TRUE(timer.IsEmpty());
}

TEST(TinyWaitableTimerTest, SetCallbackOnAnEmptyTimerFailsButTakesTheCallback) {
    CallRecorder recorder;
    TinyWaitableTimer timer;
    Callback<void()> callback = recorder.Bound();
    EXPECT_FALSE(timer.SetCallback(10, std::move(callback)));
    EXPECT_TRUE(callback.IsNull());

    // The callback taken then is the one that the closing sequence's completion calls.
    ASSERT_TRUE(timer.Create(FALSE, nullptr));
    timer.Close();
    EXPECT_TRUE(RunUntil([&] { return recorder.Count() == 1; }, kDeadlineMs, AlertableWait));
}

TEST(TinyWaitableTimerTest, SetCallbackRunsTheCompletionOnTheSettingThread) {
    CallRecorder recorder;
    DWORD callingThread = 0;
    TinyWaitableTimer timer;
    ASSERT_TRUE(timer.Create(FALSE, nullptr));
    ASSERT_TRUE(timer.SetCallback(kDueMs, BindCallback<void()>(
                                              +[](CallRecorder* target, DWORD* thread) {
                                                  *thread = GetCurrentThreadId();
                                                  target->OnCall();
                                              },
                                              &recorder, &callingThread)));

    ASSERT_TRUE(RunUntil([&] { return recorder.Count() >= 1; }, kDeadlineMs, AlertableWait));
    EXPECT_EQ(1, recorder.Count());
    EXPECT_EQ(GetCurrentThreadId(), callingThread);
    EXPECT_GE(recorder.FirstCallAfterMs(), int64_t{kDueMs} - kEarlyToleranceMs);
    EXPECT_TRUE(timer.Cancel());
    CloseAndDrain(timer);
}

TEST(TinyWaitableTimerTest, WaitReturnsTrueWhenTheTimerIsSignalled) {
    TinyWaitableTimer timer;
    ASSERT_TRUE(timer.Create(FALSE, nullptr));
    ASSERT_TRUE(timer.Set(kDueMs));
    EXPECT_TRUE(timer.Wait());
    CloseAndDrain(timer);
}

TEST(TinyWaitableTimerTest, WaitReturnsFalseWhenACompletionRoutineRan) {
    CallRecorder recorder;
    TinyWaitableTimer waited;
    ASSERT_TRUE(waited.Create(TRUE, nullptr));
    // Only a safety net: should the completion never come, the wait still ends, and fails the
    // test, within the deadline.
    ASSERT_TRUE(waited.Set(kDeadlineMs));
    TinyWaitableTimer completing;
    ASSERT_TRUE(completing.Create(FALSE, nullptr));
    ASSERT_TRUE(completing.SetCallback(kDueMs, recorder.Bound()));

    EXPECT_FALSE(waited.Wait());
    EXPECT_EQ(1, recorder.Count());
    EXPECT_TRUE(completing.Cancel());
    EXPECT_TRUE(waited.Cancel());
    CloseAndDrain(completing);
    CloseAndDrain(waited);
}

TEST(TinyWaitableTimerTest, CancelKeepsTheTimerFromSignalling) {
    TinyWaitableTimer timer;
    ASSERT_TRUE(timer.Create(TRUE, nullptr));
    ASSERT_TRUE(timer.Set(kDueMs));
    EXPECT_TRUE(timer.Cancel());
    EXPECT_EQ(static_cast<DWORD>(WAIT_TIMEOUT), WaitForSingleObject(timer.Handle(), kGraceMs));
    CloseAndDrain(timer);
}

TEST(TinyWaitableTimerTest, CloseHandsTheClosingThreadOneLastCompletion) {
    CallRecorder recorder;
    TinyWaitableTimer timer;
    ASSERT_TRUE(timer.Create(FALSE, nullptr));
    ASSERT_TRUE(timer.SetCallback(60000, recorder.Bound()));

    timer.Close();
    EXPECT_TRUE(timer.IsEmpty());
    EXPECT_EQ(static_cast<DWORD>(WAIT_IO_COMPLETION), SleepEx(kDeadlineMs, TRUE));
    EXPECT_EQ(1, recorder.Count());
}

TEST(TinyWaitableTimerTest, NoCompletionOnceTheDrainedTimerIsGone) {
    CallRecorder recorder;
    {
        TinyWaitableTimer timer;
        ASSERT_TRUE(timer.Create(FALSE, nullptr));
        ASSERT_TRUE(timer.SetCallback(kDueMs, recorder.Bound()));
        timer.Close();
        // The owner's part: take the closing completion while the object is still there.
        ASSERT_TRUE(RunUntil([&] { return recorder.Count() == 1; }, kDeadlineMs, AlertableWait));
    }
    // The first due time was cancelled by the close: nothing more arrives.
    SpendGracePeriod(AlertableWait);
    EXPECT_EQ(1, recorder.Count());
}

TEST(TinyWaitableTimerTest, OpenFindsANamedTimer) {
    const std::wstring name = SyncTests::UniqueName(L"waitable-timer");
    TinyWaitableTimer created;
    ASSERT_TRUE(created.Create(TRUE, name.c_str()));
    TinyWaitableTimer opened;
    ASSERT_TRUE(opened.Open(name.c_str()));
    ASSERT_TRUE(opened.Set(1));
    EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(created.Handle(), kDeadlineMs));
    CloseAndDrain(opened);
    CloseAndDrain(created);
}

// --- TinyThreadTimer ----------------------------------------------------------------------------

TEST(TinyThreadTimerTest, StartCallsBackFromTheMessageLoop) {
    CallRecorder recorder;
    DWORD callingThread = 0;
    TinyThreadTimer timer;
    ASSERT_TRUE(timer.Start(10, BindCallback<void()>(
                                    +[](CallRecorder* target, DWORD* thread) {
                                        *thread = GetCurrentThreadId();
                                        target->OnCall();
                                    },
                                    &recorder, &callingThread)));
    EXPECT_FALSE(timer.IsEmpty());

    EXPECT_TRUE(RunUntil([&] { return recorder.Count() >= 2; }, kDeadlineMs, PumpMessages));
    EXPECT_EQ(GetCurrentThreadId(), callingThread);
    timer.Close();
}

TEST(TinyThreadTimerTest, AStartedAndStoppedTimerLeavesOneMoreEntry) {
    CallRecorder recorder;
    const int before = g_threadTimers.Count();
    TinyThreadTimer timer;
    ASSERT_TRUE(timer.Start(10, recorder.Bound()));
    const UINT_PTR id = timer.Id();
    EXPECT_EQ(before + 1, g_threadTimers.Count());
    EXPECT_EQ(&timer, g_threadTimers.Lookup(id));

    timer.Close();
    EXPECT_TRUE(timer.IsEmpty());
    EXPECT_EQ(before + 1, g_threadTimers.Count());
    EXPECT_EQ(&timer, g_threadTimers.Lookup(id));
}

TEST(TinyThreadTimerTest, CloseStopsTheCallbacks) {
    CallRecorder recorder;
    TinyThreadTimer timer;
    ASSERT_TRUE(timer.Start(10, recorder.Bound()));
    ASSERT_TRUE(RunUntil([&] { return recorder.Count() >= 1; }, kDeadlineMs, PumpMessages));

    timer.Close();
    const int stopped = recorder.Count();
    SpendGracePeriod(PumpMessages);
    EXPECT_EQ(stopped, recorder.Count());
}

TEST(TinyThreadTimerTest, NoCallbackOnceTheTimerIsGone) {
    CallRecorder recorder;
    {
        TinyThreadTimer timer;
        ASSERT_TRUE(timer.Start(10, recorder.Bound()));
        ASSERT_TRUE(RunUntil([&] { return recorder.Count() >= 1; }, kDeadlineMs, PumpMessages));
    }
    const int stopped = recorder.Count();
    SpendGracePeriod(PumpMessages);
    EXPECT_EQ(stopped, recorder.Count());
}

TEST(TinyThreadTimerTest, RestartingGivesTheTimerANewId) {
    CallRecorder recorder;
    TinyThreadTimer timer;
    ASSERT_TRUE(timer.Start(60000, recorder.Bound()));
    const UINT_PTR first = timer.Id();
    ASSERT_TRUE(timer.Start(60000, recorder.Bound()));
    EXPECT_NE(first, timer.Id());
    timer.Close();
}

// --- PreciseSleep -------------------------------------------------------------------------------

TEST(PreciseSleepTest, ZeroDoesNotWrapBelowZero) {
    EXPECT_EQ(0u, PreciseSleepMilliseconds(0, TRUE));
    EXPECT_EQ(0u, PreciseSleepMilliseconds(0, FALSE));
    EXPECT_EQ(0, PreciseSleepInterval(0));
}

TEST(PreciseSleepTest, WindowsEightAndLaterSleepOneMillisecondLess) {
    EXPECT_EQ(4u, PreciseSleepMilliseconds(5, TRUE));
    EXPECT_EQ(5u, PreciseSleepMilliseconds(5, FALSE));
}

TEST(PreciseSleepTest, IntervalIsNegativeHundredsOfNanoseconds) {
    EXPECT_EQ(-40000, PreciseSleepInterval(4));
    // The product is formed in unsigned 32 bits: 429497 ms wraps to 2704 units.
    EXPECT_EQ(-2704, PreciseSleepInterval(429497));
}

TEST(PreciseSleepTest, SleepOfZeroReturns) {
    // Wrapped below zero it would sleep for days (or 429 s): far beyond the deadline.
    TestThread sleeper([] { PreciseSleep(0); });
    EXPECT_TRUE(sleeper.WaitFor(kDeadlineMs));
}

TEST(PreciseSleepTest, SleepsAtLeastAlmostAsLongAsAsked) {
    const int64_t start = GetMonotonicNanos();
    PreciseSleep(kDueMs);
    // One millisecond may be taken off from Windows 8 on.
    EXPECT_GE((GetMonotonicNanos() - start) / kNanosPerMs, int64_t{kDueMs} - 1 - kEarlyToleranceMs);
}

}  // namespace
