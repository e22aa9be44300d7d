#include "TinyFramework/Common/TinyRefCount.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

using TinyFramework::TinyRefCount;
using TinyFramework::TinyScopedRefPtr;

// Counts its own destructions, so a test can see exactly when the count ends the object. The
// count is not the first base, as with the COM objects that carry one beside their interfaces.
struct Interface {
    virtual ~Interface() {}
    virtual int Value() const = 0;
};

class Counted : public Interface, public TinyRefCount<Counted> {
public:
    explicit Counted(int* destroyed) : m_destroyed(destroyed) {}
    ~Counted() override { ++*m_destroyed; }
    int Value() const override { return 7; }
    int32_t Count() const { return m_cRef.load(); }

private:
    int* m_destroyed;
};

TEST(TinyRefCountTest, NewObjectHasCountZero) {
    int destroyed = 0;
    Counted* object = new Counted(&destroyed);
    EXPECT_EQ(object->Count(), 0);
    object->AddRef();
    object->Release();
    EXPECT_EQ(destroyed, 1);
}

TEST(TinyRefCountTest, AddRefReturnsTheNewCount) {
    int destroyed = 0;
    Counted* object = new Counted(&destroyed);
    EXPECT_EQ(object->AddRef(), 1);
    EXPECT_EQ(object->AddRef(), 2);
    object->Release();
    object->Release();
}

TEST(TinyRefCountTest, LastReleaseDestroysTheObjectAndReturnsZero) {
    int destroyed = 0;
    Counted* object = new Counted(&destroyed);
    object->AddRef();
    object->AddRef();
    EXPECT_EQ(object->Release(), 1);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(object->Release(), 0);
    EXPECT_EQ(destroyed, 1);
}

TEST(TinyRefCountTest, UnbalancedReleaseFromZeroNeitherDestroysNorReports) {
    int destroyed = 0;
    Counted* object = new Counted(&destroyed);
    EXPECT_EQ(object->Release(), -1);
    EXPECT_EQ(destroyed, 0);
    // Back to 0, then the ordinary life: one reference, released.
    object->AddRef();
    object->AddRef();
    EXPECT_EQ(object->Release(), 0);
    EXPECT_EQ(destroyed, 1);
}

TEST(TinyRefCountTest, ConcurrentReferencesDestroyTheObjectExactlyOnce) {
    int destroyed = 0;
    Counted* object = new Counted(&destroyed);
    object->AddRef();
    constexpr int kThreads = 4;
    constexpr int kRounds = 20000;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([object] {
            for (int i = 0; i < kRounds; ++i) {
                object->AddRef();
                object->Release();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(object->Count(), 1);
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(object->Release(), 0);
    EXPECT_EQ(destroyed, 1);
}

TEST(TinyScopedRefPtrTest, HoldsOneReferenceForItsScope) {
    int destroyed = 0;
    Counted* object = new Counted(&destroyed);
    {
        TinyScopedRefPtr<Counted> pointer(object);
        EXPECT_EQ(object->Count(), 1);
        TinyScopedRefPtr<Counted> copy(pointer);
        EXPECT_EQ(object->Count(), 2);
        TinyScopedRefPtr<Counted> moved(std::move(copy));
        EXPECT_EQ(object->Count(), 2);
        EXPECT_FALSE(copy);
    }
    EXPECT_EQ(destroyed, 1);
}

TEST(TinyScopedRefPtrTest, AssigningTheLastHolderToItselfKeepsTheObject) {
    int destroyed = 0;
    TinyScopedRefPtr<Counted> pointer(new Counted(&destroyed));
    TinyScopedRefPtr<Counted>& same = pointer;
    pointer = same;
    EXPECT_EQ(destroyed, 0);
    EXPECT_EQ(pointer->Count(), 1);
    EXPECT_EQ(pointer->Value(), 7);
}

TEST(TinyScopedRefPtrTest, AssignmentReleasesTheOldObject) {
    int firstDestroyed = 0;
    int secondDestroyed = 0;
    TinyScopedRefPtr<Counted> pointer(new Counted(&firstDestroyed));
    const TinyScopedRefPtr<Counted> other(new Counted(&secondDestroyed));
    pointer = other;
    EXPECT_EQ(firstDestroyed, 1);
    EXPECT_EQ(other->Count(), 2);
    pointer.Reset();
    EXPECT_EQ(other->Count(), 1);
    EXPECT_EQ(secondDestroyed, 0);
}

}  // namespace
