#include "client/QueryOutcome.h"

namespace QueryClient {

const char* OutcomeName(Outcome outcome) {
    switch (outcome) {
        case Outcome::Ok:
            return "ok";
        case Outcome::InvalidArgument:
            return "invalid-argument";
        case Outcome::ServerNotStarted:
            return "server-not-started";
        case Outcome::ServerExitedBeforeEvent:
            return "server-exited-before-event";
        case Outcome::TimedOutWaitingForEvent:
            return "timed-out-waiting-for-event";
        case Outcome::PipeNotOpened:
            return "pipe-not-opened";
        case Outcome::ServerNotVerified:
            return "server-not-verified";
        case Outcome::TimedOutReading:
            return "timed-out-reading";
        case Outcome::ServerDied:
            return "server-died";
        case Outcome::ReplyLost:
            return "reply-lost";
        case Outcome::MalformedReply:
            return "malformed-reply";
        case Outcome::SkippedProblemDevice:
            return "skipped-problem-device";
    }
    return "unknown";
}

}  // namespace QueryClient
