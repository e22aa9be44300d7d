#pragma once

// Five ways of having something happen later, each on its own platform service: a wait registered
// on a handle, a timer queue, a multimedia timer, a waitable timer and a thread-message timer; and
// a sleep sharper than Sleep. None of them waits for a callback that is already running: the owner
// makes sure that none runs before it destroys the object.

#include "TinyFramework/Common/TinyCallback.h"
#include "TinyFramework/Common/TinyCore.h"

#include <windows.h>

#include <cstdint>

namespace TinyFramework {

// A wait on a handle through the thread pool (RegisterWaitForSingleObject). The callback gets 1
// when the wait timed out and 0 when the handle was signalled, and runs on the pool's wait thread.
// Register, RegisterOnce and Unregister run on the owner's thread; nothing is locked. Unregister
// does not wait for a callback that is running.
class TinyWaiter {
public:
    using WaitCallback = Callback<void(unsigned char)>;

    TinyWaiter();
    ~TinyWaiter();
    TinyWaiter(const TinyWaiter&) = delete;
    TinyWaiter& operator=(const TinyWaiter&) = delete;

    bool IsEmpty() const { return m_wait == nullptr; }
    HANDLE Object() const { return m_object; }

    // The callback runs at every signal (and every time-out) until Unregister.
    BOOL Register(HANDLE handle, DWORD milliseconds, WaitCallback&& callback);
    // The callback runs once.
    BOOL RegisterOnce(HANDLE handle, DWORD milliseconds, WaitCallback&& callback);
    void Unregister();

private:
    BOOL RegisterWait(HANDLE handle, DWORD milliseconds, DWORD flags, WaitCallback&& callback);
    static VOID CALLBACK OnWait(PVOID context, BOOLEAN timedOut);

    HANDLE m_wait;
    HANDLE m_object;
    WaitCallback m_callback;
};

// Owns a timer queue. Its timers run their routines on the pool's timer threads; the routine and
// its context are the caller's. Unregister does not wait for a routine that is running.
class TinyTimerQueue {
public:
    TinyTimerQueue();
    ~TinyTimerQueue();
    TinyTimerQueue(const TinyTimerQueue&) = delete;
    TinyTimerQueue& operator=(const TinyTimerQueue&) = delete;

    HANDLE Handle() const { return m_queue; }
    bool IsEmpty() const { return m_queue == nullptr; }

    BOOL Create();
    // The due time is an unsigned 16-bit number: a delay beyond 65535 ms is not expressible and
    // arrives cut to its low 16 bits (70000 arms for 4464 ms). The timer's handle, or null.
    HANDLE Register(WAITORTIMERCALLBACK routine, PVOID context, uint16_t dueMilliseconds,
                    DWORD periodMilliseconds, DWORD flags);
    BOOL Change(HANDLE timer, uint16_t dueMilliseconds, DWORD periodMilliseconds);
    BOOL Unregister(HANDLE timer);
    void Close();

private:
    HANDLE m_queue;
};

// A periodic multimedia timer with 1 ms resolution (timeSetEvent). The callback runs on the
// multimedia timer thread; Start, WaitOnce, Kill and Close run on the owner's thread, unlocked.
// Kill does not wait for a callback that is running.
class TinyTimer {
public:
    using TimerCallback = Callback<void()>;

    TinyTimer();
    ~TinyTimer();
    TinyTimer(const TinyTimer&) = delete;
    TinyTimer& operator=(const TinyTimer&) = delete;

    bool IsEmpty() const { return m_id == 0; }

    // A delay below 1 does nothing, keeps the callback held before and reports success.
    BOOL Start(int32_t delayMilliseconds, TimerCallback&& callback);
    // One shot after `delayMilliseconds` that sets the object's event, then waits for the event
    // for at most `timeoutMilliseconds`. A delay below 1 reports success at once.
    BOOL WaitOnce(int32_t delayMilliseconds, DWORD timeoutMilliseconds);
    void Kill();
    // The event goes before the timer is killed.
    void Close();

private:
    static void CALLBACK OnTimer(UINT id, UINT message, DWORD_PTR user, DWORD_PTR, DWORD_PTR);

