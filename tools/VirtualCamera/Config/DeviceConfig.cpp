#include "tools/VirtualCamera/Config/DeviceConfig.h"

#include <cwchar>
#include <cwctype>
#include <limits>
#include <sstream>

#include "tools/VirtualCamera/Config/Guids.h"
#include "tools/VirtualCamera/Config/MediaFormats.h"

namespace VirtualCamera {
namespace {

std::wstring Trim(const std::wstring& text) {
    const size_t first = text.find_first_not_of(L" \t\r\n\xFEFF");
    if (first == std::wstring::npos) {
        return std::wstring();
    }
    const size_t last = text.find_last_not_of(L" \t\r\n");
    return text.substr(first, last - first + 1);
}

std::wstring Lower(std::wstring text) {
    for (auto& c : text) {
        c = static_cast<wchar_t>(towlower(c));
    }
    return text;
}

std::vector<std::wstring> Split(const std::wstring& text, wchar_t separator) {
    std::vector<std::wstring> parts;
    size_t start = 0;
    while (true) {
        const size_t end = text.find(separator, start);
        parts.push_back(Trim(text.substr(start, end - start)));
        if (end == std::wstring::npos) {
            break;
        }
        start = end + 1;
    }
    return parts;
}

std::vector<std::wstring> SplitWhitespace(const std::wstring& text) {
    std::vector<std::wstring> words;
    std::wistringstream stream(text);
    std::wstring word;
    while (stream >> word) {
        words.push_back(word);
    }
    return words;
}

// Whole-string integer in [minimum, maximum]; decimal, or hexadecimal with 0x.
bool ParseInteger(const std::wstring& text, LONGLONG minimum, LONGLONG maximum, LONGLONG* value) {
    if (text.empty()) {
        return false;
    }
    wchar_t* end = nullptr;
    errno = 0;
    const LONGLONG parsed = wcstoll(text.c_str(), &end, 0);
    if (errno != 0 || !end || *end != L'\0' || end == text.c_str()) {
        return false;
    }
    if (parsed < minimum || parsed > maximum) {
        return false;
    }
    *value = parsed;
    return true;
}

bool ParseLong(const std::wstring& text, LONG* value) {
    LONGLONG parsed = 0;
    if (!ParseInteger(text, std::numeric_limits<LONG>::min(), std::numeric_limits<LONG>::max(),
                      &parsed)) {
        return false;
    }
    *value = static_cast<LONG>(parsed);
    return true;
}

bool ParseULong(const std::wstring& text, ULONG* value) {
    LONGLONG parsed = 0;
    if (!ParseInteger(text, 0, std::numeric_limits<ULONG>::max(), &parsed)) {
        return false;
    }
    *value = static_cast<ULONG>(parsed);
    return true;
}

bool ParseSize(const std::wstring& text, SIZE* size) {
    const size_t x = text.find_first_of(L"xX");
    if (x == std::wstring::npos) {
        return false;
    }
    LONG cx = 0;
    LONG cy = 0;
    if (!ParseLong(text.substr(0, x), &cx) || !ParseLong(text.substr(x + 1), &cy)) {
        return false;
    }
    *size = {cx, cy};
    return true;
}

class LineError {
public:
    explicit LineError(std::wstring* error) : m_error(error) {}
    bool Fail(const std::wstring& message) {
        if (m_error) {
            *m_error = message;
        }
        return false;
    }

private:
    std::wstring* m_error;
};

bool ParseModeOption(const std::wstring& option, ModeConfig* mode, LineError err) {
    const size_t equals = option.find(L'=');
    if (equals == std::wstring::npos) {
        return err.Fail(L"mode option '" + option + L"' lacks '='");
    }
    const std::wstring name = Lower(option.substr(0, equals));
    const std::wstring value = option.substr(equals + 1);
    const LONGLONG kMin = std::numeric_limits<LONGLONG>::min();
    const LONGLONG kMax = std::numeric_limits<LONGLONG>::max();
    bool ok = false;
    if (name == L"min_interval") {
        ok = ParseInteger(value, kMin, kMax, &mode->minFrameInterval);
    } else if (name == L"max_interval") {
        ok = ParseInteger(value, kMin, kMax, &mode->maxFrameInterval);
    } else if (name == L"min_output") {
        ok = ParseSize(value, &mode->minOutputSize);
    } else if (name == L"max_output") {
        ok = ParseSize(value, &mode->maxOutputSize);
    } else {
        return err.Fail(L"unknown mode option '" + name + L"'");
    }
    if (!ok) {
        return err.Fail(L"bad value in mode option '" + option + L"'");
    }
    return true;
}

bool ParseFormatBlock(const std::wstring& text, FormatBlock* format) {
    const std::wstring name = Lower(text);
    if (name == L"videoinfo") {
        *format = FormatBlock::VideoInfo;
    } else if (name == L"videoinfo2") {
        *format = FormatBlock::VideoInfo2;
    } else if (name == L"none") {
        *format = FormatBlock::None;
    } else {
        return false;
    }
    return true;
}

bool ParseMode(const std::wstring& value, ModeConfig* mode, LineError err) {
    const auto words = SplitWhitespace(value);
    if (words.size() < 5) {
        return err.Fail(
            L"mode needs: <subtype> <videoinfo|videoinfo2|none> <width> <height> "
            L"<AvgTimePerFrame> [options]");
    }
    if (!SubtypeFromName(words[0], &mode->subtype)) {
        return err.Fail(L"unknown subtype '" + words[0] + L"'");
    }
    if (!ParseFormatBlock(words[1], &mode->format)) {
        return err.Fail(L"unknown format block '" + words[1] + L"'");
    }
    LONGLONG avg = 0;
    if (!ParseLong(words[2], &mode->width) || !ParseLong(words[3], &mode->height) ||
        !ParseInteger(words[4], std::numeric_limits<LONGLONG>::min(),
                      std::numeric_limits<LONGLONG>::max(), &avg)) {
        return err.Fail(L"width, height and AvgTimePerFrame must be integers");
    }
    mode->avgTimePerFrame = avg;
    mode->minFrameInterval = avg;
    mode->maxFrameInterval = avg;
    mode->minOutputSize = {mode->width, mode->height};
    mode->maxOutputSize = {mode->width, mode->height};
    for (size_t i = 5; i < words.size(); ++i) {
        if (!ParseModeOption(words[i], mode, err)) {
            return false;
        }
    }
    return true;
}

bool ParseCategory(const std::wstring& value, DeviceSettings* settings, LineError err) {
    const std::wstring name = Lower(value);
    if (name == L"capture") {
        settings->category = CategoryAnswer::Capture;
    } else if (name == L"none") {
        settings->category = CategoryAnswer::None;
    } else if (name == L"short") {
        settings->category = CategoryAnswer::Short;
    } else if (ParseGuid(value, &settings->customCategory)) {
        settings->category = CategoryAnswer::Custom;
    } else {
        return err.Fail(L"category must be capture, none, short or a {GUID}");
    }
    return true;
}

bool ParseOnOff(const std::wstring& value, bool* on, LineError err) {
    const std::wstring name = Lower(value);
    if (name == L"on") {
        *on = true;
    } else if (name == L"off") {
        *on = false;
    } else {
        return err.Fail(L"expected on or off, got '" + value + L"'");
    }
    return true;
}

bool ParseMedium(const std::wstring& item, MediumConfig* medium, LineError err) {
    const std::wstring name = Lower(item);
    if (name == L"standard") {
        *medium = {KSMEDIUMSETID_Standard, 0, 0};
    } else if (name == L"zero") {
        *medium = {GUID_NULL, 0, 0};
    } else if (name == L"analog") {
        *medium = {MEDIUMSETID_VirtualCameraAnalog, 0, 0};
    } else {
        const auto parts = Split(item, L':');
        if (parts.size() != 3 || !ParseGuid(parts[0], &medium->set) ||
            !ParseULong(parts[1], &medium->id) || !ParseULong(parts[2], &medium->flags)) {
            return err.Fail(L"medium must be standard, zero, analog or {GUID}:id:flags, got '" +
                            item + L"'");
        }
    }
    return true;
}

bool ParseMediums(const std::wstring& value, DeviceSettings* settings, LineError err) {
    settings->mediums.clear();
    for (const auto& item : Split(value, L',')) {
        MediumConfig medium;
        if (!ParseMedium(item, &medium, err)) {
            return false;
        }
        settings->mediums.push_back(medium);
    }
    return true;
}

bool ParseFaultDuration(const std::wstring& argument, DWORD* milliseconds) {
    ULONG value = 0;
    if (!ParseULong(argument, &value)) {
        return false;
    }
    *milliseconds = value;
    return true;
}

bool ParseOneFault(const std::wstring& item, FaultConfig* faults, LineError err) {
    const size_t colon = item.find(L':');
    const std::wstring name = Lower(item.substr(0, colon));
    const std::wstring argument = colon == std::wstring::npos ? L"" : item.substr(colon + 1);
    const bool hasArgument = colon != std::wstring::npos;
    LONG number = 0;
    bool ok = true;
    if (name == L"create" && !hasArgument) {
        faults->refuseCreate = true;
    } else if (name == L"caps_count" && !hasArgument) {
        faults->failCapsCount = true;
    } else if (name == L"caps_at") {
        ok = ParseLong(argument, &number) && number >= 0;
        faults->failCapsAt = number;
    } else if (name == L"delay_bind") {
        ok = ParseFaultDuration(argument, &faults->delayBindMs);
    } else if (name == L"delay_caps") {
        ok = ParseFaultDuration(argument, &faults->delayCapsMs);
    } else if (name == L"delay_run") {
        ok = ParseFaultDuration(argument, &faults->delayRunMs);
    } else if (name == L"crash_caps" && !hasArgument) {
        faults->crashCaps = true;
    } else if (name == L"crash_streaming" && !hasArgument) {
        faults->crashStreaming = true;
    } else if (name == L"run_in_use" && !hasArgument) {
        faults->refuseRun = true;
    } else if (name == L"unplug_after") {
        ok = ParseLong(argument, &number) && number >= 0;
        faults->unplugAfterFrames = number;
    } else if (name == L"caps_size") {
        ok = ParseLong(argument, &number) && number >= 0;
        faults->statedCapsSize = number;
    } else if (name == L"short_format") {
        ok = ParseLong(argument, &number) && number >= 0;
        faults->shortFormatAt = number;
    } else if (name == L"short_mediums" && !hasArgument) {
        faults->shortMediumList = true;
    } else if (name == L"powerline_unsupported" && !hasArgument) {
        faults->powerLine = PowerLineFault::Unsupported;
    } else if (name == L"powerline_read_only" && !hasArgument) {
        faults->powerLine = PowerLineFault::ReadOnly;
    } else {
        return err.Fail(L"unknown fault '" + item + L"'");
    }
    if (!ok) {
        return err.Fail(L"bad number in fault '" + item + L"'");
    }
    return true;
}

bool ParseFaults(const std::wstring& value, FaultConfig* faults, LineError err) {
    for (const auto& item : Split(value, L',')) {
        if (!ParseOneFault(item, faults, err)) {
            return false;
        }
    }
    return true;
}

// "N:M": after N frames of a run, mode M. That mode M exists is checked once all lines are read.
bool ParseModeChange(const std::wstring& value, ModeChangeConfig* change, LineError err) {
    const auto parts = Split(value, L':');
    LONG frames = 0;
    LONG mode = 0;
    if (parts.size() != 2 || !ParseLong(parts[0], &frames) || frames < 0 ||
        !ParseLong(parts[1], &mode) || mode < 0) {
        return err.Fail(L"change_after needs <frames>:<mode index>, got '" + value + L"'");
    }
    change->afterFrames = frames;
    change->toMode = static_cast<size_t>(mode);
    return true;
}

bool ParseNameValue(const std::wstring& key, const std::wstring& value, NameValue* name,
                    LineError err) {
    const bool numeric = key.size() > 3 && Lower(key.substr(key.size() - 3)) == L":i4";
    if (!numeric) {
        name->kind = NameKind::Text;
        name->text = value;
        return true;
    }
    if (!ParseLong(value, &name->number)) {
        return err.Fail(L"'" + key + L"' needs an integer");
    }
    name->kind = NameKind::Number;
    return true;
}

// Returns the name field a key refers to ("FriendlyName" or "FriendlyName:i4"), or null.
NameValue* NameFieldOf(const std::wstring& key, DeviceDescription* device) {
    const std::wstring base = Lower(key.substr(0, key.find(L':')));
    if (base == L"friendlyname") {
        return &device->friendlyName;
    }
    if (base == L"description") {
        return &device->description;
    }
    if (base == L"devicepath") {
        return &device->devicePath;
    }
    return nullptr;
}

bool ParseSettingLine(const std::wstring& key, const std::wstring& value, DeviceSettings* settings,
                      LineError err) {
    const std::wstring name = Lower(key);
    if (name == L"mode") {
        ModeConfig mode;
        if (!ParseMode(value, &mode, err)) {
            return false;
        }
        settings->modes.push_back(mode);
        return true;
    }
    if (name == L"category") {
        return ParseCategory(value, settings, err);
    }
    if (name == L"stream_config") {
        return ParseOnOff(value, &settings->streamConfig, err);
    }
    if (name == L"mediums") {
        return ParseMediums(value, settings, err);
    }
    if (name == L"fault") {
        return ParseFaults(value, &settings->faults, err);
    }
    if (name == L"change_after") {
        return ParseModeChange(value, &settings->modeChange, err);
    }
    if (name == L"stamp_fill_time") {
        return ParseOnOff(value, &settings->stampFillTime, err);
    }
    return err.Fail(L"unknown key '" + key + L"'");
}

bool SplitKeyValue(const std::wstring& line, std::wstring* key, std::wstring* value) {
    const size_t equals = line.find(L'=');
    if (equals == std::wstring::npos) {
        return false;
    }
    *key = Trim(line.substr(0, equals));
    *value = Trim(line.substr(equals + 1));
    return !key->empty();
}

bool ParseDeviceHeader(const std::wstring& line, std::wstring* instanceName, LineError err) {
    if (line.back() != L']') {
        return err.Fail(L"a device header must end with ']'");
    }
    const std::wstring inner = Trim(line.substr(1, line.size() - 2));
    if (Lower(inner.substr(0, 6)) != L"device" || (inner.size() > 6 && !iswspace(inner[6]))) {
        return err.Fail(L"expected '[device <instance-name>]'");
    }
    *instanceName = Trim(inner.substr(6));
    if (instanceName->empty()) {
        return err.Fail(L"the device needs an instance name");
    }
    if (instanceName->find(L'\\') != std::wstring::npos) {
        return err.Fail(L"an instance name cannot contain '\\'");
    }
    return true;
}

void ApplySettingDefaults(DeviceSettings* settings) {
    if (settings->mediums.empty()) {
        settings->mediums.push_back({KSMEDIUMSETID_Standard, 0, 0});
    }
}

// What can only be judged with all of a device's lines read.
bool CheckSettings(const DeviceSettings& settings, LineError err) {
    const ModeChangeConfig& change = settings.modeChange;
    if (change.afterFrames >= 0 && change.toMode >= settings.modes.size()) {
        return err.Fail(L"change_after names mode " + std::to_wstring(change.toMode) +
                        L", but the device has " + std::to_wstring(settings.modes.size()) +
                        L" modes");
    }
    return true;
}

std::vector<std::wstring> SplitLines(const std::wstring& text) {
    std::vector<std::wstring> lines = Split(text, L'\n');
    return lines;
}

bool IsIgnorable(const std::wstring& line) {
    return line.empty() || line[0] == L'#';
}

std::wstring WithLine(size_t lineNumber, const std::wstring& message) {
    return L"line " + std::to_wstring(lineNumber) + L": " + message;
}

}  // namespace

bool ParseGuid(const std::wstring& text, GUID* guid) {
    if (text.size() != 38 || text.front() != L'{' || text.back() != L'}') {
        return false;
    }
    for (size_t i = 1; i < 37; ++i) {
        const bool dash = i == 9 || i == 14 || i == 19 || i == 24;
        if (dash ? text[i] != L'-' : !iswxdigit(text[i])) {
            return false;
        }
    }
    std::wstring copy = text;
    return SUCCEEDED(CLSIDFromString(&copy[0], guid));
}

std::wstring GuidToString(const GUID& guid) {
    wchar_t buffer[64] = {};
    if (StringFromGUID2(guid, buffer, 64) == 0) {
        return std::wstring();
    }
    return buffer;
}

bool ParseDescription(const std::wstring& text, std::vector<DeviceDescription>* devices,
                      std::wstring* error) {
    devices->clear();
    const auto lines = SplitLines(text);
    for (size_t index = 0; index < lines.size(); ++index) {
        const size_t lineNumber = index + 1;
        const std::wstring line = Trim(lines[index]);
        if (IsIgnorable(line)) {
            continue;
        }
        std::wstring message;
        LineError err(&message);
        if (line[0] == L'[') {
            DeviceDescription device;
            if (!ParseDeviceHeader(line, &device.instanceName, err)) {
                return LineError(error).Fail(WithLine(lineNumber, message));
            }
            devices->push_back(device);
            continue;
        }
        if (devices->empty()) {
            return LineError(error).Fail(
                WithLine(lineNumber, L"settings before the first '[device <instance-name>]'"));
        }
        DeviceDescription& device = devices->back();
        std::wstring key;
        std::wstring value;
        if (!SplitKeyValue(line, &key, &value)) {
            return LineError(error).Fail(WithLine(lineNumber, L"expected 'key = value'"));
        }
        bool ok = false;
        if (NameValue* name = NameFieldOf(key, &device)) {
            ok = ParseNameValue(key, value, name, err);
        } else {
            ok = ParseSettingLine(key, value, &device.settings, err);
            device.settingsText += key + L" = " + value + L"\n";
        }
        if (!ok) {
            return LineError(error).Fail(WithLine(lineNumber, message));
        }
    }
    if (devices->empty()) {
        return LineError(error).Fail(L"the description names no device");
    }
    for (auto& device : *devices) {
        ApplySettingDefaults(&device.settings);
        std::wstring message;
        if (!CheckSettings(device.settings, LineError(&message))) {
            return LineError(error).Fail(L"device '" + device.instanceName + L"': " + message);
        }
    }
    return true;
}

bool ParseDeviceSettings(const std::wstring& text, DeviceSettings* settings, std::wstring* error) {
    *settings = DeviceSettings();
    const auto lines = SplitLines(text);
    for (size_t index = 0; index < lines.size(); ++index) {
        const std::wstring line = Trim(lines[index]);
        if (IsIgnorable(line)) {
            continue;
        }
        std::wstring key;
        std::wstring value;
        std::wstring message;
        if (!SplitKeyValue(line, &key, &value)) {
            return LineError(error).Fail(WithLine(index + 1, L"expected 'key = value'"));
        }
        if (!ParseSettingLine(key, value, settings, LineError(&message))) {
            return LineError(error).Fail(WithLine(index + 1, message));
        }
    }
    ApplySettingDefaults(settings);
    return CheckSettings(*settings, LineError(error));
}

std::wstring DescriptionFormatHelp() {
    return LR"(Description format (UTF-8 text):
  [device <instance-name>]      starts a device; the instance name identifies it
  # comment                     comment line; blank lines are ignored
  key = value                   one setting of the current device

Names (left out = not stored; ':i4' stores a VT_I4 number instead of a string):
  FriendlyName = text   | FriendlyName:i4 = number
  Description  = text   | Description:i4  = number
  DevicePath   = text   | DevicePath:i4   = number

Behaviour:
  mode = <subtype> <videoinfo|videoinfo2|none> <width> <height> <AvgTimePerFrame>
         [min_interval=N] [max_interval=N] [min_output=WxH] [max_output=WxH]
      One capability, in the order given. subtype: YUY2 I420 IYUV NV12 UYVY YV12 RGB24
      RGB32 ARGB32 MJPG RGB565, any four-character code, or a {GUID}. height keeps its sign.
      Intervals default to AvgTimePerFrame, output sizes to the frame size; any value is taken.
  category = capture | none | short | {GUID}
      Answer of IKsPropertySet for the pin category: PIN_CATEGORY_CAPTURE (default), no
      IKsPropertySet, an answer shorter than a GUID, or the given GUID.
  stream_config = on | off       IAMStreamConfig on the pin (default on)
  mediums = item,item,...        IKsPin::KsQueryMediums answer, in order (default standard)
      item: standard | zero | analog | {GUID}:id:flags
  fault = f1,f2,...              (may repeat)
      create           the filter refuses to be created (BindToObject fails)
      caps_count       GetNumberOfCapabilities fails
      caps_at:K        GetStreamCaps fails at index K
      delay_bind:MS    sleeps MS ms while the device is created
      delay_caps:MS    sleeps MS ms in GetStreamCaps
      delay_run:MS     sleeps MS ms in Run
      crash_caps       access violation in GetStreamCaps
      crash_streaming  access violation on the streaming thread
      run_in_use       Run fails with 0x8007001F
      unplug_after:N   EC_DEVICE_LOST after N frames, then no more frames
      caps_size:N      GetNumberOfCapabilities states a capability size of N bytes, while
                       GetStreamCaps still writes a whole VIDEO_STREAM_CONFIG_CAPS
      short_format:K   mode K's format block (cbFormat, and the memory behind it) is one byte
                       shorter than its VIDEOINFOHEADER or VIDEOINFOHEADER2, in GetStreamCaps
                       and in the pin's media types
      short_mediums    KsQueryMediums states a Size one medium short of its Count (the
                       mediums themselves are all there)
      powerline_unsupported  the filter's IKsPropertySet knows no power-line frequency
                       (QuerySupported, Get and Set fail with E_PROP_ID_UNSUPPORTED)
      powerline_read_only    the power-line frequency can be read but not set: QuerySupported
                       reports get support only, and Set fails with 0x80070001
  change_after = N:M             after N frames of a run the stream goes on in mode M (0 is the
                                 first): the next sample carries M's media type
                                 (IMediaSample::SetMediaType), once the input pin has accepted it
                                 (QueryAccept), and the frames from then on are M's
  stamp_fill_time = on | off     each frame carries the performance counter at which it was
                                 filled (default off; see below)

Power-line frequency: the capture filter answers IKsPropertySet for
PROPSETID_VIDCAP_VIDEOPROCAMP, KSPROPERTY_VIDEOPROCAMP_POWERLINE_FREQUENCY (13), value 0 to 3,
50 Hz (1) at first. What was last set is also written to the device's property bag, as the
numbers VirtualCameraPowerLineValue and VirtualCameraPowerLineFlags ("VirtualCameraTool report").

Frame counter: the first 32 pixels of the first row in memory carry the frame number, most
significant bit first; a pixel is bright (luma 235, or RGB channels 255) for 1 and dark for 0.
MJPG frames carry it in a JPEG comment segment "VCAM" + 4 bytes big-endian right after SOI.
Fill time (stamp_fill_time = on): the 64 pixels after the counter carry the performance counter,
the same way; MJPG frames carry it in a second comment segment "VCTS" + 8 bytes big-endian right
after the counter's.
)";
}

}  // namespace VirtualCamera
