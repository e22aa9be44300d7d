#pragma once

#include "TinyFramework/Common/TinyArray.h"
#include "TinyFramework/Common/TinyString.h"

namespace QueryServer {

// The four values a parent can pass, all empty unless an argument sets them.
struct QueryArguments {
    TinyFramework::TinyStringW method;
    TinyFramework::TinyStringW device_id;
    TinyFramework::TinyStringW device_name;
    TinyFramework::TinyStringW id;
};

// Cuts one argument at '=' into tokens trimmed of spaces. An empty field does not move the start
// of the next token, so its '=' becomes part of that token: "a==b" gives "a" and "=b".
void SplitArgument(const TinyFramework::TinyStringW& argument,
                   TinyFramework::TinyArray<TinyFramework::TinyStringW>& tokens);

// Reads every argument, the program's own path included. Only arguments of exactly two tokens
// count; the last usable one of a key wins; unknown keys are ignored.
void ReadArguments(int argc, const wchar_t* const* argv, QueryArguments& arguments);

}  // namespace QueryServer
