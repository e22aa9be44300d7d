#pragma once

#include "DShowCapture/VideoFormat.h"

#include <string>
#include <vector>

namespace QueryServer {

// The format reply: one JSON array with an object of 13 numbers for each mode, in list order.
std::string FormatsToJson(const std::vector<DShow::VideoFormat>& formats);

}  // namespace QueryServer
