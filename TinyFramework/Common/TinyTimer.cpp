#include "TinyFramework/Common/TinyTimer.h"

#include "TinyFramework/Common/TinyLogging_win32.h"
#include "TinyFramework/Common/TinyOSVersion.h"

#include <mmsystem.h>

#include <cstdlib>
#include <cstring>
#include <utility>

namespace TinyFramework {

namespace {

// RegisterWaitForSingleObject flags: the callback runs on the wait thread itself.
constexpr DWORD kWaitEveryTime = WT_EXECUTEINWAITTHREAD;
constexpr DWORD kWaitOnce = WT_EXECUTEINWAITTHREAD | WT_EXECUTEONLYONCE;

// The multimedia timer's resolution: the finest it offers.
constexpr UINT kMultimediaResolution = 1;

// 100-ns units in a millisecond.
constexpr int32_t kUnitsPerMillisecond = 10000;

// Access asked for when opening a waitable timer by name.
constexpr DWORD kTimerAllAccess = 0x1F0003;

// What ZwSetTimerResolution is asked for: 100 ns, below anything a system offers, so that it
// grants its finest.
constexpr ULONG kFinestResolution = 1;

typedef LONG(NTAPI* DelayExecutionEntry)(BOOLEAN alertable, PLARGE_INTEGER interval);
typedef LONG(NTAPI* SetTimerResolutionEntry)(ULONG desired, BOOLEAN set, PULONG actual);

}  // namespace

// --- TinyWaiter ---------------------------------------------------------------------------------

TinyWaiter::TinyWaiter() : m_wait(nullptr), m_object(nullptr) {}

TinyWaiter::~TinyWaiter() {
    Unregister();
}

BOOL TinyWaiter::Register(HANDLE handle, DWORD milliseconds, WaitCallback&& callback) {
    return RegisterWait(handle, milliseconds, kWaitEveryTime, std::move(callback));
}

BOOL TinyWaiter::RegisterOnce(HANDLE handle, DWORD milliseconds, WaitCallback&& callback) {
    return RegisterWait(handle, milliseconds, kWaitOnce, std::move(callback));
}

void TinyWaiter::Unregister() {
    if (m_wait != nullptr) {
        UnregisterWait(m_wait);
        m_wait = nullptr;
    }
}

BOOL TinyWaiter::RegisterWait(HANDLE handle, DWORD milliseconds, DWORD flags,
                              WaitCallback&& callback) {
    Unregister();
    // The callback is taken only once the wait exists, so a wait that fires at once meets the
    // callback held before; callers register on objects that are not yet signalled.
    if (RegisterWaitForSingleObject(&m_wait, handle, &TinyWaiter::OnWait, this, milliseconds,
                                    flags)) {
        m_callback = std::move(callback);
        m_object = handle;
        return TRUE;
    }
    m_wait = nullptr;
    TINY_LOG_ERROR() << StringPrintf("Failed to RegisterWaitForSingleObject(%d)",
                                     static_cast<int>(GetLastError()));
    return FALSE;
}

VOID CALLBACK TinyWaiter::OnWait(PVOID context, BOOLEAN timedOut) {
    if (context == nullptr) {
        return;
    }
    // A registered wait always has a callback: it is not tested for.
    static_cast<TinyWaiter*>(context)->m_callback.Run(static_cast<unsigned char>(timedOut));
}

// --- TinyTimerQueue -----------------------------------------------------------------------------

TinyTimerQueue::TinyTimerQueue() : m_queue(nullptr) {}

TinyTimerQueue::~TinyTimerQueue() {
    Close();
}

BOOL TinyTimerQueue::Create() {
    m_queue = CreateTimerQueue();
    return m_queue != nullptr;
}

HANDLE TinyTimerQueue::Register(WAITORTIMERCALLBACK routine, PVOID context,
                                uint16_t dueMilliseconds, DWORD periodMilliseconds, DWORD flags) {
    if (m_queue == nullptr) {
        return nullptr;
    }
    HANDLE timer = nullptr;
    if (!CreateTimerQueueTimer(&timer, m_queue, routine, context, dueMilliseconds,
                               periodMilliseconds, flags)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to CreateTimerQueueTimer(%d)",
                                         static_cast<int>(GetLastError()));
        return nullptr;
    }
    return timer;
}

