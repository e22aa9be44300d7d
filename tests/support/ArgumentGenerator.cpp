#include "tests/support/ArgumentGenerator.h"

#include "protocol/QueryProtocol.h"

namespace ArgumentGenerator {

namespace {

const wchar_t* const kKeys[] = {QueryProtocol::kKeyMethod, QueryProtocol::kKeyDeviceId,
                                QueryProtocol::kKeyDeviceName, QueryProtocol::kKeyId};

const wchar_t* const kPieces[] = {
    QueryProtocol::kKeyMethod,
    QueryProtocol::kKeyDeviceId,
    QueryProtocol::kKeyDeviceName,
    QueryProtocol::kKeyId,
    L"Method",
    L"ID",
    L"x",
    L"",
    L"=",
    L"==",
    L" ",
    L"  ",
    L"\t",
    L"\n",
    L"\"",
    L"\\",
    L"\\\"",
    QueryProtocol::kMethodVideoDevices,
    QueryProtocol::kMethodAnalogDevices,
    QueryProtocol::kMethodDeviceFormats,
    L"getvideodevices",
    L"7",
    L"\u00e9t\u00e9",
    L"\u6444\u50cf\u5934",
    L"\xD83D\xDCF7",
    L"\\\\?\\usb#vid_046d",
};

std::wstring Piece(std::mt19937& random) {
    std::uniform_int_distribution<int> choice(0, 29);
    const int pick = choice(random);
    const int pieces = static_cast<int>(sizeof(kPieces) / sizeof(kPieces[0]));
    if (pick < pieces) {
        return kPieces[pick];
    }
    if (pick == pieces) {
        return std::wstring(std::uniform_int_distribution<int>(100, 3000)(random), L'a');
    }
    std::wstring text;
    const int length = std::uniform_int_distribution<int>(1, 8)(random);
    for (int index = 0; index < length; ++index) {
        text.push_back(
            static_cast<wchar_t>(std::uniform_int_distribution<int>(0x20, 0x7E)(random)));
    }
    return text;
}

std::wstring TrimSpaces(const std::wstring& text) {
    const size_t first = text.find_first_not_of(L' ');
    if (first == std::wstring::npos) {
        return std::wstring();
    }
    return text.substr(first, text.find_last_not_of(L' ') - first + 1);
}

}  // namespace

std::vector<std::wstring> CommandLine(std::mt19937& random) {
    std::vector<std::wstring> argv = {L"QueryServer.exe"};
    const int count = std::uniform_int_distribution<int>(0, 6)(random);
    for (int index = 0; index < count; ++index) {
        std::wstring argument;
        if (std::uniform_int_distribution<int>(0, 1)(random) == 0) {
            // Shaped like a real argument, so that the known keys are reached often.
            argument = std::wstring(std::uniform_int_distribution<int>(0, 1)(random), L' ') +
                       kKeys[std::uniform_int_distribution<int>(0, 3)(random)] +
                       QueryProtocol::kKeyValueSeparator;
        }
        const int pieces = std::uniform_int_distribution<int>(0, 5)(random);
        for (int piece = 0; piece < pieces; ++piece) {
            argument += Piece(random);
        }
        argv.push_back(argument);
    }
    return argv;
}

std::vector<std::wstring> ModelTokens(const std::wstring& argument) {
    std::vector<std::wstring> tokens;
    std::wstring current;
    for (wchar_t unit : argument) {
        if (unit != QueryProtocol::kKeyValueSeparator) {
            current.push_back(unit);
        } else if (current.empty()) {
            current.push_back(unit);  // an empty field: this '=' opens the next token
        } else {
            tokens.push_back(TrimSpaces(current));
            current.clear();
        }
    }
    if (!current.empty()) {
        tokens.push_back(TrimSpaces(current));
    }
    return tokens;
}

std::map<std::wstring, std::wstring> ModelValues(const std::vector<std::wstring>& argv) {
    std::map<std::wstring, std::wstring> values;
    for (const std::wstring& argument : argv) {
        const std::vector<std::wstring> tokens = ModelTokens(argument);
        if (tokens.size() != 2) {
            continue;
        }
        for (const wchar_t* key : kKeys) {
            if (tokens[0] == key) {
                values[tokens[0]] = tokens[1];
            }
        }
    }
    return values;
}

}  // namespace ArgumentGenerator
