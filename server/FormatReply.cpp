#include "server/FormatReply.h"

#include "server/JsonText.h"

namespace QueryServer {

namespace {

std::string FormatToJson(const DShow::VideoFormat& format) {
    JsonObject object;
    object.SetInteger("flip", format.flip);
    object.SetInteger("format", format.format);
    object.SetDouble("rate", format.rate);
    object.SetDouble("minRate", format.minRate);
    object.SetDouble("maxRate", format.maxRate);
    object.SetInteger("size_x", format.size.cx);
    object.SetInteger("size_y", format.size.cy);
    object.SetInteger("scale_x", format.scale.cx);
    object.SetInteger("scale_y", format.scale.cy);
    object.SetInteger("minSize_cx", format.minSize.cx);
    object.SetInteger("minSize_cy", format.minSize.cy);
    object.SetInteger("maxSize_cx", format.maxSize.cx);
    object.SetInteger("maxSize_cy", format.maxSize.cy);
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
