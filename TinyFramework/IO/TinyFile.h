#pragma once

#include "TinyFramework/Common/TinyTime.h"
#include "TinyFramework/IO/TinyIO.h"

#include <windows.h>
// GetFileTitle is a macro of this header; including it here gives the operation of that name
// one spelling in every file that sees this class.
#include <commdlg.h>

#include <cstdint>

namespace TinyFramework {
namespace IO {

// What TinyFile::GetStatus reports of a file. Times are local calendar times as TinyTime, 0 when
// the platform cannot express one.
struct TinyFileStatus {
    TinyTime m_ctime;
    TinyTime m_mtime;
    TinyTime m_atime;
    uint64_t m_size = 0;
    uint8_t m_attribute = 0;
    wchar_t m_path[MAX_PATH] = {};
};

// A file on a system handle. Owns the handle (INVALID_HANDLE_VALUE when closed; null is taken
// as closed too) and closes it in the destructor; not copyable. No lock: one thread at a time,
// except that writes of a file opened for appending may come from several threads, the
// platform's append mode keeping each write whole.
//
// Failures are reported by the result only (-1 for positions, 0 otherwise, a short count for
// reads and writes), with the platform's last error left for the caller. Nothing is logged,
// nothing thrown, except what TinyTime throws from within GetStatus.
class TinyFile : public TinyIO {
    DECLARE_DYNAMIC(TinyFile)

public:
    static constexpr size_t kPathLength = MAX_PATH;

    TinyFile();
    // Takes the handle over as it is, without checking it.
    explicit TinyFile(HANDLE handle);
    ~TinyFile() override;

    int64_t Seek(int64_t offset, DWORD origin) override;
    // The count is taken as an unsigned 32-bit number.
    int64_t Read(void* buffer, LONG count) override;
    int64_t Write(const void* buffer, LONG count) override;
    BOOL LockRange(uint64_t position, uint64_t count) override;
    BOOL UnlockRange(uint64_t position, uint64_t count) override;
    BOOL Flush() override;
    BOOL Close() override;
    int64_t GetPosition() override;
    // Only the low 32 bits of the size: a file above 4 GiB reports its size modulo 4 GiB.
    int64_t GetSize() override;

    // Creates or truncates the file for reading and writing, shared for both. A handle held
    // before is not closed: the object forgets it.
    virtual BOOL Create(LPCWSTR path, DWORD attributes);
    // Opens or creates the file with the given access and sharing; the position stays at the
    // start. A handle held before is not closed.
    virtual BOOL OpenAppend(LPCWSTR path, DWORD access, DWORD share, DWORD attributes);
    // The file name part of the path the file was opened with; null when closed.
    virtual LPCWSTR GetFileTitle();
    // The full path of the path the file was opened with; null when closed.
    virtual LPCWSTR GetFullPath();
    // Sizes up to 0xFFFFFFFF; the position stays at the new end.
    virtual BOOL SetSize(uint64_t size);
    virtual DWORD GetType();
    virtual BOOL GetInformation(BY_HANDLE_FILE_INFORMATION* information);

    int64_t SeekToEnd();
    int64_t SeekToBegin();
    HANDLE Handle() const { return m_handle; }

    // Whether a file or folder exists at the path; false for a null or unreadable pointer.
    // Never shows the system's critical-error dialog.
    static BOOL Exists(LPCWSTR path);
    // The status of the open file; of a closed one, only the path, and true.
    BOOL GetStatus(TinyFileStatus& status);
    // The status of the file at the path. Leaves m_path of the record as it was.
    static BOOL GetStatus(LPCWSTR path, TinyFileStatus& status);
    // The path of the file behind a handle, in `out` (kPathLength characters): with a drive
    // letter where a drive's device matches, else the platform's device path. False for an
    // empty file, which cannot be mapped to find its name.
    static BOOL GetFileNameFromHandle(HANDLE handle, wchar_t* out);

protected:
    bool IsOpen() const;

    HANDLE m_handle;
    wchar_t m_path[kPathLength];
    wchar_t m_title[kPathLength];
    wchar_t m_fullPath[kPathLength];
};

}  // namespace IO
}  // namespace TinyFramework
