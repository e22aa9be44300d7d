#include "server/JsonText.h"

#include <charconv>
#include <cmath>
#include <cstdio>

namespace QueryServer {

namespace {

// As "%.17g": 17 significant digits, trailing zeros dropped, exponent form for large or small.
constexpr int kDoublePrecision = 17;

}  // namespace

std::string JsonInteger(int32_t value) {
    char buffer[16];
    const std::to_chars_result result = std::to_chars(buffer, buffer + sizeof(buffer), value);
    return std::string(buffer, result.ptr);
}

std::string JsonDouble(double value) {
    if (!std::isfinite(value)) {
        return "null";
    }
    char buffer[40];
    const std::to_chars_result result = std::to_chars(buffer, buffer + sizeof(buffer), value,
                                                      std::chars_format::general, kDoublePrecision);
    return std::string(buffer, result.ptr);
}

std::string JsonQuoted(const std::string& text) {
    std::string quoted = "\"";
    for (char byte : text) {
        const unsigned char unit = static_cast<unsigned char>(byte);
        if (byte == '"' || byte == '\\') {
            quoted += '\\';
            quoted += byte;
        } else if (unit < 0x20) {
            char escaped[8];
            snprintf(escaped, sizeof(escaped), "\\u%04x", unit);
            quoted += escaped;
        } else {
            quoted += byte;
        }
    }
    return quoted + "\"";
}

void JsonObject::SetInteger(const std::string& key, int32_t value) {
    m_members[key] = JsonInteger(value);
}

void JsonObject::SetDouble(const std::string& key, double value) {
    m_members[key] = JsonDouble(value);
}

std::string JsonObject::Dump() const {
    std::string text = "{";
    bool first = true;
    for (const auto& member : m_members) {
        text += first ? "" : ", ";
        first = false;
        text += JsonQuoted(member.first) + ": " + member.second;
    }
    return text + "}";
}

std::string JsonArray(const std::vector<std::string>& dumpedElements) {
    std::string text = "[";
    for (size_t index = 0; index < dumpedElements.size(); ++index) {
        text += index == 0 ? "" : ", ";
        text += dumpedElements[index];
    }
    return text + "]";
}

}  // namespace QueryServer
