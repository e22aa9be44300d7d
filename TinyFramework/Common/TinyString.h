#pragma once

#include <cstddef>

namespace TinyFramework {

// The framework's wide string: owns a zero-terminated buffer of UTF-16 units.
class TinyStringW {
public:
    TinyStringW();
    // A null text gives an empty string.
    TinyStringW(const wchar_t* text);  // NOLINT: converting on purpose, like a string literal
    TinyStringW(const wchar_t* text, size_t count);
    TinyStringW(const TinyStringW& other);
    TinyStringW(TinyStringW&& other) noexcept;
    TinyStringW& operator=(const TinyStringW& other);
    TinyStringW& operator=(TinyStringW&& other) noexcept;
    ~TinyStringW();

    size_t GetSize() const { return m_length; }
    size_t GetCapacity() const { return m_capacity; }
    bool IsEmpty() const { return m_length == 0; }
    // The zero-terminated text; never null.
    const wchar_t* GetBuffer() const;
    wchar_t operator[](size_t index) const { return m_buffer[index]; }

    // The count is clamped to the end; a position at or past the end gives an empty string.
    TinyStringW Substring(size_t position, size_t count) const;
    // Keeps the part between the first and the last unit that is not one of `characters`.
    TinyStringW& Trim(const wchar_t* characters);
    // 0 when equal unit by unit, non-zero otherwise; -1 when `text` is null.
    int Compare(const wchar_t* text) const;

    TinyStringW& Append(const wchar_t* text, size_t count);
    TinyStringW& Append(const TinyStringW& other);
    void Clear();

private:
    void Assign(const wchar_t* text, size_t count);
    void Reserve(size_t requested);

    wchar_t* m_buffer;
    size_t m_length;
    size_t m_capacity;
};

}  // namespace TinyFramework
