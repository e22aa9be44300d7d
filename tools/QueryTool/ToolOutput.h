#pragma once

#include "client/DeviceList.h"

#include <string>
#include <vector>

namespace QueryTool {

std::string ToUtf8(const std::wstring& text);
// A JSON string literal of the text, escaped as JSON requires.
std::string JsonString(const std::wstring& text);

std::string DeviceTable(const std::vector<QueryClient::Device>& devices);
std::string DeviceJson(const std::vector<QueryClient::Device>& devices);

}  // namespace QueryTool
