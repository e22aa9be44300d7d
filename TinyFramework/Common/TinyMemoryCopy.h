#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

namespace TinyFramework {

// A memcpy-shaped copy: copies `size` bytes and returns `dst`.
typedef void* (*TinyCopyFunction)(void* dst, const void* src, size_t size);

// Copies an image of rows: each row is as long as the smaller pitch, and as many rows as the
// smaller height are copied. Without `flip` the rows keep their order (one copy when pitches and
// heights agree); with `flip` destination row i takes source row srcHeight - 1 - i, so a smaller
// destination gets the last rows of the source upside down. Cannot fail.
void CopyImageRows(BYTE* dst, uint32_t dstPitch, uint32_t dstHeight, const BYTE* src,
                   uint32_t srcPitch, uint32_t srcHeight, BOOL flip);

// Copies for a source in write-combining memory (a frame of a graphics or capture device),
// where ordinary loads are very slow: streaming loads from the source, ordinary stores.
// StreamCopy16 takes that path when both pointers are 16-byte aligned and the processor has
// SSE4.1, StreamCopy32 (256-bit loads) when both are 32-byte aligned; otherwise StreamCopy32
// hands over to StreamCopy16, and StreamCopy16 to memcpy. Null pointers give null.
void* StreamCopy16(void* dst, const void* src, size_t size);
void* StreamCopy32(void* dst, const void* src, size_t size);

// Copies with `copy`, in two halves at once from 256 KiB on: the first half on the calling
// thread, the second on the thread pool. The halves meet on a 32-byte boundary. Null pointers
// give null; otherwise returns `dst` (or, below 256 KiB, what `copy` returned).
void* ParallelCopy(void* dst, const void* src, size_t size, TinyCopyFunction copy);
// ParallelCopy with memcpy.
void* ParallelMemcpy(void* dst, const void* src, size_t size);
// ParallelCopy with StreamCopy32 when the processor has AVX2, else StreamCopy16.
void* ParallelStreamCopy(void* dst, const void* src, size_t size);

// From this size on ParallelCopy splits the copy.
constexpr size_t kParallelCopyThreshold = 0x40000;

}  // namespace TinyFramework
