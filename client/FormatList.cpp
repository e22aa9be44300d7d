#include "client/FormatList.h"

#include "protocol/QueryProtocol.h"

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
    return ReadInteger(object, QueryProtocol::kModeFlip, &mode->flip, problem) &&
           ReadInteger(object, QueryProtocol::kModeFormat, &mode->format, problem) &&
           ReadNumber(object, QueryProtocol::kModeRate, &mode->rate, problem) &&
           ReadNumber(object, QueryProtocol::kModeMinRate, &mode->minRate, problem) &&
           ReadNumber(object, QueryProtocol::kModeMaxRate, &mode->maxRate, problem) &&
           ReadInteger(object, QueryProtocol::kModeSizeX, &mode->size_x, problem) &&
           ReadInteger(object, QueryProtocol::kModeSizeY, &mode->size_y, problem) &&
           ReadInteger(object, QueryProtocol::kModeScaleX, &mode->scale_x, problem) &&
           ReadInteger(object, QueryProtocol::kModeScaleY, &mode->scale_y, problem) &&
           ReadInteger(object, QueryProtocol::kModeMinSizeCx, &mode->minSize_cx, problem) &&
           ReadInteger(object, QueryProtocol::kModeMinSizeCy, &mode->minSize_cy, problem) &&
           ReadInteger(object, QueryProtocol::kModeMaxSizeCx, &mode->maxSize_cx, problem) &&
           ReadInteger(object, QueryProtocol::kModeMaxSizeCy, &mode->maxSize_cy, problem);
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

}  // namespace QueryClient
