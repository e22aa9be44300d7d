#pragma once

#include <windows.h>

#include <oleauto.h>

namespace VirtualCamera {

// Owns a VARIANT for the length of one property-bag read or write.
class Variant {
public:
    Variant() { VariantInit(&value_); }
    ~Variant() { VariantClear(&value_); }
    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
    VARIANT* get() { return &value_; }
    const VARIANT& operator*() const { return value_; }
    const VARIANT* operator->() const { return &value_; }

private:
    VARIANT value_;
};

}  // namespace VirtualCamera
