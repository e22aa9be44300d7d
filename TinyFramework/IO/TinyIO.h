#pragma once

#include "TinyFramework/Common/TinyObject.h"

#include <windows.h>

#include <cstdint>

namespace TinyFramework {
namespace IO {

// The framework's one file abstraction: a file on a system handle (TinyFile), on a stdio stream
// (TinyStdioFile) or on a heap block (TinyMemoryFile), used through these nine operations.
// Files are binary throughout. Positions are signed 64-bit numbers, -1 when there is none.
//
// The operations are declared in the order their implementations rely on; new operations go
// into the derived classes, after these. No data, no lock: a file object is for one thread at a
// time unless its implementation says otherwise.
class TinyIO : public TinyObject {
    DECLARE_DYNAMIC(TinyIO)

public:
    ~TinyIO() override;
    TinyIO(const TinyIO&) = delete;
    TinyIO& operator=(const TinyIO&) = delete;

    // Origin 0 (FILE_BEGIN) from the start, 1 (FILE_CURRENT) from the position, 2 (FILE_END)
    // from the end. The new position, or -1.
    virtual int64_t Seek(int64_t offset, DWORD origin) = 0;
    // The number of bytes read or written; a count of 0 gives 0.
    virtual int64_t Read(void* buffer, LONG count) = 0;
    virtual int64_t Write(const void* buffer, LONG count) = 0;
    virtual BOOL LockRange(uint64_t position, uint64_t count) = 0;
    virtual BOOL UnlockRange(uint64_t position, uint64_t count) = 0;
    virtual BOOL Flush() = 0;
    virtual BOOL Close() = 0;
    virtual int64_t GetPosition() = 0;
    virtual int64_t GetSize() = 0;

protected:
    TinyIO();
};

}  // namespace IO
}  // namespace TinyFramework
