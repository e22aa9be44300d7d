#include "server/DeviceListReply.h"

#include "protocol/QueryProtocol.h"

#include <string>

namespace QueryServer {

namespace {

bool SendLine(ReplyChannel& channel, const std::wstring& text) {
    const std::wstring line = text + QueryProtocol::kLineEnd;
    const uint32_t size = static_cast<uint32_t>(line.size() * sizeof(wchar_t));
    return channel.Write(line.data(), size);
}

}  // namespace

void SendDeviceList(ReplyChannel& channel, const std::vector<DShow::VideoDevice>& devices) {
    for (const DShow::VideoDevice& device : devices) {
        if (!SendLine(channel, device.id) || !SendLine(channel, device.name)) {
            return;
        }
    }
}

}  // namespace QueryServer