    uint32_t m_id;
    TimerCallback m_callback;
    TinyEvent m_event;
};

// Owns a waitable timer. SetCallback's completion routine runs as an asynchronous procedure call
// on the thread that called SetCallback, when that thread waits alertably (Wait does). Everything
// runs on the owner's thread; nothing is locked.
//
// Close cancels the timer and then starts it once more, due at once, with the completion routine
// and this object as its argument, before it closes the handle: the owner of the timer relies on
// that last completion reaching the closing thread. It runs at that thread's next alertable wait,
// with the callback still held. So a thread that closes (or destroys) a timer must not wait
// alertably after the object is gone unless it has drained that completion first.
class TinyWaitableTimer {
public:
    using TimerCallback = Callback<void()>;

    TinyWaitableTimer();
    ~TinyWaitableTimer();
    TinyWaitableTimer(const TinyWaitableTimer&) = delete;
    TinyWaitableTimer& operator=(const TinyWaitableTimer&) = delete;

    HANDLE Handle() const { return m_handle; }
    bool IsEmpty() const { return m_handle == nullptr; }

    BOOL Create(BOOL manualReset, LPCWSTR name);
    // All access, inheritable.
    BOOL Open(LPCWSTR name);
    // Takes the callback even when there is no timer to start.
    BOOL SetCallback(int32_t milliseconds, TimerCallback&& callback);
    BOOL Set(int32_t milliseconds);
    // Waits without limit, alertably: true only when the timer was signalled, false when the
    // wait ended because a completion routine ran.
    BOOL Wait();
    BOOL Cancel();
    void Close();

    // The relative due time of `milliseconds` in 100-ns units: the product with -10000 is formed
    // in signed 32 bits, so beyond 214748 ms it wraps (and may turn into an absolute time).
    static LONGLONG RelativeDueTime(int32_t milliseconds);

private:
    static VOID CALLBACK OnCompletion(LPVOID context, DWORD low, DWORD high);

    void* m_reserved;  // kept zero; nothing reads it
    HANDLE m_handle;
    TimerCallback m_callback;
};

class TinyThreadTimer;

// Timer ids of the thread-message timers and their objects: a count and two parallel arrays,
// grown by one element at each insertion; look-up is linear and finds the first match. Used only
// on the thread that runs the message loop, so there is no lock.
class TinyThreadTimerMap {
public:
    TinyThreadTimerMap();
    ~TinyThreadTimerMap();
    TinyThreadTimerMap(const TinyThreadTimerMap&) = delete;
    TinyThreadTimerMap& operator=(const TinyThreadTimerMap&) = delete;

    BOOL Add(UINT_PTR key, TinyThreadTimer* value);
    // Removes the first entry with this key; nothing when there is none.
    void Remove(UINT_PTR key);
    TinyThreadTimer* Lookup(UINT_PTR key) const;
    int32_t Count() const { return m_count; }

private:
    int32_t m_count;
    UINT_PTR* m_keys;
    TinyThreadTimer** m_values;
};

extern TinyThreadTimerMap g_threadTimers;

// A timer of the calling thread's message queue (SetTimer without a window): the callback runs on
// the thread whose message loop dispatches WM_TIMER. Start and Close run on that thread too.
//
// Close forgets the id before it removes the entry from g_threadTimers, so it removes nothing and
// the stopped timer's entry stays, pointing at an object that may be gone. That is harmless only
// because the timer has been killed; Close keeps this order.
class TinyThreadTimer {
public:
    using TimerCallback = Callback<void()>;

    TinyThreadTimer();
    ~TinyThreadTimer();
    TinyThreadTimer(const TinyThreadTimer&) = delete;
    TinyThreadTimer& operator=(const TinyThreadTimer&) = delete;

    bool IsEmpty() const { return m_id == 0; }
    UINT_PTR Id() const { return m_id; }

    BOOL Start(UINT milliseconds, TimerCallback&& callback);
    void Close();

private:
    static VOID CALLBACK OnTimer(HWND window, UINT message, UINT_PTR id, DWORD time);

    UINT_PTR m_id;
    TimerCallback m_callback;
};

// A sleep sharper than Sleep: asks once for the finest timer resolution the system has (and
// keeps it) and sleeps through NtDelayExecution where ntdll has it.
void PreciseSleep(DWORD milliseconds);

// What PreciseSleep actually sleeps for: from Windows 8 on one millisecond less (never below
// zero), as the delay there ends about a millisecond late.
DWORD PreciseSleepMilliseconds(DWORD milliseconds, BOOL windows8OrLater);
// The interval handed to NtDelayExecution, in 100-ns units, negative as it is relative. The
// product with 10000 is formed in unsigned 32 bits, so it wraps beyond 429496 ms.
LONGLONG PreciseSleepInterval(DWORD milliseconds);

}  // namespace TinyFramework
