#pragma once

#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

namespace TestSupport {

// A parent of the query server built from plain system calls, step by step, so that tests can
// take each step at the moment they choose (or not at all).
class RawParent {
public:
    // Creates the auto-reset event "Global\C49E...-<id>".
    explicit RawParent(const std::wstring& id);
    ~RawParent();
    RawParent(const RawParent&) = delete;
    RawParent& operator=(const RawParent&) = delete;

    std::wstring PipeName() const;
    std::wstring EventName() const;
    bool HasEvent() const { return m_event != nullptr; }
    // True when the event was set within the time; each true consumes one setting.
    bool WaitForEvent(DWORD milliseconds);
    // Opens the pipe, retrying while it does not exist yet, for up to the given time.
    bool OpenPipe(DWORD milliseconds);
    // Reads until the server ends the stream. False when it did not end within the time.
    bool ReadToEnd(DWORD milliseconds, std::vector<uint8_t>* bytes);
    // The error that ended the stream (109 or 233 when the server ended it).
    DWORD EndError() const { return m_endError; }
    void ClosePipe();

private:
    std::wstring m_id;
    HANDLE m_event = nullptr;
    HANDLE m_pipe = INVALID_HANDLE_VALUE;
    DWORD m_endError = 0;
};

// Bytes of UTF-16LE text, as the server writes device lines.
std::vector<uint8_t> Utf16Bytes(const std::wstring& text);

}  // namespace TestSupport
