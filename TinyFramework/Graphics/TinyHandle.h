#pragma once

#include "TinyFramework/Common/TinyObject.h"
#include "TinyFramework/Graphics/TinyPointerMap.h"

#include <windows.h>
#include <commctrl.h>

namespace TinyFramework {

// One raw handle of the graphics layer, reachable from that raw handle: Attach enters the pair
// (handle, wrapper) into a process-wide map of the handle type, Lookup finds the wrapper again,
// as a window procedure or a paint routine that holds only the handle needs to.
//
// `HandleType` is the platform's handle type, `Wrapper` the registered class that derives from
// this template (TinyHandleHDC, ...): the map of each handle type is its own, and it holds
// pointers to that class. The drawing classes derive from the wrappers.
//
// The base owns nothing: its destructor only forgets the handle. Deleting the platform's object
// and leaving the map are for the drawing classes' destruction, or for Detach. No lock: the maps
// belong to the thread that owns the windows and device contexts.
template <typename HandleType, typename Wrapper>
class TinyHandle : public TinyObject {
public:
    TinyHandle() : m_handle(nullptr) {}
    ~TinyHandle() override { m_handle = nullptr; }
    TinyHandle(const TinyHandle&) = delete;
    TinyHandle& operator=(const TinyHandle&) = delete;

    // FALSE for a null handle. Otherwise the object takes the handle, and the map learns the
    // object unless the handle is registered already: the first registration stands, so a
    // second object attached to the same handle holds it without being found by Lookup.
    BOOL Attach(HandleType handle) {
        if (handle == nullptr) {
            return FALSE;
        }
        m_handle = handle;
        HandleMap().SetAt(handle, static_cast<Wrapper*>(this));
        return TRUE;
    }

    // Gives the handle up and returns it. The map's entry for the handle goes, whichever object
    // it names; an empty object leaves the map alone and returns null.
    HandleType Detach() {
        HandleType handle = m_handle;
        if (handle != nullptr) {
            HandleMap().Remove(handle);
        }
        m_handle = nullptr;
        return handle;
    }

    // The wrapper registered for a raw handle, or null.
    static Wrapper* Lookup(HandleType handle) {
        void* wrapper = nullptr;
        if (!HandleMap().Lookup(handle, wrapper)) {
            return nullptr;
        }
        return static_cast<Wrapper*>(wrapper);
    }

    // The handle. Callers chain it after Lookup, whose answer may be null, so it answers null
    // for a null object too. The volatile copy keeps the compiler from reasoning that `this`
    // cannot be null and dropping the test.
    HandleType Handle() const {
        const TinyHandle* volatile self = this;
        return self == nullptr ? nullptr : self->m_handle;
    }

    bool operator==(const TinyHandle& other) const { return m_handle == other.m_handle; }
    bool operator!=(const TinyHandle& other) const { return m_handle != other.m_handle; }

    // The process-wide map of this handle type. Made on first use, so an object attached during
    // static initialisation finds it, and never destroyed, so an object destroyed during static
    // destruction can still leave it.
    static TinyPointerMap& HandleMap() {
        static TinyPointerMap* const map = new TinyPointerMap();
        return *map;
    }

protected:
    HandleType m_handle;
};

class TinyHandleHDC : public TinyHandle<HDC, TinyHandleHDC> {
    DECLARE_DYNAMIC(TinyHandleHDC)
};

class TinyHandleHMENU : public TinyHandle<HMENU, TinyHandleHMENU> {
    DECLARE_DYNAMIC(TinyHandleHMENU)
};

class TinyHandleHBITMAP : public TinyHandle<HBITMAP, TinyHandleHBITMAP> {
    DECLARE_DYNAMIC(TinyHandleHBITMAP)
};

class TinyHandleHFONT : public TinyHandle<HFONT, TinyHandleHFONT> {
    DECLARE_DYNAMIC(TinyHandleHFONT)
};

class TinyHandleHPEN : public TinyHandle<HPEN, TinyHandleHPEN> {
    DECLARE_DYNAMIC(TinyHandleHPEN)
};

class TinyHandleHBRUSH : public TinyHandle<HBRUSH, TinyHandleHBRUSH> {
    DECLARE_DYNAMIC(TinyHandleHBRUSH)
};

class TinyHandleHPALETTE : public TinyHandle<HPALETTE, TinyHandleHPALETTE> {
    DECLARE_DYNAMIC(TinyHandleHPALETTE)
};

class TinyHandleHRGN : public TinyHandle<HRGN, TinyHandleHRGN> {
    DECLARE_DYNAMIC(TinyHandleHRGN)
};

class TinyHandleHIMAGELIST : public TinyHandle<HIMAGELIST, TinyHandleHIMAGELIST> {
    DECLARE_DYNAMIC(TinyHandleHIMAGELIST)
};

// A window reachable from its handle, as a window procedure that holds only the handle needs.
// Only the registration lives here; the window's message handling is for the window classes
// built over it.
class TinyHandleHWND : public TinyHandle<HWND, TinyHandleHWND> {
    DECLARE_DYNAMIC(TinyHandleHWND)
};

}  // namespace TinyFramework
