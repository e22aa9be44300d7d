#include "TinyFramework/Common/TinyString.h"

#include <algorithm>
#include <cwchar>
#include <utility>

namespace TinyFramework {

namespace {

bool IsOneOf(wchar_t unit, const wchar_t* characters) {
    return characters != nullptr && std::wcschr(characters, unit) != nullptr && unit != L'\0';
}

}  // namespace

TinyStringW::TinyStringW() : m_buffer(nullptr), m_length(0), m_capacity(0) {}

TinyStringW::TinyStringW(const wchar_t* text) : TinyStringW() {
    if (text != nullptr) {
        Assign(text, std::wcslen(text));
    }
}

TinyStringW::TinyStringW(const wchar_t* text, size_t count) : TinyStringW() {
    if (text != nullptr) {
        Assign(text, count);
    }
}

TinyStringW::TinyStringW(const TinyStringW& other) : TinyStringW() {
    Assign(other.m_buffer, other.m_length);
}

TinyStringW::TinyStringW(TinyStringW&& other) noexcept
    : m_buffer(other.m_buffer), m_length(other.m_length), m_capacity(other.m_capacity) {
    other.m_buffer = nullptr;
    other.m_length = 0;
    other.m_capacity = 0;
}

TinyStringW& TinyStringW::operator=(const TinyStringW& other) {
    if (this != &other) {
        m_length = 0;
        Assign(other.m_buffer, other.m_length);
    }
    return *this;
}

TinyStringW& TinyStringW::operator=(TinyStringW&& other) noexcept {
    if (this != &other) {
        delete[] m_buffer;
        m_buffer = std::exchange(other.m_buffer, nullptr);
        m_length = std::exchange(other.m_length, 0);
        m_capacity = std::exchange(other.m_capacity, 0);
    }
    return *this;
}

TinyStringW::~TinyStringW() {
    delete[] m_buffer;
}

const wchar_t* TinyStringW::GetBuffer() const {
    return m_buffer != nullptr ? m_buffer : L"";
}

TinyStringW TinyStringW::Substring(size_t position, size_t count) const {
    if (position >= m_length) {
        return TinyStringW();
    }
    return TinyStringW(m_buffer + position, std::min(count, m_length - position));
}

TinyStringW& TinyStringW::Trim(const wchar_t* characters) {
    size_t first = 0;
    while (first < m_length && IsOneOf(m_buffer[first], characters)) {
        ++first;
    }
    size_t end = m_length;
    while (end > first && IsOneOf(m_buffer[end - 1], characters)) {
        --end;
    }
    if (first > 0 || end < m_length) {
        std::wmemmove(m_buffer, m_buffer + first, end - first);
        m_length = end - first;
        m_buffer[m_length] = L'\0';
    }
    return *this;
}

int TinyStringW::Compare(const wchar_t* text) const {
    if (text == nullptr) {
        return -1;
    }
    return std::wcscmp(GetBuffer(), text);
}

TinyStringW& TinyStringW::Append(const wchar_t* text, size_t count) {
    if (text == nullptr || count == 0) {
        return *this;
    }
    Reserve(m_length + count);
    std::wmemcpy(m_buffer + m_length, text, count);
    m_length += count;
    m_buffer[m_length] = L'\0';
    return *this;
}

TinyStringW& TinyStringW::Append(const TinyStringW& other) {
    return Append(other.m_buffer, other.m_length);
}

void TinyStringW::Clear() {
    m_length = 0;
    if (m_buffer != nullptr) {
        m_buffer[0] = L'\0';
    }
}

void TinyStringW::Assign(const wchar_t* text, size_t count) {
    if (count == 0) {
        Clear();
        return;
    }
    Reserve(count);
    std::wmemmove(m_buffer, text, count);
    m_length = count;
    m_buffer[m_length] = L'\0';
}

void TinyStringW::Reserve(size_t requested) {
    if (requested <= m_capacity && m_buffer != nullptr) {
        return;
    }
    // Grow by half at least, so that repeated appends stay linear.
    const size_t capacity = std::max(requested | 15, m_capacity + m_capacity / 2);
    wchar_t* buffer = new wchar_t[capacity + 1];
    if (m_buffer != nullptr) {
        std::wmemcpy(buffer, m_buffer, m_length + 1);
    } else {
        buffer[0] = L'\0';
    }
    delete[] m_buffer;
    m_buffer = buffer;
    m_capacity = capacity;
}

}  // namespace TinyFramework
