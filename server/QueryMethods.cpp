#include "server/QueryMethods.h"

namespace QueryServer {

// Device discovery is not wired in yet: every query finds nothing, so the parent reads an empty
// stream, as it would on a machine without capture devices.
void ReplyVideoDevices(ReplyChannel& /*channel*/) {}

void ReplyAnalogDevices(ReplyChannel& /*channel*/) {}

void ReplyDeviceFormats(ReplyChannel& /*channel*/, const TinyFramework::TinyStringW& /*deviceId*/,
                        const TinyFramework::TinyStringW& /*deviceName*/) {}

}  // namespace QueryServer
