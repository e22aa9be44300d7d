// Holds a named mutex for the mutex tests in a process of its own, so that the tests reach it by
// name from another process and see it released or abandoned there.
//
//   MutexHolder.exe <mutex name> <held event> <release event> release|abandon
//
// Creates the mutex owned, sets the held event, waits for the release event, then releases the
// mutex and ends, or ends holding it (which abandons it). Plain system calls only, so that the
// helper does not depend on the classes it helps to test.

#include "client/UniqueHandle.h"

#include <windows.h>

#include <cwchar>

namespace {

// Exit codes, for the test to tell what went wrong.
enum ExitCode : int {
    kReleased = 0,
    kAbandoned = 1,
    kUsage = 64,
    kMutexNotCreated = 65,
    kEventNotOpened = 66,
    kNeverReleased = 67,
    kReleaseFailed = 68,
};

// A test that died never sets the release event; the helper then ends by itself.
constexpr DWORD kReleaseDeadlineMs = 120000;

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc != 5) {
        return kUsage;
    }
    const bool abandon = std::wcscmp(argv[4], L"abandon") == 0;
    const QueryClient::UniqueHandle mutex(CreateMutexW(nullptr, TRUE, argv[1]));
    if (!mutex.IsValid() || GetLastError() == ERROR_ALREADY_EXISTS) {
        return kMutexNotCreated;
    }
    const QueryClient::UniqueHandle held(OpenEventW(EVENT_MODIFY_STATE, FALSE, argv[2]));
    const QueryClient::UniqueHandle release(OpenEventW(SYNCHRONIZE, FALSE, argv[3]));
    if (!held.IsValid() || !release.IsValid()) {
        return kEventNotOpened;
    }
    SetEvent(held.Get());
    if (WaitForSingleObject(release.Get(), kReleaseDeadlineMs) != WAIT_OBJECT_0) {
        return kNeverReleased;
    }
    if (abandon) {
        return kAbandoned;
    }
    return ReleaseMutex(mutex.Get()) ? kReleased : kReleaseFailed;
}
