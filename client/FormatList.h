#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace QueryClient {

// One mode of a device, as the format reply carries it.
struct Mode {
    int32_t flip = 0;
    int32_t format = 0;  // the pixel format's wire value: QueryProtocol::kPixelFormat...
    double rate = 0;
    double minRate = 0;
    double maxRate = 0;
    int32_t size_x = 0;
    int32_t size_y = 0;  // negative for a top-down frame
    int32_t scale_x = 0;
    int32_t scale_y = 0;
    int32_t minSize_cx = 0;
    int32_t minSize_cy = 0;
    int32_t maxSize_cx = 0;
    int32_t maxSize_cy = 0;
};

struct FormatListDecoding {
    std::vector<Mode> modes;
    bool complete = false;
    std::string problem;  // what is wrong with the text, when not complete
};

// Decodes the format reply: one JSON array of objects with the 13 numeric keys. Anything else,
// a cut text included, is not complete and says why.
FormatListDecoding DecodeFormatList(const std::string& json);

}  // namespace QueryClient
