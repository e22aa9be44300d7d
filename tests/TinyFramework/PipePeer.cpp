// The other end of a pipe for the overlapped pipe tests, in a process of its own, so that a test
// sees a real peer come, write and vanish.
//
//   PipePeer.exe <pipe name> <opened event> <release event> <bytes to write>
//
// Opens the pipe (waiting until it exists), sets the opened event, writes the given number of
// bytes (byte i is i % 251; a write larger than the pipe's buffer blocks until the test has read
// it), waits for the release event and ends without closing anything itself: the process's end
// is what closes its end of the pipe. Plain system calls only, so that the helper does not depend
// on the classes it helps to test.

#include "client/UniqueHandle.h"

#include <windows.h>

#include <cwchar>
#include <vector>

namespace {

// Exit codes, for the test to tell what went wrong.
enum ExitCode : int {
    kReleased = 0,
    kUsage = 64,
    kPipeNotOpened = 65,
    kEventNotOpened = 66,
    kWriteFailed = 67,
    kNeverReleased = 68,
};

// A test that died never sets the release event, nor creates the pipe; the helper then ends by
// itself.
constexpr DWORD kDeadlineMs = 120000;

HANDLE OpenPipe(const wchar_t* name) {
    const DWORD start = GetTickCount();
    while (GetTickCount() - start < kDeadlineMs) {
        WaitNamedPipeW(name, 1000);
        const HANDLE pipe =
            CreateFileW(name, GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
        if (pipe != INVALID_HANDLE_VALUE) {
            return pipe;
        }
        Sleep(1);
    }
    return INVALID_HANDLE_VALUE;
}

}  // namespace

int wmain(int argc, wchar_t** argv) {
    if (argc != 5) {
        return kUsage;
    }
    const QueryClient::UniqueHandle opened(OpenEventW(EVENT_MODIFY_STATE, FALSE, argv[2]));
    const QueryClient::UniqueHandle release(OpenEventW(SYNCHRONIZE, FALSE, argv[3]));
    if (!opened.IsValid() || !release.IsValid()) {
        return kEventNotOpened;
    }
    const QueryClient::UniqueHandle pipe(OpenPipe(argv[1]));
    if (!pipe.IsValid()) {
        return kPipeNotOpened;
    }
    SetEvent(opened.Get());
    const DWORD size = static_cast<DWORD>(std::wcstoul(argv[4], nullptr, 10));
    std::vector<unsigned char> bytes(size);
    for (DWORD index = 0; index < size; ++index) {
        bytes[index] = static_cast<unsigned char>(index % 251);
    }
    DWORD written = 0;
    if (size > 0 &&
        (!WriteFile(pipe.Get(), bytes.data(), size, &written, nullptr) || written != size)) {
        return kWriteFailed;
    }
    if (WaitForSingleObject(release.Get(), kDeadlineMs) != WAIT_OBJECT_0) {
        return kNeverReleased;
    }
    return kReleased;
}
