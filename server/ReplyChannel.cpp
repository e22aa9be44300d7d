#include "server/ReplyChannel.h"

namespace QueryServer {

namespace {

// The closing write of a null buffer: WriteFile refuses it before a byte reaches the pipe, so the
// parent sees exactly the reply and then the disconnect that ends the stream, which is all its
// reading relies on. The write is kept as the server has always made it, failure record and all,
// so that a run's records stay what they have been.
constexpr uint32_t kClosingWriteSize = 2;

}  // namespace

ReplyChannel::~ReplyChannel() {
    // Every way out of a run closes the channel, an early return included: the parent waits for
    // its event and the end of the stream, and must get both even from a run that gave up. On a
    // normal run this repeats Close on a closed channel; the connect then fails on the closed
    // handle and logs once, which nobody reads, and nothing reaches the parent.
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
