#pragma once

#include <windows.h>

#include <objbase.h>
#include <oleauto.h>
#include <wrl/client.h>

namespace DShow {

// The owning COM pointer of the capture library: assigning a raw pointer adds a reference,
// moving takes the reference over, Reset() releases and empties.
template <class T>
using ComPtr = Microsoft::WRL::ComPtr<T>;

// Takes over a reference that the caller already owns, such as one handed out through an
// out-parameter. MinGW's ComPtr::Attach adds a reference of its own, unlike Microsoft's, and would
// leak it.
template <class T>
ComPtr<T> AdoptReference(T* object) {
    ComPtr<T> owner;
    *owner.GetAddressOf() = object;
    return owner;
}

// An HRESULT as the unsigned number that the "(0x%X)" of a failure record prints.
inline unsigned HexOf(HRESULT hr) {
    return static_cast<unsigned>(hr);
}

// CoCreateInstance that repairs a thread without COM: on CO_E_NOTINITIALIZED it enters the
// multithreaded apartment (COINIT_DISABLE_OLE1DDE) and tries once more. A failure to enter the
// apartment is returned as it is.
HRESULT CreateComInstance(REFCLSID clsid, IUnknown* outer, DWORD context, REFIID iid,
                          void** object);

template <class T>
HRESULT CreateComInstance(REFCLSID clsid, DWORD context, REFIID iid, ComPtr<T>& object) {
    object.Reset();
    return CreateComInstance(clsid, nullptr, context, iid,
                             reinterpret_cast<void**>(object.GetAddressOf()));
}

// A VARIANT that is initialised on construction and cleared on destruction.
class ScopedVariant {
public:
    ScopedVariant() { VariantInit(&m_variant); }
    ~ScopedVariant() { VariantClear(&m_variant); }
    ScopedVariant(const ScopedVariant&) = delete;
    ScopedVariant& operator=(const ScopedVariant&) = delete;

    VARIANT* Get() { return &m_variant; }
    const VARIANT& Value() const { return m_variant; }
    bool IsString() const { return m_variant.vt == VT_BSTR; }
    void Clear() { VariantClear(&m_variant); }

private:
    VARIANT m_variant;
};

}  // namespace DShow
