#pragma once
// The capture filter's power-line frequency (anti-flicker), the property of the video processing
// amplifier (PROPSETID_VIDCAP_VIDEOPROCAMP, KSPROPERTY_VIDEOPROCAMP_POWERLINE_FREQUENCY) that a
// capture graph sets, answered through the filter's IKsPropertySet as a camera driver would:
// the data of Get and Set is one KSPROPERTY_VIDEOPROCAMP_S record (40 bytes), whose Value is
// 0 (off), 1 (50 Hz), 2 (60 Hz) or 3 (automatic) and whose Flags say manual (2) or automatic (1).
// A new filter starts at 50 Hz, manual. Any other property set or id is unknown.
//
// What was last set is written to the device's property bag as well (kBagPowerLineValue,
// kBagPowerLineFlags), so that whoever registered the device can see what the filter was told
// even when the filter sits inside somebody else's graph.
//
// Threads and locks: called on any thread through the filter, which holds its own lock around
// every call; that lock guards the value and the report. The property holds the bag (counted),
// which holds nothing of the filter's.

#include <windows.h>
#include <strmif.h>
#include <wrl/client.h>

#include "tools/VirtualCamera/Config/DeviceConfig.h"

namespace VirtualCamera {

class PowerLineProperty {
public:
    // `report` is the device's property bag; null for a filter made without a device.
    void Configure(PowerLineFault fault, IPropertyBag* report);

    HRESULT QuerySupported(REFGUID set, DWORD id, DWORD* support) const;
    HRESULT Get(REFGUID set, DWORD id, void* data, DWORD dataSize, DWORD* returned) const;
    HRESULT Set(REFGUID set, DWORD id, const void* data, DWORD dataSize);

private:
    // S_OK for the power-line frequency of a device that has one, else the property's refusal.
    HRESULT Known(REFGUID set, DWORD id) const;
    void Report() const;

    PowerLineFault m_fault = PowerLineFault::None;
    LONG m_value = 1;
    ULONG m_flags = 2;  // KSPROPERTY_VIDEOPROCAMP_FLAGS_MANUAL
    Microsoft::WRL::ComPtr<IPropertyBag> m_report;
};

}  // namespace VirtualCamera
