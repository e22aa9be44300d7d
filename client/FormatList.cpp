#include "client/FormatList.h"

#include <nlohmann/json.hpp>

#include <cmath>
#include <limits>

namespace QueryClient {

namespace {

using Json = nlohmann::json;

bool ReadInteger(const Json& object, const char* key, int32_t* value, std::string* problem) {
    const auto member = object.find(key);
    if (member == object.end() || !member->is_number_integer()) {
        *problem = std::string("a mode has no integer \"") + key + "\"";
        return false;
    }
    const int64_t number = member->get<int64_t>();
    if (number < std::numeric_limits<int32_t>::min() ||
        number > std::numeric_limits<int32_t>::max()) {
        *problem = std::string("\"") + key + "\" is out of range";
        return false;
    }
    *value = static_cast<int32_t>(number);
    return true;
}

bool ReadNumber(const Json& object, const char* key, double* value, std::string* problem) {
    const auto member = object.find(key);
    if (member == object.end() || !member->is_number()) {
        *problem = std::string("a mode has no number \"") + key + "\"";
        return false;
    }
    *value = member->get<double>();
    return true;
}

bool ReadMode(const Json& object, Mode* mode, std::string* problem) {
    if (!object.is_object()) {
        *problem = "an element of the array is not an object";
        return false;
    }
    return ReadInteger(object, "flip", &mode->flip, problem) &&
           ReadInteger(object, "format", &mode->format, problem) &&
           ReadNumber(object, "rate", &mode->rate, problem) &&
           ReadNumber(object, "minRate", &mode->minRate, problem) &&
           ReadNumber(object, "maxRate", &mode->maxRate, problem) &&
           ReadInteger(object, "size_x", &mode->size_x, problem) &&
           ReadInteger(object, "size_y", &mode->size_y, problem) &&
           ReadInteger(object, "scale_x", &mode->scale_x, problem) &&
           ReadInteger(object, "scale_y", &mode->scale_y, problem) &&
           ReadInteger(object, "minSize_cx", &mode->minSize_cx, problem) &&
           ReadInteger(object, "minSize_cy", &mode->minSize_cy, problem) &&
           ReadInteger(object, "maxSize_cx", &mode->maxSize_cx, problem) &&
           ReadInteger(object, "maxSize_cy", &mode->maxSize_cy, problem);
}

}  // namespace

FormatListDecoding DecodeFormatList(const std::string& json) {
    FormatListDecoding decoding;
    const Json document = Json::parse(json, nullptr, false);
    if (document.is_discarded()) {
        decoding.problem = json.empty() ? "the reply is empty" : "the reply is not valid JSON";
        return decoding;
    }
    if (!document.is_array()) {
        decoding.problem = "the reply is not a JSON array";
        return decoding;
    }
    for (const Json& element : document) {
        Mode mode;
        if (!ReadMode(element, &mode, &decoding.problem)) {
            return decoding;
        }
        decoding.modes.push_back(mode);
    }
    decoding.complete = true;
    return decoding;
}

const char* PixelFormatName(int32_t format) {
    switch (format) {
        case 0:
            return "UNKNOWN";
        case 1:
            return "I420";
        case 2:
            return "YV12";
        case 3:
            return "NV12";
        case 5:
            return "UYUY";
        case 6:
            return "YUY2";
        case 9:
            return "RGB24";
        case 10:
            return "RGBA";
        case 11:
            return "BGR24";
        case 12:
            return "BGRA";
        case 13:
            return "MJPEG";
        case 24:
            return "NV12_MS";
        default:
            return "";
    }
}

}  // namespace QueryClient
