#pragma once

namespace QueryClient {

// How one query ended, as the parent sees it.
enum class Outcome {
    Ok,
    InvalidArgument,          // a value the server's command line cannot carry
    ServerNotStarted,         // the executable is missing or could not be started
    ServerExitedBeforeEvent,  // it ended without ever waking the parent
    TimedOutWaitingForEvent,  // it never woke the parent within the deadline
    PipeNotOpened,            // woken, but the pipe could not be opened
    ServerNotVerified,        // the pipe's server end belongs to another process
    TimedOutReading,          // the reply did not end within the deadline
    ServerDied,               // the stream ended, but the server did not exit normally
    ReplyLost,                // the server's connect failed twice: it had to drop its reply
    MalformedReply,           // the bytes do not decode
    SkippedProblemDevice,     // not asked: the device hung or crashed the server before
};

// A short stable name of the outcome, as the tool prints it ("ok", "timed-out-reading", ...).
const char* OutcomeName(Outcome outcome);

}  // namespace QueryClient
