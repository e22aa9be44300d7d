#pragma once

#include <windows.h>

namespace TestSupport {

// The processes of this test program. The program joins a job of its own, and every process it
// starts from then on, directly or through a program it started (the query tool's servers), runs
// in that job too: a child starts in its parent's jobs, and a job it is put in later nests inside
// them. Other test programs share the Wine prefix and run servers of the same names at the same
// time, so a count by name over the whole prefix would see theirs.

// Joins the job; call before starting anything that is to be counted. Later calls do nothing.
bool JoinOwnProcessJob();

// The running processes of this program's job whose executable has this file name.
int CountOwnProcesses(const wchar_t* executableName);

// Waits until none of those processes runs, up to `milliseconds`, and returns how many still do.
// The processes of a job that was closed end asynchronously, slowly on a loaded machine.
int OwnProcessesLeftAfter(const wchar_t* executableName, DWORD milliseconds);

// How many processes have run in this program's job since it was joined, this program included.
DWORD OwnProcessesStarted();

}  // namespace TestSupport
