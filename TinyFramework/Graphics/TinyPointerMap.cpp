#include "TinyFramework/Graphics/TinyPointerMap.h"

#include <cstdlib>

namespace TinyFramework {

namespace {

// Park-Miller: x * 16807 mod (2^31 - 1), computed without overflow in 32 bits (Schrage).
constexpr int32_t kMultiplier = 16807;
constexpr int32_t kModulus = 0x7FFFFFFF;
constexpr int32_t kQuotient = 127773;  // kModulus / kMultiplier
constexpr int32_t kRemainder = 2836;   // kModulus % kMultiplier

[[noreturn]] void RaiseOutOfMemory() {
    RaiseException(TinyPointerMap::kOutOfMemoryCode, EXCEPTION_NONCONTINUABLE, 0, nullptr);
    // RaiseException does not return for a non-continuable exception.
    abort();
}

}  // namespace

TinyPointerMap::TinyPointerMap(int64_t blockSize)
    : m_bucketCount(kDefaultBucketCount),
      m_blockSize(blockSize),
      m_count(0),
      m_buckets(nullptr),
      m_free(nullptr),
      m_blocks(nullptr) {}

TinyPointerMap::~TinyPointerMap() {
    RemoveAll();
}

UINT TinyPointerMap::HashKey(void* key) {
    const int32_t seed =
        static_cast<int32_t>(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(key)));
    const int32_t high = seed / kQuotient;
    const int32_t low = seed % kQuotient;
    int32_t value = kMultiplier * low - kRemainder * high;
    if (value < 0) {
        value += kModulus;
    }
    return static_cast<UINT>(value);
}

BOOL TinyPointerMap::SetAt(void* key, void* value) {
    if (m_buckets == nullptr) {
        InitHashTable(m_bucketCount);
    }
    const UINT bucket = GetBucketOf(key);
    if (FindNode(key, bucket) != nullptr) {
        return FALSE;
    }
    Node* node = TakeNode();
    node->key = key;
    node->value = value;
    node->next = m_buckets[bucket];
    m_buckets[bucket] = node;
    return TRUE;
}

BOOL TinyPointerMap::Lookup(void* key, void*& value) const {
    if (m_buckets == nullptr) {
        return FALSE;
    }
    const Node* node = FindNode(key, GetBucketOf(key));
    if (node == nullptr) {
        return FALSE;
    }
    value = node->value;
    return TRUE;
}

BOOL TinyPointerMap::Remove(void* key) {
    if (m_buckets == nullptr) {
        return FALSE;
    }
    for (Node** link = &m_buckets[GetBucketOf(key)]; *link != nullptr; link = &(*link)->next) {
        Node* node = *link;
        if (node->key == key) {
            *link = node->next;
            GiveBackNode(node);
            return TRUE;
        }
    }
    return FALSE;
}

void TinyPointerMap::RemoveAll() {
    FreeBuckets();
    m_count = 0;
    m_free = nullptr;
    while (m_blocks != nullptr) {
        Block* next = m_blocks->next;
        free(m_blocks);
        m_blocks = next;
    }
}

void TinyPointerMap::InitHashTable(UINT size) {
    FreeBuckets();
    m_bucketCount = size != 0 ? size : kDefaultBucketCount;
    m_buckets = static_cast<Node**>(calloc(m_bucketCount, sizeof(Node*)));
    if (m_buckets == nullptr) {
        RaiseOutOfMemory();
    }
}

INT_PTR TinyPointerMap::GetBucketLength(UINT bucket) const {
    if (m_buckets == nullptr || bucket >= m_bucketCount) {
        return 0;
    }
    INT_PTR length = 0;
    for (const Node* node = m_buckets[bucket]; node != nullptr; node = node->next) {
        ++length;
    }
    return length;
}

INT_PTR TinyPointerMap::GetBlockCount() const {
    INT_PTR count = 0;
    for (const Block* block = m_blocks; block != nullptr; block = block->next) {
        ++count;
    }
    return count;
}

INT_PTR TinyPointerMap::GetFreeCount() const {
    INT_PTR count = 0;
    for (const Node* node = m_free; node != nullptr; node = node->next) {
        ++count;
    }
    return count;
}

const void* TinyPointerMap::GetNodeAddress(void* key) const {
    if (m_buckets == nullptr) {
        return nullptr;
    }
    return FindNode(key, GetBucketOf(key));
}

TinyPointerMap::Node* TinyPointerMap::FindNode(void* key, UINT bucket) const {
    for (Node* node = m_buckets[bucket]; node != nullptr; node = node->next) {
        if (node->key == key) {
            return node;
        }
    }
    return nullptr;
}

TinyPointerMap::Node* TinyPointerMap::TakeNode() {
    if (m_free == nullptr) {
        AllocateBlock();
    }
    Node* node = m_free;
    m_free = node->next;
    node->key = nullptr;
    node->value = nullptr;
    ++m_count;
    return node;
}

void TinyPointerMap::GiveBackNode(Node* node) {
    node->next = m_free;
    m_free = node;
    --m_count;
}

void TinyPointerMap::AllocateBlock() {
    // A size that cannot be a block, or whose bytes do not fit in a size_t, is as much a failure
    // as memory the heap refuses.
    const int64_t maxNodes = static_cast<int64_t>((SIZE_MAX - sizeof(Block)) / sizeof(Node));
    if (m_blockSize <= 0 || m_blockSize > maxNodes) {
        RaiseOutOfMemory();
    }
    const size_t nodeCount = static_cast<size_t>(m_blockSize);
    Block* block = static_cast<Block*>(malloc(sizeof(Block) + nodeCount * sizeof(Node)));
    if (block == nullptr) {
        RaiseOutOfMemory();
    }
    block->next = m_blocks;
    m_blocks = block;
    // Pushed from the last node down, so the lowest address comes off the free list first.
    Node* nodes = block->Nodes();
    for (size_t i = nodeCount; i-- > 0;) {
        nodes[i].next = m_free;
        m_free = &nodes[i];
    }
}

void TinyPointerMap::FreeBuckets() {
    free(m_buckets);
    m_buckets = nullptr;
}

}  // namespace TinyFramework
