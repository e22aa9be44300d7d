#include "tools/VirtualCamera/Filter/PowerLineProperty.h"

#include <ks.h>
#include <ksmedia.h>

#include "tools/VirtualCamera/Config/Guids.h"
#include "tools/VirtualCamera/Config/Variant.h"

namespace VirtualCamera {
namespace {

constexpr DWORD kPowerLineId = KSPROPERTY_VIDEOPROCAMP_POWERLINE_FREQUENCY;
constexpr LONG kHighestValue = 3;  // Automatic, the last value a device may know.

static_assert(sizeof(KSPROPERTY_VIDEOPROCAMP_S) == 40, "the record a capture graph sets");

}  // namespace

void PowerLineProperty::Configure(PowerLineFault fault, IPropertyBag* report) {
    m_fault = fault;
    m_report = report;
}

HRESULT PowerLineProperty::Known(REFGUID set, DWORD id) const {
    if (!IsEqualGUID(set, PROPSETID_VirtualCameraVideoProcAmp)) {
        return E_PROP_SET_UNSUPPORTED;
    }
    if (id != kPowerLineId || m_fault == PowerLineFault::Unsupported) {
        return E_PROP_ID_UNSUPPORTED;
    }
    return S_OK;
}

HRESULT PowerLineProperty::QuerySupported(REFGUID set, DWORD id, DWORD* support) const {
    const HRESULT known = Known(set, id);
    if (FAILED(known)) {
        return known;
    }
    if (!support) {
        return E_POINTER;
    }
    *support = KSPROPERTY_SUPPORT_GET;
    if (m_fault != PowerLineFault::ReadOnly) {
        *support |= KSPROPERTY_SUPPORT_SET;
    }
    return S_OK;
}

HRESULT PowerLineProperty::Get(REFGUID set, DWORD id, void* data, DWORD dataSize,
                               DWORD* returned) const {
    const HRESULT known = Known(set, id);
    if (FAILED(known)) {
        return known;
    }
    // Without a buffer the caller asks how large the answer is.
    if (!data) {
        if (!returned) {
            return E_POINTER;
        }
        *returned = sizeof(KSPROPERTY_VIDEOPROCAMP_S);
        return S_OK;
    }
    if (dataSize < sizeof(KSPROPERTY_VIDEOPROCAMP_S)) {
        return HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
    }
    KSPROPERTY_VIDEOPROCAMP_S answer = {};
    answer.Property.Set = PROPSETID_VirtualCameraVideoProcAmp;
    answer.Property.Id = kPowerLineId;
    answer.Property.Flags = KSPROPERTY_TYPE_GET;
    answer.Value = m_value;
    answer.Flags = m_flags;
    answer.Capabilities = KSPROPERTY_VIDEOPROCAMP_FLAGS_MANUAL;
    CopyMemory(data, &answer, sizeof(answer));
    if (returned) {
        *returned = sizeof(answer);
    }
    return S_OK;
}

HRESULT PowerLineProperty::Set(REFGUID set, DWORD id, const void* data, DWORD dataSize) {
    const HRESULT known = Known(set, id);
    if (FAILED(known)) {
        return known;
    }
    if (m_fault == PowerLineFault::ReadOnly) {
        return kPropertyReadOnlyError;
    }
    if (!data) {
        return E_POINTER;
    }
    if (dataSize < sizeof(KSPROPERTY_VIDEOPROCAMP_S)) {
        return HRESULT_FROM_WIN32(ERROR_INSUFFICIENT_BUFFER);
    }
    KSPROPERTY_VIDEOPROCAMP_S record = {};
    CopyMemory(&record, data, sizeof(record));
    if (record.Value < 0 || record.Value > kHighestValue) {
        return E_INVALIDARG;
    }
    m_value = record.Value;
    m_flags = record.Flags;
    Report();
    return S_OK;
}

void PowerLineProperty::Report() const {
    // The report is the camera's own bookkeeping, not the device's answer: a bag that cannot be
    // written leaves the report out and the property set all the same.
    if (m_report) {
        WriteBagNumber(m_report.Get(), kBagPowerLineValue, m_value);
        WriteBagNumber(m_report.Get(), kBagPowerLineFlags, static_cast<LONG>(m_flags));
    }
}

}  // namespace VirtualCamera
