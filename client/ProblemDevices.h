#pragma once

#include "client/QueryOutcome.h"

#include <string>
#include <vector>

namespace QueryClient {

// Devices whose driver hung or crashed the query server, remembered in a file so that later
// queries can leave them alone until somebody forgets them.
class ProblemDevices {
public:
    struct Entry {
        std::wstring id;
        std::string outcome;  // the outcome's name: "timed-out-waiting-for-event", "server-died"...
    };

    // Kept in `path`; DefaultPath() for the user's own list.
    explicit ProblemDevices(std::wstring path);

    // %LOCALAPPDATA%\VideoCaptureQuery\problem-devices.txt
    static std::wstring DefaultPath();
    // Whether an outcome means that the device's driver hung or crashed.
    static bool IsProblem(Outcome outcome);

    // A missing file is an empty list. False only when the file exists and cannot be read.
    // Windows line ends are read like plain ones.
    bool Load();
    // Replaces the file whole: a reader sees the old list or the new one, never a part, and a
    // failed save leaves the old list as it was.
    bool Save() const;

    bool Contains(const std::wstring& id) const;
    // Remembers the device once; a later problem of the same device replaces the outcome.
    void Remember(const std::wstring& id, Outcome outcome);
    bool Forget(const std::wstring& id);
    void ForgetAll();
    const std::vector<Entry>& Entries() const { return m_entries; }
    const std::wstring& Path() const { return m_path; }

private:
    // The file's content: one "<outcome>\t<id in UTF-8>\n" line for each entry.
    std::string Text() const;

    std::wstring m_path;
    std::vector<Entry> m_entries;
};

}  // namespace QueryClient
