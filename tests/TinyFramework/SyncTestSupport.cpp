#include "tests/TinyFramework/SyncTestSupport.h"

#include <atomic>
#include <utility>

namespace SyncTests {

std::wstring UniqueName(const wchar_t* purpose) {
    static std::atomic<int> counter{0};
    return L"TinySyncTest-" + std::to_wstring(GetCurrentProcessId()) + L"-" + purpose + L"-" +
           std::to_wstring(counter++);
}

ManualEvent::ManualEvent() {
    event.CreateEx(nullptr, nullptr, CREATE_EVENT_MANUAL_RESET, EVENT_ALL_ACCESS);
}

TestThread::TestThread(std::function<void()> body) : m_body(std::move(body)) {
    m_thread.Reset(CreateThread(nullptr, 0, &TestThread::Run, this, 0, &m_id));
}

TestThread::~TestThread() {
    if (m_thread.IsValid() && !WaitFor(0)) {
        TerminateThread(m_thread.Get(), 1);
        WaitForSingleObject(m_thread.Get(), INFINITE);
    }
}

bool TestThread::WaitFor(DWORD milliseconds) {
    return WaitForSingleObject(m_thread.Get(), milliseconds) == WAIT_OBJECT_0;
}

DWORD WINAPI TestThread::Run(void* self) {
    static_cast<TestThread*>(self)->m_body();
    return 0;
}

bool OnAnotherThread(const std::function<bool()>& body) {
    bool answer = false;
    TestThread thread([&] { answer = body(); });
    if (!thread.WaitFor(kDeadlineMs)) {
        return false;
    }
    return answer;
}

DWORD ReleaseAndWaitForExit(ManualEvent& release, HANDLE process) {
    release.Set();
    if (WaitForSingleObject(process, kDeadlineMs) != WAIT_OBJECT_0) {
        return STILL_ACTIVE;
    }
    DWORD code = STILL_ACTIVE;
    GetExitCodeProcess(process, &code);
    return code;
}

}  // namespace SyncTests
