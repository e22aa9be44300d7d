#include "server/CommandLine.h"

#include "protocol/QueryProtocol.h"

namespace QueryServer {

using TinyFramework::TinyArray;
using TinyFramework::TinyStringW;

namespace {

constexpr wchar_t kSeparator = QueryProtocol::kKeyValueSeparator;
constexpr wchar_t kTrimmed[] = L" ";
constexpr int32_t kTokensOfAKeyValue = 2;

}  // namespace

void SplitArgument(const TinyStringW& argument, TinyArray<TinyStringW>& tokens) {
    const size_t length = argument.GetSize();
    size_t start = 0;
    for (size_t index = 0; index <= length; ++index) {
        if (index < length && argument[index] != kSeparator) {
            continue;
        }
        const size_t count = index - start;
        if (count == 0) {
            continue;  // an empty field: its '=' stays for the next token
        }
        TinyStringW token = argument.Substring(start, count);
        token.Trim(kTrimmed);
        tokens.Add(std::move(token));
        start = index + 1;
    }
}

void ReadArguments(int argc, const wchar_t* const* argv, QueryArguments& arguments) {
    for (int index = 0; index < argc; ++index) {
        TinyArray<TinyStringW> tokens;
        SplitArgument(TinyStringW(argv[index]), tokens);
        if (tokens.GetSize() != kTokensOfAKeyValue) {
            continue;
        }
        const TinyStringW& key = tokens[0];
        if (key.Compare(QueryProtocol::kKeyMethod) == 0) {
            arguments.method = tokens[1];
        }
        if (key.Compare(QueryProtocol::kKeyDeviceId) == 0) {
            arguments.device_id = tokens[1];
        }
        if (key.Compare(QueryProtocol::kKeyDeviceName) == 0) {
            arguments.device_name = tokens[1];
        }
        if (key.Compare(QueryProtocol::kKeyId) == 0) {
            arguments.id = tokens[1];
        }
    }
}

}  // namespace QueryServer
