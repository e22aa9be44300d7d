#pragma once

#include "TinyFramework/Common/TinyString.h"
#include "server/ReplyChannel.h"

namespace QueryServer {

// Each runs one query and sends its reply. A failed query sends what it found, possibly nothing:
// the parent learns only what the reply holds.
void ReplyVideoDevices(ReplyChannel& channel);
void ReplyAnalogDevices(ReplyChannel& channel);
void ReplyDeviceFormats(ReplyChannel& channel, const TinyFramework::TinyStringW& deviceId,
                        const TinyFramework::TinyStringW& deviceName);

}  // namespace QueryServer
