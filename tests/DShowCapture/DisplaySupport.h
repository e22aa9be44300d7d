#pragma once

// Helpers of the tests that open real windows: windows found by the thread that owns them, waits
// on window and thread state, and a picture of a window as a PNG. The tests run in a virtual X
// display (scripts/with-display.sh), on a desktop of their own (OwnDesktop.cpp).

#include <windows.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/support/TestDeadlines.h"

namespace DisplayTests {

// How long a test waits for a window, a thread's end or a frame. Only a hang reaches it, also on
// a machine many times slower than usual or fully loaded.
constexpr DWORD kStateDeadlineMs = TestSupport::kGenerousDeadlineMs;

// Whether this process can create windows at all (it has a display).
bool HasDisplay();

// Polls `done` every few milliseconds until it is true or the deadline passes.
bool WaitUntil(const std::function<bool()>& done, DWORD deadlineMs = kStateDeadlineMs);

// The top-level windows of one thread, visible or not.
std::vector<HWND> WindowsOfThread(DWORD threadId);
// The visible top-level windows of one thread.
std::vector<HWND> VisibleWindowsOfThread(DWORD threadId);
// The first visible top-level window of the thread, once it has one; null at the deadline.
HWND WaitForWindowOfThread(DWORD threadId);
// A descendant of `window` with the dialog control id `id`, or null.
HWND FindDescendant(HWND window, int id);
std::wstring WindowText(HWND window);

// A thread by its id, held open so that its id cannot be given to another thread meanwhile.
class ThreadHandle {
public:
    explicit ThreadHandle(DWORD threadId);
    ~ThreadHandle();
    ThreadHandle(const ThreadHandle&) = delete;
    ThreadHandle& operator=(const ThreadHandle&) = delete;

    bool IsOpen() const { return m_handle != nullptr; }
    // True once the thread has ended; false at the deadline.
    bool WaitForEnd(DWORD deadlineMs = kStateDeadlineMs) const;

private:
    HANDLE m_handle;
};

// A plain top-level window to parent a property page in a test; destroyed with the object.
class HostWindow {
public:
    HostWindow(int width, int height);
    ~HostWindow();
    HostWindow(const HostWindow&) = delete;
    HostWindow& operator=(const HostWindow&) = delete;

    HWND Get() const { return m_window; }

private:
    HWND m_window;
};

// Paints `window` and what it holds now, and writes what the screen shows of it as a 24-bit
// PNG to `path` (folders are made). The window must be visible and not covered. False with
// `error` set when something failed.
bool SaveWindowPicture(HWND window, const std::wstring& path, std::string& error);

// build/artifacts, beside the folder of the test program (build/bin).
std::wstring ArtifactsFolder();

}  // namespace DisplayTests
