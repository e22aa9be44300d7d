#include "DShowCapture/ComHelpers.h"
#include "DShowCapture/DShowPropertyDlg.h"

#include <olectl.h>
#include <pthread.h>

#include <thread>
#include <utility>

#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/Common/TinyLogging_win32.h"

namespace DShow {

PropertyDialogRegistry g_propertyDialogRegistry;

namespace {

using TinyFramework::StringPrintf;
using TinyFramework::TinyAutoLock;

// The first message of the range that the dialog thread peeks at only to get a message queue.
constexpr UINT kQueueProbeMessage = 1024;

bool IsRegistered(PropertyDialogRegistry& registry, IBaseFilter* filter) {
    TinyAutoLock lock(registry);
    return registry.Threads().find(filter) != registry.Threads().end();
}

void Register(PropertyDialogRegistry& registry, IBaseFilter* filter, DWORD threadId) {
    TinyAutoLock lock(registry);
    registry.Threads().emplace(filter, threadId);
}

void Unregister(PropertyDialogRegistry& registry, IBaseFilter* filter) {
    TinyAutoLock lock(registry);
    registry.Threads().erase(filter);
}

// The page list that GetPages hands out: its array belongs to the caller.
class PageList {
public:
    PageList() : m_pages{0, nullptr} {}
    ~PageList() { CoTaskMemFree(m_pages.pElems); }
    PageList(const PageList&) = delete;
    PageList& operator=(const PageList&) = delete;

    CAUUID* Get() { return &m_pages; }
    ULONG Count() const { return m_pages.cElems; }
    GUID* Pages() const { return m_pages.pElems; }

private:
    CAUUID m_pages;
};

// What QueryFilterInfo hands out: the graph comes with a reference, and only when the filter is
// in one.
class FilterInfo {
public:
    FilterInfo() : m_info{} {}
    ~FilterInfo() {
        if (m_info.pGraph != nullptr) {
            m_info.pGraph->Release();
        }
    }
    FilterInfo(const FilterInfo&) = delete;
    FilterInfo& operator=(const FilterInfo&) = delete;

    FILTER_INFO* Get() { return &m_info; }
    const wchar_t* Name() const { return m_info.achName; }

private:
    FILTER_INFO m_info;
};

// The dialog thread. It owns `filter` (one reference) until it ends; `startEvent` belongs to the
// starter and is closed once set, so it is not touched after SetEvent.
void RunDialogThread(HANDLE startEvent, ComPtr<IBaseFilter> filter, HWND owner,
                     PropertyDialogRegistry& registry) {
    const DWORD threadId = GetCurrentThreadId();
    Register(registry, filter.Get(), threadId);
    // Removes nothing: it makes the system create this thread's message queue, so that the
    // starter's PostThreadMessageW after the event cannot get lost.
    MSG message = {};
    PeekMessageW(&message, nullptr, kQueueProbeMessage, kQueueProbeMessage, PM_NOREMOVE);
    SetEvent(startEvent);
    while (GetMessageW(&message, nullptr, 0, 0) != 0) {
        if (message.message == kShowPropertyMessage) {
            // Returns when the frame closes: by the user, or by the WM_QUIT of CloseProperty,
            // which the frame's modal loop hands on to this loop.
            ShowPropertyFrame(filter.Get(), owner);
            PostQuitMessage(0);
        }
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    Unregister(registry, filter.Get());
    TINY_LOG_INFO() << StringPrintf("[DShowPropertyDlg] Exit ThreadID(%d)",
                                    static_cast<int>(threadId));
    // The reference to the filter goes with `filter`, when this function returns.
}

}  // namespace

bool ShowProperty(const ComPtr<IBaseFilter>& filter, HWND owner) {
    if (!filter) {
        return true;
    }
    // The dialog is open already: it stays as it is, not even raised.
    if (IsRegistered(g_propertyDialogRegistry, filter.Get())) {
        return true;
    }
    TinyFramework::TinyEvent started;
    // Without the start event the message could be posted before the thread has a queue, and
    // the thread would then wait for it for ever: no dialog is better than a stuck one.
    if (!started.Create()) {
        const DWORD error = GetLastError();
        TINY_LOG_ERROR() << "Failed to CreateEvent(" << error << ")";
        return true;
    }
    std::thread dialog(RunDialogThread, started.Handle(), filter, owner,
                       std::ref(g_propertyDialogRegistry));
    // With MinGW's posix threads the native handle is a pthread_t; the system's handle is
    // behind it. The thread is detached at once, so that nothing after this point (a structured
    // exception unwinding through here included) can destroy a joinable thread.
    const DWORD threadId =
        GetThreadId(static_cast<HANDLE>(pthread_gethandle(dialog.native_handle())));
    dialog.detach();
    // Once the event is set, the thread is registered and has its message queue.
    started.Wait();
    started.Close();
    TINY_LOG_INFO() << StringPrintf("[DShowPropertyDlg] ShowProperty ThreadID(%d)",
                                    static_cast<int>(threadId));
    PostThreadMessageW(threadId, kShowPropertyMessage, 0, 0);
    return true;
}

void CloseProperty(const ComPtr<IBaseFilter>& filter) {
    CloseProperty(filter.Get());
}

void CloseProperty(IBaseFilter* filter) {
    TinyAutoLock lock(g_propertyDialogRegistry);
    for (const auto& entry : g_propertyDialogRegistry.Threads()) {
        if (entry.first == filter) {
            PostThreadMessageW(entry.second, WM_QUIT, 0, 0);
        }
    }
}

bool IsPropertyShown(IBaseFilter* filter) {
    return IsRegistered(g_propertyDialogRegistry, filter);
}

void AddPropertyThread(IBaseFilter* filter, DWORD threadId) {
    Register(g_propertyDialogRegistry, filter, threadId);
}

void RemovePropertyThread(IBaseFilter* filter) {
    Unregister(g_propertyDialogRegistry, filter);
}

bool ShowPropertyFrame(IBaseFilter* filter, HWND owner) {
    // A reference of its own: the frame may outlive every other holder but the dialog thread.
    const ComPtr<IBaseFilter> shown = filter;
    ComPtr<ISpecifyPropertyPages> specify;
    HRESULT hr = shown->QueryInterface(IID_ISpecifyPropertyPages,
                                       reinterpret_cast<void**>(specify.GetAddressOf()));
    if (FAILED(hr)) {
        TINY_LOG_ERROR() << StringPrintf("Failed to QueryInterface ISpecifyPropertyPages(0x%X)",
                                         HexOf(hr));
        return false;
    }
    PageList pages;
    hr = specify->GetPages(pages.Get());
    if (FAILED(hr)) {
        // The record names QueryInterface for a failed GetPages: log searches look for it so.
        TINY_LOG_ERROR() << StringPrintf("Failed to QueryInterface GetPages(0x%X)", HexOf(hr));
        return false;
    }
    if (pages.Count() == 0) {
        return false;
    }
    FilterInfo info;
    if (SUCCEEDED(shown->QueryFilterInfo(info.Get()))) {
        ComPtr<IUnknown> unknown;
        if (SUCCEEDED(shown->QueryInterface(IID_IUnknown,
                                            reinterpret_cast<void**>(unknown.GetAddressOf())))) {
            IUnknown* objects[] = {unknown.Get()};
            // The frame's own answer tells nothing the caller could act on.
            OleCreatePropertyFrame(owner, 0, 0, info.Name(), 1, objects, pages.Count(),
                                   pages.Pages(), 0, 0, nullptr);
        }
    }
    return true;
}

}  // namespace DShow
