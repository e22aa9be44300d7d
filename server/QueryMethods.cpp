#include "server/QueryMethods.h"

#include "DShowCapture/DeviceEnumeration.h"
#include "DShowCapture/VideoCapture.h"
#include "server/DeviceListReply.h"
#include "server/FormatReply.h"

#include <string>
#include <vector>

namespace QueryServer {

// The result of each query is ignored on purpose: what was found, possibly nothing, is the reply.

void ReplyVideoDevices(ReplyChannel& channel) {
    std::vector<DShow::VideoDevice> devices;
    DShow::GetVideoDevices(devices);
    SendDeviceList(channel, devices);
}

void ReplyAnalogDevices(ReplyChannel& channel) {
    std::vector<DShow::VideoDevice> devices;
    DShow::GetAnalogDevices(devices);
    SendDeviceList(channel, devices);
}

void ReplyDeviceFormats(ReplyChannel& channel, const TinyFramework::TinyStringW& deviceId,
                        const TinyFramework::TinyStringW& deviceName) {
    const DShow::VideoDevice device(std::wstring(deviceName.GetBuffer()),
                                    std::wstring(deviceId.GetBuffer()));
    std::vector<DShow::VideoFormat> formats;
    DShow::VideoCapture::GetDeviceFormats(device, formats);
    const std::string text = FormatsToJson(formats);
    channel.Write(text.data(), static_cast<uint32_t>(text.size()));
}

}  // namespace QueryServer
