#pragma once

#include <string>

namespace QueryClient {

// UTF-16 to UTF-8 and back; unpaired surrogates and invalid bytes become U+FFFD.
std::string ToUtf8(const std::wstring& text);
std::wstring FromUtf8(const std::string& text);

}  // namespace QueryClient
