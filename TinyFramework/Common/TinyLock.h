#pragma once

#include <windows.h>

namespace TinyFramework {

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

}  // namespace TinyFramework
