#pragma once

#include <windows.h>

#include <oleauto.h>
#include <strmif.h>

#include <string>

namespace VirtualCamera {

// Owns a VARIANT for the length of one property-bag read or write.
class Variant {
public:
    Variant() { VariantInit(&m_value); }
    ~Variant() { VariantClear(&m_value); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
    VARIANT* get() { return &m_value; }
    const VARIANT& operator*() const { return m_value; }
    const VARIANT* operator->() const { return &m_value; }

private:
    VARIANT m_value;
};

// Reads one string value of a property bag. False when the value is absent, not a string
// (the device enumerator's bag does not convert a number), or null.
bool ReadBagString(IPropertyBag* bag, const wchar_t* name, std::wstring* text);

// Reads one VT_I4 value of a property bag. False when the value is absent or not a number.
bool ReadBagNumber(IPropertyBag* bag, const wchar_t* name, LONG* number);

// Writes one value of a property bag as a VT_I4 number.
HRESULT WriteBagNumber(IPropertyBag* bag, const wchar_t* name, LONG number);

}  // namespace VirtualCamera
