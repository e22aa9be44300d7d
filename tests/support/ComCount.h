#pragma once

#include <windows.h>

namespace TestSupport {

// The reference count of a COM object, read through its own AddRef and Release: what a test can
// see of who still holds it.
template <class T>
ULONG CountOf(T* object) {
    object->AddRef();
    return object->Release();
}

}  // namespace TestSupport
