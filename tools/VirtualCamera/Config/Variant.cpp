#include "tools/VirtualCamera/Config/Variant.h"

namespace VirtualCamera {

bool ReadBagString(IPropertyBag* bag, const wchar_t* name, std::wstring* text) {
    Variant value;
    value.get()->vt = VT_BSTR;
    if (FAILED(bag->Read(name, value.get(), nullptr)) || value->vt != VT_BSTR || !value->bstrVal) {
        return false;
    }
    text->assign(value->bstrVal, SysStringLen(value->bstrVal));
    return true;
}

bool ReadBagNumber(IPropertyBag* bag, const wchar_t* name, LONG* number) {
    Variant value;
    value.get()->vt = VT_I4;
    if (FAILED(bag->Read(name, value.get(), nullptr)) || value->vt != VT_I4) {
        return false;
    }
    *number = value->lVal;
    return true;
}

HRESULT WriteBagNumber(IPropertyBag* bag, const wchar_t* name, LONG number) {
    Variant value;
    value.get()->vt = VT_I4;
    value.get()->lVal = number;
    return bag->Write(name, value.get());
}

}  // namespace VirtualCamera
