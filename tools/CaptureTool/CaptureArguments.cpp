#include "tools/CaptureTool/CaptureArguments.h"

#include <windows.h>

#include <cerrno>
#include <cmath>
#include <cwchar>
#include <cwctype>

namespace CaptureTool {
namespace {

// Limits that keep every value inside what a VIDEOINFOHEADER and a 32-bit float can carry.
constexpr long long kMaxDimension = 65535;
constexpr double kMaxRate = 1000.0;
constexpr long long kMaxFrames = 1000000000;
constexpr double kMaxSeconds = 86400.0;

struct FormatAlias {
    const wchar_t* name;
    DShow::VideoPixelFormat format;
};

// Spellings of the media subtypes' FourCCs where the listing uses another name.
constexpr FormatAlias kFourCcAliases[] = {
    {L"UYVY", DShow::PIXEL_FORMAT_UYVY},
    {L"MJPG", DShow::PIXEL_FORMAT_MJPEG},
};

std::wstring Upper(const std::wstring& text) {
    std::wstring upper = text;
    for (wchar_t& c : upper) {
        c = static_cast<wchar_t>(std::towupper(c));
    }
    return upper;
}

// A whole decimal integer in [1, limit]; no sign, no trailing text.
bool ParsePositiveInteger(const std::wstring& text, long long limit, long long& value) {
    if (text.empty() || !std::iswdigit(text[0])) {
        return false;
    }
    wchar_t* end = nullptr;
    errno = 0;
    value = std::wcstoll(text.c_str(), &end, 10);
    return errno == 0 && *end == L'\0' && value >= 1 && value <= limit;
}

// A positive decimal number up to `limit`, such as 30 or 29.97; no sign, no exponent.
bool ParsePositiveNumber(const std::wstring& text, double limit, double& value) {
    if (text.empty() || text.find_first_not_of(L"0123456789.") != std::wstring::npos) {
        return false;
    }
    wchar_t* end = nullptr;
    value = std::wcstod(text.c_str(), &end);
    return *end == L'\0' && std::isfinite(value) && value > 0.0 && value <= limit;
}

// WxH with a lower- or upper-case x, both parts positive.
bool ParseSize(const std::wstring& text, int32_t& width, int32_t& height) {
    const size_t x = text.find_first_of(L"xX");
    long long w = 0;
    long long h = 0;
    if (x == std::wstring::npos || !ParsePositiveInteger(text.substr(0, x), kMaxDimension, w) ||
        !ParsePositiveInteger(text.substr(x + 1), kMaxDimension, h)) {
        return false;
    }
    width = static_cast<int32_t>(w);
    height = static_cast<int32_t>(h);
    return true;
}

bool Fail(std::string& error, const std::string& text) {
    error = text;
    return false;
}

// Reads the value of one option that takes one. False with `error` set on a bad value.
bool ParseOptionValue(const std::wstring& option, const std::wstring& value,
                      CaptureArguments& parsed, std::string& error) {
    if (option == L"--format") {
        parsed.hasFormat = ParsePixelFormatName(value, parsed.format);
        return parsed.hasFormat || Fail(error, "unknown pixel format " + ToUtf8(value));
    }
    if (option == L"--size") {
        parsed.hasSize = ParseSize(value, parsed.width, parsed.height);
        return parsed.hasSize ||
               Fail(error, "--size takes WIDTHxHEIGHT in pixels, not " + ToUtf8(value));
    }
    if (option == L"--rate") {
        double rate = 0.0;
        parsed.hasRate = ParsePositiveNumber(value, kMaxRate, rate);
        parsed.rate = static_cast<float>(rate);
        return parsed.hasRate ||
               Fail(error,
                    "--rate takes a positive number of frames per second, not " + ToUtf8(value));
    }
    if (option == L"--frames") {
        long long frames = 0;
        if (!ParsePositiveInteger(value, kMaxFrames, frames)) {
            return Fail(error, "--frames takes a positive whole number, not " + ToUtf8(value));
        }
        parsed.frames = frames;
        return true;
    }
    if (option == L"--snapshot") {
        parsed.snapshotPath = value;
        return !value.empty() || Fail(error, "--snapshot takes a file name");
    }
    // --seconds, the last option with a value.
    if (!ParsePositiveNumber(value, kMaxSeconds, parsed.seconds)) {
        return Fail(error, "--seconds takes a positive number of seconds, not " + ToUtf8(value));
    }
    return true;
}

bool TakesValue(const std::wstring& option) {
    return option == L"--format" || option == L"--size" || option == L"--rate" ||
           option == L"--frames" || option == L"--seconds" || option == L"--snapshot";
}

}  // namespace

bool ParsePixelFormatName(const std::wstring& text, DShow::VideoPixelFormat& format) {
    const std::wstring upper = Upper(text);
    for (const FormatAlias& alias : kFourCcAliases) {
        if (upper == alias.name) {
            format = alias.format;
            return true;
        }
    }
    // Format 0 is UNKNOWN: a name, but never a format to ask a device for.
    for (int32_t value = 1; value <= DShow::PIXEL_FORMAT_MAX; ++value) {
        const wchar_t* name =
            DShow::GetPixelFormatWideName(static_cast<DShow::VideoPixelFormat>(value));
        if (name[0] != L'\0' && upper == name) {
            format = static_cast<DShow::VideoPixelFormat>(value);
            return true;
        }
    }
    return false;
}

bool ParseCaptureArguments(const std::vector<std::wstring>& arguments, CaptureArguments& parsed,
                           std::string& error) {
    bool framesGiven = false;
    bool secondsGiven = false;
    std::vector<std::wstring> positional;
    for (size_t index = 0; index < arguments.size(); ++index) {
        const std::wstring& argument = arguments[index];
        if (argument == L"--json") {
            parsed.json = true;
        } else if (argument == L"--properties") {
            parsed.properties = true;
        } else if (argument == L"--no-mjpeg-decoder") {
            parsed.mjpegDecoder = false;
        } else if (argument == L"--help" || argument == L"-h") {
            parsed.help = true;
        } else if (TakesValue(argument)) {
            if (index + 1 == arguments.size()) {
                return Fail(error, ToUtf8(argument) + " needs a value");
            }
            if (!ParseOptionValue(argument, arguments[++index], parsed, error)) {
                return false;
            }
            framesGiven = framesGiven || argument == L"--frames";
            secondsGiven = secondsGiven || argument == L"--seconds";
        } else if (argument.rfind(L"-", 0) == 0) {
            return Fail(error, "unknown option " + ToUtf8(argument));
        } else {
            positional.push_back(argument);
        }
    }
    if (framesGiven && secondsGiven) {
        return Fail(error, "--frames and --seconds cannot be given together");
    }
    if (parsed.properties && !framesGiven && !secondsGiven) {
        parsed.frames = 0;
    }
    if (parsed.help) {
        return true;
    }
    if (positional.size() != 1) {
        return Fail(error, positional.empty() ? "expected a device id"
                                              : "expected one device id, got " +
                                                    std::to_string(positional.size()) + " words");
    }
    parsed.deviceId = positional[0];
    return true;
}

}  // namespace CaptureTool
