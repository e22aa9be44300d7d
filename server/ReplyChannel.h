#pragma once

#include "TinyFramework/Common/TinyCore.h"
#include "TinyFramework/IO/TinyPipe.h"

#include <cstdint>

namespace QueryServer {

// The server's end of the conversation with its parent: the reply pipe and the parent's event.
// The parent is woken (its event set) only when the first reply is ready, or at Close when there
// is none, and the pipe is then connected lazily.
class ReplyChannel {
public:
    ReplyChannel() = default;
    ~ReplyChannel();
    ReplyChannel(const ReplyChannel&) = delete;
    ReplyChannel& operator=(const ReplyChannel&) = delete;

    // Wakes the parent and waits for it when no client is attached yet, then writes. False when
    // the client could not be accepted or nothing was written.
    bool Write(const void* data, uint32_t size);
    // Ends the stream: flushes until the parent has read everything, disconnects and closes.
    void Close();

    TinyFramework::IO::TinyPipeServer pipe;
    TinyFramework::TinyEvent readyEvent;
    TinyFramework::TinyEvent spareEvent;  // never opened; nothing uses it

private:
    bool ConnectIfNeeded();
};

}  // namespace QueryServer
