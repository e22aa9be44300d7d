#pragma once

#include "TinyFramework/Common/TinyObject.h"

#include <windows.h>

namespace TinyFramework {

// Owns one mutex handle; null when empty. Named mutexes can be reached by their Win32 names
// (Create, Open) or by full object-manager paths (CreateNt, OpenNt). A wait that finds the mutex
// abandoned by a dead owner counts as taking it. The handle is used from any thread; Close racing
// with a wait is the owner's to prevent. Not copyable.
class TinyMutex {
public:
    TinyMutex();
    virtual ~TinyMutex();
    TinyMutex(const TinyMutex&) = delete;
    TinyMutex& operator=(const TinyMutex&) = delete;

    // Closes a held handle first, so a failed Create leaves the object empty.
    BOOL Create(BOOL initialOwner, LPCWSTR name, LPSECURITY_ATTRIBUTES security);
    // NtCreateMutant with SYNCHRONIZE access, not owned. A held handle is not closed: on success
    // the new handle replaces it (and the old one stays open), on failure it stays. The status of
    // a failure becomes the last error.
    BOOL CreateNt(LPCWSTR path);
    // Closes a held handle first.
    BOOL Open(DWORD access, BOOL inherit, LPCWSTR name);
    // Closes a held handle first, then NtOpenMutant; a failure's status becomes the last error.
    BOOL OpenNt(DWORD access, LPCWSTR path);

    // True when the wait took the mutex, also when its owner died holding it; false on time-out,
    // on failure and on an empty object.
    BOOL Lock(DWORD timeout);
    // Releases one level of ownership; a failure (not the owner) is ignored.
    void Unlock();

    // Null also when called on a null object pointer, for callers that hold an optional mutex.
    HANDLE Handle() const;
    bool IsEmpty() const { return m_handle == nullptr; }
    void Close();

private:
    HANDLE m_handle;
};

// Waits for a TinyMutex in its constructor and releases it in its destructor, without learning
// whether the wait succeeded: after a time-out the release fails silently (ERROR_NOT_OWNER) and
// the caller has run its section unprotected. Callers rely on it never blocking beyond the
// time-out, so the asymmetry stays.
class TinyAutoMutex {
public:
    TinyAutoMutex(TinyMutex& mutex, DWORD timeout);
    virtual ~TinyAutoMutex();
    TinyAutoMutex(const TinyAutoMutex&) = delete;
    TinyAutoMutex& operator=(const TinyAutoMutex&) = delete;

private:
    TinyMutex& m_mutex;
};

// Owns one semaphore handle; null when empty. Thread use as TinyMutex. Not copyable.
class TinySemaphore : public TinyObject {
public:
    TinySemaphore();
    ~TinySemaphore() override;
    TinySemaphore(const TinySemaphore&) = delete;
    TinySemaphore& operator=(const TinySemaphore&) = delete;

    // Both close a held handle first.
    BOOL Create(LONG initial, LONG maximum, LPCWSTR name, LPSECURITY_ATTRIBUTES security);
    BOOL Open(DWORD access, BOOL inherit, LPCWSTR name);

    // Takes one count: true for a taken count, false on time-out, on failure and when empty.
    BOOL Lock(DWORD timeout);
    // Returns `count`; `previous` (may be null) receives the count before.
    BOOL Unlock(LONG count, LONG* previous);

    HANDLE Handle() const { return m_handle; }
    bool IsEmpty() const { return m_handle == nullptr; }
    void Close();

private:
    HANDLE m_handle;
};

}  // namespace TinyFramework
