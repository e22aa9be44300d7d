#include "client/SystemErrorText.h"

#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/Common/TinyTextConversion.h"

namespace QueryClient {

namespace {

// Comfortably more than the longest system message.
constexpr DWORD kTextUnits = 1024;
// Whatever language the thread's user prefers, as the system chooses it.
constexpr DWORD kDefaultLanguage = 0;

bool EndsInBlank(const std::wstring& text) {
    const wchar_t last = text.back();
    return last == L'\r' || last == L'\n' || last == L' ';
}

}  // namespace

std::string SystemErrorText(DWORD error) {
    wchar_t buffer[kTextUnits];
    const DWORD length =
        FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, error,
                       kDefaultLanguage, buffer, kTextUnits, nullptr);
    std::wstring text(buffer, length);
    while (!text.empty() && EndsInBlank(text)) {
        text.pop_back();
    }
    return text.empty() ? "unknown error" : TinyFramework::ToUtf8(text);
}

std::string DescribeFailure(const char* call, DWORD error) {
    return TinyFramework::StringPrintf("%s failed with error %lu: %s", call, error,
                                       SystemErrorText(error).c_str());
}

}  // namespace QueryClient
