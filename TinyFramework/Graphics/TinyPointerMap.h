#pragma once

#include <windows.h>

#include <cstdint>

namespace TinyFramework {

// A map from one pointer-sized key to one pointer-sized value: a chained hash table whose nodes
// come from blocks of its own, so that registering a handle costs no allocation of its own most
// of the time. The handle classes keep one per handle type, from raw handle to wrapper object.
//
// No lock: a map belongs to the thread that owns the windows and device contexts in it.
//
// Allocation failure (of a block or of the bucket array) raises the structured exception
// 0x8007000E, the platform's E_OUTOFMEMORY, as a non-continuable exception: nothing catches it,
// and a process out of memory ends there.
class TinyPointerMap {
public:
    static constexpr UINT kDefaultBucketCount = 17;
    static constexpr int64_t kDefaultBlockSize = 10;
    static constexpr DWORD kOutOfMemoryCode = 0x8007000E;

    // `blockSize`: nodes per block. Every map in the framework takes the default; another size is
    // for a program that fills a map with many entries at once.
    explicit TinyPointerMap(int64_t blockSize = kDefaultBlockSize);
    virtual ~TinyPointerMap();
    TinyPointerMap(const TinyPointerMap&) = delete;
    TinyPointerMap& operator=(const TinyPointerMap&) = delete;

    // Enters the pair and returns TRUE. A key that is present keeps its value and gives FALSE:
    // the first registration of a handle stands.
    BOOL SetAt(void* key, void* value);
    // TRUE and the value, or FALSE with `value` untouched.
    BOOL Lookup(void* key, void*& value) const;
    // FALSE when the key is not there; otherwise its node goes back to the free list.
    BOOL Remove(void* key);
    // Frees buckets and blocks; the map is as new, except for a bucket count set before.
    void RemoveAll();
    INT_PTR GetCount() const { return m_count; }
    BOOL IsEmpty() const { return m_count == 0; }
    // Replaces the bucket array with `size` empty buckets (17 for 0). Meant for an empty map:
    // entries present stay counted and in their blocks, but can no longer be found.
    void InitHashTable(UINT size);

    // One step of the Park-Miller minimal standard generator over the key's low 32 bits, taken
    // as a signed number: a value from 0 to 0x7FFFFFFE.
    static UINT HashKey(void* key);

    // The table's shape, read-only, for tests and diagnostics.
    UINT GetBucketCount() const { return m_bucketCount; }
    int64_t GetBlockSize() const { return m_blockSize; }
    UINT GetBucketOf(void* key) const { return HashKey(key) % m_bucketCount; }
    // 0 while no bucket array has been made.
    INT_PTR GetBucketLength(UINT bucket) const;
    INT_PTR GetBlockCount() const;
    INT_PTR GetFreeCount() const;
    // Where the node of a key lies, or null: shows the order in which nodes are handed out.
    const void* GetNodeAddress(void* key) const;

private:
    struct Node {
        Node* next;
        void* key;
        void* value;
    };
    // A block is its link, followed by m_blockSize nodes.
    struct Block {
        Block* next;
        Node* Nodes() { return reinterpret_cast<Node*>(this + 1); }
    };

    Node* FindNode(void* key, UINT bucket) const;
    Node* TakeNode();
    void GiveBackNode(Node* node);
    void AllocateBlock();
    void FreeBuckets();

    UINT m_bucketCount;
    int64_t m_blockSize;
    INT_PTR m_count;
    Node** m_buckets;
    Node* m_free;
    Block* m_blocks;
};

}  // namespace TinyFramework
