#include "tests/support/RawParent.h"

#include "protocol/QueryProtocol.h"

namespace TestSupport {

RawParent::RawParent(const std::wstring& id) : m_id(id) {
    m_event = CreateEventW(nullptr, FALSE, FALSE, EventName().c_str());
}

RawParent::~RawParent() {
    ClosePipe();
    if (m_event != nullptr) {
        CloseHandle(m_event);
    }
}

std::wstring RawParent::PipeName() const {
    return QueryProtocol::kPipeNamePrefix + m_id;
}

std::wstring RawParent::EventName() const {
    return QueryProtocol::kEventNamePrefix + m_id;
}

bool RawParent::WaitForEvent(DWORD milliseconds) {
    return m_event != nullptr && WaitForSingleObject(m_event, milliseconds) == WAIT_OBJECT_0;
}

bool RawParent::OpenPipe(DWORD milliseconds) {
    const ULONGLONG end = GetTickCount64() + milliseconds;
    for (;;) {
        m_pipe = CreateFileW(PipeName().c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING,
                             FILE_FLAG_OVERLAPPED, nullptr);
        if (m_pipe != INVALID_HANDLE_VALUE) {
            return true;
        }
        if (GetTickCount64() >= end) {
            return false;
        }
        Sleep(1);
    }
}

bool RawParent::ReadToEnd(DWORD milliseconds, std::vector<uint8_t>* bytes) {
    const ULONGLONG end = GetTickCount64() + milliseconds;
    HANDLE done = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    bool ended = false;
    for (;;) {
        uint8_t chunk[4096];
        OVERLAPPED overlapped = {};
        overlapped.hEvent = done;
        DWORD count = 0;
        if (!ReadFile(m_pipe, chunk, sizeof(chunk), nullptr, &overlapped)) {
            const DWORD error = GetLastError();
            if (error != ERROR_IO_PENDING) {
                m_endError = error;
                ended = true;
                break;
            }
            const ULONGLONG now = GetTickCount64();
            const DWORD left = now >= end ? 0 : static_cast<DWORD>(end - now);
            if (WaitForSingleObject(done, left) != WAIT_OBJECT_0) {
                CancelIoEx(m_pipe, &overlapped);
                GetOverlappedResult(m_pipe, &overlapped, &count, TRUE);
                break;
            }
        }
        if (!GetOverlappedResult(m_pipe, &overlapped, &count, FALSE)) {
            m_endError = GetLastError();
            ended = true;
            break;
        }
        bytes->insert(bytes->end(), chunk, chunk + count);
    }
    CloseHandle(done);
    return ended;
}

void RawParent::ClosePipe() {
    if (m_pipe != INVALID_HANDLE_VALUE) {
        CloseHandle(m_pipe);
        m_pipe = INVALID_HANDLE_VALUE;
    }
}

std::vector<uint8_t> Utf16Bytes(const std::wstring& text) {
    std::vector<uint8_t> bytes;
    for (wchar_t unit : text) {
        bytes.push_back(static_cast<uint8_t>(unit & 0xFF));
        bytes.push_back(static_cast<uint8_t>(unit >> 8));
    }
    return bytes;
}

}  // namespace TestSupport
