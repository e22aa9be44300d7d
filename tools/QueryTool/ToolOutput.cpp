#include "tools/QueryTool/ToolOutput.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>

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
    const std::string name = QueryClient::PixelFormatName(format);
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

}  // namespace QueryTool
