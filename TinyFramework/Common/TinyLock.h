#pragma once

#include "TinyFramework/Common/TinyObject.h"

#include <windows.h>

#include <atomic>

namespace TinyFramework {

// The user-mode locks and waits of the framework. None of them owns a kernel handle; each wraps
// one platform primitive and adds no state that would need a lock of its own, so every operation
// is as thread-safe as the primitive under it. Not copyable.

// Recursive lock over a critical section that spins 4000 rounds before it sleeps: its holders are
// short. Not copyable.
class TinyLock {
public:
    TinyLock();
    ~TinyLock();
    TinyLock(const TinyLock&) = delete;
    TinyLock& operator=(const TinyLock&) = delete;

    void Lock();
    void Unlock();
    CRITICAL_SECTION* Section() { return &m_section; }

private:
    CRITICAL_SECTION m_section;
};

// Holds a TinyLock for its scope.
class TinyAutoLock {
public:
    explicit TinyAutoLock(TinyLock& lock);
    virtual ~TinyAutoLock();
    TinyAutoLock(const TinyAutoLock&) = delete;
    TinyAutoLock& operator=(const TinyAutoLock&) = delete;

private:
    TinyLock& m_lock;
};

// Slim reader/writer lock. `exclusive` 0 means shared, anything else exclusive; Unlock must be
// given the mode that was taken. Not recursive in either mode.
class TinySRWLock : public TinyObject {
public:
    TinySRWLock();
    ~TinySRWLock() override;
    TinySRWLock(const TinySRWLock&) = delete;
    TinySRWLock& operator=(const TinySRWLock&) = delete;

    void Lock(BOOL exclusive);
    BOOL TryLock(BOOL exclusive);
    void Unlock(BOOL exclusive);
    SRWLOCK* Handle() { return &m_lock; }

private:
    SRWLOCK m_lock;
};

// Holds a TinySRWLock in one mode for its scope, and releases in the mode it took.
class TinySRWGuard {
public:
    TinySRWGuard(TinySRWLock& lock, BOOL exclusive);
    ~TinySRWGuard();
    TinySRWGuard(const TinySRWGuard&) = delete;
    TinySRWGuard& operator=(const TinySRWGuard&) = delete;

private:
    LONG m_exclusive;
    TinySRWLock* m_lock;
};

// A spin lock over a 32-bit word that the user attaches, for sections shorter than a critical
// section's; it enters the kernel only to yield the processor.
//
// Its step is deliberately not the usual "compare with 0, store the owner's value": it compares
// with `value` and stores 0, and Lock ends when that exchange finds a non-zero word. A word that
// stays 0 or stays non-zero therefore keeps Lock spinning; Lock returns only when another thread
// turns the word non-zero between the step's read and its exchange (and then clears it when the
// word became exactly `value`). Code built on this lock depends on that exact step, so it stays.
//
// Lock and Unlock may run on any thread; the word is shared by whoever attached it.
class TinyPerformanceLock : public TinyObject {
public:
    TinyPerformanceLock();
    ~TinyPerformanceLock() override;
    TinyPerformanceLock(const TinyPerformanceLock&) = delete;
    TinyPerformanceLock& operator=(const TinyPerformanceLock&) = delete;

    // The word that Lock and Unlock work on; the caller keeps it alive. Until one is attached the
    // word is null, and Lock faults on it.
    void Attach(volatile LONG* word) { m_word = word; }
    volatile LONG* Word() const { return m_word; }

    // Steps until one finds the word as told above: one step, then (on a machine with more than
    // one processor and `spin` above 1) a step for each doubling of 1 up to `spin`, then a yield
    // of the processor, and over again.
    void Lock(LONG value, LONG spin);
    // A plain store of 0: the processor's store order is all it relies on.
    void Unlock();

private:
    bool TryStep(LONG value);

    SYSTEM_INFO m_systemInfo;
    volatile LONG* m_word;
};

class TinyConditionVariable : public TinyObject {
public:
    TinyConditionVariable();
    ~TinyConditionVariable() override;
    TinyConditionVariable(const TinyConditionVariable&) = delete;
    TinyConditionVariable& operator=(const TinyConditionVariable&) = delete;

    // Both release the held lock while they wait and hold it again when they return, also on a
    // time-out (false, last error ERROR_TIMEOUT). A waiter may wake without a Wake: loop on the
    // condition.
    BOOL Sleep(TinyLock& lock, DWORD milliseconds);
    // The lock must be held exclusively.
    BOOL SleepSRW(TinySRWLock& lock, DWORD milliseconds);
    // 0 wakes one waiter, anything else all of them.
    void Wake(BOOL all);

private:
    CONDITION_VARIABLE m_cond;
};

typedef BOOL(WINAPI* WaitOnAddressEntry)(volatile VOID* address, PVOID compare, SIZE_T size,
                                         DWORD milliseconds);
typedef VOID(WINAPI* WakeByAddressEntry)(PVOID address);

// The address-wait entry points of the system, null until TinyAddressWait::Load finds all three;
// the flag is set after them. Read and written only atomically, so that Wait may run while
// another thread is in Load.
extern std::atomic<WaitOnAddressEntry> g_waitOnAddress;
extern std::atomic<WakeByAddressEntry> g_wakeByAddressSingle;
extern std::atomic<WakeByAddressEntry> g_wakeByAddressAll;
extern std::atomic<unsigned char> g_waitOnAddressLoaded;

// Futex-style waits on an address, where the system has them. There is no fallback: without the
// entry points Wait returns 0 at once and the wakes do nothing, so a caller re-tests its condition
// and is ready to spin.
class TinyAddressWait {
public:
    // Fetches the entry points from the synchronisation library if the process has it loaded
    // already; it never loads the library. Tries again on the next call until it succeeds.
    static void Load();
    static BOOL Wait(volatile void* address, void* compare, SIZE_T size, DWORD milliseconds);
    static void WakeOne(void* address);
    static void WakeAll(void* address);
};

}  // namespace TinyFramework
