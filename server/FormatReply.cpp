#include "server/FormatReply.h"

#include "protocol/QueryProtocol.h"
#include "server/JsonText.h"

namespace QueryServer {

namespace {

std::string FormatToJson(const DShow::VideoFormat& format) {
    JsonObject object;
    object.SetInteger(QueryProtocol::kModeFlip, format.GetFlip());
    object.SetInteger(QueryProtocol::kModeFormat, format.format);
    object.SetDouble(QueryProtocol::kModeRate, format.rate);
    object.SetDouble(QueryProtocol::kModeMinRate, format.minRate);
    object.SetDouble(QueryProtocol::kModeMaxRate, format.maxRate);
    object.SetInteger(QueryProtocol::kModeSizeX, format.size.cx);
    object.SetInteger(QueryProtocol::kModeSizeY, format.size.cy);
    object.SetInteger(QueryProtocol::kModeScaleX, format.scale.cx);
    object.SetInteger(QueryProtocol::kModeScaleY, format.scale.cy);
    object.SetInteger(QueryProtocol::kModeMinSizeCx, format.minSize.cx);
    object.SetInteger(QueryProtocol::kModeMinSizeCy, format.minSize.cy);
    object.SetInteger(QueryProtocol::kModeMaxSizeCx, format.maxSize.cx);
    object.SetInteger(QueryProtocol::kModeMaxSizeCy, format.maxSize.cy);
    return object.Dump();
}

}  // namespace

std::string FormatsToJson(const std::vector<DShow::VideoFormat>& formats) {
    std::vector<std::string> objects;
    objects.reserve(formats.size());
    for (const DShow::VideoFormat& format : formats) {
        objects.push_back(FormatToJson(format));
    }
    return JsonArray(objects);
}

}  // namespace QueryServer
