#pragma once

#include "DShowCapture/DeviceEnumeration.h"
#include "server/ReplyChannel.h"

#include <vector>

namespace QueryServer {

// Sends the devices as UTF-16LE lines, id and name in turn, each ended by U+000A, one write per
// line. The first line wakes the parent; an empty list sends nothing and leaves the wake to
// Close. A failed connect or write ends the list where it is.
void SendDeviceList(ReplyChannel& channel, const std::vector<DShow::VideoDevice>& devices);

}  // namespace QueryServer
