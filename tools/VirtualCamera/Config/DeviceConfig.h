#pragma once
// The settings of one virtual device, and the parser of the text that describes devices.
//
// Description text: one or more devices, each opened by a line "[device <instance-name>]" and
// followed by "key = value" lines. A line starting with '#' is a comment; blank lines are ignored.
// See DescriptionFormatHelp() for the keys.

#include <windows.h>
#include <strmif.h>

#include <string>
#include <vector>

namespace VirtualCamera {

enum class FormatBlock { VideoInfo, VideoInfo2, None };

// One entry of the pin's capability list, in the order the device offers it.
struct ModeConfig {
    GUID subtype = GUID_NULL;
    FormatBlock format = FormatBlock::VideoInfo;
    LONG width = 0;
    LONG height = 0;  // Keeps its sign: a negative height is stored as given.
    REFERENCE_TIME avgTimePerFrame = 0;
    LONGLONG minFrameInterval = 0;
    LONGLONG maxFrameInterval = 0;
    SIZE minOutputSize = {0, 0};
    SIZE maxOutputSize = {0, 0};
};

// How a name value (FriendlyName, Description, DevicePath) is stored in the property bag.
enum class NameKind { Absent, Text, Number };

struct NameValue {
    NameKind kind = NameKind::Absent;
    std::wstring text;
    LONG number = 0;
};

// What the pin answers to IKsPropertySet::Get(AMPROPSETID_Pin, AMPROPERTY_PIN_CATEGORY).
enum class CategoryAnswer {
    Capture,  // PIN_CATEGORY_CAPTURE
    None,     // The pin does not expose IKsPropertySet at all.
    Short,    // The answer is shorter than a GUID.
    Custom,   // DeviceSettings::customCategory
};

struct MediumConfig {
    GUID set = GUID_NULL;
    ULONG id = 0;
    ULONG flags = 0;
};

// How the capture filter answers for the power-line frequency property
// (PROPSETID_VIDCAP_VIDEOPROCAMP, KSPROPERTY_VIDEOPROCAMP_POWERLINE_FREQUENCY).
enum class PowerLineFault {
    None,         // Get and set are supported.
    Unsupported,  // QuerySupported, Get and Set fail with E_PROP_ID_UNSUPPORTED.
    ReadOnly,     // QuerySupported reports get support only; Set is refused.
};

struct FaultConfig {
    bool refuseCreate = false;    // IPersistPropertyBag::Load fails, so BindToObject fails.
    bool failCapsCount = false;   // GetNumberOfCapabilities fails.
    int failCapsAt = -1;          // GetStreamCaps fails at this index (-1: never).
    DWORD delayBindMs = 0;        // Sleep inside Load (inside BindToObject).
    DWORD delayCapsMs = 0;        // Sleep inside GetStreamCaps.
    DWORD delayRunMs = 0;         // Sleep inside Run.
    bool crashCaps = false;       // Access violation inside GetStreamCaps.
    bool crashStreaming = false;  // Access violation on the streaming thread.
    bool refuseRun = false;       // Run returns kRunRefusedError.
    LONG unplugAfterFrames = -1;  // EC_DEVICE_LOST after this many frames (-1: never).
    // Faults of a driver that lies about the sizes of what it hands out.
    int statedCapsSize = -1;       // GetNumberOfCapabilities states this size (-1: the true one).
    int shortFormatAt = -1;        // The format block of this mode lacks its header's last byte.
    bool shortMediumList = false;  // KsQueryMediums states a Size one medium short of Count.
    PowerLineFault powerLine = PowerLineFault::None;
};

// A change of mode in the middle of a run, as a device makes when its format changes on its own.
struct ModeChangeConfig {
    LONG afterFrames = -1;  // Frames of a run before the change (-1: never).
    size_t toMode = 0;      // Index of the mode the stream goes on in.
};

struct DeviceSettings {
    std::vector<ModeConfig> modes;
    CategoryAnswer category = CategoryAnswer::Capture;
    GUID customCategory = GUID_NULL;
    bool streamConfig = true;
    std::vector<MediumConfig> mediums;  // Filled with the standard medium when not given.
    FaultConfig faults;
    ModeChangeConfig modeChange;
    // Each frame carries the performance counter at which it was filled (see FramePattern.h).
    bool stampFillTime = false;
};

struct DeviceDescription {
    std::wstring instanceName;
    NameValue friendlyName;
    NameValue description;
    NameValue devicePath;
    DeviceSettings settings;
    // The behaviour lines of this device (everything but the names), as stored in the bag.
    std::wstring settingsText;
};

// Parses a whole description. On failure returns false and sets *error to a message that names
// the line; never throws.
bool ParseDescription(const std::wstring& text, std::vector<DeviceDescription>* devices,
                      std::wstring* error);

// Parses the behaviour lines of one device (what DeviceDescription::settingsText holds).
bool ParseDeviceSettings(const std::wstring& text, DeviceSettings* settings, std::wstring* error);

// Help text describing the description format.
std::wstring DescriptionFormatHelp();

// "{XXXXXXXX-...}" to GUID and back.
bool ParseGuid(const std::wstring& text, GUID* guid);
std::wstring GuidToString(const GUID& guid);

}  // namespace VirtualCamera
