#pragma once
// Registers the virtual camera and its virtual devices, for tests and for VirtualCameraTool.
//
// Every virtual device is an instance of VirtualCamera.dll's filter in the video input device
// category, with its names and behaviour in the device moniker's property bag. A description
// text lists devices, each opened by "[device <instance-name>]"; DescriptionHelp() documents the
// keys. Example:
//
//   [device cam1]
//   FriendlyName = Test Camera
//   DevicePath = \\?\virtual#cam1
//   mode = YUY2 videoinfo 640 480 333333
//   mode = MJPG videoinfo2 1280 720 333333 min_interval=166666 max_interval=2000000
//   fault = delay_caps:200
//
// Every function initializes COM for its own use on the calling thread, so callers need not.

#include <windows.h>

#include <string>
#include <vector>

namespace VirtualCamera {

// The COM class every virtual device creates.
const GUID& VirtualCameraClsid();

// Loads VirtualCamera.dll from the directory of the running executable and calls its
// DllRegisterServer (or DllUnregisterServer).
bool RegisterServer(std::wstring* error);
bool UnregisterServer(std::wstring* error);

// Parses the description and registers each device in it, replacing a registered device of the
// same instance name. Nothing is registered when the description does not parse.
bool AddDevices(const std::wstring& descriptionText, std::wstring* error);

// Removes one virtual device; false when no device of this DLL has that instance name.
bool RemoveDevice(const std::wstring& instanceName);
// Removes every device of this DLL's class in the video input category.
bool RemoveAllDevices();

struct DeviceRecord {
    std::wstring instanceName;
    std::wstring friendlyName;  // Empty when absent or not a string.
    std::wstring devicePath;    // Empty when absent or not a string.
    std::wstring displayName;   // The moniker's display name.
};

// The power-line frequency (anti-flicker) last set on a filter of the device through its
// IKsPropertySet: Value and Flags of the KSPROPERTY_VIDEOPROCAMP_S record. Adding the device
// again clears it.
struct PowerLineReport {
    LONG value = 0;
    ULONG flags = 0;
};
// False when nothing was set since the device was added, or there is no such device.
bool ReadPowerLineReport(const std::wstring& instanceName, PowerLineReport* report);

// Instance names of the registered virtual devices.
std::vector<std::wstring> ListDevices();
std::vector<DeviceRecord> ListDeviceRecords();

// One device "Virtual Camera" with a DevicePath and three modes: YUY2 640x480 and 1280x720 and
// MJPG 1280x720, all at 30 frames a second.
std::wstring DefaultCameraDescription();
// The instance name the default camera registers under.
std::wstring DefaultCameraInstanceName();

// Documentation of the description format.
std::wstring DescriptionHelp();

// UTF-8 (with or without a byte order mark) to UTF-16.
bool Utf8ToWide(const std::string& utf8, std::wstring* wide);

}  // namespace VirtualCamera
