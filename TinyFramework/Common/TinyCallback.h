#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include "TinyFramework/Common/TinyRefCount.h"

namespace TinyFramework {

// What a callback has bound, shared by every copy of it. The count lies directly behind the table
// of virtual operations; a Release that reaches zero calls the deleting destructor.
class CallbackState {
public:
    CallbackState() : m_cRef(0) {}
    CallbackState(const CallbackState&) = delete;
    CallbackState& operator=(const CallbackState&) = delete;

    // Whether both states bind the same thing.
    virtual bool IsEqual(const CallbackState* other) const = 0;
    // The type of what is bound, so that IsEqual can compare only like with like.
    virtual const std::type_info& BoundType() const = 0;
    virtual ~CallbackState() {}

    int32_t AddRef() { return m_cRef.fetch_add(1) + 1; }
    int32_t Release() {
        if (m_cRef.fetch_sub(1) == 1) {
            delete this;
            return 0;
        }
        return m_cRef.load();
    }

private:
    std::atomic<int32_t> m_cRef;
};

// The untyped part of every Callback: the shared state and the invoker that knows its type. A
// callback is empty when it has no state. One object is used by one thread at a time; copies share
// the state through an atomic count and may live on different threads.
class CallbackBase {
public:
    virtual ~CallbackBase() {}

    // Only the state decides; the invoker is not looked at.
    bool IsNull() const { return !m_state; }
    bool IsValid() const { return !IsNull(); }
    void Reset() {
        m_state.Reset();
        m_invoke = nullptr;
    }
    // Compares the bound things, then the invokers. Must not be called on an empty callback.
    bool Equals(const CallbackBase& other) const {
        return m_state->IsEqual(other.m_state.Get()) && m_invoke == other.m_invoke;
    }

protected:
    // Every invoker is stored as this type and called as its real one.
    using InvokeFunction = void (*)();

    CallbackBase() : m_invoke(nullptr) {}
    CallbackBase(CallbackState* state, InvokeFunction invoke) : m_state(state), m_invoke(invoke) {}
    CallbackBase(const CallbackBase& other) : m_state(other.m_state), m_invoke(other.m_invoke) {}
    CallbackBase(CallbackBase&& other) noexcept
        : m_state(std::move(other.m_state)), m_invoke(other.m_invoke) {
        other.m_invoke = nullptr;
    }
    CallbackBase& operator=(const CallbackBase& other) {
        if (this == &other) {
            return *this;
        }
        m_invoke = other.m_invoke;
        m_state = other.m_state;
        return *this;
    }
    // No test for self-assignment: moving a callback onto itself leaves it empty.
    CallbackBase& operator=(CallbackBase&& other) noexcept {
        m_state.Reset();
        m_state = std::move(other.m_state);
        m_invoke = other.m_invoke;
        other.m_invoke = nullptr;
        return *this;
    }

    TinyScopedRefPtr<CallbackState> m_state;
    InvokeFunction m_invoke;
};

template <typename Signature>
class Callback;

// A nullable bound callable: two pointers and a table pointer. Copies share one state, so copying
// and calling allocate nothing; only binding does. Calling an empty callback is a programming error
// and is not guarded: call sites test IsNull first.
template <typename R, typename... Args>
class Callback<R(Args...)> : public CallbackBase {
public:
    using Invoker = R (*)(CallbackState*, Args...);

    Callback() = default;
    Callback(CallbackState* state, Invoker invoke)
        : CallbackBase(state, reinterpret_cast<InvokeFunction>(invoke)) {}
    Callback(const Callback&) = default;
    Callback(Callback&&) noexcept = default;
    Callback& operator=(const Callback&) = default;
    Callback& operator=(Callback&&) noexcept = default;
    ~Callback() override {}

    R Run(Args... args) const {
        CallbackState* state = m_state.Get();
        return reinterpret_cast<Invoker>(m_invoke)(state, std::forward<Args>(args)...);
    }
    R operator()(Args... args) const { return Run(std::forward<Args>(args)...); }
};

namespace internal {

// The binder's state: a function pointer or a method pointer, with the arguments bound ahead of
// the call's own (for a method, the object first). Two states are equal when they bind the same
// function to equal arguments.
template <typename Function, typename... Bound>
class BoundCallbackState final : public CallbackState {
public:
    explicit BoundCallbackState(Function function, Bound... bound)
        : m_function(function), m_bound(std::move(bound)...) {}

    bool IsEqual(const CallbackState* other) const override {
        if (other == nullptr || other->BoundType() != BoundType()) {
            return false;
        }
        const auto* same = static_cast<const BoundCallbackState*>(other);
        return same->m_function == m_function && same->m_bound == m_bound;
    }
    const std::type_info& BoundType() const override { return typeid(BoundCallbackState); }

    template <typename R, typename... Args>
    static R Invoke(CallbackState* state, Args... args) {
        auto* self = static_cast<BoundCallbackState*>(state);
        return std::apply(
            [&](auto&... bound) -> R {
                return std::invoke(self->m_function, bound..., std::forward<Args>(args)...);
            },
            self->m_bound);
    }

private:
    Function m_function;
    std::tuple<Bound...> m_bound;
};

}  // namespace internal

// Binds a free function or a method (with its object as the first bound argument) and any leading
// arguments into a Callback of the given signature:
//   Callback<void(int)> done = BindCallback<void(int)>(&Owner::OnDone, this, 7);
template <typename Signature, typename Function, typename... Bound>
Callback<Signature> BindCallback(Function function, Bound... bound);

namespace internal {
template <typename Signature>
struct CallbackBinder;

template <typename R, typename... Args>
struct CallbackBinder<R(Args...)> {
    template <typename Function, typename... Bound>
    static Callback<R(Args...)> Bind(Function function, Bound... bound) {
        static_assert(std::is_invocable_r_v<R, Function, Bound&..., Args...>,
                      "the bound function does not take these arguments");
        using State = BoundCallbackState<Function, Bound...>;
        return Callback<R(Args...)>(new State(function, std::move(bound)...),
                                    &State::template Invoke<R, Args...>);
    }
};
}  // namespace internal

template <typename Signature, typename Function, typename... Bound>
Callback<Signature> BindCallback(Function function, Bound... bound) {
    return internal::CallbackBinder<Signature>::Bind(function, std::move(bound)...);
}

}  // namespace TinyFramework
