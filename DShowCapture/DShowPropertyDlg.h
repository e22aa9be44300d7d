#pragma once

// Driver property dialogs, each on a thread of its own.
//
// A driver's property frame is modal to the thread that opens it. ShowProperty therefore opens it
// on a new thread, so that its caller goes on at once, and remembers that thread per filter in one
// process-wide registry, so that a filter never has two frames open and its owner can close a
// frame that the user left open (CloseProperty, which VideoCapture::Uninitialize calls first).
//
// References (who holds whom):
//   - The registry holds no reference: its key is the filter's raw address, used only to find
//     the entry. Each entry lives exactly as long as the dialog thread that added it.
//   - Each dialog thread owns one counted reference to its filter from its start to its end, so
//     the filter lives as long as the frame, whatever its owner releases meanwhile.
//   - ShowPropertyFrame takes a reference of its own for the length of the frame, and the frame
//     holds further ones while it shows the pages.
//
// Threads:
//   - ShowProperty, CloseProperty and IsPropertyShown run on the owner's thread (the caller keeps
//     ShowProperty calls for one filter on one thread).
//   - Each dialog thread is started by ShowProperty, detached, and never joined. It adds its own
//     entry before it signals the start event, runs the frame and its messages, removes its
//     entry and ends.
//
// Locks:
//   - The registry's TinyLock guards its map and nothing else. It is held for one lookup,
//     insert, erase or the walk of CloseProperty; never across the start of a thread, the wait
//     for the start event or the frame.

#include <windows.h>

#include <dshow.h>

#include <unordered_map>

#include "DShowCapture/ComHelpers.h"
#include "TinyFramework/Common/TinyLock.h"

namespace DShow {

// The thread message that tells a dialog thread to show its frame; posted once to each.
constexpr UINT kShowPropertyMessage = 21135;

// The dialog threads of the process: which thread shows the frame of which filter.
class PropertyDialogRegistry : public TinyFramework::TinyLock {
public:
    using ThreadMap = std::unordered_map<IBaseFilter*, DWORD>;

    PropertyDialogRegistry() = default;
    PropertyDialogRegistry(const PropertyDialogRegistry&) = delete;
    PropertyDialogRegistry& operator=(const PropertyDialogRegistry&) = delete;

    // The map itself; the caller holds the lock while it uses it.
    ThreadMap& Threads() { return m_threads; }

private:
    ThreadMap m_threads;
};

// The one registry of the program, built before main and destroyed after it.
extern PropertyDialogRegistry g_propertyDialogRegistry;

// Starts the dialog thread of `filter` and returns once that thread has registered itself and
// been told to show the frame. True also when `filter` is empty or already has a dialog (which is
// then left as it is, not even raised), and when the frame later fails: that is only logged.
// Throws std::system_error when no thread can be started.
bool ShowProperty(const ComPtr<IBaseFilter>& filter, HWND owner);

// Asks every dialog thread of `filter` to end (WM_QUIT) and returns without waiting.
void CloseProperty(const ComPtr<IBaseFilter>& filter);
void CloseProperty(IBaseFilter* filter);

// Whether the registry has an entry for `filter`.
bool IsPropertyShown(IBaseFilter* filter);
// Adds the entry of `filter` unless it has one.
void AddPropertyThread(IBaseFilter* filter, DWORD threadId);
// Removes the entry of `filter`, if any.
void RemovePropertyThread(IBaseFilter* filter);

// Shows the property frame of `filter`, owned by `owner`, at 0,0 with the filter's name in the
// graph as its caption, and returns when it closes. False, with an ERROR record where a query
// failed, when the filter has no pages to show; what the frame itself answers is ignored.
bool ShowPropertyFrame(IBaseFilter* filter, HWND owner);

}  // namespace DShow
