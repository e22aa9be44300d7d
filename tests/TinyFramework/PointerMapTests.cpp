#include "TinyFramework/Graphics/TinyPointerMap.h"
#include "client/UniqueHandle.h"
#include "tests/TinyFramework/SyncTestSupport.h"
#include "tests/support/ProgramFolder.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <cstdint>
#include <set>
#include <vector>

namespace {

using TinyFramework::TinyPointerMap;

void* Key(uintptr_t value) {
    return reinterpret_cast<void*>(value);
}

// The hash computed independently of the map: one Park-Miller step with 64-bit arithmetic over
// the key's low 32 bits taken as a signed number, brought into 0 .. 0x7FFFFFFE.
uint32_t ParkMiller(uintptr_t key) {
    const int64_t seed = static_cast<int32_t>(static_cast<uint32_t>(key));
    int64_t value = (16807 * seed) % 0x7FFFFFFF;
    if (value < 0) {
        value += 0x7FFFFFFF;
    }
    return static_cast<uint32_t>(value);
}

uint32_t BucketOf(uintptr_t key, uint32_t bucketCount) {
    return ParkMiller(key) % bucketCount;
}

// Seventeen keys, each in a bucket of its own out of 17: the smallest such keys from 1 on.
std::vector<uintptr_t> OneKeyPerBucket() {
    std::vector<uintptr_t> keys;
    std::set<uint32_t> used;
    for (uintptr_t key = 1; keys.size() < 17; ++key) {
        if (used.insert(BucketOf(key, 17)).second) {
            keys.push_back(key);
        }
    }
    return keys;
}

TEST(TinyPointerMapTest, NewMapHasSeventeenBucketsBlocksOfTenAndNothingAllocated) {
    const TinyPointerMap map;
    EXPECT_EQ(map.GetBucketCount(), 17u);
    EXPECT_EQ(map.GetBlockSize(), 10);
    EXPECT_EQ(map.GetCount(), 0);
    EXPECT_TRUE(map.IsEmpty());
    EXPECT_EQ(map.GetBlockCount(), 0);
    EXPECT_EQ(map.GetFreeCount(), 0);
}

TEST(TinyPointerMapTest, SetAtEntersTheKeyAndLookupGivesItsValue) {
    TinyPointerMap map;
    EXPECT_EQ(map.SetAt(Key(0x1234), Key(0xBEEF)), TRUE);
    void* value = nullptr;
    EXPECT_EQ(map.Lookup(Key(0x1234), value), TRUE);
    EXPECT_EQ(value, Key(0xBEEF));
    EXPECT_EQ(map.GetCount(), 1);
    EXPECT_FALSE(map.IsEmpty());
}

TEST(TinyPointerMapTest, LookupOfAnAbsentKeyReturnsZeroAndLeavesTheValue) {
    TinyPointerMap map;
    void* value = Key(7);
    EXPECT_EQ(map.Lookup(Key(1), value), FALSE);  // no buckets yet
    map.SetAt(Key(2), Key(3));
    EXPECT_EQ(map.Lookup(Key(1), value), FALSE);
    EXPECT_EQ(value, Key(7));
}

TEST(TinyPointerMapTest, SetAtOfAPresentKeyReturnsZeroAndTheFirstValueStands) {
    TinyPointerMap map;
    ASSERT_EQ(map.SetAt(Key(5), Key(50)), TRUE);
    EXPECT_EQ(map.SetAt(Key(5), Key(51)), FALSE);
    void* value = nullptr;
    ASSERT_EQ(map.Lookup(Key(5), value), TRUE);
    EXPECT_EQ(value, Key(50));
    EXPECT_EQ(map.GetCount(), 1);
}

TEST(TinyPointerMapTest, HashIsOneParkMillerStepForASweepOfKeys) {
    std::vector<uintptr_t> keys = {0,          1,          2,          127772,     127773,
                                   127774,     16807,      0x7FFFFFFE, 0x7FFFFFFF, 0x80000000,
                                   0x80000001, 0xFFFFFFFE, 0xFFFFFFFF};
    for (uintptr_t key = 3; key < 0x10000; ++key) {
        keys.push_back(key);
    }
    // Across the whole 32-bit range, negative numbers included, in steps of an odd size.
    for (uintptr_t key = 0x10000; key < 0x100000000ull; key += 0x00FFFFF1) {
        keys.push_back(key);
    }
    for (const uintptr_t key : keys) {
        EXPECT_EQ(TinyPointerMap::HashKey(Key(key)), ParkMiller(key))
            << "key 0x" << std::hex << key;
    }
}

TEST(TinyPointerMapTest, HashOfSmallKeysIsTheirProductWith16807) {
    EXPECT_EQ(TinyPointerMap::HashKey(Key(0)), 0u);
    EXPECT_EQ(TinyPointerMap::HashKey(Key(1)), 16807u);
    EXPECT_EQ(TinyPointerMap::HashKey(Key(1000)), 16807000u);
    // 2^31 - 1 is the modulus itself.
    EXPECT_EQ(TinyPointerMap::HashKey(Key(0x7FFFFFFF)), 0u);
}

TEST(TinyPointerMapTest, HashLooksAtTheLowThirtyTwoBitsOnly) {
    EXPECT_EQ(TinyPointerMap::HashKey(Key(0x0000000500000001ull)), 16807u);
    EXPECT_EQ(TinyPointerMap::HashKey(Key(0xFFFFFFFF00001234ull)),
              TinyPointerMap::HashKey(Key(0x1234)));
}

TEST(TinyPointerMapTest, TheMapPutsEachKeyInTheBucketOfItsHash) {
    TinyPointerMap map;
    for (uintptr_t key = 1; key <= 40; ++key) {
        EXPECT_EQ(map.GetBucketOf(Key(key)), BucketOf(key, 17)) << "key " << key;
    }
}

TEST(TinyPointerMapTest, EighteenthKeyGoesIntoAnOccupiedBucketAndTheBucketCountStays17) {
    TinyPointerMap map;
    const std::vector<uintptr_t> keys = OneKeyPerBucket();
    for (const uintptr_t key : keys) {
        ASSERT_EQ(map.SetAt(Key(key), Key(key + 1000)), TRUE);
    }
    for (uint32_t bucket = 0; bucket < 17; ++bucket) {
        ASSERT_EQ(map.GetBucketLength(bucket), 1) << "bucket " << bucket;
    }
    // Every bucket is taken, so the 18th key shares one: the bucket its hash names.
    const uintptr_t eighteenth = keys.back() + 1;
    const uint32_t shared = BucketOf(eighteenth, 17);
    ASSERT_EQ(map.SetAt(Key(eighteenth), Key(eighteenth + 1000)), TRUE);
    EXPECT_EQ(map.GetBucketLength(shared), 2);
    EXPECT_EQ(map.GetBucketCount(), 17u);
    EXPECT_EQ(map.GetCount(), 18);
    void* value = nullptr;
    for (const uintptr_t key : keys) {
        ASSERT_EQ(map.Lookup(Key(key), value), TRUE) << "key " << key;
        EXPECT_EQ(value, Key(key + 1000));
    }
    ASSERT_EQ(map.Lookup(Key(eighteenth), value), TRUE);
    EXPECT_EQ(value, Key(eighteenth + 1000));
}

TEST(TinyPointerMapTest, RemoveOnAnEmptyMapReturnsZero) {
    TinyPointerMap map;
    EXPECT_EQ(map.Remove(Key(1)), FALSE);
    EXPECT_EQ(map.GetCount(), 0);
}

TEST(TinyPointerMapTest, RemoveOfAnAbsentKeyReturnsZeroAndKeepsTheOthers) {
    TinyPointerMap map;
    map.SetAt(Key(1), Key(10));
    EXPECT_EQ(map.Remove(Key(2)), FALSE);
    EXPECT_EQ(map.GetCount(), 1);
}

TEST(TinyPointerMapTest, RemoveUnlinksTheKeyAndItsNodeIsTheNextOneTaken) {
    TinyPointerMap map;
    map.SetAt(Key(1), Key(10));
    map.SetAt(Key(2), Key(20));
    const void* node = map.GetNodeAddress(Key(1));
    ASSERT_NE(node, nullptr);
    const INT_PTR freeBefore = map.GetFreeCount();

    EXPECT_EQ(map.Remove(Key(1)), TRUE);
    void* value = nullptr;
    EXPECT_EQ(map.Lookup(Key(1), value), FALSE);
    EXPECT_EQ(map.GetCount(), 1);
    EXPECT_EQ(map.GetFreeCount(), freeBefore + 1);

    // The node went to the head of the free list.
    map.SetAt(Key(3), Key(30));
    EXPECT_EQ(map.GetNodeAddress(Key(3)), node);
}

TEST(TinyPointerMapTest, RemoveFindsAKeyBehindAnotherInItsBucket) {
    TinyPointerMap map;
    const std::vector<uintptr_t> keys = OneKeyPerBucket();
    for (const uintptr_t key : keys) {
        map.SetAt(Key(key), Key(key));
    }
    const uintptr_t eighteenth = keys.back() + 1;
    map.SetAt(Key(eighteenth), Key(eighteenth));
    // The older key of the shared bucket lies behind the newer one, which stands at the head.
    uintptr_t older = 0;
    for (const uintptr_t key : keys) {
        if (BucketOf(key, 17) == BucketOf(eighteenth, 17)) {
            older = key;
        }
    }
    EXPECT_EQ(map.Remove(Key(older)), TRUE);
    void* value = nullptr;
    EXPECT_EQ(map.Lookup(Key(older), value), FALSE);
    EXPECT_EQ(map.Lookup(Key(eighteenth), value), TRUE);
    EXPECT_EQ(map.GetBucketLength(BucketOf(eighteenth, 17)), 1);
}

TEST(TinyPointerMapTest, NodesOfABlockComeOffInAddressOrder) {
    TinyPointerMap map;
    const char* previous = nullptr;
    for (uintptr_t key = 1; key <= 10; ++key) {
        map.SetAt(Key(key), Key(key));
        const char* node = static_cast<const char*>(map.GetNodeAddress(Key(key)));
        if (previous != nullptr) {
            // Nodes are next, key and value: three pointers, back to back.
            EXPECT_EQ(node - previous, static_cast<ptrdiff_t>(3 * sizeof(void*))) << "key " << key;
        }
        previous = node;
    }
}

TEST(TinyPointerMapTest, TheEleventhEntryTakesASecondBlockOfTen) {
    TinyPointerMap map;
    map.SetAt(Key(1), Key(1));
    EXPECT_EQ(map.GetBlockCount(), 1);
    EXPECT_EQ(map.GetFreeCount(), 9);
    for (uintptr_t key = 2; key <= 10; ++key) {
        map.SetAt(Key(key), Key(key));
    }
    EXPECT_EQ(map.GetBlockCount(), 1);
    EXPECT_EQ(map.GetFreeCount(), 0);
    map.SetAt(Key(11), Key(11));
    EXPECT_EQ(map.GetBlockCount(), 2);
    EXPECT_EQ(map.GetFreeCount(), 9);
}

TEST(TinyPointerMapTest, ADuplicateKeyTakesNoNode) {
    TinyPointerMap map;
    map.SetAt(Key(1), Key(1));
    map.SetAt(Key(1), Key(2));
    EXPECT_EQ(map.GetFreeCount(), 9);
}

TEST(TinyPointerMapTest, RemoveAllFreesEntriesBlocksAndTheFreeList) {
    TinyPointerMap map;
    for (uintptr_t key = 1; key <= 15; ++key) {
        map.SetAt(Key(key), Key(key));
    }
    map.RemoveAll();
    EXPECT_EQ(map.GetCount(), 0);
    EXPECT_TRUE(map.IsEmpty());
    EXPECT_EQ(map.GetBlockCount(), 0);
    EXPECT_EQ(map.GetFreeCount(), 0);
    void* value = nullptr;
    EXPECT_EQ(map.Lookup(Key(1), value), FALSE);
    EXPECT_EQ(map.Remove(Key(1)), FALSE);
    // The map is usable again.
    EXPECT_EQ(map.SetAt(Key(1), Key(2)), TRUE);
    EXPECT_EQ(map.GetCount(), 1);
}

TEST(TinyPointerMapTest, InitHashTableMakesBucketsOfTheGivenCount) {
    TinyPointerMap map;
    map.InitHashTable(31);
    EXPECT_EQ(map.GetBucketCount(), 31u);
    map.SetAt(Key(5), Key(6));
    EXPECT_EQ(map.GetBucketOf(Key(5)), BucketOf(5, 31));
    EXPECT_EQ(map.GetBucketLength(BucketOf(5, 31)), 1);
}

TEST(TinyPointerMapTest, InitHashTableOfZeroMakes17Buckets) {
    TinyPointerMap map;
    map.InitHashTable(31);
    map.InitHashTable(0);
    EXPECT_EQ(map.GetBucketCount(), 17u);
}

TEST(TinyPointerMapTest, ABlockThatCannotBeAllocatedRaisesTheOutOfMemoryException) {
    std::wstring commandLine = L"PointerMapExhaust.exe";
    STARTUPINFOW startup = {};
    startup.cb = sizeof(startup);
    PROCESS_INFORMATION process = {};
    ASSERT_TRUE(CreateProcessW(TestSupport::ProgramBesideThisOne(L"PointerMapExhaust.exe").c_str(),
                               &commandLine[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                               &startup, &process))
        << GetLastError();
    const QueryClient::UniqueHandle processHandle(process.hProcess);
    CloseHandle(process.hThread);
    ASSERT_EQ(WaitForSingleObject(processHandle.Get(), SyncTests::kDeadlineMs), WAIT_OBJECT_0);
    DWORD exitCode = 0;
    ASSERT_TRUE(GetExitCodeProcess(processHandle.Get(), &exitCode));
    EXPECT_EQ(exitCode, 0x8007000Eu);
}

}  // namespace
