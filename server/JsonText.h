#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace QueryServer {

// The JSON text of the format reply, in the exact form the parent has always received: objects
// with their keys in byte order, ", " between elements and pairs, ": " between key and value,
// integers as "%d" and doubles as "%.17g" (non-finite doubles as null). Numbers are made with
// std::to_chars, so the text does not depend on how a C runtime rounds.
std::string JsonInteger(int32_t value);
std::string JsonDouble(double value);
std::string JsonQuoted(const std::string& text);

// An object under construction: values are dumped as they are set; keys come out sorted
// whatever the order of insertion.
class JsonObject {
public:
    void SetInteger(const std::string& key, int32_t value);
    void SetDouble(const std::string& key, double value);
    std::string Dump() const;

private:
    std::map<std::string, std::string> m_members;
};

// "[" elements joined by ", " "]"; "[]" for none.
std::string JsonArray(const std::vector<std::string>& dumpedElements);

}  // namespace QueryServer
