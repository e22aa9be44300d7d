#pragma once

// The names and methods that the query server and its parent share. The value of `id` follows
// each prefix directly.
namespace QueryProtocol {

constexpr wchar_t kPipeNamePrefix[] = L"\\\\.\\pipe\\71FADDA3-07A6-021F-DBE6-15012EFB1791-";
constexpr wchar_t kEventNamePrefix[] = L"Global\\C49E4172-B9F8-22EA-5052-D226B8741074-";

constexpr wchar_t kMethodVideoDevices[] = L"GetVideoDevices";
constexpr wchar_t kMethodAnalogDevices[] = L"GetAnalogDevices";
constexpr wchar_t kMethodDeviceFormats[] = L"GetVideoDeviceFormats";

constexpr wchar_t kKeyMethod[] = L"method";
constexpr wchar_t kKeyDeviceId[] = L"device_id";
constexpr wchar_t kKeyDeviceName[] = L"device_name";
constexpr wchar_t kKeyId[] = L"id";

// Device lists are UTF-16LE lines, id and name in turn, each ended by this unit.
constexpr wchar_t kLineEnd = L'\n';

}  // namespace QueryProtocol
