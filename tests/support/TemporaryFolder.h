#pragma once

#include <windows.h>

#include <string>

namespace TestSupport {

// A folder of its own under the system's temporary folder, made by the constructor and removed
// with everything in it by the destructor.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    bool IsReady() const { return m_ready; }
    // The folder, without a trailing backslash.
    const std::wstring& Path() const { return m_path; }
    // The path of an entry of the folder.
    std::wstring PathOf(const std::wstring& name) const { return m_path + L"\\" + name; }

private:
    std::wstring m_path;
    bool m_ready;
};

// Writes the bytes into a new file (replacing one there); false if that fails.
bool WriteWholeFile(const std::wstring& path, const std::string& bytes);
// The whole file, or "(unreadable)". Others may keep it open for writing or deleting.
std::string ReadWholeFile(const std::wstring& path);
// Whether a file or folder of this path exists.
bool FileExists(const std::wstring& path);

}  // namespace TestSupport
