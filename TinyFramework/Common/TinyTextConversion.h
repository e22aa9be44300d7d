#pragma once

#include <string>

namespace TinyFramework {

// UTF-16 to UTF-8 and back, for text that leaves the program (files, consoles, JSON); unpaired
// surrogates and invalid bytes become U+FFFD.
std::string ToUtf8(const std::wstring& text);
std::wstring FromUtf8(const std::string& text);

}  // namespace TinyFramework
