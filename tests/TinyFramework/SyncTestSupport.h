#pragma once

#include "TinyFramework/Common/TinyCore.h"
#include "client/UniqueHandle.h"
#include "tests/support/TestDeadlines.h"

#include <windows.h>

#include <functional>
#include <string>

namespace SyncTests {

// How long a test waits for another thread or process to reach a state. It only ends a hang: a
// machine several times slower than usual still gets there far sooner.
constexpr DWORD kDeadlineMs = TestSupport::kGenerousDeadlineMs;

// A name no other test or test program of the prefix uses: the process id, the purpose and a
// counter.
std::wstring UniqueName(const wchar_t* purpose);

// A manual-reset event, not set, owned by TinyEvent. Waited on through Handle().
class ManualEvent {
public:
    ManualEvent();
    void Set() { event.SetEvent(); }
    bool WaitFor(DWORD milliseconds) {
        return WaitForSingleObject(event.Handle(), milliseconds) == WAIT_OBJECT_0;
    }
    HANDLE Handle() const { return event.Handle(); }

    TinyFramework::TinyEvent event;
};

// Runs a function on a thread of its own, which the test waits for with a deadline. A thread that
// is still running when the object goes (the test has already failed: a lock that never returned)
// is ended by force, so that one failure cannot hang the whole program; such a thread spins or
// waits and holds nothing that the rest of the program needs.
class TestThread {
public:
    explicit TestThread(std::function<void()> body);
    ~TestThread();
    TestThread(const TestThread&) = delete;
    TestThread& operator=(const TestThread&) = delete;

    // True when the thread has ended within `milliseconds`.
    bool WaitFor(DWORD milliseconds);
    bool HasEnded() { return WaitFor(0); }
    HANDLE Handle() const { return m_thread.Get(); }
    DWORD Id() const { return m_id; }

private:
    static DWORD WINAPI Run(void* self);

    std::function<void()> m_body;
    QueryClient::UniqueHandle m_thread;
    DWORD m_id = 0;
};

// Lets a helper process go on (sets `release`) and gives its exit code once it has ended, or
// STILL_ACTIVE when it did not end within the deadline.
DWORD ReleaseAndWaitForExit(ManualEvent& release, HANDLE process);

// Runs `body` on another thread and returns its answer: what a lock looks like to somebody else.
bool OnAnotherThread(const std::function<bool()>& body);

}  // namespace SyncTests
