#pragma once

#include <cstdint>
#include <new>
#include <stdexcept>
#include <utility>

namespace TinyFramework {

// The framework's growable array. Elements are moved in; the capacity doubles when full.
template <typename T>
class TinyArray {
public:
    // No capacity beyond this many elements: keeps the byte count of any element type in range.
    static constexpr int32_t kMaxCapacity = 89478485;

    TinyArray() : m_data(nullptr), m_size(0), m_capacity(0) {}
    ~TinyArray() {
        DestroyElements();
        ::operator delete(m_data);
    }
    TinyArray(const TinyArray&) = delete;
    TinyArray& operator=(const TinyArray&) = delete;

    // Moves the element in, leaving the source empty. False, and nothing added, when the array
    // cannot grow.
    bool Add(T&& element) {
        if (m_size == m_capacity && !Grow()) {
            return false;
        }
        new (m_data + m_size) T(std::move(element));
        ++m_size;
        return true;
    }

    int32_t GetSize() const { return m_size; }
    int32_t GetCapacity() const { return m_capacity; }

    T& operator[](int32_t index) { return m_data[CheckedIndex(index)]; }
    const T& operator[](int32_t index) const { return m_data[CheckedIndex(index)]; }

private:
    int32_t CheckedIndex(int32_t index) const {
        if (index < 0 || index >= m_size) {
            throw std::out_of_range("invalid index");
        }
        return index;
    }

    bool Grow() {
        if (m_capacity & 0x40000000) {
            return false;  // doubling would overflow the signed count
        }
        const int32_t capacity = m_capacity == 0 ? 1 : m_capacity * 2;
        if (capacity > kMaxCapacity) {
            return false;
        }
        T* data = static_cast<T*>(
            ::operator new(sizeof(T) * static_cast<size_t>(capacity), std::nothrow));
        if (data == nullptr) {
            return false;
        }
        for (int32_t index = 0; index < m_size; ++index) {
            new (data + index) T(std::move(m_data[index]));
        }
        DestroyElements();
        ::operator delete(m_data);
        m_data = data;
        m_capacity = capacity;
        return true;
    }

    void DestroyElements() {
        for (int32_t index = 0; index < m_size; ++index) {
            m_data[index].~T();
        }
    }

    T* m_data;
    int32_t m_size;
    int32_t m_capacity;
};

}  // namespace TinyFramework
