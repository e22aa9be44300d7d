#include "tools/QueryTool/ToolOutput.h"

#include "protocol/QueryProtocol.h"

#include <windows.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <map>

namespace QueryTool {

std::string JsonString(const std::wstring& text) {
    std::string json = "\"";
    for (char byte : ToUtf8(text)) {
        const unsigned char unit = static_cast<unsigned char>(byte);
        if (byte == '"' || byte == '\\') {
            json += '\\';
            json += byte;
        } else if (unit < 0x20) {
            char escaped[8];
            snprintf(escaped, sizeof(escaped), "\\u%04x", unit);
            json += escaped;
        } else {
            json += byte;
        }
    }
    return json + "\"";
}

std::string DeviceTable(const std::vector<QueryClient::Device>& devices) {
    if (devices.empty()) {
        return "No devices found.\n";
    }
    size_t nameWidth = 4;
    for (const QueryClient::Device& device : devices) {
        nameWidth = std::max(nameWidth, ToUtf8(device.name).size());
    }
    std::string table = "NAME" + std::string(nameWidth - 4 + 2, ' ') + "ID\n";
    for (const QueryClient::Device& device : devices) {
        const std::string name = ToUtf8(device.name);
        table += name + std::string(nameWidth - name.size() + 2, ' ') + ToUtf8(device.id) + "\n";
    }
    return table;
}

std::string DeviceJson(const std::vector<QueryClient::Device>& devices) {
    std::string json = "[";
    for (size_t index = 0; index < devices.size(); ++index) {
        json += index == 0 ? "" : ", ";
        json += "{\"id\": " + JsonString(devices[index].id) +
                ", \"name\": " + JsonString(devices[index].name) + "}";
    }
    return json + "]\n";
}

namespace {

std::string SizeText(int32_t cx, int32_t cy) {
    return std::to_string(cx) + "x" + std::to_string(cy);
}

std::string RateText(double rate) {
    char text[32];
    snprintf(text, sizeof(text), "%.3f", rate);
    return text;
}

std::string Column(const std::string& text, size_t width) {
    return text.size() >= width ? text + " " : text + std::string(width - text.size(), ' ');
}

// As the format reply prints a rate: "%.17g", made with std::to_chars so that the text does not
// depend on how a C runtime rounds.
constexpr int kRateDigits = 17;

std::string JsonNumber(double value) {
    char text[40];
    const std::to_chars_result result =
        std::to_chars(text, text + sizeof(text), value, std::chars_format::general, kRateDigits);
    return std::string(text, result.ptr);
}

std::string JsonNumber(int32_t value) {
    return std::to_string(value);
}

constexpr char kFormatNameKey[] = "format_name";

}  // namespace

std::string ProblemTable(const std::vector<QueryClient::ProblemDevices::Entry>& entries) {
    if (entries.empty()) {
        return "No problem devices remembered.\n";
    }
    std::string table = Column("OUTCOME", 30) + "ID\n";
    for (const QueryClient::ProblemDevices::Entry& entry : entries) {
        table += Column(entry.outcome, 30) + ToUtf8(entry.id) + "\n";
    }
    return table;
}

std::string PixelFormatLabel(int32_t format) {
    const std::string name = QueryProtocol::PixelFormatNameOf(format);
    return name.empty() ? "#" + std::to_string(format) : name;
}

std::string ModeTable(const std::vector<QueryClient::Mode>& modes) {
    if (modes.empty()) {
        return "No modes found.\n";
    }
    std::string table = Column("FORMAT", 9) + Column("SIZE", 12) + Column("RATE", 10) +
                        Column("RATE RANGE", 20) + "OUTPUT SIZES\n";
    for (const QueryClient::Mode& mode : modes) {
        table += Column(PixelFormatLabel(mode.format), 9) +
                 Column(SizeText(mode.size_x, mode.size_y), 12) + Column(RateText(mode.rate), 10) +
                 Column(RateText(mode.minRate) + "-" + RateText(mode.maxRate), 20) +
                 SizeText(mode.minSize_cx, mode.minSize_cy) + "-" +
                 SizeText(mode.maxSize_cx, mode.maxSize_cy) + "\n";
    }
    return table;
}

std::string ModeJson(const QueryClient::Mode& mode) {
    // Sorted like the reply's keys; "format_name" falls right after "format".
    const std::map<std::string, std::string> members = {
        {QueryProtocol::kModeFlip, JsonNumber(mode.flip)},
        {QueryProtocol::kModeFormat, JsonNumber(mode.format)},
        {kFormatNameKey, JsonString(QueryProtocol::PixelFormatWideNameOf(mode.format))},
        {QueryProtocol::kModeRate, JsonNumber(mode.rate)},
        {QueryProtocol::kModeMinRate, JsonNumber(mode.minRate)},
        {QueryProtocol::kModeMaxRate, JsonNumber(mode.maxRate)},
        {QueryProtocol::kModeSizeX, JsonNumber(mode.size_x)},
        {QueryProtocol::kModeSizeY, JsonNumber(mode.size_y)},
        {QueryProtocol::kModeScaleX, JsonNumber(mode.scale_x)},
        {QueryProtocol::kModeScaleY, JsonNumber(mode.scale_y)},
        {QueryProtocol::kModeMinSizeCx, JsonNumber(mode.minSize_cx)},
        {QueryProtocol::kModeMinSizeCy, JsonNumber(mode.minSize_cy)},
        {QueryProtocol::kModeMaxSizeCx, JsonNumber(mode.maxSize_cx)},
        {QueryProtocol::kModeMaxSizeCy, JsonNumber(mode.maxSize_cy)},
    };
    std::string json = "{";
    for (const auto& member : members) {
        json += json.size() == 1 ? "" : ", ";
        json += "\"" + member.first + "\": " + member.second;
    }
    return json + "}";
}

std::string ModesJson(const std::vector<QueryClient::Mode>& modes) {
    std::string json = "[";
    for (size_t index = 0; index < modes.size(); ++index) {
        json += index == 0 ? "" : ", ";
        json += ModeJson(modes[index]);
    }
    return json + "]";
}

bool ListsDevice(const std::vector<QueryClient::Device>& devices, const std::wstring& id) {
    return std::any_of(devices.begin(), devices.end(),
                       [&id](const QueryClient::Device& device) { return device.id == id; });
}

std::string UnknownDeviceText(const std::wstring& id) {
    return "no video capture device has the id " + JsonString(id);
}

}  // namespace QueryTool
