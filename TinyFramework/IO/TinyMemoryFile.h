#pragma once

#include "TinyFramework/IO/TinyIO.h"

#include <windows.h>

#include <cstdint>

namespace TinyFramework {
namespace IO {

// A file on one block of the C runtime's heap (malloc, realloc, free). The object owns the
// block, frees it in Close and in the destructor; not copyable. No lock: one thread at a time.
//
// m_size is both the length of the file and the size of the block. Growth rounds the block up
// in steps of 1024 bytes and reports the rounded size as the file's size, so a seek past the
// end makes the file longer than the seek asked for.
//
// Write does not put the bytes into the block: it copies them within the caller's own buffer,
// to the caller's address plus the position (see Write). Its results, the growth and the
// position are as for a working write; what the block holds afterwards is undefined. Code
// built on this class depends on those results and on nothing else, and the class keeps them.
class TinyMemoryFile : public TinyIO {
    DECLARE_DYNAMIC(TinyMemoryFile)

public:
    static constexpr int64_t kGrowthStep = 1024;

    // An empty file: no block, size and position 0.
    TinyMemoryFile();
    // Takes over a block from malloc (or null) of `size` bytes; the position is 0.
    TinyMemoryFile(void* buffer, int64_t size);
    ~TinyMemoryFile() override;

    // Origin 0 from the start, 1 from the position, 2 from the end; any other origin keeps the
    // position. A negative result is taken as 0. A result beyond the end grows the block for
    // the result plus the old position; 0 when that growth fails.
    int64_t Seek(int64_t offset, DWORD origin) override;
    // The count is taken as an unsigned 32-bit number and cut to what is left before the end.
    int64_t Read(void* buffer, LONG count) override;
    // The count is taken as an unsigned 32-bit number. Grows the block to hold position plus
    // count, then copies `count` bytes from `buffer` to `buffer` plus the position: the caller's
    // buffer must span position + count bytes. Returns `count`, 0 on failure.
    int64_t Write(const void* buffer, LONG count) override;
    // A block needs neither locks nor flushing: all three answer 1.
    BOOL LockRange(uint64_t position, uint64_t count) override;
    BOOL UnlockRange(uint64_t position, uint64_t count) override;
    BOOL Flush() override;
    // Frees the block; size and position go to 0. Always 1.
    BOOL Close() override;
    // -1 when there is no block.
    int64_t GetPosition() override;
    int64_t GetSize() override;

    // Sizes up to 0xFFFFFFFF. Grows the block when needed; a position beyond the new size comes
    // back to it.
    virtual BOOL SetSize(uint64_t size);

    // The block, for the program that handed it in or wants the bytes; null when empty.
    const void* Buffer() const { return m_buffer; }

private:
    // Makes the block at least `need` bytes long, in steps of kGrowthStep beyond the present
    // size. False, with nothing changed, when `need` is not beyond the size or memory runs out.
    bool Grow(int64_t need);

    unsigned char* m_buffer;
    int64_t m_size;
    int64_t m_position;
};

}  // namespace IO
}  // namespace TinyFramework
