#pragma once
// Identifiers shared by the virtual camera DLL, its setup library and its tests.

#include <windows.h>

#include <ks.h>

namespace VirtualCamera {

// The COM class of the virtual camera filter; every virtual device is an instance of it.
// {8E0F6C1A-52B4-4D6B-9C21-6A3D57E1B0C4}
extern const GUID CLSID_VirtualCameraFilter;

// The medium an "analog" device reports next to (or instead of) the standard one. Any medium
// outside KSMEDIUMSETID_Standard marks a device as analog to code that inspects mediums.
// {C4D7A2E9-1B3F-4E58-8A6D-2F91B0E7C35D}
extern const GUID MEDIUMSETID_VirtualCameraAnalog;

// Names of the values stored in a device's property bag.
inline constexpr const wchar_t* kBagFriendlyName = L"FriendlyName";
inline constexpr const wchar_t* kBagDescription = L"Description";
inline constexpr const wchar_t* kBagDevicePath = L"DevicePath";
// The device's behaviour (modes, pin answers, faults) as the text lines of its description.
inline constexpr const wchar_t* kBagSettings = L"VirtualCameraSettings";

// The code a device refuses creation with (fault = create).
inline constexpr HRESULT kCreateRefusedError = HRESULT_FROM_WIN32(ERROR_DEVICE_NOT_CONNECTED);
// The code Run is refused with (fault = run_in_use): a device already in use elsewhere.
inline constexpr HRESULT kRunRefusedError = HRESULT_FROM_WIN32(ERROR_GEN_FAILURE);

// The property set of the video processing amplifier, PROPSETID_VIDCAP_VIDEOPROCAMP
// {C6E13360-30AC-11D0-A18C-00A0C9118956}: defined here because the headers declare it only for
// code that instantiates the kernel-streaming GUIDs.
extern const GUID PROPSETID_VirtualCameraVideoProcAmp;

// The code a read-only power-line frequency refuses Set with (fault = powerline_read_only), as a
// kernel-streaming driver without a set handler does (STATUS_INVALID_DEVICE_REQUEST).
inline constexpr HRESULT kPropertyReadOnlyError = HRESULT_FROM_WIN32(ERROR_INVALID_FUNCTION);

// The property-bag values in which the capture filter reports the power-line frequency last set
// through its IKsPropertySet (VT_I4 each).
inline constexpr const wchar_t* kBagPowerLineValue = L"VirtualCameraPowerLineValue";
inline constexpr const wchar_t* kBagPowerLineFlags = L"VirtualCameraPowerLineFlags";

}  // namespace VirtualCamera
