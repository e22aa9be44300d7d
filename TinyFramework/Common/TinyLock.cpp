#include "TinyFramework/Common/TinyLock.h"

#include <cstring>

namespace TinyFramework {

namespace {
// The one spin count of the system.
constexpr DWORD kLockSpinCount = 4000;
}  // namespace

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

}  // namespace TinyFramework
