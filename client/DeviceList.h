#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace QueryClient {

struct Device {
    std::wstring id;
    std::wstring name;
};

struct DeviceListDecoding {
    std::vector<Device> devices;  // every complete id and name pair, in stream order
    bool complete = true;         // false when the stream was cut anywhere
    std::string problem;          // what was wrong with it, when not complete
};

// Splits a device-list reply (UTF-16LE lines, id and name in turn, each ended by U+000A) into
// devices. A stream cut in a UTF-16 unit, in a line, or after an id line keeps the devices before
// the cut and says what was cut.
DeviceListDecoding DecodeDeviceList(const std::vector<uint8_t>& bytes);

// The reverse, as the server writes it; for tests and tools.
std::vector<uint8_t> EncodeDeviceList(const std::vector<Device>& devices);

}  // namespace QueryClient
