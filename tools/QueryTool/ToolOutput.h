#pragma once

#include "client/DeviceList.h"
#include "client/FormatList.h"
#include "client/ProblemDevices.h"
#include "client/TextConversion.h"

#include <string>
#include <vector>

namespace QueryTool {

using QueryClient::ToUtf8;
// A JSON string literal of the text, escaped as JSON requires.
std::string JsonString(const std::wstring& text);

std::string DeviceTable(const std::vector<QueryClient::Device>& devices);
std::string DeviceJson(const std::vector<QueryClient::Device>& devices);

std::string ProblemTable(const std::vector<QueryClient::ProblemDevices::Entry>& entries);
std::string ModeTable(const std::vector<QueryClient::Mode>& modes);
// The pixel format's name, or "#<value>" for a value without one.
std::string PixelFormatLabel(int32_t format);

}  // namespace QueryTool