BOOL TinyTimerQueue::Change(HANDLE timer, uint16_t dueMilliseconds, DWORD periodMilliseconds) {
    if (m_queue == nullptr || timer == nullptr) {
        return FALSE;
    }
    if (!ChangeTimerQueueTimer(m_queue, timer, dueMilliseconds, periodMilliseconds)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to ChangeTimerQueueTimer(%d)",
                                         static_cast<int>(GetLastError()));
        return FALSE;
    }
    return TRUE;
}

BOOL TinyTimerQueue::Unregister(HANDLE timer) {
    if (m_queue == nullptr || timer == nullptr) {
        return FALSE;
    }
    // No completion event: a routine that is running is not waited for.
    if (!DeleteTimerQueueTimer(m_queue, timer, nullptr)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to DeleteTimerQueueTimer(%d)",
                                         static_cast<int>(GetLastError()));
        return FALSE;
    }
    return TRUE;
}

void TinyTimerQueue::Close() {
    if (m_queue != nullptr) {
        DeleteTimerQueue(m_queue);
        m_queue = nullptr;
    }
}

// --- TinyTimer ----------------------------------------------------------------------------------

TinyTimer::TinyTimer() : m_id(0) {
    m_event.Create();
}

TinyTimer::~TinyTimer() {
    Close();
}

BOOL TinyTimer::Start(int32_t delayMilliseconds, TimerCallback&& callback) {
    if (delayMilliseconds < 1) {
        return TRUE;
    }
    m_callback = std::move(callback);
    Kill();
    m_id = timeSetEvent(static_cast<UINT>(delayMilliseconds), kMultimediaResolution,
                        &TinyTimer::OnTimer, reinterpret_cast<DWORD_PTR>(this), TIME_PERIODIC);
    return m_id != 0;
}

BOOL TinyTimer::WaitOnce(int32_t delayMilliseconds, DWORD timeoutMilliseconds) {
    if (delayMilliseconds < 1) {
        return TRUE;
    }
    Kill();
    // With TIME_CALLBACK_EVENT_SET the "callback" is the event to set.
    m_id = timeSetEvent(static_cast<UINT>(delayMilliseconds), kMultimediaResolution,
                        reinterpret_cast<LPTIMECALLBACK>(m_event.Handle()), 0,
                        TIME_ONESHOT | TIME_CALLBACK_EVENT_SET);
    if (m_id == 0) {
        return FALSE;
    }
    const DWORD result = WaitForSingleObject(m_event.Handle(), timeoutMilliseconds);
    return result == WAIT_OBJECT_0 || result == WAIT_ABANDONED;
}

void TinyTimer::Kill() {
    if (m_id != 0) {
        timeKillEvent(m_id);
        m_id = 0;
    }
}

void TinyTimer::Close() {
    m_event.Close();
    Kill();
}

void CALLBACK TinyTimer::OnTimer(UINT /*id*/, UINT /*message*/, DWORD_PTR user, DWORD_PTR,
                                 DWORD_PTR) {
    auto* self = reinterpret_cast<TinyTimer*>(user);
    if (self == nullptr || self->m_callback.IsNull()) {
        return;
    }
    self->m_callback.Run();
}

// --- TinyWaitableTimer --------------------------------------------------------------------------

TinyWaitableTimer::TinyWaitableTimer() : m_reserved(nullptr), m_handle(nullptr) {}

TinyWaitableTimer::~TinyWaitableTimer() {
    Close();
}

BOOL TinyWaitableTimer::Create(BOOL manualReset, LPCWSTR name) {
    Close();
    m_handle = CreateWaitableTimerW(nullptr, manualReset, name);
    return m_handle != nullptr;
}

BOOL TinyWaitableTimer::Open(LPCWSTR name) {
    Close();
    m_handle = OpenWaitableTimerW(kTimerAllAccess, TRUE, name);
    return m_handle != nullptr;
}

