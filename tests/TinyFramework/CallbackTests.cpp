#include "TinyFramework/Common/TinyCallback.h"

#include <gtest/gtest.h>

#include <thread>
#include <typeinfo>
#include <utility>
#include <vector>

namespace {

using TinyFramework::BindCallback;
using TinyFramework::Callback;
using TinyFramework::CallbackState;

// A state the test makes itself, so that it can read the shared count (AddRef answers the new
// count; the matching Release gives it back) and see when the state is destroyed.
class ProbeState : public CallbackState {
public:
    explicit ProbeState(bool* destroyed) : m_destroyed(destroyed) {}
    ~ProbeState() override { *m_destroyed = true; }
    bool IsEqual(const CallbackState* other) const override { return other == this; }
    const std::type_info& BoundType() const override { return typeid(ProbeState); }

    static int Invoke(CallbackState*, int value) { return value * 2; }

private:
    bool* m_destroyed;
};

int32_t SharedCount(CallbackState* state) {
    const int32_t count = state->AddRef() - 1;
    state->Release();
    return count;
}

int Add(int bound, int value) {
    return bound + value;
}
int Subtract(int bound, int value) {
    return bound - value;
}

class Accumulator {
public:
    void Add(int value) { m_total += value; }
    int Total() const { return m_total; }

private:
    int m_total = 0;
};

TEST(CallbackTest, DefaultCallbackIsEmpty) {
    const Callback<void()> callback;
    EXPECT_TRUE(callback.IsNull());
    EXPECT_FALSE(callback.IsValid());
}

TEST(CallbackTest, BoundFunctionRunsWithBoundAndCallArguments) {
    const Callback<int(int)> callback = BindCallback<int(int)>(&Add, 40);
    EXPECT_TRUE(callback.IsValid());
    EXPECT_EQ(callback.Run(2), 42);
    EXPECT_EQ(callback(5), 45);
}

TEST(CallbackTest, BoundMethodRunsOnItsObject) {
    Accumulator accumulator;
    const Callback<void(int)> callback = BindCallback<void(int)>(&Accumulator::Add, &accumulator);
    callback.Run(3);
    callback.Run(4);
    EXPECT_EQ(accumulator.Total(), 7);
}

TEST(CallbackTest, FrameReceiverSignatureCarriesItsFourArguments) {
    struct Frame {
        const unsigned char* data = nullptr;
        long size = 0;
        long long timestamp = 0;
        void* user = nullptr;
        void Take(const unsigned char* d, long s, long long t, void* u) {
            data = d;
            size = s;
            timestamp = t;
            user = u;
        }
    } frame;
    const unsigned char bytes[4] = {1, 2, 3, 4};
    int user = 0;
    const Callback<void(const unsigned char*, long, long long, void*)> receiver =
        BindCallback<void(const unsigned char*, long, long long, void*)>(&Frame::Take, &frame);
    receiver.Run(bytes, 4, 333667, &user);
    EXPECT_EQ(frame.data, bytes);
    EXPECT_EQ(frame.size, 4);
    EXPECT_EQ(frame.timestamp, 333667);
    EXPECT_EQ(frame.user, &user);
}

TEST(CallbackTest, MovedFromCallbackIsNull) {
    Callback<int(int)> source = BindCallback<int(int)>(&Add, 1);
    const Callback<int(int)> target(std::move(source));
    EXPECT_TRUE(source.IsNull());
    EXPECT_EQ(target.Run(1), 2);
}

TEST(CallbackTest, MoveAssignedFromCallbackIsNull) {
    Callback<int(int)> source = BindCallback<int(int)>(&Add, 1);
    Callback<int(int)> target = BindCallback<int(int)>(&Add, 100);
    target = std::move(source);
    EXPECT_TRUE(source.IsNull());
    EXPECT_EQ(target.Run(1), 2);
}

TEST(CallbackTest, MoveAssignmentReleasesTheOldState) {
    bool oldDestroyed = false;
    Callback<int(int)> target(new ProbeState(&oldDestroyed), &ProbeState::Invoke);
    target = BindCallback<int(int)>(&Add, 1);
    EXPECT_TRUE(oldDestroyed);
}

TEST(CallbackTest, MovingACallbackOntoItselfLeavesItEmpty) {
    bool destroyed = false;
    Callback<int(int)> callback(new ProbeState(&destroyed), &ProbeState::Invoke);
    Callback<int(int)>& same = callback;
    callback = std::move(same);
    EXPECT_TRUE(callback.IsNull());
    EXPECT_TRUE(destroyed);
}

TEST(CallbackTest, ResetCallbackIsNullAndReleasesItsState) {
    bool destroyed = false;
    Callback<int(int)> callback(new ProbeState(&destroyed), &ProbeState::Invoke);
    callback.Reset();
    EXPECT_TRUE(callback.IsNull());
    EXPECT_TRUE(destroyed);
}

TEST(CallbackTest, CopiesShareOneState) {
    bool destroyed = false;
    auto* state = new ProbeState(&destroyed);
    {
        const Callback<int(int)> callback(state, &ProbeState::Invoke);
        EXPECT_EQ(SharedCount(state), 1);
        const Callback<int(int)> copy(callback);
        EXPECT_EQ(SharedCount(state), 2);
        Callback<int(int)> assigned;
        assigned = copy;
        EXPECT_EQ(SharedCount(state), 3);
        EXPECT_EQ(assigned.Run(21), 42);
    }
    EXPECT_TRUE(destroyed);
}

TEST(CallbackTest, CopyAssignmentToItselfChangesNothing) {
    bool destroyed = false;
    auto* state = new ProbeState(&destroyed);
    Callback<int(int)> callback(state, &ProbeState::Invoke);
    const Callback<int(int)>& same = callback;
    callback = same;
    EXPECT_EQ(SharedCount(state), 1);
    EXPECT_TRUE(callback.IsValid());
    EXPECT_EQ(callback.Run(4), 8);
    EXPECT_FALSE(destroyed);
}

TEST(CallbackTest, EqualsComparesWhatIsBound) {
    const Callback<int(int)> first = BindCallback<int(int)>(&Add, 1);
    const Callback<int(int)> sameBinding = BindCallback<int(int)>(&Add, 1);
    const Callback<int(int)> otherArgument = BindCallback<int(int)>(&Add, 2);
    const Callback<int(int)> otherFunction = BindCallback<int(int)>(&Subtract, 1);
    const Callback<int(int)> copy(first);
    EXPECT_TRUE(first.Equals(sameBinding));
    EXPECT_TRUE(first.Equals(copy));
    EXPECT_FALSE(first.Equals(otherArgument));
    EXPECT_FALSE(first.Equals(otherFunction));
}

TEST(CallbackTest, EqualsAgainstAnEmptyCallbackIsFalse) {
    const Callback<int(int)> bound = BindCallback<int(int)>(&Add, 1);
    const Callback<int(int)> empty;
    EXPECT_FALSE(bound.Equals(empty));
}

TEST(CallbackTest, CopiesMayBeDroppedOnManyThreads) {
    bool destroyed = false;
    auto* state = new ProbeState(&destroyed);
    Callback<int(int)> callback(state, &ProbeState::Invoke);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([copy = callback] {
            for (int i = 0; i < 10000; ++i) {
                const Callback<int(int)> inner(copy);
                EXPECT_EQ(inner.Run(i), 2 * i);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(SharedCount(state), 1);
    callback.Reset();
    EXPECT_TRUE(destroyed);
}

TEST(CallbackTest, IsTwoPointersAndATablePointer) {
    EXPECT_EQ(sizeof(Callback<void()>), 3 * sizeof(void*));
}

}  // namespace
