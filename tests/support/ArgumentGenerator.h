#pragma once

#include <map>
#include <random>
#include <string>
#include <vector>

// Random command lines for the query server, and a model of how it reads them.
namespace ArgumentGenerator {

// A program path followed by 0 to 6 arguments made of keys, values, '=', spaces, tabs, empty
// strings, long strings and non-ASCII text. Never a NUL, which no command line can carry.
std::vector<std::wstring> CommandLine(std::mt19937& random);

// The tokens of one argument as the server cuts it: fields between '=', an empty field giving
// its '=' to the next token, each token trimmed of spaces.
std::vector<std::wstring> ModelTokens(const std::wstring& argument);

// The value of each known key after the whole command line: only two-token arguments count, the
// last one wins.
std::map<std::wstring, std::wstring> ModelValues(const std::vector<std::wstring>& argv);

}  // namespace ArgumentGenerator