BOOL TinyWaitableTimer::SetCallback(int32_t milliseconds, TimerCallback&& callback) {
    m_callback = std::move(callback);
    if (m_handle == nullptr) {
        return FALSE;
    }
    LARGE_INTEGER due;
    due.QuadPart = RelativeDueTime(milliseconds);
    return SetWaitableTimer(m_handle, &due, 0, &TinyWaitableTimer::OnCompletion, this, FALSE);
}

BOOL TinyWaitableTimer::Set(int32_t milliseconds) {
    if (m_handle == nullptr) {
        return FALSE;
    }
    LARGE_INTEGER due;
    due.QuadPart = RelativeDueTime(milliseconds);
    if (!SetWaitableTimer(m_handle, &due, 0, nullptr, nullptr, FALSE)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to SetWaitableTimer(%d)",
                                         static_cast<int>(GetLastError()));
        return FALSE;
    }
    return TRUE;
}

BOOL TinyWaitableTimer::Wait() {
    if (m_handle == nullptr) {
        return FALSE;
    }
    return WaitForSingleObjectEx(m_handle, INFINITE, TRUE) == WAIT_OBJECT_0;
}

BOOL TinyWaitableTimer::Cancel() {
    if (m_handle == nullptr) {
        return FALSE;
    }
    if (!CancelWaitableTimer(m_handle)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to CancelWaitableTimer(%d)",
                                         static_cast<int>(GetLastError()));
        return FALSE;
    }
    return TRUE;
}

void TinyWaitableTimer::Close() {
    if (m_handle == nullptr) {
        return;
    }
    CancelWaitableTimer(m_handle);
    // The last start, due at once, hands one more completion to this thread; owners rely on it
    // arriving, so it stays part of closing.
    LARGE_INTEGER due;
    due.QuadPart = 0;
    SetWaitableTimer(m_handle, &due, 0, &TinyWaitableTimer::OnCompletion, this, FALSE);
    CloseHandle(m_handle);
    m_handle = nullptr;
}

LONGLONG TinyWaitableTimer::RelativeDueTime(int32_t milliseconds) {
    // Formed in 32 bits as callers have always had it, wrapping beyond 214748 ms; done on
    // unsigned numbers so that the wrap is defined.
    const uint32_t product =
        static_cast<uint32_t>(milliseconds) * static_cast<uint32_t>(-kUnitsPerMillisecond);
    return static_cast<int32_t>(product);
}

VOID CALLBACK TinyWaitableTimer::OnCompletion(LPVOID context, DWORD /*low*/, DWORD /*high*/) {
    auto* self = static_cast<TinyWaitableTimer*>(context);
    if (self == nullptr || self->m_callback.IsNull()) {
        return;
    }
    self->m_callback.Run();
}

// --- TinyThreadTimerMap -------------------------------------------------------------------------

TinyThreadTimerMap g_threadTimers;

TinyThreadTimerMap::TinyThreadTimerMap() : m_count(0), m_keys(nullptr), m_values(nullptr) {}

TinyThreadTimerMap::~TinyThreadTimerMap() {
    std::free(m_keys);
    std::free(m_values);
}

BOOL TinyThreadTimerMap::Add(UINT_PTR key, TinyThreadTimer* value) {
    const size_t grown = static_cast<size_t>(m_count) + 1;
    auto* keys = static_cast<UINT_PTR*>(std::calloc(grown, sizeof(UINT_PTR)));
    auto* values = static_cast<TinyThreadTimer**>(std::calloc(grown, sizeof(TinyThreadTimer*)));
    if (keys == nullptr || values == nullptr) {
        std::free(keys);
        std::free(values);
        return FALSE;
    }
    if (m_count > 0) {
        std::memcpy(keys, m_keys, sizeof(UINT_PTR) * static_cast<size_t>(m_count));
        std::memcpy(values, m_values, sizeof(TinyThreadTimer*) * static_cast<size_t>(m_count));
    }
    keys[m_count] = key;
    values[m_count] = value;
    std::free(m_keys);
    std::free(m_values);
    m_keys = keys;
    m_values = values;
    ++m_count;
    return TRUE;
}

