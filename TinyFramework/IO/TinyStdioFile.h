#pragma once

#include "TinyFramework/IO/TinyIO.h"

#include <windows.h>

#include <cstdint>
#include <cstdio>

namespace TinyFramework {
namespace IO {

// A file on a C runtime stream. Owns the stream and closes it in the destructor; not copyable.
// Open it in a binary mode ("rb", "w+b", ...): positions and sizes count bytes only then. No
// lock: one thread at a time.
//
// Three answers differ from TinyFile's, and callers of this class rely on them as they are:
// Seek moves by an amount only from the position (origins 0 and 2 go to the very start and the
// very end), GetSize answers 0 and leaves the position at the end, and Close does not forget
// the stream, so the destructor closes it once more.
//
// An object whose stream could not be opened is empty: its operations answer 0, false or -1
// without touching the runtime.
class TinyStdioFile : public TinyIO {
    DECLARE_DYNAMIC(TinyStdioFile)

public:
    // Takes the stream over.
    explicit TinyStdioFile(FILE* stream);
    // Opens the file with _wfopen_s; the object is empty if that fails.
    TinyStdioFile(LPCWSTR path, LPCWSTR mode);
    ~TinyStdioFile() override;

    int64_t Seek(int64_t offset, DWORD origin) override;
    int64_t Read(void* buffer, LONG count) override;
    int64_t Write(const void* buffer, LONG count) override;
    // A stream has no locks: both answer 0.
    BOOL LockRange(uint64_t position, uint64_t count) override;
    BOOL UnlockRange(uint64_t position, uint64_t count) override;
    BOOL Flush() override;
    BOOL Close() override;
    int64_t GetPosition() override;
    int64_t GetSize() override;

    FILE* Stream() const { return m_stream; }

private:
    FILE* m_stream;
};

}  // namespace IO
}  // namespace TinyFramework
