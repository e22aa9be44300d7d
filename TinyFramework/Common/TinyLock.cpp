#include "TinyFramework/Common/TinyLock.h"

#include <cstring>

namespace TinyFramework {

namespace {
// The one spin count of the system.
constexpr DWORD kLockSpinCount = 4000;

// The library that exports the address waits. Asked for by name only, never loaded from here.
constexpr wchar_t kAddressWaitLibrary[] = L"api-ms-win-core-synch-l1-2-0.dll";

template <typename Entry>
Entry FindEntry(HMODULE module, const char* name) {
    return reinterpret_cast<Entry>(reinterpret_cast<void*>(GetProcAddress(module, name)));
}
}  // namespace

std::atomic<WaitOnAddressEntry> g_waitOnAddress{nullptr};
std::atomic<WakeByAddressEntry> g_wakeByAddressSingle{nullptr};
std::atomic<WakeByAddressEntry> g_wakeByAddressAll{nullptr};
std::atomic<unsigned char> g_waitOnAddressLoaded{0};

TinyLock::TinyLock() {
    std::memset(&m_section, 0, sizeof(m_section));
    InitializeCriticalSection(&m_section);
    SetCriticalSectionSpinCount(&m_section, kLockSpinCount);
}

TinyLock::~TinyLock() {
    DeleteCriticalSection(&m_section);
}

void TinyLock::Lock() {
    EnterCriticalSection(&m_section);
}

void TinyLock::Unlock() {
    LeaveCriticalSection(&m_section);
}

TinyAutoLock::TinyAutoLock(TinyLock& lock) : m_lock(lock) {
    m_lock.Lock();
}

TinyAutoLock::~TinyAutoLock() {
    m_lock.Unlock();
}

TinySRWLock::TinySRWLock() {
    InitializeSRWLock(&m_lock);
}

// A slim reader/writer lock holds no resource to free.
TinySRWLock::~TinySRWLock() {}

void TinySRWLock::Lock(BOOL exclusive) {
    if (exclusive) {
        AcquireSRWLockExclusive(&m_lock);
    } else {
        AcquireSRWLockShared(&m_lock);
    }
}

BOOL TinySRWLock::TryLock(BOOL exclusive) {
    const BOOLEAN taken =
        exclusive ? TryAcquireSRWLockExclusive(&m_lock) : TryAcquireSRWLockShared(&m_lock);
    return taken ? TRUE : FALSE;
}

void TinySRWLock::Unlock(BOOL exclusive) {
    if (exclusive) {
        ReleaseSRWLockExclusive(&m_lock);
    } else {
        ReleaseSRWLockShared(&m_lock);
    }
}

TinySRWGuard::TinySRWGuard(TinySRWLock& lock, BOOL exclusive)
    : m_exclusive(exclusive), m_lock(&lock) {
    m_lock->Lock(m_exclusive);
}

TinySRWGuard::~TinySRWGuard() {
    m_lock->Unlock(m_exclusive);
}

TinyPerformanceLock::TinyPerformanceLock() : m_word(nullptr) {
    GetSystemInfo(&m_systemInfo);
}

TinyPerformanceLock::~TinyPerformanceLock() {}

bool TinyPerformanceLock::TryStep(LONG value) {
    if (*m_word != 0) {
        return false;
    }
    // Compares with `value` and stores 0, in this operand order; see the class comment.
    const LONG found = InterlockedCompareExchange(m_word, 0, value);
    return found != 0;
}

void TinyPerformanceLock::Lock(LONG value, LONG spin) {
    const bool mayBusyWait = m_systemInfo.dwNumberOfProcessors > 1 && spin > 1;
    for (;;) {
        if (TryStep(value)) {
            return;
        }
        // Another processor may change the word while this one waits; on a single processor only
        // a yield lets the other thread run. The steps double, so they grow with log2(spin).
        if (mayBusyWait) {
            for (LONG n = 1; n < spin; n *= 2) {
                if (TryStep(value)) {
                    return;
                }
            }
        }
        SwitchToThread();
    }
}

void TinyPerformanceLock::Unlock() {
    *m_word = 0;
}

TinyConditionVariable::TinyConditionVariable() {
    InitializeConditionVariable(&m_cond);
}

// A condition variable holds no resource to free.
TinyConditionVariable::~TinyConditionVariable() {}

BOOL TinyConditionVariable::Sleep(TinyLock& lock, DWORD milliseconds) {
    return SleepConditionVariableCS(&m_cond, lock.Section(), milliseconds);
}

BOOL TinyConditionVariable::SleepSRW(TinySRWLock& lock, DWORD milliseconds) {
    return SleepConditionVariableSRW(&m_cond, lock.Handle(), milliseconds, 0);
}

void TinyConditionVariable::Wake(BOOL all) {
    if (all) {
        WakeAllConditionVariable(&m_cond);
    } else {
        WakeConditionVariable(&m_cond);
    }
}

void TinyAddressWait::Load() {
    if (g_waitOnAddressLoaded.load()) {
        return;
    }
    // Each caller has a lock of its own, so this excludes nobody: the atomics below are what
    // make concurrent loads safe, and two threads that both fetch store the same values.
    TinyLock lock;
    TinyAutoLock hold(lock);
    const HMODULE library = GetModuleHandleW(kAddressWaitLibrary);
    if (library == nullptr) {
        return;
    }
    const auto wait = FindEntry<WaitOnAddressEntry>(library, "WaitOnAddress");
    const auto wakeSingle = FindEntry<WakeByAddressEntry>(library, "WakeByAddressSingle");
    const auto wakeAll = FindEntry<WakeByAddressEntry>(library, "WakeByAddressAll");
    if (wait == nullptr || wakeSingle == nullptr || wakeAll == nullptr) {
        return;
    }
    g_waitOnAddress.exchange(wait);
    g_wakeByAddressSingle.exchange(wakeSingle);
    g_wakeByAddressAll.exchange(wakeAll);
    // Last, so that whoever sees the flag finds all three entry points.
    g_waitOnAddressLoaded.exchange(1);
}

BOOL TinyAddressWait::Wait(volatile void* address, void* compare, SIZE_T size, DWORD milliseconds) {
    const WaitOnAddressEntry wait = g_waitOnAddress.load();
    if (wait == nullptr) {
        return FALSE;
    }
    return wait(address, compare, size, milliseconds);
}

void TinyAddressWait::WakeOne(void* address) {
    const WakeByAddressEntry wake = g_wakeByAddressSingle.load();
    if (wake != nullptr) {
        wake(address);
    }
}

void TinyAddressWait::WakeAll(void* address) {
    const WakeByAddressEntry wake = g_wakeByAddressAll.load();
    if (wake != nullptr) {
        wake(address);
    }
}

}  // namespace TinyFramework
