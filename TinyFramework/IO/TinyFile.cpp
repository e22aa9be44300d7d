#include "TinyFramework/IO/TinyFile.h"

#include <windows.h>
#include <commdlg.h>
#include <psapi.h>

#include <cwchar>

namespace TinyFramework {
namespace IO {

IMPLEMENT_DYNAMIC(TinyFile, TinyIO)

namespace {

// A mapping of a file has to have some size; this one is enough for the view of one byte that
// the name look-up needs, and files shorter than it cannot be mapped read-only.
constexpr DWORD kNameMappingSize = MAX_PATH;
constexpr DWORD kDriveStringsLength = 1023;
constexpr DWORD kDeviceNameLength = 1024;

DWORD LowPart(uint64_t value) {
    return static_cast<DWORD>(value & 0xFFFFFFFFu);
}

DWORD HighPart(uint64_t value) {
    return static_cast<DWORD>(value >> 32);
}

// SetFilePointer's answer as one number: all ones with a last error set means it failed (all
// ones alone is a valid low half).
int64_t MoveFilePointer(HANDLE handle, int64_t offset, DWORD origin) {
    LONG high = static_cast<LONG>(offset >> 32);
    const DWORD low = SetFilePointer(handle, static_cast<LONG>(offset), &high, origin);
    if (low == INVALID_SET_FILE_POINTER && GetLastError() != NO_ERROR) {
        return -1;
    }
    return (static_cast<int64_t>(high) << 32) | low;
}

// The three times of a status, with the last write standing in for a creation or access time
// that the file system does not keep.
void SetStatusTimes(const FILETIME& creation, const FILETIME& lastAccess, const FILETIME& lastWrite,
                    TinyFileStatus& status) {
    status.m_ctime = TinyTime(creation);
    status.m_mtime = TinyTime(lastWrite);
    status.m_atime = TinyTime(lastAccess);
    if (status.m_ctime.GetTime() == 0) {
        status.m_ctime = status.m_mtime;
    }
    if (status.m_atime.GetTime() == 0) {
        status.m_atime = status.m_mtime;
    }
}

// Replaces a device path at the start of `path` by the first drive letter whose device is a
// prefix of it. Only the prefix is compared, so a device name that stops inside a folder name
// matches too.
void ReplaceDeviceByDriveLetter(wchar_t* path) {
    wchar_t drives[kDriveStringsLength + 1] = {};
    if (GetLogicalDriveStringsW(kDriveStringsLength, drives) == 0) {
        return;
    }
    for (const wchar_t* drive = drives; *drive != L'\0'; drive += wcslen(drive) + 1) {
        const wchar_t driveName[3] = {drive[0], L':', L'\0'};
        wchar_t device[kDeviceNameLength] = {};
        if (QueryDosDeviceW(driveName, device, kDeviceNameLength) == 0) {
            continue;
        }
        const size_t deviceLength = wcslen(device);
        if (deviceLength < MAX_PATH && _wcsnicmp(path, device, deviceLength) == 0) {
            wchar_t dosPath[MAX_PATH] = {};
            wcsncpy_s(dosPath, MAX_PATH, driveName, _TRUNCATE);
            wcsncat_s(dosPath, MAX_PATH, path + deviceLength, _TRUNCATE);
            wcsncpy_s(path, MAX_PATH, dosPath, _TRUNCATE);
            return;
        }
    }
}

// Owns a file mapping handle.
class ScopedMapping {
public:
    explicit ScopedMapping(HANDLE handle) : m_handle(handle) {}
    ~ScopedMapping() {
        if (m_handle != nullptr) {
            CloseHandle(m_handle);
        }
    }
    ScopedMapping(const ScopedMapping&) = delete;
    ScopedMapping& operator=(const ScopedMapping&) = delete;
    HANDLE Get() const { return m_handle; }

private:
    HANDLE m_handle;
};

// Owns a mapped view.
class ScopedView {
public:
    explicit ScopedView(void* view) : m_view(view) {}
    ~ScopedView() {
        if (m_view != nullptr) {
            UnmapViewOfFile(m_view);
        }
    }
    ScopedView(const ScopedView&) = delete;
    ScopedView& operator=(const ScopedView&) = delete;
    void* Get() const { return m_view; }

private:
    void* m_view;
};

}  // namespace

TinyFile::TinyFile() : m_handle(INVALID_HANDLE_VALUE), m_path(), m_title(), m_fullPath() {}

TinyFile::TinyFile(HANDLE handle) : m_handle(handle), m_path(), m_title(), m_fullPath() {}

TinyFile::~TinyFile() {
    TinyFile::Close();
}

bool TinyFile::IsOpen() const {
    return m_handle != INVALID_HANDLE_VALUE && m_handle != nullptr;
}

// Seek, Read, Write and GetPosition do not test the handle: the platform's own failure on a
// closed handle is their answer.
int64_t TinyFile::Seek(int64_t offset, DWORD origin) {
    return MoveFilePointer(m_handle, offset, origin);
}

int64_t TinyFile::Read(void* buffer, LONG count) {
    const DWORD requested = static_cast<DWORD>(count);
    if (requested == 0) {
        return 0;
    }
    DWORD read = 0;
    ReadFile(m_handle, buffer, requested, &read, nullptr);
    return read;
}

int64_t TinyFile::Write(const void* buffer, LONG count) {
    const DWORD requested = static_cast<DWORD>(count);
    if (requested == 0) {
        return 0;
    }
    DWORD written = 0;
    WriteFile(m_handle, buffer, requested, &written, nullptr);
    return written;
}

BOOL TinyFile::LockRange(uint64_t position, uint64_t count) {
    if (!IsOpen()) {
        return FALSE;
    }
    return LockFile(m_handle, LowPart(position), HighPart(position), LowPart(count),
                    HighPart(count));
}

BOOL TinyFile::UnlockRange(uint64_t position, uint64_t count) {
    if (!IsOpen()) {
        return FALSE;
    }
    return UnlockFile(m_handle, LowPart(position), HighPart(position), LowPart(count),
                      HighPart(count));
}

BOOL TinyFile::Flush() {
    if (!IsOpen()) {
        return FALSE;
    }
    return FlushFileBuffers(m_handle);
}

BOOL TinyFile::Close() {
    if (!IsOpen()) {
        return FALSE;
    }
    const BOOL closed = CloseHandle(m_handle);
    m_handle = INVALID_HANDLE_VALUE;
    return closed;
}

int64_t TinyFile::GetPosition() {
    return MoveFilePointer(m_handle, 0, FILE_CURRENT);
}

int64_t TinyFile::GetSize() {
    if (!IsOpen()) {
        return 0;
    }
    // Without the high half, unlike Seek: this is the answer that users of the class have
    // always had, and it is kept, although a size above 4 GiB loses its upper half.
    return GetFileSize(m_handle, nullptr);
}

BOOL TinyFile::Create(LPCWSTR path, DWORD attributes) {
    wcscpy_s(m_path, kPathLength, path);
    const HANDLE handle =
        CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                    CREATE_ALWAYS, attributes | FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE) {
        return FALSE;
    }
    m_handle = handle;
    return TRUE;
}

BOOL TinyFile::OpenAppend(LPCWSTR path, DWORD access, DWORD share, DWORD attributes) {
    wcscpy_s(m_path, kPathLength, path);
    const HANDLE handle = CreateFileW(path, access, share, nullptr, OPEN_ALWAYS,
                                      attributes | FILE_ATTRIBUTE_NORMAL, nullptr);
    if (handle == nullptr || handle == INVALID_HANDLE_VALUE) {
        return FALSE;
    }
    m_handle = handle;
    return TRUE;
}

LPCWSTR TinyFile::GetFileTitle() {
    if (!IsOpen()) {
        return nullptr;
    }
    ::GetFileTitleW(m_path, m_title, static_cast<WORD>(kPathLength));
    return m_title;
}

LPCWSTR TinyFile::GetFullPath() {
    if (!IsOpen()) {
        return nullptr;
    }
    GetFullPathNameW(m_path, static_cast<DWORD>(kPathLength), m_fullPath, nullptr);
    return m_fullPath;
}

BOOL TinyFile::SetSize(uint64_t size) {
    if (!IsOpen() || size > 0xFFFFFFFFu) {
        return FALSE;
    }
    if (MoveFilePointer(m_handle, static_cast<int64_t>(size), FILE_BEGIN) == -1) {
        return FALSE;
    }
    return SetEndOfFile(m_handle);
}

DWORD TinyFile::GetType() {
    if (!IsOpen()) {
        return FILE_TYPE_UNKNOWN;
    }
    return GetFileType(m_handle);
}

BOOL TinyFile::GetInformation(BY_HANDLE_FILE_INFORMATION* information) {
    if (!IsOpen()) {
        return FALSE;
    }
    return GetFileInformationByHandle(m_handle, information);
}

int64_t TinyFile::SeekToEnd() {
    return Seek(0, FILE_END);
}

int64_t TinyFile::SeekToBegin() {
    return Seek(0, FILE_BEGIN);
}

BOOL TinyFile::Exists(LPCWSTR path) {
    if (path == nullptr || IsBadStringPtrW(path, static_cast<UINT_PTR>(-1))) {
        return FALSE;
    }
    // A path on a drive without a medium must answer "no" rather than ask the user.
    const UINT previousMode = SetErrorMode(SEM_FAILCRITICALERRORS);
    const DWORD attributes = GetFileAttributesW(path);
    SetErrorMode(previousMode);
    return attributes != INVALID_FILE_ATTRIBUTES;
}

BOOL TinyFile::GetStatus(TinyFileStatus& status) {
    status = TinyFileStatus();
    wcsncpy_s(status.m_path, kPathLength, m_path, _TRUNCATE);
    if (!IsOpen()) {
        return TRUE;
    }
    FILETIME creation;
    FILETIME lastAccess;
    FILETIME lastWrite;
    LARGE_INTEGER size;
    if (!GetFileTime(m_handle, &creation, &lastAccess, &lastWrite) ||
        !GetFileSizeEx(m_handle, &size)) {
        return FALSE;
    }
    status.m_size = static_cast<uint64_t>(size.QuadPart);
    const DWORD attributes = GetFileAttributesW(m_path);
    status.m_attribute =
        attributes == INVALID_FILE_ATTRIBUTES ? 0 : static_cast<uint8_t>(attributes & 0xFF);
    SetStatusTimes(creation, lastAccess, lastWrite, status);
    return TRUE;
}

BOOL TinyFile::GetStatus(LPCWSTR path, TinyFileStatus& status) {
    if (path == nullptr || wcslen(path) >= kPathLength) {
        return FALSE;
    }
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExW(path, GetFileExInfoStandard, &data)) {
        return FALSE;
    }
    status.m_attribute = static_cast<uint8_t>(data.dwFileAttributes & 0x7F);
    status.m_size = (static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow;
    SetStatusTimes(data.ftCreationTime, data.ftLastAccessTime, data.ftLastWriteTime, status);
    return TRUE;
}

BOOL TinyFile::GetFileNameFromHandle(HANDLE handle, wchar_t* out) {
    if (out == nullptr || handle == nullptr) {
        return FALSE;
    }
    DWORD sizeHigh = 0;
    if (GetFileSize(handle, &sizeHigh) == 0 && sizeHigh == 0) {
        return FALSE;
    }
    // The platform names the file behind a mapped view, as a device path.
    const ScopedMapping mapping(
        CreateFileMappingW(handle, nullptr, PAGE_READONLY, 0, kNameMappingSize, nullptr));
    if (mapping.Get() == nullptr) {
        return FALSE;
    }
    const ScopedView view(MapViewOfFile(mapping.Get(), FILE_MAP_READ, 0, 0, 1));
    if (view.Get() == nullptr) {
        return FALSE;
    }
    if (K32GetMappedFileNameW(GetCurrentProcess(), view.Get(), out, MAX_PATH) != 0) {
        ReplaceDeviceByDriveLetter(out);
    }
    return TRUE;
}

}  // namespace IO
}  // namespace TinyFramework
