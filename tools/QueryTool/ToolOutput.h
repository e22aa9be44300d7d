#pragma once

#include "client/DeviceList.h"
#include "client/FormatList.h"

#include <string>
#include <vector>

namespace QueryTool {

std::string ToUtf8(const std::wstring& text);
// A JSON string literal of the text, escaped as JSON requires.
std::string JsonString(const std::wstring& text);

std::string DeviceTable(const std::vector<QueryClient::Device>& devices);
std::string DeviceJson(const std::vector<QueryClient::Device>& devices);

std::string ModeTable(const std::vector<QueryClient::Mode>& modes);
// The pixel format's name, or "#<value>" for a value without one.
std::string PixelFormatLabel(int32_t format);

}  // namespace QueryTool
