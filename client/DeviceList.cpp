#include "client/DeviceList.h"

#include "protocol/QueryProtocol.h"

namespace QueryClient {

namespace {

std::vector<std::wstring> SplitLines(const std::vector<uint8_t>& bytes, std::wstring* rest) {
    std::vector<std::wstring> lines;
    std::wstring line;
    for (size_t offset = 0; offset + 1 < bytes.size(); offset += 2) {
        const wchar_t unit = static_cast<wchar_t>(bytes[offset] | (bytes[offset + 1] << 8));
        if (unit == QueryProtocol::kLineEnd) {
            lines.push_back(std::move(line));
            line.clear();
        } else {
            line.push_back(unit);
        }
    }
    *rest = std::move(line);
    return lines;
}

void AppendUnit(std::vector<uint8_t>& bytes, wchar_t unit) {
    bytes.push_back(static_cast<uint8_t>(unit & 0xFF));
    bytes.push_back(static_cast<uint8_t>((unit >> 8) & 0xFF));
}

void AppendLine(std::vector<uint8_t>& bytes, const std::wstring& text) {
    for (wchar_t unit : text) {
        AppendUnit(bytes, unit);
    }
    AppendUnit(bytes, QueryProtocol::kLineEnd);
}

}  // namespace

DeviceListDecoding DecodeDeviceList(const std::vector<uint8_t>& bytes) {
    DeviceListDecoding decoding;
    std::wstring rest;
    const std::vector<std::wstring> lines = SplitLines(bytes, &rest);
    for (size_t index = 0; index + 1 < lines.size(); index += 2) {
        decoding.devices.push_back(Device{lines[index], lines[index + 1]});
    }
    if (bytes.size() % 2 != 0) {
        decoding.complete = false;
        decoding.problem = "the reply ends in the middle of a UTF-16 unit";
    } else if (!rest.empty()) {
        decoding.complete = false;
        decoding.problem = "the reply ends in the middle of a line";
    } else if (lines.size() % 2 != 0) {
        decoding.complete = false;
        decoding.problem = "the reply ends after an id line without its name line";
    }
    return decoding;
}

std::vector<uint8_t> EncodeDeviceList(const std::vector<Device>& devices) {
    std::vector<uint8_t> bytes;
    for (const Device& device : devices) {
        AppendLine(bytes, device.id);
        AppendLine(bytes, device.name);
    }
    return bytes;
}

}  // namespace QueryClient