void TinyThreadTimerMap::Remove(UINT_PTR key) {
    for (int32_t i = 0; i < m_count; ++i) {
        if (m_keys[i] == key) {
            const size_t after = static_cast<size_t>(m_count - i - 1);
            std::memmove(m_keys + i, m_keys + i + 1, sizeof(UINT_PTR) * after);
            std::memmove(m_values + i, m_values + i + 1, sizeof(TinyThreadTimer*) * after);
            --m_count;
            return;
        }
    }
}

TinyThreadTimer* TinyThreadTimerMap::Lookup(UINT_PTR key) const {
    for (int32_t i = 0; i < m_count; ++i) {
        if (m_keys[i] == key) {
            return m_values[i];
        }
    }
    return nullptr;
}

// --- TinyThreadTimer ----------------------------------------------------------------------------

TinyThreadTimer::TinyThreadTimer() : m_id(0) {}

TinyThreadTimer::~TinyThreadTimer() {
    Close();
}

BOOL TinyThreadTimer::Start(UINT milliseconds, TimerCallback&& callback) {
    Close();
    m_callback = std::move(callback);
    m_id = SetTimer(nullptr, 0, milliseconds, &TinyThreadTimer::OnTimer);
    if (m_id == 0) {
        return FALSE;
    }
    return g_threadTimers.Add(m_id, this);
}

void TinyThreadTimer::Close() {
    if (m_id != 0) {
        KillTimer(nullptr, m_id);
        m_id = 0;
    }
    // Runs after the id is forgotten, so it looks for key 0 and the killed timer's entry stays.
    // Kept so: the entry can no longer be reached, as its timer sends no more messages.
    g_threadTimers.Remove(m_id);
}

VOID CALLBACK TinyThreadTimer::OnTimer(HWND /*window*/, UINT /*message*/, UINT_PTR id,
                                       DWORD /*time*/) {
    TinyThreadTimer* self = g_threadTimers.Lookup(id);
    if (self == nullptr || self->m_callback.IsNull()) {
        return;
    }
    self->m_callback.Run();
}

// --- PreciseSleep -------------------------------------------------------------------------------

DWORD PreciseSleepMilliseconds(DWORD milliseconds, BOOL windows8OrLater) {
    if (windows8OrLater && milliseconds != 0) {
        return milliseconds - 1;
    }
    return milliseconds;
}

LONGLONG PreciseSleepInterval(DWORD milliseconds) {
    const uint32_t units = milliseconds * static_cast<uint32_t>(kUnitsPerMillisecond);
    return -static_cast<LONGLONG>(units);
}

void PreciseSleep(DWORD milliseconds) {
    static const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    static const auto delayExecution = reinterpret_cast<DelayExecutionEntry>(
        ntdll == nullptr ? nullptr
                         : reinterpret_cast<void*>(GetProcAddress(ntdll, "NtDelayExecution")));
    static const auto setTimerResolution = reinterpret_cast<SetTimerResolutionEntry>(
        ntdll == nullptr ? nullptr
                         : reinterpret_cast<void*>(GetProcAddress(ntdll, "ZwSetTimerResolution")));
    static const BOOL windows8OrLater = IsWindows8OrLater();

    milliseconds = PreciseSleepMilliseconds(milliseconds, windows8OrLater);

    // Asked for once and never given back: the finer tick stays for the life of the process.
    static const bool resolutionAsked = [] {
        if (setTimerResolution != nullptr) {
            ULONG actual = 0;
            setTimerResolution(kFinestResolution, TRUE, &actual);
        }
        return true;
    }();
    (void)resolutionAsked;

    if (delayExecution != nullptr) {
        LARGE_INTEGER interval;
        interval.QuadPart = PreciseSleepInterval(milliseconds);
        delayExecution(FALSE, &interval);
    } else {
        Sleep(milliseconds);
    }
}

}  // namespace TinyFramework
