#include "server/QueryServerRun.h"

#include "server/CommandLine.h"
#include "server/QueryMethods.h"
#include "protocol/QueryProtocol.h"
#include "server/ReplyChannel.h"

#include <objbase.h>

namespace QueryServer {

using TinyFramework::TinyStringW;

namespace {

TinyStringW MakeName(const wchar_t* prefix, const TinyStringW& id) {
    TinyStringW name(prefix);
    name.Append(id);
    return name;
}

void OpenChannel(ReplyChannel& channel, const TinyStringW& id) {
    const TinyStringW pipeName = MakeName(QueryProtocol::kPipeNamePrefix, id);
    const TinyStringW eventName = MakeName(QueryProtocol::kEventNamePrefix, id);
    // Whether the pipe stands is judged by its handle; without the event the parent is simply
    // never woken, and a client that connects anyway is still served.
    channel.pipe.Create(pipeName.GetBuffer());
    channel.readyEvent.Open(0, 0, eventName.GetBuffer());
}

void RunMethod(ReplyChannel& channel, const QueryArguments& arguments) {
    if (arguments.method.Compare(QueryProtocol::kMethodVideoDevices) == 0) {
        ReplyVideoDevices(channel);
    }
    if (arguments.method.Compare(QueryProtocol::kMethodAnalogDevices) == 0) {
        ReplyAnalogDevices(channel);
    }
    if (arguments.method.Compare(QueryProtocol::kMethodDeviceFormats) == 0) {
        ReplyDeviceFormats(channel, arguments.device_id, arguments.device_name);
    }
}

}  // namespace

int RunQueryServer(int argc, const wchar_t* const* argv) {
    QueryArguments arguments;
    ReadArguments(argc, argv, arguments);

    ReplyChannel channel;
    OpenChannel(channel, arguments.id);
    if (channel.pipe.Handle() == INVALID_HANDLE_VALUE) {
        return 0;  // the channel's destructor still wakes the parent
    }
    // Only a fresh apartment counts; the apartment is left when the process ends.
    if (CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED) != S_OK) {
        return 0;
    }
    RunMethod(channel, arguments);
    channel.Close();
    return 0;
}

}  // namespace QueryServer
