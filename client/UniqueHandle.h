#pragma once

#include <windows.h>

#include <utility>

namespace QueryClient {

// Owns one kernel handle; both null and INVALID_HANDLE_VALUE mean empty.
class UniqueHandle {
public:
    UniqueHandle() = default;
    explicit UniqueHandle(HANDLE handle) : m_handle(handle) {}
    ~UniqueHandle() { Reset(); }
    UniqueHandle(UniqueHandle&& other) noexcept : m_handle(other.Release()) {}
    UniqueHandle& operator=(UniqueHandle&& other) noexcept {
        if (this != &other) {
            Reset(other.Release());
        }
        return *this;
    }
    UniqueHandle(const UniqueHandle&) = delete;
    UniqueHandle& operator=(const UniqueHandle&) = delete;

    HANDLE Get() const { return m_handle; }
    bool IsValid() const { return m_handle != nullptr && m_handle != INVALID_HANDLE_VALUE; }
    HANDLE Release() { return std::exchange(m_handle, nullptr); }
    void Reset(HANDLE handle = nullptr) {
        if (IsValid()) {
            CloseHandle(m_handle);
        }
        m_handle = handle;
    }

private:
    HANDLE m_handle = nullptr;
};

}  // namespace QueryClient
