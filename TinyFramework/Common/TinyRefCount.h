#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

namespace TinyFramework {

// How a counted object ends: deleted as the complete T. The count is one base among others
// (beside COM interfaces), so the object is reached through T, never through the count's base.
template <typename T>
struct DefaultReferenceTraits {
    static void Destruct(const T* object) { delete object; }
};

// Intrusive reference count. It starts at 0: whoever creates the object takes the first reference
// with AddRef before handing it to a smart pointer or to COM. The object deletes itself inside the
// Release that takes the count from 1 to 0, on the releasing thread. Both operations are
// sequentially consistent atomics, so references may be taken and dropped on any thread.
template <typename T, typename Traits = DefaultReferenceTraits<T>>
class TinyRefCount {
public:
    TinyRefCount() : m_cRef(0) {}
    TinyRefCount(const TinyRefCount&) = delete;
    TinyRefCount& operator=(const TinyRefCount&) = delete;

    // The new count.
    int32_t AddRef() { return m_cRef.fetch_add(1) + 1; }

    // 0 when this call destroyed the object. Otherwise a fresh read of the count, which another
    // thread may already have changed: a hint, not a value to act on. An unbalanced Release
    // (from 0 to -1) neither destroys nor reports anything.
    int32_t Release() {
        if (m_cRef.fetch_sub(1) == 1) {
            Traits::Destruct(static_cast<const T*>(this));
            return 0;
        }
        return m_cRef.load();
    }

protected:
    // Not virtual and empty: the traits delete through T, and a live count is not checked.
    ~TinyRefCount() {}

    std::atomic<int32_t> m_cRef;
};

// Holds one reference to an object with AddRef and Release. Not thread-safe as an object; the
// count it manipulates is.
template <typename T>
class TinyScopedRefPtr {
public:
    TinyScopedRefPtr() : m_ptr(nullptr) {}
    explicit TinyScopedRefPtr(T* ptr) : m_ptr(ptr) {
        if (m_ptr != nullptr) {
            m_ptr->AddRef();
        }
    }
    TinyScopedRefPtr(const TinyScopedRefPtr& other) : TinyScopedRefPtr(other.m_ptr) {}
    TinyScopedRefPtr(TinyScopedRefPtr&& other) noexcept : m_ptr(other.m_ptr) {
        other.m_ptr = nullptr;
    }
    ~TinyScopedRefPtr() {
        if (m_ptr != nullptr) {
            m_ptr->Release();
        }
    }

    // The new reference is taken before the old one is dropped, so assigning an object to a
    // pointer that holds its last reference keeps it alive.
    TinyScopedRefPtr& operator=(const TinyScopedRefPtr& other) {
        T* old = m_ptr;
        m_ptr = other.m_ptr;
        if (m_ptr != nullptr) {
            m_ptr->AddRef();
        }
        if (old != nullptr) {
            old->Release();
        }
        return *this;
    }
    TinyScopedRefPtr& operator=(TinyScopedRefPtr&& other) noexcept {
        TinyScopedRefPtr(std::move(other)).Swap(*this);
        return *this;
    }

    void Swap(TinyScopedRefPtr& other) noexcept { std::swap(m_ptr, other.m_ptr); }
    void Reset() { TinyScopedRefPtr().Swap(*this); }

    T* Get() const { return m_ptr; }
    T* operator->() const { return m_ptr; }
    explicit operator bool() const { return m_ptr != nullptr; }

private:
    T* m_ptr;
};

}  // namespace TinyFramework
