#pragma once

#include "client/DeviceList.h"
#include "client/FormatList.h"
#include "client/ProblemDevices.h"
#include "TinyFramework/Common/TinyTextConversion.h"

#include <string>
#include <vector>

namespace QueryTool {

using TinyFramework::ToUtf8;
// A JSON string literal of the text, escaped as JSON requires.
std::string JsonString(const std::wstring& text);

std::string DeviceTable(const std::vector<QueryClient::Device>& devices);
std::string DeviceJson(const std::vector<QueryClient::Device>& devices);

std::string ProblemTable(const std::vector<QueryClient::ProblemDevices::Entry>& entries);
std::string ModeTable(const std::vector<QueryClient::Mode>& modes);
// The pixel format's name, or "#<value>" for a value without one.
std::string PixelFormatLabel(int32_t format);

// A mode as the format reply has it, numbers in the same form, with "format_name" beside
// "format": the format's name, "" for a value without one.
std::string ModeJson(const QueryClient::Mode& mode);
std::string ModesJson(const std::vector<QueryClient::Mode>& modes);

bool ListsDevice(const std::vector<QueryClient::Device>& devices, const std::wstring& id);
// Said instead of an empty mode table when no device has the id asked for.
std::string UnknownDeviceText(const std::wstring& id);

}  // namespace QueryTool
