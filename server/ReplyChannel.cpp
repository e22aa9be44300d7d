#include "server/ReplyChannel.h"

namespace QueryServer {

namespace {

// The stream's end is the disconnect, not this write; the write itself is kept as it stands,
// and its failure is logged like any other.
constexpr uint32_t kClosingWriteSize = 2;

}  // namespace

ReplyChannel::~ReplyChannel() {
    // On a normal run this repeats Close on a closed channel: the connect then fails on the
    // closed handle and logs once, which is harmless.
    Close();
}

bool ReplyChannel::ConnectIfNeeded() {
    if (pipe.IsConnected()) {
        return true;
    }
    readyEvent.SetEvent();
    return pipe.Connect() != FALSE;
}

bool ReplyChannel::Write(const void* data, uint32_t size) {
    if (!ConnectIfNeeded()) {
        return false;
    }
    return pipe.Write(data, size) != 0;
}

void ReplyChannel::Close() {
    if (ConnectIfNeeded()) {
        pipe.Write(nullptr, kClosingWriteSize);
    }
    readyEvent.Close();
    pipe.Close();
}

}  // namespace QueryServer
