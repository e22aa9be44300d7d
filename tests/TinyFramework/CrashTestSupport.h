#pragma once

// Runs the crash helper and DumpTool as child processes for the crash report tests. Every child
// ends within a deadline: one that hangs is ended by force, and the run says so.

#include "tests/support/TemporaryFolder.h"

#include <windows.h>

#include <string>

namespace CrashTests {

struct ChildRun {
    bool started = false;
    // False when the child was still running at the deadline and had to be ended by force.
    bool ended = false;
    DWORD exitCode = STILL_ACTIVE;
    // What the child wrote to its output and error streams, together.
    std::string output;
};

// Runs `program` with `arguments` (already quoted), its output and error streams going to
// `outputPath`, which is read back once it has ended. Output goes through a file: a pipe could be
// held open by Wine's own services and never reach its end.
ChildRun RunChild(const std::wstring& program, const std::wstring& arguments,
                  const std::wstring& outputPath);

// The argument in double quotes, for a command line.
std::wstring Quote(const std::wstring& argument);

// A copy of CrashHelper.exe in a temporary folder of its own. The default dump goes beside the
// program, so each run gets a folder where "debug.dmp" can only come from that run.
class CrashHelperRun {
public:
    CrashHelperRun();
    CrashHelperRun(const CrashHelperRun&) = delete;
    CrashHelperRun& operator=(const CrashHelperRun&) = delete;

    // Whether the folder and the program's copy are there.
    bool IsReady() const { return m_ready; }

    // Runs the helper: `kind` of crash, then the log file, then `options` as they stand.
    ChildRun Crash(const std::wstring& kind, const std::wstring& options = L"");

    std::wstring ProgramPath() const { return m_folder.PathOf(L"CrashHelper.exe"); }
    std::wstring LogPath() const { return m_folder.PathOf(L"crash.log"); }
    std::wstring DefaultDumpPath() const { return m_folder.PathOf(L"debug.dmp"); }
    // Written by the helper's own filter when the crash filter chained to it.
    std::wstring PreviousFilterMarkerPath() const { return LogPath() + L".previous"; }
    std::wstring PathOf(const std::wstring& name) const { return m_folder.PathOf(name); }
    // The log file's text, or "(unreadable)".
    std::string Log() const;

private:
    TestSupport::TemporaryFolder m_folder;
    bool m_ready = false;
    int m_runs = 0;
};

}  // namespace CrashTests
